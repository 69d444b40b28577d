// A plain set of VRF names: a snapshot of container names, so that deleting
// every container never iterates the map it deletes from.
#pragma once

#include <set>

#include "platform/l3/VrfName.h"

namespace Routing::ConnectedRoute {

class VrfNameSet {
 public:
   const std::set<L3::VrfName>& vrfName() const noexcept { return names_; }
   void vrfNameIs(const L3::VrfName& name) { names_.insert(name); }
   void vrfNameDel(const L3::VrfName& name) { names_.erase(name); }
   void vrfNameDelAll() { names_.clear(); }

 private:
   std::set<L3::VrfName> names_;
};

}  // namespace Routing::ConnectedRoute
