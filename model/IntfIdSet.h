// The candidate owners of one prefix: one entry per (interface, address with
// mask) falling into it, with the route that address asks for.
//
// The installer takes the first entry in the map's iteration order as the
// prefix's owner, so ownership follows from the set of candidates alone.
// The set raises no notifications; the store announces changes per prefix.
#pragma once

#include "model/ValueRecords.h"
#include "platform/vok/Entity.h"
#include "platform/vok/HashMap.h"

namespace Routing::ConnectedRoute {

class IntfIdSet final : public Vok::Entity {
 public:
   using Entries = Vok::HashMap<IntfIdAndAddr, ConnectedRouteProperty>;

   explicit IntfIdSet(const Ovel::IpGenPrefix& genPrefix) : genPrefix_(genPrefix) {}

   const Ovel::IpGenPrefix& genPrefix() const noexcept { return genPrefix_; }

   // Inserts the entry, or writes the property over the existing one.
   void intfIdAndAddrIs(const IntfIdAndAddr& key, const ConnectedRouteProperty& property) {
      entries_.insertOrAssign(key, property);
   }
   void intfIdAndAddrDel(IntfIdAndAddr key) { entries_.erase(key); }
   const ConnectedRouteProperty* intfIdAndAddr(const IntfIdAndAddr& key) const {
      return entries_.lookup(key);
   }
   std::size_t intfIdAndAddrs() const noexcept { return entries_.size(); }
   const Entries& entries() const noexcept { return entries_; }

 private:
   Ovel::IpGenPrefix genPrefix_;
   Entries entries_;
};

inline Vok::Ptr<IntfIdSet> intfIdSetFactory(const Ovel::IpGenPrefix& prefix) {
   return Vok::make<IntfIdSet>(prefix);
}

}  // namespace Routing::ConnectedRoute
