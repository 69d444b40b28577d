// Everything the engine shares with the rest of the switch, in one process:
// the state database, the RIB's shared tables and readiness inputs, the
// interface and VRF state other agents publish, and the kernel's devices per
// namespace. The program and the tests build one of these and hand its
// parts to the engine's root.
#pragma once

#include <string>

#include "platform/rib/TablePaths.h"
#include "platform/interface/IntfDirectories.h"
#include "platform/ip/IpIntfStatus.h"
#include "platform/ip/VrfStatusLocal.h"
#include "platform/ip6/Ip6IntfStatus.h"
#include "platform/kni/KernelNetInfoStatus.h"
#include "platform/kordb/EntityManager.h"
#include "platform/rib/IpRibRouteOrqTable.h"
#include "platform/rib/RibReady.h"
#include "platform/rib/ViaSetConfig.h"
#include "platform/vok/Dir.h"
#include "platform/vrf/NameToIdMap.h"

namespace Agent {

// Where the query tables are mounted when they are kept in a row database.
inline constexpr const char* kRouteQuery4Path = Routing::Rib::kRouteQuery4Path;
inline constexpr const char* kRouteQuery6Path = Routing::Rib::kRouteQuery6Path;

struct SharedState {
   // With a row database, the RIB's tables keep their rows in it: other
   // processes read them, and the next run finds them.
   explicit SharedState(std::shared_ptr<Plim::RowDatabase> rowDatabase = nullptr);

   // The kernel's device table of a namespace (the kernel model writes it).
   Vok::Ptr<KernelNetInfo::Status> kernelNamespace(const Ovel::NamespaceName& netNs);

   Vok::Ptr<Kordb::EntityManager> entityManager = Vok::make<Kordb::EntityManager>();
   Vok::Ptr<VokPlim::Mount> viaSetMount;
   Vok::Ptr<Routing::Rib::ViaSetConfig> viaSetConfig;
   Vok::Ptr<Ip::Status> ipStatus = Vok::make<Ip::Status>();
   Vok::Ptr<Ip6::Status> ip6Status = Vok::make<Ip6::Status>();
   Vok::Ptr<Vrf::VrfIdMap::NameToIdMapWrapper> nameToIdMapWrapper =
         Vok::make<Vrf::VrfIdMap::NameToIdMapWrapper>();
   Vok::Ptr<Ip::AllVrfStatusLocal> allVrfStatusLocal = Vok::make<Ip::AllVrfStatusLocal>();
   Vok::Ptr<Interface::AllIntfStatusDir> allIntfStatusDir = Vok::make<Interface::AllIntfStatusDir>();
   Vok::Ptr<Interface::AllIntfStatusLocalDir> allIntfStatusLocalDir =
         Vok::make<Interface::AllIntfStatusLocalDir>();
   Vok::Ptr<Routing::Rib::IpRibRouteOrqTable> route4OrmoConfig =
         Routing::Rib::IpRibRouteOrqTable::create();
   Vok::Ptr<Routing::Rib::IpRibRouteOrqTable> route6OrmoConfig =
         Routing::Rib::IpRibRouteOrqTable::create();
   // The query tables' mounts, when they are kept in a row database.
   Vok::Ptr<VokPlim::Mount> route4OrmoMount;
   Vok::Ptr<VokPlim::Mount> route6OrmoMount;
   Vok::Ptr<Routing::Rib::AllVrfRibReady> allVrfRibReady = Vok::make<Routing::Rib::AllVrfRibReady>();
   Vok::Ptr<Vok::Dir> protoVrfStatusDir = Vok::make<Vok::Dir>("protoVrfStatus");
};

}  // namespace Agent
