// The trace handle of the route installer ("IntfBacklogSm"), and the
// process-wide "VrfScaleToggle" that sends routes to the RIB's query tables.
#pragma once

#include "platform/agent/FeatureToggle.h"
#include "platform/trace/Trace.h"

namespace Routing::ConnectedRoute {

const Vok::TraceHandle& intfBacklogSmTrace();
const Agent::FeatureToggle& vrfScaleToggle();

}  // namespace Routing::ConnectedRoute
