// The root and its containers under inputs other agents may publish and
// under failures while they build: several VRFs in one namespace, two VRF
// names with one identifier, and an error at every building step, each of
// which must leave the platform as it found it and let a later start build
// the same tables.
#include <gtest/gtest.h>

#include <set>

#include "lifecycle/RootSm.h"
#include "tests/support/AgentHarness.h"

namespace Routing::ConnectedRoute {
namespace {

using Ip::VrfState;
using Lines = std::vector<std::string>;

Ovel::IpAddrWithMask v4(std::string_view text) { return Ovel::IpAddrWithMask::parse(text); }

// The routes of one VRF: prefix, type and owner, in prefix order.
Lines routes(Testing::AgentHarness& h, std::uint32_t vrfId) {
   std::vector<std::pair<Ovel::IpGenPrefix, std::string>> rows;
   h.routes4(vrfId)->forEachRoute([&](const Rib::Route& r) {
      rows.emplace_back(r.prefix, r.prefix.toString() + " " +
                                        std::to_string(static_cast<int>(r.routeType)));
   });
   std::sort(rows.begin(), rows.end());
   Lines out;
   for (auto& [prefix, line] : rows) {
      out.push_back(line);
   }
   return out;
}

// The vias of one VRF, both families.
std::size_t vias(Testing::AgentHarness& h, std::uint32_t vrfId) {
   std::size_t count = 0;
   for (const std::string& path : {ContainerSm::via4Path(Vrf::VrfIdMap::VrfId(vrfId)),
                                   ContainerSm::via6Path(Vrf::VrfIdMap::VrfId(vrfId))}) {
      if (!h.shared.entityManager->typeName(path).empty()) {
         auto mount = h.shared.entityManager->mount(path, "Routing::Rib::Ip::ViaConfig", {},
                                                    Kordb::MountMode::readOnly);
         count += mount->entityAs<Rib::Ip::ViaConfig>()->viaCount();
      }
   }
   return count;
}

bool served(Testing::AgentHarness& h, const std::string& vrf) {
   return h.root && h.root->containerSm(L3::VrfName(vrf)) != nullptr;
}

TEST(RootRobustness, VrfsOfOneNamespaceShareItsManagerUntilTheLastGoes) {
   Testing::AgentHarness h;
   h.vrfId("red", 1);
   h.vrfId("blue", 2);
   h.vrfLocal("red", VrfState::active, "ns-x");
   h.vrfLocal("blue", VrfState::active, "ns-x");
   h.start();  // both containers are built while the root is
   ASSERT_TRUE(served(h, "red"));
   ASSERT_TRUE(served(h, "blue"));
   auto& managers = *h.root->intfStatusManagerRoot();
   const Ovel::NamespaceName ns("ns-x");
   EXPECT_EQ(managers.intfStatusManagerCount(), 1u);
   EXPECT_EQ(managers.intfStatusManagerUsers(ns), 2u);
   EXPECT_EQ(h.root->containerSm(L3::VrfName("red"))->kernelIntfStatusDir(),
             h.root->containerSm(L3::VrfName("blue"))->kernelIntfStatusDir());

   h.device("ns-x", "Ethernet1");
   h.device("ns-x", "Ethernet2");
   h.ip4("red", "Ethernet1")->activeAddrWithMaskIs(v4("10.1.1.1/31"));
   h.ip4("blue", "Ethernet2")->activeAddrWithMaskIs(v4("10.2.2.2/31"));
   h.drain();
   EXPECT_EQ(routes(h, 1), (Lines{"10.1.1.0/31 11", "10.1.1.1/32 1"}));
   EXPECT_EQ(routes(h, 2), (Lines{"10.2.2.2/31 11", "10.2.2.2/32 1"}));

   h.shared.allVrfStatusLocal->vrfDel(L3::VrfName("red"));
   EXPECT_FALSE(served(h, "red"));
   EXPECT_EQ(managers.intfStatusManagerUsers(ns), 1u);
   h.device("ns-x", "Ethernet2", false);  // blue still hears its namespace
   h.drain();
   EXPECT_EQ(routes(h, 2), Lines{});

   h.map()->vrfNameToIdDel(L3::VrfName("blue"));
   EXPECT_EQ(managers.intfStatusManagerCount(), 0u);
}

TEST(RootRobustness, TwoNamesWithOneIdentifierServeOneVrfAtATime) {
   Testing::AgentHarness h;
   h.start();
   h.vrfLocal("red", VrfState::active, "ns-red");
   h.vrfLocal("blue", VrfState::active, "ns-blue");
   h.device("ns-red", "Ethernet1");
   h.device("ns-blue", "Ethernet2");
   h.ip4("red", "Ethernet1")->activeAddrWithMaskIs(v4("10.1.1.1/32"));
   h.ip4("blue", "Ethernet2")->activeAddrWithMaskIs(v4("10.2.2.2/32"));
   struct Row {
      const char* step;
      std::function<void()> change;
      bool red, blue;
      Lines table7;
   };
   const std::vector<Row> rows = {
         {"red takes 7", [&] { h.vrfId("red", 7); }, true, false, {"10.1.1.1/32 2"}},
         {"blue asks for 7 too", [&] { h.vrfId("blue", 7); }, true, false, {"10.1.1.1/32 2"}},
         {"red's local status goes: blue gets 7", [&] { h.shared.allVrfStatusLocal->vrfDel(L3::VrfName("red")); },
          false, true, {"10.2.2.2/32 2"}},
         {"red is back and waits", [&] { h.vrfLocal("red", VrfState::active, "ns-red"); }, false, true,
          {"10.2.2.2/32 2"}},
         {"red moves to 8", [&] { h.vrfId("red", 8); }, true, true, {"10.2.2.2/32 2"}},
         // A VRF's teardown leaves its rows to the next container of the id.
         {"blue leaves the map", [&] { h.map()->vrfNameToIdDel(L3::VrfName("blue")); }, true, false,
          {"10.2.2.2/32 2"}},
   };
   for (const Row& row : rows) {
      SCOPED_TRACE(row.step);
      row.change();
      h.drain();
      EXPECT_EQ(served(h, "red"), row.red);
      EXPECT_EQ(served(h, "blue"), row.blue);
      EXPECT_EQ(routes(h, 7), row.table7);
   }
   EXPECT_EQ(routes(h, 8), (Lines{"10.1.1.1/32 2"}));
}

// The holder of an identifier goes while the VRF waiting for it cannot be
// built: the deletion itself must not fail (it runs inside a destructor
// here), and the waiting VRF is served at its next chance.
TEST(RootRobustness, AWaitingVrfThatCannotBeBuiltWaitsForItsNextChance) {
   Testing::AgentHarness h;
   h.start();
   h.vrfLocal("red", VrfState::active, "ns-red");
   h.vrfLocal("blue", VrfState::active, "ns-blue");
   h.vrfId("red", 7);
   h.vrfId("blue", 7);
   ASSERT_TRUE(served(h, "red"));
   Vok::failEntityCreationAfter(0);
   h.shared.allVrfStatusLocal->vrfDel(L3::VrfName("red"));  // the watcher's end deletes red
   const bool faultFired = !Vok::entityCreationFaultArmed();
   Vok::entityCreationFaultDisarm();
   ASSERT_TRUE(faultFired);
   EXPECT_FALSE(served(h, "red"));
   EXPECT_FALSE(served(h, "blue"));
   h.root->doCreateOrDeleteContainer(L3::VrfName("blue"));
   EXPECT_TRUE(served(h, "blue"));
}

// An agent with three VRFs, two of them in one namespace, each with an
// address; `start` decides when the root is built relative to the inputs.
void publish(Testing::AgentHarness& h) {
   h.vrfId("default", 0);
   h.vrfId("red", 1);
   h.vrfId("blue", 2);
   h.vrfLocal("red", VrfState::active, "ns-x");
   h.vrfLocal("blue", VrfState::active, "ns-x");
   for (const char* device : {"Ethernet1", "Ethernet2"}) {
      h.device("ns-x", device);
   }
   h.device("default", "Ethernet3");
   h.ip4("red", "Ethernet1")->activeAddrWithMaskIs(v4("10.1.1.1/24"));
   h.ip4("blue", "Ethernet2")->activeAddrWithMaskIs(v4("10.2.2.2/24"));
   h.ip4("default", "Ethernet3")->activeAddrWithMaskIs(v4("10.3.3.3/24"));
}

std::vector<Lines> allRoutes(Testing::AgentHarness& h) { return {routes(h, 0), routes(h, 1), routes(h, 2)}; }

struct FaultAt {
   std::int64_t creations;
   bool fired = false;
};

// Fails the `creations`-th entity creation inside `action`.
template <class Fn>
void injectInto(FaultAt& fault, Fn&& action) {
   Vok::failEntityCreationAfter(fault.creations);
   try {
      action();
   } catch (const Vok::InjectedFault&) {
      fault.fired = true;
   }
   fault.fired = fault.fired || !Vok::entityCreationFaultArmed();
   Vok::entityCreationFaultDisarm();
}

TEST(RootRobustness, AFailureAtAnyBuildingStepLeavesNothingBehind) {
   std::vector<Lines> reference;
   {
      Testing::AgentHarness h;
      publish(h);
      h.start();
      h.drain();
      reference = allRoutes(h);
      ASSERT_EQ(reference[1].size(), 4u);
   }
   int failures = 0;
   for (FaultAt fault{0}; ; ++fault.creations, fault.fired = false) {
      SCOPED_TRACE("creation " + std::to_string(fault.creations));
      Testing::AgentHarness h;
      publish(h);
      const std::size_t baseMounts = h.shared.entityManager->mountCount();
      injectInto(fault, [&] { h.start(); });
      if (!fault.fired) {
         break;  // every step of this build has failed once
      }
      ++failures;
      ASSERT_FALSE(h.root);
      EXPECT_EQ(h.shared.entityManager->mountCount(), baseMounts);
      // What a restart would clear anyway must already be gone.
      EXPECT_EQ(h.shared.viaSetConfig->viaSetCount(), 0u);
      for (std::uint32_t id : {0u, 1u, 2u}) {
         EXPECT_EQ(routes(h, id), Lines{}) << "VRF id " << id;
         EXPECT_EQ(vias(h, id), 0u) << "VRF id " << id;
      }
      h.start();
      h.drain();
      EXPECT_EQ(allRoutes(h), reference);
   }
   EXPECT_GT(failures, 20);  // the root and three containers: many steps
}

TEST(RootRobustness, AFailureWhileAVrfIsAddedLeavesTheOthersServedAndTheVrfBuildableLater) {
   int failures = 0;
   for (FaultAt fault{0}; ; ++fault.creations, fault.fired = false) {
      SCOPED_TRACE("creation " + std::to_string(fault.creations));
      Testing::AgentHarness h;
      publish(h);
      h.shared.allVrfStatusLocal->vrfDel(L3::VrfName("blue"));
      h.start();
      h.drain();
      const std::size_t mounts = h.shared.entityManager->mountCount();
      injectInto(fault, [&] { h.vrfLocal("blue", VrfState::active, "ns-x"); });
      if (!fault.fired) {
         break;
      }
      ++failures;
      EXPECT_TRUE(served(h, "red"));
      EXPECT_FALSE(served(h, "blue"));
      EXPECT_FALSE(h.root->allVrfReadyStatus()->vrfReadyStatus().contains(L3::VrfName("blue")));
      EXPECT_EQ(h.shared.entityManager->mountCount(), mounts);
      EXPECT_EQ(h.root->intfStatusManagerRoot()->intfStatusManagerUsers(Ovel::NamespaceName("ns-x")), 1u);
      h.shared.allVrfStatusLocal->vrfDel(L3::VrfName("blue"));
      h.vrfLocal("blue", VrfState::active, "ns-x");
      h.drain();
      EXPECT_EQ(routes(h, 2), (Lines{"10.2.2.0/24 11", "10.2.2.0/32 3", "10.2.2.2/32 1",
                                     "10.2.2.255/32 3"}));
   }
   EXPECT_GT(failures, 5);
}

}  // namespace
}  // namespace Routing::ConnectedRoute
