#include "tests/support/InstallerHarness.h"

#include "platform/agent/SharedState.h"

namespace Testing {

RibTables::RibTables(Vrf::VrfIdMap::VrfId vrfId, std::shared_ptr<Plim::RowDatabase> db) {
   namespace Rib = Routing::Rib;
   if (db) {
      // Mounted by path, as the agent's tables are, so that their rows go
      // to the table directory.
      entityManager = Vok::make<Kordb::EntityManager>();
      entityManager->rowDatabaseIs(std::move(db));
      auto mount = [this](const std::string& path, std::string_view type) {
         return entityManager->mount(path, type, {}, Kordb::MountMode::write)->entity();
      };
      const std::string id = std::to_string(vrfId.value());
      auto viaTable = [&](const char* family) {
         return Vok::Ptr<Rib::Ip::ViaConfig>(dynamic_cast<Rib::Ip::ViaConfig*>(
               mount("routing/rib/viaConfig/" + std::string(family) + "/" + id + "/connected",
                     "Routing::Rib::Ip::ViaConfig")
                     .get()));
      };
      auto routeTable = [&](const char* family) {
         return Vok::Ptr<Rib::RouteConfig>(dynamic_cast<Rib::RouteConfig*>(
               mount("routing/rib/routeConfig/" + std::string(family) + "/" + id + "/connected",
                     "Routing::Rib::RouteConfig")
                     .get()));
      };
      auto queryTable = [&](const char* path) {
         return Vok::Ptr<Rib::IpRibRouteOrqTable>(dynamic_cast<Rib::IpRibRouteOrqTable*>(
               mount(path, "Routing::Rib::IpRibRouteOrqTable").get()));
      };
      via4 = viaTable("ipv4");
      via6 = viaTable("ipv6");
      route4 = routeTable("ipv4");
      route6 = routeTable("ipv6");
      query4 = queryTable(Agent::kRouteQuery4Path);
      query6 = queryTable(Agent::kRouteQuery6Path);
      viaSets = Vok::Ptr<Rib::ViaSetConfig>(dynamic_cast<Rib::ViaSetConfig*>(
            mount("routing/rib/viaSetConfig", "Routing::Rib::ViaSetConfig").get()));
   } else {
      std::shared_ptr<Plim::Backing> b4, b6, r4, r6, sets;
      via4 = Rib::Ip::ViaConfig::attach(b4, true);
      via6 = Rib::Ip::ViaConfig::attach(b6, true);
      route4 = Rib::RouteConfig::attach(r4, true);
      route6 = Rib::RouteConfig::attach(r6, true);
      query4 = Rib::IpRibRouteOrqTable::create();
      query6 = Rib::IpRibRouteOrqTable::create();
      viaSets = Rib::ViaSetConfig::attach(sets, true);
   }
   for (auto [table, transport] : {std::pair{via4, 1}, std::pair{via6, 2}}) {
      table->transportIs(static_cast<std::uint8_t>(transport));
      table->rpIs(Rib::RoutingProtocol::connected);
      table->vrfIdIs(vrfId);
   }
}

InstallerHarness::InstallerHarness(Vok::Seconds step, std::string vrfName,
                                   Vrf::VrfIdMap::VrfId id)
      : time(0.0, step), vrfId(id), tables(id) {
   store = Routing::ConnectedRoute::intfBacklogFactory("", L3::VrfName(vrfName));
   sm = Routing::ConnectedRoute::intfBacklogSmFactory(
         L3::VrfName(vrfName), vrfId, &am, ipStatus, ip6Status, tables.via4, tables.route4,
         tables.query4, tables.via6, tables.route6, tables.query6, tables.viaSets, store);
}

void InstallerHarness::addSubnet(const Ovel::IntfId& intfId, std::string_view addrWithMask) {
   auto a = addr(addrWithMask);
   auto keys = sm->findOrCreateViaSetKey(intfId, a.af());
   store->addToIntfIdsByPrefix(intfId, a.prefix(), a, Routing::Fib::RouteType::attachedSubnet,
                               keys.viaSetKey());
   keyStatus(a.af()).incIntfVskRefcount(intfId);
}

void InstallerHarness::delSubnet(const Ovel::IntfId& intfId, std::string_view addrWithMask) {
   auto a = addr(addrWithMask);
   store->delFromIntfIdsByPrefix(intfId, a.prefix(), a);
   keyStatus(a.af()).decIntfVskRefcount(intfId);
   if (keyStatus(a.af()).vskRefcountByIntfId(intfId) == 0) {
      sm->delViaSetKey(intfId, a.af());
   }
}

Routing::ConnectedRoute::IntfViaSetKeyStatus& InstallerHarness::keyStatus(Ovel::AddressFamily af) {
   return af == Ovel::AddressFamily::ipv4 ? *store->intfViaSetKeyStatus4()
                                          : *store->intfViaSetKeyStatus6();
}

const Routing::Rib::Route* InstallerHarness::route(std::string_view text) {
   auto p = prefix(text);
   return (p.af() == Ovel::AddressFamily::ipv4 ? tables.route4 : tables.route6)->route(p);
}

void InstallerHarness::drain() { am.runUntilIdle(time, time.peek() + 3600.0); }

Ovel::IntfId intf(std::string_view name) { return Ovel::IntfId(name); }
Ovel::IpGenPrefix prefix(std::string_view text) { return Ovel::IpGenPrefix::parse(text); }
Ovel::IpGenAddrWithMask addr(std::string_view text) {
   return Ovel::IpGenAddrWithMask::parse(text);
}

}  // namespace Testing
