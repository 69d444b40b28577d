// The trace handle of interface tracking and the VRF lifecycle
// ("ConnectedRoute"), and the "[vrf,intf]" description of per-interface
// machines.
#pragma once

#include <string>

#include "platform/l3/VrfName.h"
#include "platform/ovel/IntfId.h"
#include "platform/trace/Trace.h"

namespace Routing::ConnectedRoute {

const Vok::TraceHandle& connectedRouteTrace();

inline const char* flagText(bool value) { return value ? "true" : "false"; }

inline std::string describeIntf(const L3::VrfName& vrfName, const Ovel::IntfId& intfId) {
   return vrfName.str() + "," + std::string(intfId.name());
}

}  // namespace Routing::ConnectedRoute
