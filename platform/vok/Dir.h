// A directory of named entities, created by registered type name.
//
// Other agents find shared entities by name in a directory (the RIB reads the
// protocol VRF status entities this way), so a directory creates entities
// through the type registry and notifies per name when one comes or goes.
// Names iterate in sorted order.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "platform/vok/Notifier.h"
#include "platform/vok/TypeRegistry.h"

namespace Vok {

class DirNotifiee : public ReactorBase {
 public:
   virtual void onEntity(const std::string& /*name*/) {}
};

class Dir final : public Notifier<DirNotifiee> {
 public:
   explicit Dir(std::string name) : name_(std::move(name)) {}

   const std::string& name() const noexcept { return name_; }
   std::size_t size() const noexcept { return entries_.size(); }

   Ptr<Entity> entity(std::string_view name) const;
   template <class T>
   Ptr<T> entityAs(std::string_view name) const {
      return Ptr<T>(dynamic_cast<T*>(entity(name).get()));
   }
   // The type name the entity was created with, or empty.
   std::string typeName(std::string_view name) const;

   // Returns the entity of that name, creating it through the type registry
   // if absent. An existing entity of another type is a wiring fault and
   // raises std::logic_error.
   Ptr<Entity> entityIs(const std::string& name, std::string_view typeName);
   template <class T>
   Ptr<T> entityIs(const std::string& name, std::string_view typeName) {
      return Ptr<T>(dynamic_cast<T*>(entityIs(name, typeName).get()));
   }
   bool entityDel(std::string name);

   template <class Fn>
   void forEachName(Fn&& fn) const {
      for (const auto& [name, entry] : entries_) {
         fn(name);
      }
   }

 private:
   struct Entry {
      std::string typeName;
      Ptr<Entity> entity;
   };
   std::string name_;
   std::map<std::string, Entry, std::less<>> entries_;
};

}  // namespace Vok
