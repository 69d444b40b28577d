// The trace handle of the connected-route model ("IntfBacklog").
#pragma once

#include "platform/trace/Trace.h"

namespace Routing::ConnectedRoute {

const Vok::TraceHandle& intfBacklogTrace();

}  // namespace Routing::ConnectedRoute
