// One VRF's store and installer over in-memory RIB tables, on virtual time.
//
// Time advances by `step` on every reading, which models the processing
// time of each backlog entry so that 80 ms drain slices end and resume
// exactly as they would on a machine, reproducibly.
#pragma once

#include <string>

#include "install/IntfBacklogSm.h"
#include "platform/kordb/EntityManager.h"

namespace Testing {

struct RibTables {
   // With `db`, the tables keep their rows in that table directory.
   explicit RibTables(Vrf::VrfIdMap::VrfId vrfId, std::shared_ptr<Plim::RowDatabase> db = nullptr);

   Vok::Ptr<Routing::Rib::Ip::ViaConfig> via4, via6;
   Vok::Ptr<Routing::Rib::RouteConfig> route4, route6;
   Vok::Ptr<Routing::Rib::IpRibRouteOrqTable> query4, query6;
   Vok::Ptr<Routing::Rib::ViaSetConfig> viaSets;
   Vok::Ptr<Kordb::EntityManager> entityManager;  // with a table directory only
};

class InstallerHarness {
 public:
   explicit InstallerHarness(Vok::Seconds step = 1e-6, std::string vrfName = "red",
                             Vrf::VrfIdMap::VrfId vrfId = Vrf::VrfIdMap::VrfId(7));

   // Runs clocks until none is armed (at most an hour of virtual time).
   void drain();
   void advance(Vok::Seconds delta) { am.advanceBy(time, delta); }

   // What an address machine does for one subnet candidate: keys first,
   // then the candidate, then the interface's count; and the reverse.
   void addSubnet(const Ovel::IntfId& intfId, std::string_view addrWithMask);
   void delSubnet(const Ovel::IntfId& intfId, std::string_view addrWithMask);
   Routing::ConnectedRoute::IntfViaSetKeyStatus& keyStatus(Ovel::AddressFamily af);
   // The installed route of a prefix, or null.
   const Routing::Rib::Route* route(std::string_view prefix);

   Vok::ManualTimeSource time;
   Vok::ActivityManager am{time};
   Vrf::VrfIdMap::VrfId vrfId;
   RibTables tables;
   Vok::Ptr<Ip::Status> ipStatus = Vok::make<Ip::Status>();
   Vok::Ptr<Ip6::Status> ip6Status = Vok::make<Ip6::Status>();
   Vok::Ptr<Routing::ConnectedRoute::IntfBacklog> store;
   Vok::Ptr<Routing::ConnectedRoute::IntfBacklogSm> sm;
};

// Shorthands for test data.
Ovel::IntfId intf(std::string_view name);
Ovel::IpGenPrefix prefix(std::string_view text);
Ovel::IpGenAddrWithMask addr(std::string_view text);

}  // namespace Testing
