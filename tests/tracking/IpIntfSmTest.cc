// The address machines against the store: the exact candidates, route
// types and via-set keys each configuration yields, the interface's count,
// and the orders and deliberate repeats of adding and removing.
#include "tracking/IpIntfSm.h"

#include <gtest/gtest.h>

#include <functional>

#include "tests/support/ScopedSetting.h"
#include "tests/support/VrfHarness.h"
#include "tracking/Ip6IntfSm.h"

namespace Routing::ConnectedRoute {
namespace {

using Lines = std::vector<std::string>;
using Testing::intf;

Ovel::IpAddrWithMask v4(std::string_view text) { return Ovel::IpAddrWithMask::parse(text); }
Ovel::Ip6AddrWithMask v6(std::string_view text) { return Ovel::Ip6AddrWithMask::parse(text); }

struct AddressMachine : ::testing::Test {
   Testing::InstallerHarness h;
   const Ovel::IntfId e1 = intf("Ethernet1");
   Vok::Ptr<Ip::IpIntfStatus> status = Vok::make<Ip::IpIntfStatus>(e1);
   Vok::Ptr<Ip6::IntfStatus> status6 = Vok::make<Ip6::IntfStatus>(e1);

   Vok::Ptr<IpIntfSm> machine() { return ipIntfSmFactory(e1, status, h.store, h.sm); }
   Vok::Ptr<Ip6IntfSm> machine6() { return ip6IntfSmFactory(e1, status6, h.store, h.sm); }
   std::uint32_t count4() { return h.keyStatus(Ovel::AddressFamily::ipv4).vskRefcountByIntfId(e1); }
   std::uint32_t count6() { return h.keyStatus(Ovel::AddressFamily::ipv6).vskRefcountByIntfId(e1); }
};

TEST_F(AddressMachine, Ipv4ConfigurationsYieldTheirCandidates) {
   struct Row {
      const char* active;
      std::vector<const char*> secondaries;
      bool directedBroadcast;
      Lines expected;
      std::uint32_t count;
   };
   const std::vector<Row> rows = {
         {"10.1.1.5/24", {}, false,
          {"10.1.1.0/24 11 vsk", "10.1.1.0/32 3 rxBcast", "10.1.1.255/32 3 rxBcast",
           "10.1.1.5/32 1 rx"},
          1},
         {"10.1.1.5/24", {}, true,
          {"10.1.1.0/24 11 vsk", "10.1.1.0/32 3 rxBcast", "10.1.1.255/32 4 directed",
           "10.1.1.5/32 1 rx"},
          1},
         {"10.0.0.1/30", {}, false,
          {"10.0.0.0/30 11 vsk", "10.0.0.0/32 3 rxBcast", "10.0.0.1/32 1 rx",
           "10.0.0.3/32 3 rxBcast"},
          1},
         {"10.0.0.0/31", {}, false, {"10.0.0.0/31 11 vsk", "10.0.0.0/32 1 rx"}, 1},
         {"10.0.0.9/32", {}, false, {"10.0.0.9/32 2 rx"}, 1},
         // Mask 0: the default route is dropped by the store, the rest stays.
         {"10.0.0.1/0", {}, false,
          {"0.0.0.0/32 3 rxBcast", "10.0.0.1/32 1 rx", "255.255.255.255/32 3 rxBcast"},
          1},
         // Linux accepts an address equal to its subnet's network or
         // broadcast address and gives it a local route: its /32 is its
         // receive route.
         {"10.70.0.0/16", {}, false,
          {"10.70.0.0/16 11 vsk", "10.70.0.0/32 1 rx", "10.70.255.255/32 3 rxBcast"},
          1},
         {"10.80.255.255/16", {}, true,
          {"10.80.0.0/16 11 vsk", "10.80.0.0/32 3 rxBcast", "10.80.255.255/32 1 rx"},
          1},
         {"10.1.1.0/24", {"10.1.1.255/24"}, false,
          {"10.1.1.0/24 11 vsk", "10.1.1.0/24 11 vsk", "10.1.1.0/32 1 rx", "10.1.1.0/32 3 rxBcast",
           "10.1.1.255/32 1 rx", "10.1.1.255/32 3 rxBcast"},
          2},
         {"0.0.0.0/24", {}, false, {}, 0},
         {"0.0.0.0/0", {}, false, {}, 0},
         {"10.1.1.5/24", {"10.2.2.1/24", "10.3.3.3/32"}, true,
          {"10.1.1.0/24 11 vsk", "10.1.1.0/32 3 rxBcast", "10.1.1.255/32 4 directed",
           "10.1.1.5/32 1 rx", "10.2.2.0/24 11 vsk", "10.2.2.0/32 3 rxBcast",
           "10.2.2.1/32 1 rx", "10.2.2.255/32 4 directed", "10.3.3.3/32 2 rx"},
          3},
   };
   for (const Row& row : rows) {
      SCOPED_TRACE(row.active);
      Testing::InstallerHarness fresh;
      auto s = Vok::make<Ip::IpIntfStatus>(e1);
      s->activeAddrWithMaskIs(v4(row.active));
      for (const char* secondary : row.secondaries) {
         s->activeSecondaryWithMaskIs(v4(secondary), true);
      }
      s->directedBroadcastEnabledIs(row.directedBroadcast);
      EXPECT_EQ(IpIntfSm::candidatesFor(*s), row.expected.size());
      auto sm = ipIntfSmFactory(e1, s, fresh.store, fresh.sm);
      EXPECT_EQ(Testing::candidates(fresh, e1), row.expected);
      EXPECT_EQ(fresh.keyStatus(Ovel::AddressFamily::ipv4).vskRefcountByIntfId(e1), row.count);
      sm = nullptr;  // deletion withdraws everything the status lists
      EXPECT_TRUE(fresh.store->intfIdsByPrefixes().empty());
      EXPECT_FALSE(fresh.keyStatus(Ovel::AddressFamily::ipv4).hasVskRefcount(e1));
      EXPECT_FALSE(fresh.keyStatus(Ovel::AddressFamily::ipv4).intfViaSetKey(e1));
   }
}

TEST_F(AddressMachine, Ipv6ConfigurationsYieldTheirCandidates) {
   struct Row {
      const char* addr;
      Lines expected;
      std::uint32_t count;
   };
   for (const Row& row : std::vector<Row>{
              {"2001:db8::1/64", {"2001:db8::/64 11 vsk", "2001:db8::1/128 1 rx"}, 1},
              {"2001:db8::1/127", {"2001:db8::/127 11 vsk", "2001:db8::1/128 1 rx"}, 1},
              {"2001:db8::1/128", {"2001:db8::1/128 2 rx"}, 1},
              {"fe80::1/64", {}, 0},
              {"::/64", {}, 0},
        }) {
      SCOPED_TRACE(row.addr);
      Testing::InstallerHarness fresh;
      auto s = Vok::make<Ip6::IntfStatus>(e1);
      s->addrIs(v6(row.addr), Ip6::AddressInfo{Ip6::AddressInfo::Source::manual});
      EXPECT_EQ(Ip6IntfSm::candidatesFor(*s), row.expected.size());
      auto sm = ip6IntfSmFactory(e1, s, fresh.store, fresh.sm);
      EXPECT_EQ(Testing::candidates(fresh, e1), row.expected);
      EXPECT_EQ(fresh.keyStatus(Ovel::AddressFamily::ipv6).vskRefcountByIntfId(e1), row.count);
      EXPECT_FALSE(fresh.keyStatus(Ovel::AddressFamily::ipv4).hasVskRefcount(e1));
      sm = nullptr;
      EXPECT_TRUE(fresh.store->intfIdsByPrefixes().empty());
      EXPECT_FALSE(fresh.keyStatus(Ovel::AddressFamily::ipv6).intfViaSetKey(e1));
   }
}

TEST_F(AddressMachine, ChangingTheActiveAddressRemovesTheOldFirst) {
   status->activeAddrWithMaskIs(v4("10.1.1.5/24"));
   auto sm = machine();
   const auto firstKeys = *h.keyStatus(Ovel::AddressFamily::ipv4).intfViaSetKey(e1);
   status->activeAddrWithMaskIs(v4("10.9.9.9/32"));
   EXPECT_EQ(Testing::candidates(h, e1), Lines{"10.9.9.9/32 2 rx"});
   EXPECT_EQ(count4(), 1u);
   // The count reached zero in between: the keys were released and renewed.
   EXPECT_NE(h.keyStatus(Ovel::AddressFamily::ipv4).intfViaSetKey(e1)->viaKey(), firstKeys.viaKey());
   EXPECT_EQ(sm->prevActiveAddrWithMask(), v4("10.9.9.9/32"));
}

TEST_F(AddressMachine, AnUnchangedActiveAddressHandedInAgainIsCountedAgain) {
   status->activeAddrWithMaskIs(v4("10.1.1.5/24"));
   auto sm = machine();
   sm->handleActiveAddress(v4("10.1.1.5/24"));
   EXPECT_EQ(count4(), 2u);
   EXPECT_EQ(Testing::candidates(h, e1).size(), 4u);
}

TEST_F(AddressMachine, SecondaryFlagsAddAndRemove) {
   status->activeAddrWithMaskIs(v4("10.1.1.5/24"));
   status->activeSecondaryWithMaskIs(v4("10.2.2.2/24"), true);
   auto sm = machine();
   EXPECT_EQ(count4(), 2u);
   EXPECT_EQ(IpIntfSm::candidatesFor(*status), 8u);
   status->activeSecondaryWithMaskIs(v4("10.2.2.2/24"), false);
   EXPECT_EQ(count4(), 1u);
   EXPECT_EQ(Testing::candidates(h, e1).size(), 4u);
   EXPECT_EQ(IpIntfSm::candidatesFor(*status), 4u);
   status->activeSecondaryWithMaskIs(v4("10.2.2.2/24"), true);
   EXPECT_EQ(count4(), 2u);
   status->activeSecondaryWithMaskDel(v4("10.2.2.2/24"));
   EXPECT_EQ(count4(), 1u);
   EXPECT_EQ(Testing::candidates(h, e1).size(), 4u);
}

TEST_F(AddressMachine, DirectedBroadcastReAddsOnlyNetworkAndBroadcastEntries) {
   status->activeAddrWithMaskIs(v4("10.1.1.5/24"));
   auto sm = machine();
   h.store->backlogDelAll();
   status->directedBroadcastEnabledIs(true);
   Lines queued;
   for (const auto& [key, value] : h.store->backlog()) {
      queued.push_back(key.genPrefix().toString());
   }
   std::sort(queued.begin(), queued.end());
   EXPECT_EQ(queued, (Lines{"10.1.1.0/32", "10.1.1.255/32"}));
   EXPECT_EQ(count4(), 1u);
   EXPECT_EQ(Testing::candidates(h, e1)[2], "10.1.1.255/32 4 directed");
}

TEST_F(AddressMachine, DirectedBroadcastAlsoStoresAnInactiveSecondarysEntries) {
   status->activeAddrWithMaskIs(v4("10.1.1.5/24"));
   status->activeSecondaryWithMaskIs(v4("10.2.2.2/24"), true);
   auto sm = machine();
   status->activeSecondaryWithMaskIs(v4("10.2.2.2/24"), false);
   status->directedBroadcastEnabledIs(true);
   const Lines lines = Testing::candidates(h, e1);
   EXPECT_NE(std::find(lines.begin(), lines.end(), "10.2.2.255/32 4 directed"), lines.end());
   EXPECT_EQ(count4(), 1u);
   status->activeSecondaryWithMaskIs(v4("10.2.2.2/24"), true);  // safe to delete again
}

TEST_F(AddressMachine, KeysExistBeforeTheFirstCandidateAndTheCountRisesLast) {
   struct Probe final : Vok::Reactor<IntfBacklog> {
      Probe(Vok::Ptr<IntfBacklog> s, AddressMachine& t) : Vok::Reactor<IntfBacklog>(s), test(t) {}
      void onIntfIdsByPrefix(const Ovel::IpGenPrefix&) override {
         keysPresent.push_back(test.h.keyStatus(Ovel::AddressFamily::ipv4).intfViaSetKey(test.e1));
         counts.push_back(test.count4());
      }
      AddressMachine& test;
      std::vector<bool> keysPresent;
      std::vector<std::uint32_t> counts;
   } probe(h.store, *this);
   status->activeAddrWithMaskIs(v4("10.1.1.5/24"));
   auto sm = machine();
   EXPECT_EQ(probe.keysPresent, std::vector<bool>(4, true));
   EXPECT_EQ(probe.counts, std::vector<std::uint32_t>(4, 0));
   probe.keysPresent.clear();
   probe.counts.clear();
   sm = nullptr;  // the keys outlive every prefix, the count falls last
   EXPECT_EQ(probe.keysPresent, std::vector<bool>(4, true));
   EXPECT_EQ(probe.counts, std::vector<std::uint32_t>(4, 1));
}

TEST_F(AddressMachine, ReplacingTheStatusReplaysActiveAddressAndBroadcastOnly) {
   status->activeAddrWithMaskIs(v4("10.1.1.5/24"));
   auto sm = machine();
   auto replacement = Vok::make<Ip::IpIntfStatus>(e1);
   replacement->activeAddrWithMaskIs(v4("10.7.7.7/24"));
   replacement->directedBroadcastEnabledIs(true);
   sm->ipIntfStatusIs(replacement);
   EXPECT_EQ(Testing::candidates(h, e1),
             (Lines{"10.7.7.0/24 11 vsk", "10.7.7.0/32 3 rxBcast", "10.7.7.255/32 4 directed",
                    "10.7.7.7/32 1 rx"}));
   EXPECT_EQ(count4(), 1u);
   status->activeAddrWithMaskIs(v4("10.3.3.3/24"));  // the old object is no longer heard
   EXPECT_EQ(Testing::candidates(h, e1).size(), 4u);
}

// A point-to-point address: the local address is a /32 of its own, the
// peer's subnet is attached to the link without a host route.
TEST_F(AddressMachine, PeerPrefixesAreAttachedWithoutAHostRouteAndYieldToAnEqualAddress) {
   status->activeAddrWithMaskIs(v4("10.9.0.1/32"));
   status->peerPrefixIs(v4("10.9.1.0/30"));
   status->peerPrefixIs(v4("10.9.0.2/32"));
   auto sm = machine();
   const Lines both = {"10.9.0.1/32 2 rx", "10.9.0.2/32 11 vsk", "10.9.1.0/30 11 vsk",
                       "10.9.1.0/32 3 rxBcast", "10.9.1.3/32 3 rxBcast"};
   EXPECT_EQ(Testing::candidates(h, e1), both);
   EXPECT_EQ(IpIntfSm::candidatesFor(*status), both.size());
   EXPECT_EQ(count4(), 3u);
   status->directedBroadcastEnabledIs(true);
   EXPECT_EQ(Testing::candidates(h, e1).back(), "10.9.1.3/32 4 directed");
   status->directedBroadcastEnabledIs(false);

   // An address equal to a peer prefix would have the same keys: it takes
   // the prefix over while it lasts.
   status->activeSecondaryWithMaskIs(v4("10.9.0.2/32"), true);
   EXPECT_EQ(Testing::candidates(h, e1)[1], "10.9.0.2/32 2 rx");
   EXPECT_EQ(count4(), 3u);
   status->activeSecondaryWithMaskDel(v4("10.9.0.2/32"));
   EXPECT_EQ(Testing::candidates(h, e1), both);
   // Listed but not active, it holds nothing: the peer prefix's entries stay.
   status->activeSecondaryWithMaskIs(v4("10.9.0.2/32"), false);
   EXPECT_EQ(Testing::candidates(h, e1), both);
   EXPECT_EQ(count4(), 3u);
   status->activeSecondaryWithMaskDel(v4("10.9.0.2/32"));
   status->activeAddrWithMaskIs(v4("10.9.1.0/30"));
   EXPECT_EQ(Testing::candidates(h, e1),
             (Lines{"10.9.0.2/32 11 vsk", "10.9.1.0/30 11 vsk", "10.9.1.0/32 1 rx",
                    "10.9.1.3/32 3 rxBcast"}));
   status->activeAddrWithMaskIs(v4("10.9.0.1/32"));
   EXPECT_EQ(Testing::candidates(h, e1), both);

   status->peerPrefixDel(v4("10.9.1.0/30"));
   EXPECT_EQ(Testing::candidates(h, e1), (Lines{"10.9.0.1/32 2 rx", "10.9.0.2/32 11 vsk"}));
   EXPECT_EQ(count4(), 2u);
   // A replacement status: its peer prefixes are the ones that count.
   auto replacement = Vok::make<Ip::IpIntfStatus>(e1);
   replacement->activeAddrWithMaskIs(v4("10.9.0.5/32"));
   replacement->peerPrefixIs(v4("10.9.4.0/31"));
   sm->ipIntfStatusIs(replacement);
   EXPECT_EQ(Testing::candidates(h, e1), (Lines{"10.9.0.5/32 2 rx", "10.9.4.0/31 11 vsk"}));
   EXPECT_EQ(count4(), 2u);
   sm = nullptr;
   EXPECT_TRUE(h.store->intfIdsByPrefixes().empty());
   EXPECT_FALSE(h.keyStatus(Ovel::AddressFamily::ipv4).hasVskRefcount(e1));
}

TEST_F(AddressMachine, Ipv6PeerPrefixesAreAttachedWithoutAHostRoute) {
   status6->addrIs(v6("2001:db8::1/64"), Ip6::AddressInfo{Ip6::AddressInfo::Source::manual});
   status6->peerPrefixIs(v6("2001:db8:2::1/128"));
   auto sm = machine6();
   const Lines both = {"2001:db8:2::1/128 11 vsk", "2001:db8::/64 11 vsk", "2001:db8::1/128 1 rx"};
   EXPECT_EQ(Testing::candidates(h, e1), both);
   EXPECT_EQ(Ip6IntfSm::candidatesFor(*status6), both.size());
   EXPECT_EQ(count6(), 2u);
   status6->addrIs(v6("2001:db8:2::1/128"), Ip6::AddressInfo{Ip6::AddressInfo::Source::manual});
   EXPECT_EQ(Testing::candidates(h, e1).front(), "2001:db8:2::1/128 2 rx");
   status6->addrDel(v6("2001:db8:2::1/128"));
   EXPECT_EQ(Testing::candidates(h, e1), both);
   // An address given the default record was never added: nothing of the
   // peer prefix goes with it.
   status6->addrIs(v6("2001:db8:2::1/128"), Ip6::AddressInfo());
   EXPECT_EQ(Testing::candidates(h, e1), both);
   EXPECT_EQ(count6(), 2u);
   sm->ip6IntfStatusIs(Vok::make<Ip6::IntfStatus>(e1));
   EXPECT_EQ(Testing::candidates(h, e1), (Lines{"2001:db8::/64 11 vsk", "2001:db8::1/128 1 rx"}))
         << "the addresses stay (not replayed), the peer prefix goes";
   EXPECT_EQ(count6(), 1u);
   status6->peerPrefixIs(v6("2001:db8:2::1/128"));  // the old object is no longer heard
   EXPECT_EQ(count6(), 1u);
}

TEST_F(AddressMachine, Ipv6DefaultRecordRemovesTheAddress) {
   status6->addrIs(v6("2001:db8::1/64"), Ip6::AddressInfo{Ip6::AddressInfo::Source::manual});
   status6->addrIs(v6("2001:db8:1::1/64"), Ip6::AddressInfo{Ip6::AddressInfo::Source::dhcp});
   auto sm = machine6();
   status6->addrIs(v6("2001:db8::1/64"), Ip6::AddressInfo());
   EXPECT_EQ(Testing::candidates(h, e1),
             (Lines{"2001:db8:1::/64 11 vsk", "2001:db8:1::1/128 1 rx"}));
   EXPECT_EQ(count6(), 1u);
   status6->addrIs(v6("2001:db8::1/64"), Ip6::AddressInfo{Ip6::AddressInfo::Source::manual});
   EXPECT_EQ(count6(), 2u);
}

// The orders in which a Linux host's IP agent announces a secondary's
// promotion and the removal of either role: while an address is both the
// active address and an active secondary, removing one role keeps every
// route and gives back that role's count only.
TEST_F(AddressMachine, AnAddressWithTwoRolesKeepsItsRoutesUntilTheLastGoes) {
   const Lines primary = {"10.1.1.0/24 11 vsk", "10.1.1.0/32 3 rxBcast", "10.1.1.1/32 1 rx",
                          "10.1.1.255/32 3 rxBcast"};
   const Lines both = {"10.1.1.0/24 11 vsk", "10.1.1.0/24 11 vsk", "10.1.1.0/32 3 rxBcast",
                       "10.1.1.0/32 3 rxBcast", "10.1.1.1/32 1 rx", "10.1.1.2/32 1 rx",
                       "10.1.1.255/32 3 rxBcast", "10.1.1.255/32 3 rxBcast"};
   const Lines promoted = {"10.1.1.0/24 11 vsk", "10.1.1.0/32 3 rxBcast", "10.1.1.2/32 1 rx",
                           "10.1.1.255/32 3 rxBcast"};
   struct Step {
      const char* what;
      std::function<void(Ip::IpIntfStatus&)> change;
      Lines expected;
      std::uint32_t count;
   };
   struct Row {
      const char* name;
      std::vector<Step> steps;
   };
   auto active = [](const char* a) { return [=](Ip::IpIntfStatus& s) { s.activeAddrWithMaskIs(v4(a)); }; };
   auto secondary = [](const char* a) {
      return [=](Ip::IpIntfStatus& s) { s.activeSecondaryWithMaskIs(v4(a), true); };
   };
   auto unlist = [](const char* a) { return [=](Ip::IpIntfStatus& s) { s.activeSecondaryWithMaskDel(v4(a)); }; };
   const std::vector<Row> rows = {
         {"promotion: new active first, then the secondary goes",
          {{"primary", active("10.1.1.1/24"), primary, 1},
           {"secondary", secondary("10.1.1.2/24"), both, 2},
           {"promoted while still listed", active("10.1.1.2/24"), promoted, 2},
           {"secondary role goes", unlist("10.1.1.2/24"), promoted, 1},
           {"active goes", active("0.0.0.0/0"), {}, 0}}},
         {"secondary goes first, then the new active",
          {{"primary", active("10.1.1.1/24"), primary, 1},
           {"secondary", secondary("10.1.1.2/24"), both, 2},
           {"secondary role goes", unlist("10.1.1.2/24"), primary, 1},
           {"promoted", active("10.1.1.2/24"), promoted, 1}}},
         {"the active address listed as a secondary too, active role goes first",
          {{"primary", active("10.1.1.1/24"), primary, 1},
           {"same address as secondary", secondary("10.1.1.1/24"), primary, 2},
           {"active moves on", active("10.1.1.2/24"), both, 2},
           {"secondary role goes", unlist("10.1.1.1/24"), promoted, 1}}},
   };
   for (const Row& row : rows) {
      SCOPED_TRACE(row.name);
      Testing::InstallerHarness fresh;
      auto s = Vok::make<Ip::IpIntfStatus>(e1);
      auto sm = ipIntfSmFactory(e1, s, fresh.store, fresh.sm);
      for (const Step& step : row.steps) {
         SCOPED_TRACE(step.what);
         step.change(*s);
         EXPECT_EQ(Testing::candidates(fresh, e1), step.expected);
         EXPECT_EQ(fresh.keyStatus(Ovel::AddressFamily::ipv4).vskRefcountByIntfId(e1), step.count);
      }
      sm = nullptr;  // whatever roles are left, deletion withdraws them all
      EXPECT_TRUE(fresh.store->intfIdsByPrefixes().empty());
      EXPECT_FALSE(fresh.keyStatus(Ovel::AddressFamily::ipv4).hasVskRefcount(e1));
      EXPECT_FALSE(fresh.keyStatus(Ovel::AddressFamily::ipv4).intfViaSetKey(e1));
   }
}

TEST_F(AddressMachine, AnActiveAddressAlsoListedAsSecondaryIsWithdrawnWhenTheMachineEnds) {
   status->activeAddrWithMaskIs(v4("10.1.1.1/24"));
   status->activeSecondaryWithMaskIs(v4("10.1.1.1/24"), true);
   status->activeSecondaryWithMaskIs(v4("10.9.9.9/32"), true);
   auto sm = machine();
   EXPECT_EQ(count4(), 3u);
   sm = nullptr;
   EXPECT_TRUE(h.store->intfIdsByPrefixes().empty());
   EXPECT_FALSE(h.keyStatus(Ovel::AddressFamily::ipv4).hasVskRefcount(e1));
}

// Inputs on which the machines, as designed, stop the process: publishers
// must not produce them (docs/hazards.md).
TEST_F(AddressMachine, InputsThatRemoveWhatWasNeverAddedAreFatal) {
   struct Row {
      const char* name;
      std::function<void(AddressMachine&)> scenario;
   };
   const std::vector<Row> rows = {
         {"inactive secondary at creation",
          [](AddressMachine& t) {
             t.status->activeAddrWithMaskIs(v4("10.1.1.5/24"));
             t.status->activeSecondaryWithMaskIs(v4("10.2.2.2/24"), false);
             t.machine();
          }},
         {"inactive secondary removed",
          [](AddressMachine& t) {
             t.status->activeSecondaryWithMaskIs(v4("10.2.2.2/24"), true);
             auto sm = t.machine();
             t.status->activeSecondaryWithMaskIs(v4("10.2.2.2/24"), false);
             t.status->activeSecondaryWithMaskDel(v4("10.2.2.2/24"));
          }},
         {"replacement status with a secondary, deleted",
          [](AddressMachine& t) {
             t.status->activeAddrWithMaskIs(v4("10.1.1.5/24"));
             auto sm = t.machine();
             auto replacement = Vok::make<Ip::IpIntfStatus>(t.e1);
             replacement->activeSecondaryWithMaskIs(v4("10.8.8.8/24"), true);
             sm->ipIntfStatusIs(replacement);
          }},
         {"IPv6 address left listed with the default record, deleted",
          [](AddressMachine& t) {
             t.status6->addrIs(v6("2001:db8::1/64"), Ip6::AddressInfo{Ip6::AddressInfo::Source::manual});
             auto sm = t.machine6();
             t.status6->addrIs(v6("2001:db8::1/64"), Ip6::AddressInfo());
          }},
   };
   for (const Row& row : rows) {
      SCOPED_TRACE(row.name);
      EXPECT_DEATH(row.scenario(*this), "assertion failed: intfIdSet");
   }
}

}  // namespace
}  // namespace Routing::ConnectedRoute
