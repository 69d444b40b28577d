#include "platform/vok/TypeRegistry.h"

#include <stdexcept>

namespace Vok {

TypeRegistry& TypeRegistry::instance() {
   static TypeRegistry registry;
   return registry;
}

void TypeRegistry::add(TypeInfo info) {
   std::string name = info.name;
   bool inserted = types_.emplace(std::move(name), std::move(info)).second;
   VOK_ASSERT(inserted, "type registered twice");
}

const TypeInfo* TypeRegistry::find(std::string_view name) const {
   auto it = types_.find(name);
   return it == types_.end() ? nullptr : &it->second;
}

const TypeInfo& TypeRegistry::type(std::string_view name) const {
   if (const TypeInfo* info = find(name)) {
      return *info;
   }
   throw std::out_of_range("unknown type '" + std::string(name) + "'");
}

std::string genericStrep(std::string_view typeName, const std::any& value) {
   const TypeInfo& info = TypeRegistry::instance().type(typeName);
   if (!info.strep) {
      throw std::logic_error("type '" + info.name + "' has no text form");
   }
   return info.strep(value);
}

std::any genericParse(std::string_view typeName, std::string_view text) {
   const TypeInfo& info = TypeRegistry::instance().type(typeName);
   if (!info.parse) {
      throw std::logic_error("type '" + info.name + "' cannot be parsed");
   }
   return info.parse(text);
}

std::uint32_t genericHash(std::string_view typeName, const std::any& value) {
   const TypeInfo& info = TypeRegistry::instance().type(typeName);
   if (!info.hash) {
      throw UnhashableTypeError(info.name);
   }
   return info.hash(value);
}

Ptr<Entity> genericCreate(std::string_view typeName, const std::string& name) {
   const TypeInfo& info = TypeRegistry::instance().type(typeName);
   if (!info.create) {
      throw std::logic_error("type '" + info.name + "' is not an entity type");
   }
   return info.create(name);
}

}  // namespace Vok
