// Gates and watchers through a whole VRF: a machine exists exactly while
// status and kernel device both hold; the gate follows the VRF's collection;
// readiness is set once the backlog drains, honouring start-up verification.
#include <gtest/gtest.h>

#include "tests/support/ScopedSetting.h"
#include "tests/support/VrfHarness.h"

namespace Routing::ConnectedRoute {
namespace {

using Testing::intf;

Ovel::IpAddrWithMask v4(std::string_view text) { return Ovel::IpAddrWithMask::parse(text); }

struct Vrf : ::testing::Test {
   std::unique_ptr<Testing::VrfHarness> made = std::make_unique<Testing::VrfHarness>();
   Testing::VrfHarness& h = *made;
   const Ovel::IntfId e1 = intf("Ethernet1");

   Vok::Ptr<IpIntfSm> machine4() {
      return h.v4->ipIntfStatusSm() ? h.v4->ipIntfStatusSm()->ipIntfSm(e1) : nullptr;
   }
};

TEST_F(Vrf, AMachineExistsExactlyWhileStatusAndDeviceBothHold) {
   EXPECT_FALSE(h.v4->ipIntfStatusSm());  // no collection yet
   h.ip4("Ethernet1")->activeAddrWithMaskIs(v4("10.1.1.5/24"));
   ASSERT_TRUE(h.v4->ipIntfStatusSm());
   EXPECT_FALSE(machine4());  // no kernel device yet
   h.kernelUp("Ethernet1");
   ASSERT_TRUE(machine4());
   h.drain();
   EXPECT_TRUE(h.route("10.1.1.0/24"));

   h.kernelDown("Ethernet1");  // the device goes: the routes go
   EXPECT_FALSE(machine4());
   h.drain();
   EXPECT_FALSE(h.route("10.1.1.0/24"));
   EXPECT_EQ(h.tables.via4->viaCount(), 0u);

   h.kernelUp("Ethernet1");  // and come back with it
   h.drain();
   EXPECT_TRUE(h.route("10.1.1.0/24"));

   h.ipStatus->vrfIpIntfStatus(h.vrfName)->ipIntfStatusDel(e1);
   EXPECT_FALSE(machine4());
   h.drain();
   EXPECT_EQ(h.tables.route4->routeCount(), 0u);
}

TEST_F(Vrf, ADeviceWithoutStatusGetsNoMachine) {
   h.kernelUp("Ethernet1");
   h.ip4("Ethernet2");
   EXPECT_FALSE(machine4());
   EXPECT_TRUE(h.v4->ipIntfStatusSm()->machines().empty());
}

TEST_F(Vrf, TheEnvironmentOverrideTreatsEveryDeviceAsPresent) {
   Testing::ScopedEnv ignore("CONNECTEDROUTE_INTFENTRY_WITHOUT_KERNEL_INTF", "");
   made = nullptr;
   Testing::VrfHarness fresh;
   EXPECT_TRUE(fresh.kernel->ignoreKernelInterfaceState());
   fresh.ip4("Ethernet1")->activeAddrWithMaskIs(v4("10.1.1.5/24"));
   EXPECT_TRUE(fresh.v4->ipIntfStatusSm()->ipIntfSm(e1));
}

TEST_F(Vrf, ASecondNotificationForAMachineChangesNothing) {
   h.kernelUp("Ethernet1");
   h.ip4("Ethernet1")->activeAddrWithMaskIs(v4("10.1.1.5/24"));
   Vok::Ptr<IpIntfSm> first = machine4();
   h.kernelDir->intfStatusAndDeviceNameIs(e1, {Interface::KernelIntfState::down, "et1"});
   EXPECT_EQ(machine4(), first);
}

TEST_F(Vrf, AskingForAMachineWithOtherArgumentsIsAWiringFault) {
   h.kernelUp("Ethernet1");
   h.ip4("Ethernet1");
   auto other = Vok::make<Ip::IpIntfStatus>(e1);
   try {
      h.v4->ipIntfStatusSm()->ipIntfSmIs(e1, other, h.store, h.sm);
      FAIL() << "accepted";
   } catch (const Vok::ReinstantiationError& e) {
      EXPECT_TRUE(std::string(e.what()).starts_with(
            "Reinstantiating the pointer interface where constructor parameter attribute "
            "_ipIntfStatus has a different value of "))
            << e.what();
   }
}

TEST_F(Vrf, TheGateFollowsTheVrfsCollectionAndIgnoresOtherVrfs) {
   h.kernelUp("Ethernet1");
   h.ip4("Ethernet1")->activeAddrWithMaskIs(v4("10.1.1.5/24"));
   h.ipStatus->vrfIpIntfStatusIs(L3::VrfName("blue"))->ipIntfStatusIs(e1);
   Vok::Ptr<IpIntfStatusSm> gate = h.v4->ipIntfStatusSm();
   h.ipStatus->vrfIpIntfStatusDel(L3::VrfName("blue"));
   EXPECT_EQ(h.v4->ipIntfStatusSm(), gate);
   gate = nullptr;

   h.ipStatus->vrfIpIntfStatusDel(h.vrfName);  // withdraws the family's addresses
   EXPECT_FALSE(h.v4->ipIntfStatusSm());
   h.drain();
   EXPECT_EQ(h.tables.route4->routeCount(), 0u);

   auto replacement = Vok::make<Ip::VrfIpIntfStatus>(h.vrfName);
   replacement->ipIntfStatusIs(e1)->activeAddrWithMaskIs(v4("10.2.2.2/24"));
   h.ipStatus->vrfIpIntfStatusIs(replacement);
   h.drain();
   EXPECT_TRUE(h.route("10.2.2.0/24"));
}

TEST_F(Vrf, ReadinessIsSetOnceTheBacklogDrainsAndNeverCleared) {
   EXPECT_TRUE(h.ready->v4ConnectedRoutesReady());  // nothing to install
   EXPECT_TRUE(h.ready->v6ConnectedRoutesReady());
   h.kernelUp("Ethernet1");
   h.ip4("Ethernet1")->activeAddrWithMaskIs(v4("10.1.1.5/24"));
   EXPECT_TRUE(h.ready->v4ConnectedRoutesReady());
}

TEST_F(Vrf, AfterAHitlessRestartReadinessWaitsForVerification) {
   made = nullptr;
   Testing::VrfHarness r(Agent::StartupMode::hitlessRestart);
   r.kernelUp("Ethernet1");
   r.ip4("Ethernet1")->activeAddrWithMaskIs(v4("10.1.1.5/24"));
   r.drain();
   EXPECT_TRUE(r.store->backlog().empty());
   EXPECT_FALSE(r.ready->v4ConnectedRoutesReady());
   EXPECT_FALSE(r.ready->v6ConnectedRoutesReady());
   r.ivo->startReadyVerificationIs(true);  // alone enough to trigger the check
   EXPECT_TRUE(r.ready->v4ConnectedRoutesReady());
   EXPECT_TRUE(r.ready->v6ConnectedRoutesReady());
}

TEST_F(Vrf, AfterAHitlessRestartVerificationBeforeTheDrainWaitsForTheDrain) {
   made = nullptr;
   Testing::VrfHarness r(Agent::StartupMode::hitlessRestart);
   r.kernelUp("Ethernet1");
   r.ip4("Ethernet1")->activeAddrWithMaskIs(v4("10.1.1.5/24"));
   r.ivo->startReadyVerificationIs(true);
   EXPECT_FALSE(r.ready->v4ConnectedRoutesReady());
   r.drain();
   EXPECT_TRUE(r.ready->v4ConnectedRoutesReady());
   EXPECT_TRUE(r.route("10.1.1.0/24"));
}

TEST_F(Vrf, AWatcherWithoutIvoStateRaisesNullValidPtr) {
   EXPECT_THROW(Vok::make<VrfIpIntfStatusSm>(h.vrfName, h.ipStatus, h.store, h.sm, h.kernel,
                                            nullptr, h.ready),
                std::range_error);
}

TEST_F(Vrf, AnEmptyVrfNameOnlyTraces) {
   std::vector<std::string> lines;
   Vok::traceConfigIs("ConnectedRoute/8");
   Vok::traceSinkIs([&](const Vok::TraceLine& l) { lines.push_back(l.text); });
   auto watcher = Vok::make<VrfIpIntfStatusSm>(L3::VrfName(), h.ipStatus, h.store, h.sm, h.kernel,
                                               h.ivo, h.ready);
   h.ipStatus->vrfIpIntfStatusIs(L3::VrfName());
   Vok::traceSinkIs(nullptr);
   Vok::traceConfigIs("");
   EXPECT_FALSE(watcher->ipIntfStatusSm());
   EXPECT_NE(std::find_if(lines.begin(), lines.end(),
                          [](const std::string& l) {
                             return l.ends_with("Empty vrfName, expected a valid vrfName");
                          }),
             lines.end());
}

}  // namespace
}  // namespace Routing::ConnectedRoute
