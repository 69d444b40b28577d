// The candidate owners of one prefix: one entry per (interface, address with
// mask) falling into it, with the route that address asks for. A value, as
// the store's generic setter takes a set and its readers copy one; the store
// keeps each prefix's candidates in its record (PrefixRecords.h) in the
// same order.
//
// The installer takes the first entry in the set's order as the prefix's
// owner, so ownership follows from the set of candidates alone. The order is
// the runtime hash map's: (hash, bytes) of the keys, the hash as the map
// places it (Vok::placedHash). The set raises no notifications; the store
// announces changes per prefix.
//
// Nearly every prefix has one candidate, so one entry is kept inline, in the
// set itself; a second one moves both into a map, and the map gives its last
// entry back to the inline place. The order is unaffected: a single entry is
// first whatever the order.
#pragma once

#include <memory>
#include <optional>
#include <utility>
#include <variant>

#include "model/ValueRecords.h"
#include "platform/vok/HashMap.h"

namespace Routing::ConnectedRoute {

class IntfIdSet final {
 public:
   using Entries = Vok::HashMap<IntfIdAndAddr, ConnectedRouteProperty>;

   // One entry, as the set's walks hand it out: a copy, since the store
   // keeps a prefix's single candidate without its interface's name.
   struct Entry {
      IntfIdAndAddr key;
      ConnectedRouteProperty property;
   };

   IntfIdSet() = default;
   IntfIdSet(const IntfIdSet& other) { *this = other; }
   // A set moved from is left empty, never holding a released map.
   IntfIdSet(IntfIdSet&& other) noexcept : entries_(std::exchange(other.entries_, std::monostate())) {}
   IntfIdSet& operator=(const IntfIdSet& other) {
      if (const auto* many = std::get_if<Many>(&other.entries_)) {
         entries_ = std::make_unique<Entries>(**many);
      } else if (const Single* single = std::get_if<Single>(&other.entries_)) {
         entries_ = *single;
      } else {
         entries_ = std::monostate();
      }
      return *this;
   }
   IntfIdSet& operator=(IntfIdSet&& other) noexcept {
      entries_ = std::exchange(other.entries_, std::monostate());
      return *this;
   }
   void clear() noexcept { entries_.emplace<std::monostate>(); }

   // The same entries, in the same order.
   friend bool operator==(const IntfIdSet& a, const IntfIdSet& b) {
      if (a.intfIdAndAddrs() != b.intfIdAndAddrs()) {
         return false;
      }
      bool same = true;
      a.forEach([&](const Entry& entry) {
         const ConnectedRouteProperty* other = b.intfIdAndAddr(entry.key);
         same = same && other && *other == entry.property;
      });
      return same;
   }

   // Inserts the entry, or writes the property over the existing one.
   void intfIdAndAddrIs(const IntfIdAndAddr& key, const ConnectedRouteProperty& property) {
      if (Many* many = std::get_if<Many>(&entries_)) {
         (*many)->insertOrAssign(key, property);
      } else if (Single* single = std::get_if<Single>(&entries_)) {
         if (single->first == key) {
            single->second = property;
            return;
         }
         auto both = std::make_unique<Entries>();
         both->insertOrAssign(single->first, single->second);
         both->insertOrAssign(key, property);
         entries_ = std::move(both);
      } else {
         entries_.emplace<Single>(key, property);
      }
   }
   void intfIdAndAddrDel(IntfIdAndAddr key) {
      if (const Single* single = std::get_if<Single>(&entries_)) {
         if (single->first == key) {
            entries_ = std::monostate();
         }
         return;
      }
      Many* many = std::get_if<Many>(&entries_);
      if (many && (*many)->erase(key) && (*many)->size() == 1) {
         const auto& [lastKey, lastProperty] = *(*many)->begin();
         entries_ = Single(lastKey, lastProperty);
      }
   }
   const ConnectedRouteProperty* intfIdAndAddr(const IntfIdAndAddr& key) const {
      if (const Single* single = std::get_if<Single>(&entries_)) {
         return single->first == key ? &single->second : nullptr;
      }
      const Many* many = std::get_if<Many>(&entries_);
      return many ? (*many)->lookup(key) : nullptr;
   }
   std::size_t intfIdAndAddrs() const noexcept {
      if (std::holds_alternative<Single>(entries_)) {
         return 1;
      }
      const Many* many = std::get_if<Many>(&entries_);
      return many ? (*many)->size() : 0;
   }

   // The first entry in the set's order: the prefix's owner.
   std::optional<Entry> first() const {
      if (const Single* single = std::get_if<Single>(&entries_)) {
         return Entry{single->first, single->second};
      }
      const Many* many = std::get_if<Many>(&entries_);
      if (!many || (*many)->empty()) {
         return std::nullopt;
      }
      const auto& [key, property] = *(*many)->begin();
      return Entry{key, property};
   }
   // Every entry, in the set's order.
   template <class Fn>
   void forEach(Fn&& visit) const {
      if (const Single* single = std::get_if<Single>(&entries_)) {
         visit(Entry{single->first, single->second});
      } else if (const Many* many = std::get_if<Many>(&entries_)) {
         for (const auto& [key, property] : **many) {
            visit(Entry{key, property});
         }
      }
   }

 private:
   using Single = std::pair<IntfIdAndAddr, ConnectedRouteProperty>;
   using Many = std::unique_ptr<Entries>;

   // No entry, one entry inline, or two and more in a map of their own.
   std::variant<std::monostate, Single, Many> entries_;
};

}  // namespace Routing::ConnectedRoute
