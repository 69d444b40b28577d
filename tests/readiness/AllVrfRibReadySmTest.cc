// Readiness publication: one protocol status entity per awaited VRF, marked
// ready exactly once when both flags meet the RIB's wait.
#include "readiness/AllVrfRibReadySm.h"

#include <gtest/gtest.h>

#include "platform/vok/ActivityManager.h"

namespace Routing::ConnectedRoute {
namespace {

struct Readiness : ::testing::Test {
   Vok::ManualTimeSource time{100.0};
   Vok::ActivityManager am{time};
   Vok::Ptr<Rib::AllVrfRibReady> awaited = Vok::make<Rib::AllVrfRibReady>();
   Vok::Ptr<AllVrfReadyStatus> records = Vok::make<AllVrfReadyStatus>();
   Vok::Ptr<Vok::Dir> dir = Vok::make<Vok::Dir>("protoVrfStatus");
   Vok::Ptr<AllVrfRibReadySm> sm;
   const L3::VrfName red{"red"};

   void SetUp() override {
      Vok::activityManagerIs(&am);
   }
   void TearDown() override {
      sm = nullptr;
      Vok::activityManagerIs(nullptr);
   }
   void start() { sm = Vok::make<AllVrfRibReadySm>(awaited, records, dir); }
   Vok::Ptr<Rib::ProtoVrfStatus> entity(const L3::VrfName& vrf) {
      return dir->entityAs<Rib::ProtoVrfStatus>(vrf.str());
   }
   void bothFlags(const L3::VrfName& vrf) {
      auto record = records->vrfReadyStatusIs(vrf);
      record->v4ConnectedRoutesReadyIs(true);
      record->v6ConnectedRoutesReadyIs(true);
   }
};

TEST_F(Readiness, FlagsBeforeTheWaitMarkAtOnceWhenTheKeyArrives) {
   start();
   bothFlags(red);
   EXPECT_FALSE(entity(red));
   time.advanceTo(105.0);
   awaited->vrfRibReadyIs(red);
   ASSERT_TRUE(entity(red));
   EXPECT_TRUE(entity(red)->ready());
   EXPECT_DOUBLE_EQ(entity(red)->readyTime(), 105.0);
}

TEST_F(Readiness, TheWaitBeforeTheFlagsMarksOnTheSecondFlag) {
   start();
   awaited->vrfRibReadyIs(red);
   ASSERT_TRUE(entity(red));
   EXPECT_DOUBLE_EQ(entity(red)->readyTime(), 0.0);
   auto record = records->vrfReadyStatusIs(red);
   record->v4ConnectedRoutesReadyIs(true);
   EXPECT_FALSE(entity(red)->ready());
   record->v6ConnectedRoutesReadyIs(true);
   EXPECT_TRUE(entity(red)->ready());
}

TEST_F(Readiness, AnEntityIsMarkedOnlyOnce) {
   start();
   awaited->vrfRibReadyIs(red);
   bothFlags(red);
   const double first = entity(red)->readyTime();
   time.advanceTo(200.0);
   records->vrfReadyStatusDel(red);
   bothFlags(red);  // a new record, flags set again
   EXPECT_DOUBLE_EQ(entity(red)->readyTime(), first);
}

TEST_F(Readiness, RemovingTheKeyDeletesTheEntityAndReAddingMarksAnew) {
   start();
   awaited->vrfRibReadyIs(red);
   bothFlags(red);
   Vok::Ptr<Rib::ProtoVrfStatus> old = entity(red);
   awaited->vrfRibReadyDel(red);
   EXPECT_FALSE(entity(red));
   time.advanceTo(300.0);
   awaited->vrfRibReadyIs(red);
   ASSERT_TRUE(entity(red));
   EXPECT_NE(entity(red), old);
   EXPECT_DOUBLE_EQ(entity(red)->readyTime(), 300.0);
}

TEST_F(Readiness, ARemovedRecordLeavesTheEntityAsItIs) {
   start();
   awaited->vrfRibReadyIs(red);
   bothFlags(red);
   records->vrfReadyStatusDel(red);
   ASSERT_TRUE(entity(red));
   EXPECT_TRUE(entity(red)->ready());
}

TEST_F(Readiness, StartSweepsStaleEntitiesAndCreatesAwaitedOnes) {
   dir->entityIs("blue", "Routing::Rib::ProtoVrfStatus");
   dir->entityIs("red", "Routing::Rib::ProtoVrfStatus");
   awaited->vrfRibReadyIs(red);
   awaited->vrfRibReadyIs(L3::VrfName("green"));
   start();
   EXPECT_TRUE(sm->initialized());
   EXPECT_FALSE(entity(L3::VrfName("blue")));
   EXPECT_TRUE(entity(red));
   EXPECT_TRUE(entity(L3::VrfName("green")));
   EXPECT_EQ(dir->size(), 2u);
}

TEST_F(Readiness, RecordsPresentAtStartAreWatched) {
   auto record = records->vrfReadyStatusIs(red);
   awaited->vrfRibReadyIs(red);
   start();
   record->v4ConnectedRoutesReadyIs(true);
   record->v6ConnectedRoutesReadyIs(true);
   EXPECT_TRUE(entity(red)->ready());
}

TEST_F(Readiness, InactiveNotificationsAreNotHeard) {
   start();
   sm->hasNotificationActiveIs(false);
   awaited->vrfRibReadyIs(red);
   EXPECT_FALSE(entity(red));
}

}  // namespace
}  // namespace Routing::ConnectedRoute
