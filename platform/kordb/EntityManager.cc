#include "platform/kordb/EntityManager.h"

#include <algorithm>
#include <stdexcept>

namespace Kordb {

namespace {

struct MountableType {
   std::vector<std::string> collections;
   AttachFunction attach;
};

std::map<std::string, MountableType, std::less<>>& mountableTypes() {
   static std::map<std::string, MountableType, std::less<>> types;
   return types;
}

struct PersistentType {
   std::string layout;
   PersistFunction persist;
};

std::map<std::string, PersistentType, std::less<>>& persistentTypes() {
   static std::map<std::string, PersistentType, std::less<>> types;
   return types;
}

}  // namespace

bool registerMountableType(std::string typeName, std::vector<std::string> collections,
                           AttachFunction attach) {
   mountableTypes()[std::move(typeName)] = {std::move(collections), std::move(attach)};
   return true;
}

bool registerPersistentType(std::string typeName, std::string layout, PersistFunction persist) {
   persistentTypes()[std::move(typeName)] = {std::move(layout), std::move(persist)};
   return true;
}

std::string persistentLayout() {
   std::string layout = "connroute-tables 3";
   for (const auto& [name, type] : persistentTypes()) {
      layout += "; " + name + " " + type.layout;
   }
   return layout;
}

Vok::Ptr<VokPlim::Mount> EntityManager::mount(const std::string& path, std::string_view typeName,
                                              const MountDescription& description,
                                              MountMode mode) const {
   auto type = mountableTypes().find(typeName);
   if (type == mountableTypes().end()) {
      throw std::invalid_argument("cannot mount '" + path + "': unknown type '" +
                                  std::string(typeName) + "'");
   }
   for (const CollectionSize& c : description.collections) {
      const auto& known = type->second.collections;
      if (std::find(known.begin(), known.end(), c.name) == known.end()) {
         throw std::invalid_argument("cannot mount '" + path + "': type '" +
                                     std::string(typeName) + "' has no collection '" + c.name +
                                     "'");
      }
   }
   auto [it, created] = contents_.try_emplace(path);
   Contents& contents = it->second;
   if (!contents.typeName.empty() && contents.typeName != typeName) {
      throw std::invalid_argument("cannot mount '" + path + "' as '" + std::string(typeName) +
                                  "': it holds a '" + contents.typeName + "'");
   }
   Vok::Ptr<VokPlim::Mount> mount;
   try {
      Vok::Ptr<Vok::Entity> entity = type->second.attach(contents.backing, mode == MountMode::write);
      if (created && rowDatabase_) {
         if (auto persistent = persistentTypes().find(typeName); persistent != persistentTypes().end()) {
            persistent->second.persist(*contents.backing, rowDatabase_, path);
         }
      }
      mount = Vok::make<VokPlim::Mount>(Vok::Ptr<const EntityManager>(this), path, entity);
   } catch (...) {
      if (created) {
         contents_.erase(it);  // no contents of no type are left at the path
      }
      throw;
   }
   // Counted only once nothing can fail: a mount that was never handed out
   // is never unmounted.
   contents.typeName = typeName;
   ++contents.mounts;
   ++mounted_;
   return mount;
}

std::vector<std::string> EntityManager::paths() const {
   std::vector<std::string> result;
   for (const auto& [path, contents] : contents_) {
      result.push_back(path);
   }
   return result;
}

std::string EntityManager::typeName(const std::string& path) const {
   auto it = contents_.find(path);
   return it == contents_.end() ? std::string() : it->second.typeName;
}

bool EntityManager::cleanup(const std::string& path) {
   auto it = contents_.find(path);
   if (it == contents_.end() || it->second.mounts > 0) {
      return false;
   }
   contents_.erase(it);
   return true;
}

}  // namespace Kordb

namespace VokPlim {

void Mount::unmount() {
   if (!mounted_) {
      return;
   }
   mounted_ = false;
   --manager_->mounted_;
   --manager_->contents_[path_].mounts;
}

}  // namespace VokPlim
