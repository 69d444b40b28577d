// The RIB's table rows as the outputs print them: shared by the dumps (from
// the engine's own tables) and by `connroute show` (from a table directory).
#pragma once

#include <cstdint>

#include "app/Dump.h"
#include "platform/ovel/IntfId.h"
#include "platform/rib/Route.h"
#include "platform/rib/Via.h"
#include "platform/rib/ViaSet.h"

namespace App {

RouteRow routeRow(const Routing::Rib::Route& r, const Ovel::IntfId& owner);
RouteRow routeRow(const Routing::Rib::Route& r, std::string owner);
ViaRow viaRow(const Routing::Rib::Via& v);
ViaSetRow viaSetRow(const Routing::Rib::Plim::ViaSet& v);

}  // namespace App
