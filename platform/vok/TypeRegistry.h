// The runtime's type registry: full type names with their attribute names,
// and the generic text form, parse, hash and construction that go through it.
//
// Registration is mechanical and adds no behaviour: a value type hands over
// its own toString/parse/hash, an entity type its factory. A type registered
// without a hash is unhashable, and asking for its generic hash raises
// UnhashableTypeError.
//
//   Vok::registerValueType<IntfIdAndPrefix>(
//         "Routing::ConnectedRoute::IntfIdAndPrefix", {"intfId", "genPrefix"});
//   std::string text = Vok::genericStrep("Routing::ConnectedRoute::IntfIdAndPrefix", value);
#pragma once

#include <any>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/vok/Entity.h"
#include "platform/vok/Errors.h"

namespace Vok {

struct TypeInfo {
   std::string name;
   std::vector<std::string> attributes;
   std::function<std::string(const std::any&)> strep;
   std::function<std::any(std::string_view)> parse;    // throws ParseError
   std::function<std::uint32_t(const std::any&)> hash;  // empty: unhashable
   std::function<Ptr<Entity>(const std::string& name)> create;  // entity types only
};

class TypeRegistry {
 public:
   static TypeRegistry& instance();

   // Adds a type; registering one name twice is a programming error.
   void add(TypeInfo info);
   const TypeInfo* find(std::string_view name) const;
   // Throws std::out_of_range naming the type when it is not registered.
   const TypeInfo& type(std::string_view name) const;

 private:
   std::map<std::string, TypeInfo, std::less<>> types_;
};

std::string genericStrep(std::string_view typeName, const std::any& value);
std::any genericParse(std::string_view typeName, std::string_view text);
std::uint32_t genericHash(std::string_view typeName, const std::any& value);
Ptr<Entity> genericCreate(std::string_view typeName, const std::string& name);

enum class Hashable { no, yes };

// Registers a value type through its own toString(), parse() and, if
// hashable, hash() members.
template <class T>
bool registerValueType(std::string name, std::vector<std::string> attributes,
                       Hashable hashable = Hashable::no) {
   TypeInfo info{std::move(name), std::move(attributes), {}, {}, {}, {}};
   info.strep = [](const std::any& v) { return std::any_cast<const T&>(v).toString(); };
   info.parse = [](std::string_view text) { return std::any(T::parse(text)); };
   if constexpr (requires(const T& t) { t.hash(); }) {
      if (hashable == Hashable::yes) {
         info.hash = [](const std::any& v) {
            return static_cast<std::uint32_t>(std::any_cast<const T&>(v).hash());
         };
      }
   }
   TypeRegistry::instance().add(std::move(info));
   return true;
}

// Registers an entity type that a directory can create by type name.
template <class T>
bool registerEntityType(std::string name, std::vector<std::string> attributes) {
   TypeInfo info{std::move(name), std::move(attributes), {}, {}, {}, {}};
   info.create = [](const std::string& entityName) { return Ptr<Entity>(new T(entityName)); };
   TypeRegistry::instance().add(std::move(info));
   return true;
}

}  // namespace Vok
