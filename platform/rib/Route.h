// A route row of the RIB's per-VRF route tables and of its query tables.
#pragma once

#include <cstdint>
#include <iosfwd>

#include "platform/ovel/IpGenPrefix.h"
#include "platform/rib/RouteType.h"
#include "platform/rib/ViaSetKey.h"
#include "platform/vrf/VrfId.h"

namespace Routing::Rib {

enum class RoutingProtocol : std::uint32_t { unknown = 0, connected = 1 };

}  // namespace Routing::Rib

namespace Routing {

struct MetricPref {
   std::uint32_t metric = 0;
   std::uint32_t preference = 0;
   friend bool operator==(const MetricPref&, const MetricPref&) = default;
};

}  // namespace Routing

namespace Routing::Rib {

// Index the RIB assigns in the forwarding layer; a writer leaves it unassigned.
inline constexpr std::uint32_t kUnassignedFecIndex = 0xFFFFFFFF;

struct Route {
   Ovel::IpGenPrefix prefix;
   RoutingProtocol routingProtocol = RoutingProtocol::unknown;
   MetricPref metricPref;
   ViaSetKey viaSetKey;
   std::uint32_t fecIndex = kUnassignedFecIndex;
   Fib::RouteType routeType = Fib::RouteType::none;
   std::uint32_t flags = 0;
   friend bool operator==(const Route&, const Route&) = default;
};

std::ostream& operator<<(std::ostream& os, const Route& route);

// A connected route as its writer leaves it: no metric, no forwarding index.
inline Route connectedRoute(const Ovel::IpGenPrefix& prefix, ViaSetKey viaSetKey,
                            Fib::RouteType routeType) {
   return Route{prefix, RoutingProtocol::connected, MetricPref{0, 0}, viaSetKey,
                kUnassignedFecIndex, routeType, 0};
}

// Key of a query-table row: one table serves every VRF.
struct OrqKey {
   Vrf::VrfIdMap::VrfId vrfId;
   Ovel::IpGenPrefix prefix;
   friend bool operator==(const OrqKey&, const OrqKey&) = default;
};
static_assert(std::has_unique_object_representations_v<OrqKey>);

// A row of the query table: the route fields behind a (VRF, prefix) key.
class IpRibRouteOrq {
 public:
   const OrqKey& key() const noexcept { return key_; }
   void keyIs(const OrqKey& key) noexcept { key_ = key; }
   const Route& route() const noexcept { return route_; }
   void set(Vrf::VrfIdMap::VrfId vrfId, const Ovel::IpGenPrefix& prefix,
            RoutingProtocol routingProtocol, MetricPref metricPref, ViaSetKey viaSetKey,
            std::uint32_t fecIndex, Fib::RouteType routeType, std::uint32_t flags) {
      key_ = OrqKey{vrfId, prefix};
      route_ = Route{prefix, routingProtocol, metricPref, viaSetKey, fecIndex, routeType, flags};
   }
   friend bool operator==(const IpRibRouteOrq&, const IpRibRouteOrq&) = default;

 private:
   OrqKey key_;
   Route route_;
};

}  // namespace Routing::Rib
