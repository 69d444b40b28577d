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

std::optional<VrfTablePath> parseVrfTablePath(std::string_view path) {
   for (std::string_view head : {"routing/rib/routeConfig/ipv", "routing/rib/viaConfig/ipv"}) {
      if (!path.starts_with(head)) {
         continue;
      }
      VrfTablePath parsed{head.find("route") != std::string_view::npos, 0, 0};
      path.remove_prefix(head.size());
      if (path.size() < 2 || (path[0] != '4' && path[0] != '6') || path[1] != '/') {
         return std::nullopt;
      }
      parsed.family = path[0] - '0';
      path.remove_prefix(2);
      constexpr std::string_view tail = "/connected";
      if (!path.ends_with(tail)) {
         return std::nullopt;
      }
      path.remove_suffix(tail.size());
      auto [end, error] = std::from_chars(path.data(), path.data() + path.size(), parsed.vrfId);
      if (error != std::errc() || end != path.data() + path.size()) {
         return std::nullopt;
      }
      return parsed;
   }
   return std::nullopt;
}

}  // namespace App
