#include "platform/vok/Dir.h"

#include <stdexcept>

namespace Vok {

Ptr<Entity> Dir::entity(std::string_view name) const {
   auto it = entries_.find(name);
   return it == entries_.end() ? Ptr<Entity>() : it->second.entity;
}

std::string Dir::typeName(std::string_view name) const {
   auto it = entries_.find(name);
   return it == entries_.end() ? std::string() : it->second.typeName;
}

Ptr<Entity> Dir::entityIs(const std::string& name, std::string_view typeName) {
   if (auto it = entries_.find(name); it != entries_.end()) {
      if (it->second.typeName != typeName) {
         throw std::logic_error("entity '" + name + "' in directory '" + name_ + "' has type '" +
                                it->second.typeName + "', not '" + std::string(typeName) + "'");
      }
      return it->second.entity;
   }
   Ptr<Entity> created = genericCreate(typeName, name);
   entries_.emplace(name, Entry{std::string(typeName), created});
   notify([&](DirNotifiee& n) { n.onEntity(name); });
   return created;
}

bool Dir::entityDel(std::string name) {
   auto it = entries_.find(name);
   if (it == entries_.end()) {
      return false;
   }
   // The entity may outlive its entry while a watcher still holds it.
   Ptr<Entity> keep = std::move(it->second.entity);
   entries_.erase(it);
   notify([&](DirNotifiee& n) { n.onEntity(name); });
   return true;
}

}  // namespace Vok
