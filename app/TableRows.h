// The RIB's table rows as the outputs print them, and what a table's path
// says about it: shared by the dumps (from the engine's own tables) and by
// `connroute show` (from a table directory).
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

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

// A per-VRF table's path: "routing/rib/<routeConfig|viaConfig>/ipv<4|6>/<id>/connected".
struct VrfTablePath {
   bool routes;  // routeConfig; viaConfig otherwise
   int family;   // 4 or 6
   std::uint32_t vrfId;
};
std::optional<VrfTablePath> parseVrfTablePath(std::string_view path);

}  // namespace App
