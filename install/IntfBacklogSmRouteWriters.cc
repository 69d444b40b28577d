// The installer's four route writers: the per-VRF route tables, or, with
// "VrfScaleToggle" on, the RIB's query tables. Which pair is used is decided
// at each call site; a replacement is always one add over the old row.
#include "install/IntfBacklogSm.h"
#include "install/IntfBacklogSmTrace.h"
#include "platform/trace/Zipmark.h"

namespace Routing::ConnectedRoute {

void IntfBacklogSm::doRouteConfigAdd(const Ovel::IntfId& intfId, Rib::RouteConfig* routeConfig,
                                     const Ovel::IpGenPrefix& prefix, Rib::ViaSetKey viaSetKey,
                                     Fib::RouteType routeType) {
   routeConfigAdd(ownerNumberOf(intfId), &intfId, routeConfig, prefix, viaSetKey, routeType, nullptr);
}

void IntfBacklogSm::routeConfigAdd(IntfNumber owner, const Ovel::IntfId* intfId,
                                   Rib::RouteConfig* routeConfig, const Ovel::IpGenPrefix& prefix,
                                   Rib::ViaSetKey viaSetKey, Fib::RouteType routeType,
                                   PrefixRecord* record) {
   Vok::ValidPtr<Rib::RouteConfig> table(routeConfig);
   VOK_TRACE(intfBacklogSmTrace(), 8, describe(),
             "intf=" << ownerName(owner, intfId) << " prefix=" << prefix << " viaSetKeyId " << viaSetKey);
   ZIPMARK(1, "doRouteConfigAdd", Zipmark::text("vrf=", vrfName_.str()),
           Zipmark::text(" intf=", ownerName(owner, intfId).name()), Zipmark::text(" prefix=", prefix.toString()),
           Zipmark::integer(" viaSetKeyId ", viaSetKey.value()));
   recordOwner(prefix, owner, record);
   table->routeAdd(Rib::connectedRoute(prefix, viaSetKey, routeType));
}

const Ovel::IntfId& IntfBacklogSm::ownerName(IntfNumber owner, const Ovel::IntfId* intfId) const {
   return intfId ? *intfId : intfBacklog_->intfNumbers().name(owner);
}

void IntfBacklogSm::doRouteConfigDel(const Ovel::IntfId& intfId, Rib::RouteConfig* routeConfig,
                                     const Ovel::IpGenPrefix& prefix, Rib::ViaSetKey viaSetKey) {
   Vok::ValidPtr<Rib::RouteConfig> table(routeConfig);
   VOK_TRACE(intfBacklogSmTrace(), 8, describe(), "intf=" << intfId << " prefix=" << prefix);
   ZIPMARK(1, "doRouteConfigDel", Zipmark::text("vrf=", vrfName_.str()),
           Zipmark::text(" intf=", intfId.name()), Zipmark::text(" prefix=", prefix.toString()),
           Zipmark::integer(" viaSetKeyId ", viaSetKey.value()));
   table->routeDel(prefix);
   forgetOwner(prefix);
}

void IntfBacklogSm::doOrmoRouteConfigAdd(const Ovel::IntfId& intfId,
                                         Rib::IpRibRouteOrqTable* queryTable,
                                         const Ovel::IpGenPrefix& prefix, Rib::ViaSetKey viaSetKey,
                                         Fib::RouteType routeType) {
   ormoRouteConfigAdd(ownerNumberOf(intfId), &intfId, queryTable, prefix, viaSetKey, routeType,
                      nullptr);
}

void IntfBacklogSm::ormoRouteConfigAdd(IntfNumber owner, const Ovel::IntfId* intfId,
                                       Rib::IpRibRouteOrqTable* queryTable,
                                       const Ovel::IpGenPrefix& prefix, Rib::ViaSetKey viaSetKey,
                                       Fib::RouteType routeType, PrefixRecord* record) {
   Vok::ValidPtr<Rib::IpRibRouteOrqTable> table(queryTable);
   VOK_TRACE(intfBacklogSmTrace(), 8, describe(),
             "intf=" << ownerName(owner, intfId) << " prefix=" << prefix << " viaSetKeyId " << viaSetKey);
   ZIPMARK(1, "doOrmoRouteConfigAdd", Zipmark::text("vrf=", vrfName_.str()),
           Zipmark::text(" intf=", ownerName(owner, intfId).name()), Zipmark::text(" prefix=", prefix.toString()),
           Zipmark::integer(" viaSetKeyId ", viaSetKey.value()));
   recordOwner(prefix, owner, record);
   Rib::IpRibRouteOrq row;
   row.keyIs(Rib::OrqKey{vrfId_, prefix});
   row.set(vrfId_, prefix, Rib::RoutingProtocol::connected, MetricPref{0, 0}, viaSetKey,
           Rib::kUnassignedFecIndex, routeType, 0);
   table->rowIs(row);
}

void IntfBacklogSm::doOrmoRouteConfigDel(const Ovel::IntfId& intfId,
                                         Rib::IpRibRouteOrqTable* queryTable,
                                         const Ovel::IpGenPrefix& prefix,
                                         Rib::ViaSetKey viaSetKey) {
   Vok::ValidPtr<Rib::IpRibRouteOrqTable> table(queryTable);
   VOK_TRACE(intfBacklogSmTrace(), 8, describe(), "intf=" << intfId << " prefix=" << prefix);
   ZIPMARK(1, "doOrmoRouteConfigDel", Zipmark::text("vrf=", vrfName_.str()),
           Zipmark::text(" intf=", intfId.name()), Zipmark::text(" prefix=", prefix.toString()),
           Zipmark::integer(" viaSetKeyId ", viaSetKey.value()));
   Rib::IpRibRouteOrq row;
   row.keyIs(Rib::OrqKey{vrfId_, prefix});
   table->rowDel(row);  // issued whether or not the row exists
   forgetOwner(prefix);
}

}  // namespace Routing::ConnectedRoute
