#include "app/TableRows.h"

#include <charconv>
#include <string>

namespace App {

namespace Rib = Routing::Rib;

RouteRow routeRow(const Rib::Route& r, std::string owner) {
   return RouteRow{r.prefix.toString(), static_cast<unsigned>(r.routeType), r.viaSetKey.value(),
                   std::move(owner), static_cast<std::uint32_t>(r.routingProtocol), r.metricPref.metric,
                   r.metricPref.preference, r.fecIndex, r.flags};
}

RouteRow routeRow(const Rib::Route& r, const Ovel::IntfId& owner) {
   return routeRow(r, owner.empty() ? "-" : std::string(owner.name()));
}

ViaRow viaRow(const Rib::Via& v) {
   return ViaRow{v.key.toString(), v.nexthop.toString(), std::string(v.intfId.name()), v.flags, v.kind};
}

ViaSetRow viaSetRow(const Rib::Plim::ViaSet& v) {
   return ViaSetRow{v.key.value(), static_cast<unsigned>(v.kind), v.via.viaKey.toString(),
                    static_cast<std::uint32_t>(v.via.rp), v.viaCount};
}

}  // namespace App
