// The root's decisions and the container's build and teardown, through the
// platform's shared state: which VRFs get a container, when they lose it,
// and that a deleted VRF leaves no mount, manager or via set behind.
#include "lifecycle/RootSm.h"

#include <gtest/gtest.h>

#include "tests/support/AgentHarness.h"
#include "tests/support/ScopedSetting.h"

namespace Routing::ConnectedRoute {
namespace {

using Ip::VrfState;

struct Root : ::testing::Test {
   Testing::AgentHarness h;
   bool has(const std::string& vrf) { return h.root->containerSm(L3::VrfName(vrf)) != nullptr; }
};

TEST_F(Root, DecidesWhichVrfsAreServed) {
   h.start();
   struct Row {
      const char* step;
      std::function<void()> change;
      bool defaultServed, redServed;
   };
   const std::vector<Row> rows = {
         {"default needs only an identifier", [&] { h.vrfId("default", 0); }, true, false},
         {"red has an identifier but no local status", [&] { h.vrfId("red", 1); }, true, false},
         {"red inactive", [&] { h.vrfLocal("red", VrfState::inactive, "ns-red"); }, true, false},
         {"red active", [&] { h.vrfLocal("red", VrfState::active, "ns-red"); }, true, true},
         {"red identifier all ones", [&] { h.vrfId("red", 0xFFFFFFFF); }, true, false},
         {"red identifier back", [&] { h.vrfId("red", 1); }, true, true},
         {"red identifier changed: no rebuild", [&] { h.vrfId("red", 5); }, true, true},
         {"red removed from the map", [&] { h.map()->vrfNameToIdDel(L3::VrfName("red")); }, true,
          false},
   };
   for (const Row& row : rows) {
      SCOPED_TRACE(row.step);
      row.change();
      EXPECT_EQ(has("default"), row.defaultServed);
      EXPECT_EQ(has("red"), row.redServed);
   }
   h.vrfId("red", 9);
   EXPECT_EQ(h.root->containerSm(L3::VrfName("red"))->vrfId().value(), 9u);
}

TEST_F(Root, EventsBeforeInitialisationCreateNothingUntilItRuns) {
   h.vrfId("red", 1);
   h.vrfLocal("red", VrfState::active, "ns-red");
   h.start();  // the watcher's first look happens before initialisation
   EXPECT_TRUE(h.root->vrfStatusLocalSm(L3::VrfName("red")));
   EXPECT_TRUE(has("red"));
}

TEST_F(Root, RemovingALocalStatusDeletesTheContainerAtOnce) {
   h.start();
   h.vrfId("red", 1);
   h.vrfLocal("red", VrfState::active, "ns-red");
   ASSERT_TRUE(has("red"));
   h.shared.allVrfStatusLocal->vrfDel(L3::VrfName("red"));
   EXPECT_FALSE(has("red"));
   EXPECT_FALSE(h.root->allVrfReadyStatus()->vrfReadyStatus(L3::VrfName("red")));
}

TEST_F(Root, ZombieReactorsDeleteEveryWatchedVrf) {
   h.start();
   h.vrfId("red", 1);
   h.vrfLocal("red", VrfState::active, "ns-red");
   h.vrfId("default", 0);
   h.root->vokDoZombieReactors(true);
   EXPECT_FALSE(has("red"));
   EXPECT_TRUE(has("default"));  // it has no local status to watch
   h.vrfId("blue", 2);           // zombie reactors hear nothing
   h.vrfLocal("blue", VrfState::active, "ns-blue");
   EXPECT_FALSE(has("blue"));
}

TEST_F(Root, ReplacingOrClearingTheMapReevaluatesItsNames) {
   h.start();
   h.vrfId("default", 0);
   h.vrfId("red", 1);
   h.vrfLocal("red", VrfState::active, "ns-red");
   auto replacement = Vok::make<Vrf::VrfIdMap::NameToIdMap>();
   replacement->vrfNameToIdIs(L3::VrfName("default"), Vrf::VrfIdMap::VrfId(0));
   h.shared.nameToIdMapWrapper->nameToIdMapIs(replacement);
   // Only the new map's names are looked at again: red keeps its container.
   EXPECT_TRUE(has("red"));
   h.shared.nameToIdMapWrapper->nameToIdMapIs(nullptr);
   EXPECT_TRUE(has("default"));
   replacement->vrfNameToIdDel(L3::VrfName("default"));  // not watched any more
   EXPECT_TRUE(has("default"));
   h.vrfLocal("red", VrfState::inactive, "ns-red");
   EXPECT_FALSE(has("red"));
}

TEST_F(Root, AContainerBuildsItsVrfAndLeavesNothingBehind) {
   h.start();
   const std::size_t baseMounts = h.shared.entityManager->mountCount();
   h.vrfId("red", 3);
   h.vrfLocal("red", VrfState::active, "ns-red");
   Vok::Ptr<ContainerSm> red = h.root->containerSm(L3::VrfName("red"));
   ASSERT_TRUE(red);
   EXPECT_EQ(red->netNs().str(), "ns-red");
   EXPECT_EQ(h.shared.entityManager->mountCount(), baseMounts + 5);  // kni, 2 route, 2 via
   EXPECT_EQ(red->ipv4ViaConfig()->transport(), 1);
   EXPECT_EQ(red->ipv6ViaConfig()->transport(), 2);
   EXPECT_EQ(red->ipv4ViaConfig()->rp(), Rib::RoutingProtocol::connected);
   EXPECT_EQ(red->ipv6ViaConfig()->vrfId().value(), 3u);
   EXPECT_EQ(h.root->intfStatusManagerRoot()->intfStatusManagerCount(), 1u);
   red = nullptr;

   h.device("ns-red", "Ethernet1");
   h.device("default", "Ethernet2");  // another namespace: not red's
   h.ip4("red", "Ethernet1")->activeAddrWithMaskIs(Ovel::IpAddrWithMask::parse("10.1.1.5/24"));
   h.ip4("red", "Ethernet2")->activeAddrWithMaskIs(Ovel::IpAddrWithMask::parse("10.2.2.5/24"));
   h.drain();
   auto routes = h.routes4(3);
   EXPECT_EQ(routes->routeCount(), 4u);
   EXPECT_EQ(h.shared.viaSetConfig->viaSetCount(), 4u);

   h.map()->vrfNameToIdDel(L3::VrfName("red"));
   EXPECT_EQ(h.shared.entityManager->mountCount(), baseMounts);
   EXPECT_EQ(h.root->intfStatusManagerRoot()->intfStatusManagerCount(), 0u);
   EXPECT_EQ(h.shared.viaSetConfig->viaSetCount(), 0u);
}

TEST_F(Root, TheDefaultVrfLivesInTheDefaultNamespace) {
   h.start();
   h.vrfId("default", 0);
   EXPECT_EQ(h.root->containerSm(L3::VrfName("default"))->netNs(),
             Ovel::NamespaceName::defaultNamespace());
   EXPECT_EQ(ContainerSm::rib4Path(Vrf::VrfIdMap::VrfId(0)), "routing/rib/routeConfig/ipv4/0/connected");
   EXPECT_EQ(ContainerSm::via6Path(Vrf::VrfIdMap::VrfId(0)), "routing/rib/viaConfig/ipv6/0/connected");
}

TEST_F(Root, UnderTheScaleToggleNoRouteTableIsMounted) {
   Testing::ScopedToggle scale("VrfScaleToggle", true);
   h.start();
   const std::size_t baseMounts = h.shared.entityManager->mountCount();
   h.vrfId("default", 0);
   EXPECT_EQ(h.shared.entityManager->mountCount(), baseMounts + 3);  // kni and 2 via
   EXPECT_FALSE(h.root->containerSm(L3::VrfName("default"))->route4Config());
   h.device("default", "Ethernet1");
   h.ip4("default", "Ethernet1")->activeAddrWithMaskIs(Ovel::IpAddrWithMask::parse("10.1.1.5/24"));
   h.drain();
   EXPECT_EQ(h.shared.route4OrmoConfig->rowCount(), 4u);
   h.map()->vrfNameToIdDel(L3::VrfName("default"));
   EXPECT_EQ(h.shared.route4OrmoConfig->rowCount(), 0u);
   EXPECT_EQ(h.shared.entityManager->mountCount(), baseMounts);
}

TEST_F(Root, StartEmptiesTheViaSetsOfAnEarlierRun) {
   Rib::Plim::ViaSet stale;
   stale.key = h.shared.viaSetConfig->newViaSetKey();
   h.shared.viaSetConfig->viaSetIs(stale);
   h.start();
   EXPECT_EQ(h.shared.viaSetConfig->viaSetCount(), 0u);
}

TEST_F(Root, ReadinessReachesTheRibOncePerRecord) {
   h.shared.allVrfRibReady->vrfRibReadyIs(L3::VrfName("default"));
   h.start();
   h.vrfId("default", 0);
   auto entity = h.shared.protoVrfStatusDir->entityAs<Rib::ProtoVrfStatus>("default");
   ASSERT_TRUE(entity);
   EXPECT_TRUE(entity->ready());
}

TEST_F(Root, DeletingAContainerSomeoneElseHoldsIsFatal) {
   h.start();
   h.vrfId("default", 0);
   EXPECT_DEATH(
         {
            Vok::Ptr<ContainerSm> held = h.root->containerSm(L3::VrfName("default"));
            h.map()->vrfNameToIdDel(L3::VrfName("default"));
         },
         "assertion failed: container->references\\(\\) == 1");
}

TEST_F(Root, AContainerWithOtherArgumentsIsAWiringFault) {
   h.start();
   h.vrfId("default", 0);
   auto record = h.root->allVrfReadyStatus()->vrfReadyStatus(L3::VrfName("default"));
   try {
      h.root->containerSmIs(L3::VrfName("default"), Vrf::VrfIdMap::VrfId(4), record);
      FAIL() << "accepted";
   } catch (const Vok::ReinstantiationError& e) {
      EXPECT_TRUE(std::string(e.what()).starts_with(
            "Reinstantiating the pointer interface where constructor parameter attribute _vrfId "
            "has a different value of 4"))
            << e.what();
   }
}

TEST_F(Root, AContainerThatFailsToBuildLeavesNothingBehindAndCanBeBuiltLater) {
   h.start();
   Vok::activityManagerIs(nullptr);  // a VRF cannot be built without one
   EXPECT_THROW(h.vrfId("default", 0), std::range_error);
   EXPECT_FALSE(has("default"));
   EXPECT_EQ(h.root->intfStatusManagerRoot()->intfStatusManagerCount(), 0u);
   EXPECT_FALSE(h.root->allVrfReadyStatus()->vrfReadyStatus(L3::VrfName("default")));
   Vok::activityManagerIs(&h.am);
   h.map()->vrfNameToIdDel(L3::VrfName("default"));
   h.vrfId("default", 0);
   EXPECT_TRUE(has("default"));
}

TEST_F(Root, ANullLocalStatusIsRefusedWithTheRuntimeText) {
   h.start();
   try {
      h.root->vrfStatusLocalIs(nullptr);
      FAIL() << "accepted";
   } catch (const std::range_error& e) {
      EXPECT_STREQ(e.what(),
                   "null _vrfStatusLocal parameter to mutator for "
                   "Routing::ConnectedRoute::RootSm::vrfStatusLocal not allowed\"");
   }
}

TEST_F(Root, AContainersChildrenAreNotRebuiltFromOtherArguments) {
   h.start();
   h.vrfId("default", 0);
   Vok::Ptr<ContainerSm> c = h.root->containerSm(L3::VrfName("default"));
   EXPECT_EQ(c->kernelIntfStatusIs(c->vrfName(), c->kernelIntfStatusDir()), c->kernelIntfStatus());
   auto otherDir = Vok::make<Interface::DeviceIntfStatusDir>();
   EXPECT_THROW(c->kernelIntfStatusIs(c->vrfName(), otherDir), Vok::ReinstantiationError);
   // Each table argument in turn swapped for another table (its twin of the
   // other family): the error names that argument.
   auto sm = c->intfBacklogSm();
   const RibTables& built = sm->ribTables();
   struct Swap {
      const char* attribute;
      void (*apply)(RibTables&);
   };
   const Swap swaps[] = {
         {"ipv4ViaConfig", [](RibTables& t) { t.ipv4.viaConfig = t.ipv6.viaConfig; }},
         {"route4Config", [](RibTables& t) { t.ipv4.routeConfig = t.ipv6.routeConfig; }},
         {"route4OrmoConfig", [](RibTables& t) { t.ipv4.queryTable = t.ipv6.queryTable; }},
         {"ipv6ViaConfig", [](RibTables& t) { t.ipv6.viaConfig = t.ipv4.viaConfig; }},
         {"route6Config", [](RibTables& t) { t.ipv6.routeConfig = t.ipv4.routeConfig; }},
         {"route6OrmoConfig", [](RibTables& t) { t.ipv6.queryTable = t.ipv4.queryTable; }},
         {"viaSetConfig", [](RibTables& t) { t.viaSetConfig = Rib::ViaSetConfig::create(); }},
   };
   // The installer for these tables: the existing one, or the error's text.
   auto rebuild = [&](const RibTables& t) -> std::string {
      try {
         return c->intfBacklogSmIs(c->vrfName(), c->vrfId(), &h.am, sm->ipStatus(), sm->ip6Status(),
                                   t.ipv4.viaConfig, t.ipv4.routeConfig, t.ipv4.queryTable,
                                   t.ipv6.viaConfig, t.ipv6.routeConfig, t.ipv6.queryTable,
                                   t.viaSetConfig, sm->intfBacklog()) == sm
                      ? "the same installer"
                      : "another installer";
      } catch (const Vok::ReinstantiationError& e) {
         return e.what();
      }
   };
   auto names = [](const std::string& text, const std::string& attribute) {
      return text.find("attribute _" + attribute + " has a different value") != std::string::npos;
   };
   RibTables all = built;
   for (const Swap& swap : swaps) {
      RibTables t = built;
      swap.apply(t);
      EXPECT_TRUE(names(rebuild(t), swap.attribute)) << rebuild(t);
      swap.apply(all);
   }
   // Every table swapped: the checks run in the constructor's order.
   EXPECT_TRUE(names(rebuild(all), "ipv4ViaConfig")) << rebuild(all);
   EXPECT_EQ(rebuild(built), "the same installer");
   auto w = c->vrfIpIntfStatusSm();
   EXPECT_THROW(c->vrfIpIntfStatusSmIs(c->vrfName(), w->ipStatus(), w->intfBacklog(),
                                       w->intfBacklogSm(), w->kernelIntfStatus(), w->ivoState(),
                                       Vok::make<VrfReadyStatus>(c->vrfName())),
                Vok::ReinstantiationError);
   EXPECT_EQ(c->vrfIp6IntfStatusSmIs(c->vrfName(), c->vrfIp6IntfStatusSm()->ipStatus(),
                                     w->intfBacklog(), w->intfBacklogSm(), w->kernelIntfStatus(),
                                     w->ivoState(), w->vrfReadyStatus()),
             c->vrfIp6IntfStatusSm());
}

TEST_F(Root, StoppingDeletesEveryContainer) {
   h.start();
   const std::size_t baseMounts = h.shared.entityManager->mountCount();
   h.vrfId("default", 0);
   h.vrfId("red", 1);
   h.vrfLocal("red", VrfState::active, "ns-red");
   h.stop();
   EXPECT_EQ(h.shared.entityManager->mountCount(), baseMounts);
}

}  // namespace
}  // namespace Routing::ConnectedRoute
