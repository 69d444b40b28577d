// A keyed collection of owned entities, for entities that publish one
// (a VRF's interface statuses, the VRFs of a status root). It keeps the
// map and says whether a change happened; the owner notifies, under its own
// attribute's name.
#pragma once

#include <stdexcept>
#include <string>

#include "platform/vok/Entity.h"
#include "platform/vok/Errors.h"

namespace Vok {

template <class Map>
class EntityCollection {
 public:
   using Key = typename Map::key_type;
   using Value = typename Map::mapped_type;  // a Vok::Ptr

   const Map& map() const noexcept { return map_; }

   Value get(const Key& key) const {
      if constexpr (requires { map_.lookup(key); }) {
         const Value* found = map_.lookup(key);
         return found ? *found : Value();
      } else {
         auto it = map_.find(key);
         return it == map_.end() ? Value() : it->second;
      }
   }

   // Puts `value` under `key`; false when that very entity is there already.
   // A null entity is refused with the runtime's text for the attribute.
   bool put(const Key& key, const Value& value, const std::string& attribute,
            const std::string& qualifiedAttribute) {
      if (!value) {
         throw std::range_error(nullMutatorParameterText(attribute, qualifiedAttribute));
      }
      if constexpr (requires { map_.tryEmplace(key, value); }) {
         auto [stored, inserted] = map_.tryEmplace(key, value);
         if (!inserted && *stored == value) {
            return false;
         }
         *stored = value;
      } else {
         auto [it, inserted] = map_.try_emplace(key, value);
         if (!inserted && it->second == value) {
            return false;
         }
         it->second = value;
      }
      return true;
   }

   bool del(const Key& key) { return map_.erase(key) > 0; }

 private:
   Map map_;
};

}  // namespace Vok
