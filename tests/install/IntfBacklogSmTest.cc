// The installer end to end on virtual time: candidates in the store become
// routes, vias and via sets; owners, counts, scheduling and the drain's test
// modes; table choice under "VrfScaleToggle"; table errors and assertions.
#include "install/IntfBacklogSm.h"

#include <gtest/gtest.h>

#include "tests/support/InstallerHarness.h"
#include "tests/support/ScopedSetting.h"

namespace Routing::ConnectedRoute {
namespace {

using Testing::addr;
using Testing::intf;
using Testing::prefix;

struct Installer : ::testing::Test {
   Testing::InstallerHarness h;
   const Ovel::IntfId e1 = intf("Ethernet1"), e2 = intf("Ethernet2");

   void add(const Ovel::IntfId& i, std::string_view a) { h.addSubnet(i, a); }
   void del(const Ovel::IntfId& i, std::string_view a) { h.delSubnet(i, a); }
   const Rib::Route* route(std::string_view p) { return h.route(p); }
};

TEST_F(Installer, ACandidateBecomesARouteWithItsViaAndViaSets) {
   add(e1, "10.1.1.5/24");
   EXPECT_EQ(h.tables.route4->routeCount(), 0u);  // nothing before the clock fires
   h.drain();
   const Rib::Route* r = route("10.1.1.0/24");
   ASSERT_TRUE(r);
   const IntfViaSetKey keys = *h.sm->intfViaSetKeyStatus4()->intfViaSetKey(e1);
   EXPECT_EQ(*r, (Rib::Route{prefix("10.1.1.0/24"), Rib::RoutingProtocol::connected, {0, 0},
                             keys.viaSetKey(), 0xFFFFFFFF, Fib::RouteType::attachedSubnet, 0}));
   EXPECT_EQ(h.sm->installedIntfId(prefix("10.1.1.0/24")), e1);
   EXPECT_EQ(h.tables.via4->viaCount(), 1u);
   EXPECT_EQ(h.tables.viaSets->viaSetCount(), 4u);
   const Rib::Via* via = h.tables.via4->via(keys.viaKey());
   ASSERT_TRUE(via);
   EXPECT_EQ(*via, (Rib::Via{Rib::ViaKey(1, 7, 1), Ovel::IpGenAddr(), e1, 0x100000, 2}));
   struct Row {
      Rib::ViaSetKey key;
      Rib::ViaSetKind kind;
   };
   for (Row row : {Row{keys.viaSetKey(), Rib::ViaSetKind::connected},
                   Row{keys.rxViaSetKey(), Rib::ViaSetKind::receive},
                   Row{keys.rxBcastViaSetKey(), Rib::ViaSetKind::receiveBroadcast},
                   Row{keys.directedBcastViaSetKey(), Rib::ViaSetKind::directedBroadcast}}) {
      const Rib::Plim::ViaSet* set = h.tables.viaSets->viaSet(row.key);
      ASSERT_TRUE(set);
      EXPECT_EQ(set->kind, row.kind);
      EXPECT_EQ(set->via, (Rib::ViaRef{keys.viaKey(), Rib::RoutingProtocol::connected}));
      EXPECT_EQ(set->backupViaSet, 0xFFFFFFFFu);
      EXPECT_EQ(set->viaCount, 1u);
   }
   // Count: one for the address, one for the installed route.
   EXPECT_EQ(h.sm->intfViaSetKeyStatus4()->vskRefcountByIntfId(e1), 2u);
   EXPECT_EQ(h.store->backlogEmpty(), 1u);
}

TEST_F(Installer, IPv6GetsOneViaAndTwoViaSetsOnItsOwnTables) {
   add(e1, "2001:db8::1/64");
   h.drain();
   ASSERT_TRUE(route("2001:db8::/64"));
   EXPECT_EQ(h.tables.via6->viaCount(), 1u);
   EXPECT_EQ(h.tables.via4->viaCount(), 0u);
   EXPECT_EQ(h.tables.viaSets->viaSetCount(), 2u);
   const IntfViaSetKey keys = *h.sm->intfViaSetKeyStatus6()->intfViaSetKey(e1);
   EXPECT_EQ(keys.viaKey().transport(), 2);
   EXPECT_TRUE(keys.rxBcastViaSetKey().isEmpty());
   EXPECT_TRUE(keys.directedBcastViaSetKey().isEmpty());
}

TEST_F(Installer, TheFirstCandidateOwnsAndTheRouteMovesWhenItGoes) {
   add(e1, "10.1.1.1/24");
   add(e2, "10.1.1.2/24");
   h.drain();
   const auto p = prefix("10.1.1.0/24");
   const Ovel::IntfId owner = h.sm->getCandidateIntfId(p);
   const Ovel::IntfId other = owner == e1 ? e2 : e1;
   EXPECT_EQ(h.sm->installedIntfId(p), owner);
   EXPECT_EQ(route("10.1.1.0/24")->viaSetKey,
             h.sm->intfViaSetKeyStatus4()->intfViaSetKey(owner)->viaSetKey());

   del(owner, owner == e1 ? "10.1.1.1/24" : "10.1.1.2/24");
   h.drain();
   EXPECT_EQ(h.sm->installedIntfId(p), other);
   EXPECT_EQ(route("10.1.1.0/24")->viaSetKey,
             h.sm->intfViaSetKeyStatus4()->intfViaSetKey(other)->viaSetKey());
   // The old owner has no address and no route left: its via is gone.
   EXPECT_FALSE(h.sm->intfViaSetKeyStatus4()->intfViaSetKey(owner));
   EXPECT_EQ(h.tables.via4->viaCount(), 1u);
   EXPECT_EQ(h.tables.viaSets->viaSetCount(), 4u);
}

TEST_F(Installer, OwnershipIsTheSameWhateverOrderCandidatesArrive) {
   Testing::InstallerHarness other;
   add(e1, "10.1.1.1/24");
   add(e2, "10.1.1.2/24");
   other.addSubnet(e2, "10.1.1.2/24");
   other.addSubnet(e1, "10.1.1.1/24");
   h.drain();
   other.drain();
   EXPECT_EQ(h.sm->installedIntfId(prefix("10.1.1.0/24")),
             other.sm->installedIntfId(prefix("10.1.1.0/24")));
}

TEST_F(Installer, RemovingTheLastCandidateDeletesTheRouteAndReleasesTheVia) {
   add(e1, "10.1.1.5/24");
   h.drain();
   const std::uint32_t firstViaId = h.sm->intfViaSetKeyStatus4()->intfViaSetKey(e1)->viaKey().id();
   del(e1, "10.1.1.5/24");
   // The address's count is gone, the route still holds the keys.
   EXPECT_TRUE(h.sm->intfViaSetKeyStatus4()->intfViaSetKey(e1));
   h.drain();
   EXPECT_FALSE(route("10.1.1.0/24"));
   EXPECT_FALSE(h.sm->intfViaSetKeyStatus4()->intfViaSetKey(e1));
   EXPECT_FALSE(h.sm->intfViaSetKeyStatus4()->hasVskRefcount(e1));
   EXPECT_EQ(h.tables.via4->viaCount(), 0u);
   EXPECT_EQ(h.tables.viaSets->viaSetCount(), 0u);
   EXPECT_EQ(h.sm->installedIntfId(prefix("10.1.1.0/24")), Ovel::IntfId());

   add(e1, "10.1.1.5/24");  // fresh identifiers, never reused
   h.drain();
   const IntfViaSetKey again = *h.sm->intfViaSetKeyStatus4()->intfViaSetKey(e1);
   EXPECT_GT(again.viaKey().id(), firstViaId);
   EXPECT_GT(again.viaSetKey().value(), 4u);
}

TEST_F(Installer, ASecondPrefixReusesTheInterfaceKeys) {
   add(e1, "10.1.1.5/24");
   const IntfViaSetKey first = *h.sm->intfViaSetKeyStatus4()->intfViaSetKey(e1);
   add(e1, "10.2.2.5/24");
   h.drain();
   EXPECT_EQ(*h.sm->intfViaSetKeyStatus4()->intfViaSetKey(e1), first);
   EXPECT_EQ(h.tables.viaSets->viaSetCount(), 4u);
   EXPECT_EQ(h.sm->intfViaSetKeyStatus4()->vskRefcountByIntfId(e1), 4u);
}

TEST_F(Installer, AnUnchangedCandidateTouchesNoTable) {
   add(e1, "10.1.1.5/24");
   h.drain();
   const std::uint32_t count = h.sm->intfViaSetKeyStatus4()->vskRefcountByIntfId(e1);
   const std::uint32_t lastViaId = h.tables.via4->viaIdAllocator().currentId();
   h.store->doAddBacklog(e1, prefix("10.1.1.0/24"));
   h.drain();
   EXPECT_TRUE(h.store->backlog().empty());
   EXPECT_EQ(h.sm->intfViaSetKeyStatus4()->vskRefcountByIntfId(e1), count);
   EXPECT_EQ(h.tables.via4->viaIdAllocator().currentId(), lastViaId);
   EXPECT_EQ(h.tables.route4->routeCount(), 1u);
}

TEST_F(Installer, ScheduleIsNeverPostponed) {
   add(e1, "10.1.1.5/24");
   const Vok::Seconds first = h.sm->backlogClock()->nextTime();
   EXPECT_DOUBLE_EQ(first, 0.04);
   h.advance(0.03);
   add(e2, "10.9.9.9/24");
   EXPECT_EQ(h.sm->backlogClock()->nextTime(), first);
}

TEST_F(Installer, ChangingTheDelaySchedulesAtOnce) {
   h.sm->backlogDelayIs(0.5);
   EXPECT_NEAR(h.sm->backlogClock()->nextTime(), 0.5, 1e-3);
   h.sm->backlogDelayIs(0.5);  // unchanged: nothing new
   h.drain();
   EXPECT_EQ(h.sm->handleBacklogCallCount(), 1u);
}

TEST_F(Installer, AFiringWithAnEmptyBacklogOnlyCounts) {
   h.sm->backlogDelayIs(0.1);
   h.drain();
   EXPECT_EQ(h.sm->handleBacklogCallCount(), 1u);
   EXPECT_EQ(h.store->backlogEmpty(), 0u);
   EXPECT_EQ(h.sm->backlogClock()->nextTime(), Vok::never);
}

TEST_F(Installer, SlicesEndAfterTheQuantumAndResumeAtTheBookmark) {
   // 1 ms per time reading: a slice handles about 40 entries.
   Testing::InstallerHarness slow(1e-3);
   for (int i = 0; i < 400; ++i) {
      slow.addSubnet(e1, "10." + std::to_string(i / 200) + "." + std::to_string(i % 200) + ".1/24");
   }
   slow.advance(0.04);
   EXPECT_EQ(slow.sm->handleBacklogCallCount(), 1u);
   EXPECT_NE(slow.sm->backlogBookmark(), IntfIdAndPrefix());
   EXPECT_LT(slow.tables.route4->routeCount(), 400u);
   // The slice's first removal re-armed the clock 40 ms after the slice
   // began, so the next slice is due as soon as this one returns.
   EXPECT_NEAR(slow.sm->backlogClock()->nextTime(), 0.081, 1e-9);
   EXPECT_LT(slow.sm->backlogClock()->nextTime(), slow.time.peek());
   slow.drain();
   EXPECT_EQ(slow.tables.route4->routeCount(), 400u);
   EXPECT_GE(slow.sm->handleBacklogCallCount(), 5u);
   EXPECT_EQ(slow.store->backlogEmpty(), 1u);
   EXPECT_EQ(slow.sm->backlogBookmark(), IntfIdAndPrefix());
}

// A slice stops at an entry and the next one resumes there, even when
// entries ordered before it arrived in between; if that entry left the
// backlog meanwhile, the next slice starts at the beginning.
TEST_F(Installer, TheNextSliceResumesWhereTheLastStoppedOrAtTheBeginning) {
   for (const bool bookmarkLeaves : {false, true}) {
      SCOPED_TRACE(bookmarkLeaves ? "the bookmarked entry leaves" : "the bookmarked entry stays");
      Testing::InstallerHarness slow(1e-3);  // about 40 entries a slice
      auto subnet = [](int i) {
         return std::to_string(10 + i / 200) + "." + std::to_string(i % 200) + ".0.1/16";
      };
      for (int i = 0; i < 400; ++i) {
         slow.addSubnet(e1, subnet(i));
      }
      slow.advance(0.04);
      ASSERT_EQ(slow.sm->handleBacklogCallCount(), 1u);
      // Drained entries are gone: the slice stopped at the first one left.
      const IntfIdAndPrefix stoppedAt = slow.store->backlog().begin()->first;
      ASSERT_EQ(slow.sm->backlogBookmark(), stoppedAt);
      for (int i = 400; i < 500; ++i) {
         slow.addSubnet(e1, subnet(i));
      }
      const IntfIdAndPrefix first = slow.store->backlog().begin()->first;
      ASSERT_NE(first, stoppedAt) << "no new entry ordered before the bookmark";
      if (bookmarkLeaves) {
         slow.store->backlogDel(stoppedAt);
      }
      slow.advance(0.001);  // the next slice, which was due already
      ASSERT_EQ(slow.sm->handleBacklogCallCount(), 2u);
      const bool firstInstalled = slow.tables.route4->route(first.genPrefix()) != nullptr;
      const bool stoppedAtInstalled = slow.tables.route4->route(stoppedAt.genPrefix()) != nullptr;
      EXPECT_EQ(firstInstalled, bookmarkLeaves);
      EXPECT_EQ(stoppedAtInstalled, !bookmarkLeaves);
      slow.drain();
      EXPECT_EQ(slow.tables.route4->routeCount(), bookmarkLeaves ? 499u : 500u);
   }
}

TEST_F(Installer, TestModeOneDropsEntriesWithoutInstalling) {
   Testing::ScopedEnv mode("INTERFACEROUTEINFOSM_TEST", "1");
   add(e1, "10.1.1.5/24");
   h.drain();
   EXPECT_TRUE(h.store->backlog().empty());
   EXPECT_EQ(h.tables.route4->routeCount(), 0u);
   EXPECT_EQ(h.store->backlogEmpty(), 1u);
}

TEST_F(Installer, TestModeTwoLeavesTheBacklogAndKeepsRescheduling) {
   Testing::ScopedEnv mode("INTERFACEROUTEINFOSM_TEST", "2");
   add(e1, "10.1.1.5/24");
   EXPECT_FALSE(h.am.runUntilIdle(h.time, 1.0));
   EXPECT_EQ(h.store->backlog().size(), 1u);
   EXPECT_EQ(h.tables.route4->routeCount(), 0u);
   EXPECT_EQ(h.store->backlogEmpty(), 0u);
   EXPECT_GT(h.sm->handleBacklogCallCount(), 5u);
}

TEST_F(Installer, ScaleToggleSendsRoutesToTheQueryTableOnly) {
   Testing::ScopedToggle scale("VrfScaleToggle", true);
   add(e1, "10.1.1.5/24");
   h.drain();
   EXPECT_EQ(h.tables.route4->routeCount(), 0u);
   const Rib::IpRibRouteOrq* row =
         h.tables.query4->row(Rib::OrqKey{h.vrfId, prefix("10.1.1.0/24")});
   ASSERT_TRUE(row);
   EXPECT_EQ(row->route().routingProtocol, Rib::RoutingProtocol::connected);
   EXPECT_EQ(row->route().fecIndex, 0xFFFFFFFFu);
   EXPECT_EQ(row->route().routeType, Fib::RouteType::attachedSubnet);

   del(e1, "10.1.1.5/24");
   h.drain();
   EXPECT_EQ(h.tables.query4->rowCount(), 0u);
}

TEST_F(Installer, ScaleToggleDeletionIsIssuedEvenWithoutARow) {
   Testing::ScopedToggle scale("VrfScaleToggle", true);
   add(e1, "10.1.1.5/24");
   h.drain();
   // Another writer removed the row meanwhile; the delete is still issued,
   // which a read-only table refuses.
   h.sm->doOrmoRouteConfigDel(e1, h.tables.query4.get(), prefix("10.1.1.0/24"), Rib::ViaSetKey());
   EXPECT_EQ(h.tables.query4->rowCount(), 0u);
   std::shared_ptr<Plim::Backing> backing;
   auto readOnly = Rib::IpRibRouteOrqTable::attach(backing, false);
   EXPECT_THROW(h.sm->doOrmoRouteConfigDel(e1, readOnly.get(), prefix("10.1.1.0/24"),
                                           Rib::ViaSetKey()),
                Belm::NoPermissionException);
}

TEST_F(Installer, AWriteToAReadOnlyTableEndsTheNotification) {
   std::shared_ptr<Plim::Backing> backing;
   auto readOnly = Rib::RouteConfig::attach(backing, false);
   EXPECT_THROW(h.sm->doRouteConfigAdd(e1, readOnly.get(), prefix("10.0.0.0/8"),
                                       Rib::ViaSetKey(1), Fib::RouteType::attachedSubnet),
                Belm::NoPermissionException);
   // Recorded before the write, and kept after its failure.
   EXPECT_EQ(h.sm->installedIntfId(prefix("10.0.0.0/8")), e1);
}

TEST_F(Installer, ACorruptRouteTableReadsAsEmptyAndIsReported) {
   add(e1, "10.1.1.5/24");
   h.tables.route4->corruptionIs(true);
   // The read is caught and reported; the add that follows is not caught.
   EXPECT_THROW(h.drain(), Belm::CorruptionDetectedException);
   EXPECT_EQ(h.tables.route4->corruptionReports(), 1u);
   h.tables.route4->corruptionIs(false);
   EXPECT_EQ(h.tables.route4->routeCount(), 0u);
}

TEST_F(Installer, AnInstalledRouteWithoutAnOwnerIsFatal) {
   h.tables.route4->routeAdd(Rib::Route{prefix("10.1.1.0/24"), Rib::RoutingProtocol::connected,
                                        {0, 0}, Rib::ViaSetKey(99), 0xFFFFFFFF,
                                        Fib::RouteType::attachedSubnet, 0});
   EXPECT_DEATH(h.sm->processBacklog(IntfIdAndPrefix(e1, prefix("10.1.1.0/24"))),
                "assertion failed: existingIntfId != Ovel::IntfId\\(\\)");
}

TEST_F(Installer, OwnerQueriesAssertOnMissingOrEmptyCandidates) {
   EXPECT_DEATH(h.sm->getCandidateIntfId(prefix("10.1.1.0/24")), "assertion failed: intfIdAndAddrs");
   EXPECT_TRUE(h.sm->getCandidateRouteProperty(prefix("10.1.1.0/24")).isEmpty());
   h.store->intfIdsByPrefixIs(prefix("10.1.1.0/24"), IntfIdSet());
   EXPECT_DEATH(h.sm->getCandidateRouteProperty(prefix("10.1.1.0/24")),
                "intfIdAndAddrs->intfIdAndAddrs\\(\\) > 0");
}

TEST_F(Installer, ExhaustedViaIdentifiersAreFatal) {
   h.tables.via4->viaIdCurrentIs(0xFFFFFFFE);
   EXPECT_EQ(h.tables.via4->newViaKey().id(), 0xFFFFFFFFu);
   EXPECT_DEATH(h.tables.via4->newViaKey(),
                "assertion failed: \\( currentId\\(\\) < maxId\\(\\) \\) && \"Reached maximum number "
                "of IDs.\"");
}

// An entry the generic setter sets to false is no work, unless it was
// already false when the installer was built: a copy of the backlog taken
// then, and kept in step since, would hold it.
TEST_F(Installer, AFalseEntryIsWorkOnlyIfTheInstallerFoundItSo) {
   add(e1, "10.1.1.1/24");
   add(e2, "10.2.2.2/24");
   const IntfIdAndPrefix found(e1, prefix("10.1.1.0/24")), later(e2, prefix("10.2.2.0/24"));
   h.store->backlogIs(found, false);
   h.sm = nullptr;
   h.sm = intfBacklogSmFactory(L3::VrfName("red"), h.vrfId, &h.am, h.ipStatus, h.ip6Status,
                               h.tables.via4, h.tables.route4, h.tables.query4, h.tables.via6,
                               h.tables.route6, h.tables.query6, h.tables.viaSets, h.store);
   h.store->backlogIs(later, false);  // false after the installer was built: no work
   h.drain();
   EXPECT_TRUE(route("10.1.1.0/24"));
   EXPECT_FALSE(h.store->backlog(found));
   EXPECT_FALSE(route("10.2.2.0/24"));
   ASSERT_TRUE(h.store->backlog(later));
   EXPECT_EQ(h.store->pendingCount(), 0u);
   h.store->backlogIs(later, true);
   h.drain();
   EXPECT_TRUE(route("10.2.2.0/24"));
   EXPECT_TRUE(h.store->backlog().empty());
}

// The owners live in the store, beside the candidates; an installer built on
// a store has installed nothing, whatever an earlier one recorded there.
TEST_F(Installer, ANewInstallerKnowsNoOwners) {
   add(e1, "10.1.1.1/24");
   h.drain();
   ASSERT_EQ(h.sm->installedIntfId(prefix("10.1.1.0/24")), e1);
   h.sm = nullptr;
   h.sm = intfBacklogSmFactory(L3::VrfName("red"), h.vrfId, &h.am, h.ipStatus, h.ip6Status,
                               h.tables.via4, h.tables.route4, h.tables.query4, h.tables.via6,
                               h.tables.route6, h.tables.query6, h.tables.viaSets, h.store);
   EXPECT_EQ(h.sm->installedIntfIdCount(), 0u);
   EXPECT_EQ(h.sm->installedIntfId(prefix("10.1.1.0/24")), Ovel::IntfId());
   EXPECT_EQ(h.store->intfIdsByPrefix(prefix("10.1.1.0/24"))->intfIdAndAddrs(), 1u);
}

TEST_F(Installer, OwnersKeepTheirNamesAcrossFamiliesAndRebuiltKeyTables) {
   // Interface numbers belong to the store, not to a family's key table.
   add(e2, "2001:db8::2/64");
   add(e1, "10.1.1.1/24");
   add(e2, "10.2.2.2/24");
   h.drain();
   h.store->intfViaSetKeyStatus4Del();
   h.store->intfViaSetKeyStatus4Is(Ovel::AddressFamily::ipv4);
   EXPECT_EQ(h.sm->installedIntfId(prefix("2001:db8::/64")), e2);
   EXPECT_EQ(h.sm->installedIntfId(prefix("10.1.1.0/24")), e1);
   EXPECT_EQ(h.sm->installedIntfId(prefix("10.2.2.0/24")), e2);
   EXPECT_EQ(h.sm->installedIntfIdCount(), 3u);
}

TEST_F(Installer, AStoreWithoutInstallerTablesRaisesNullValidPtr) {
   IntfBacklogSm bare(L3::VrfName("red"), h.vrfId, &h.am, nullptr, nullptr, nullptr, nullptr,
                      nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
   try {
      bare.handleInitialized();
      FAIL() << "initialised";
   } catch (const std::range_error& e) {
      EXPECT_STREQ(e.what(), "null ValidPtr");
   }
}

}  // namespace
}  // namespace Routing::ConnectedRoute
