// A prefix's candidate set against the runtime's hash map as reference: for
// random adds, overwrites and removals, the set holds the same entries, in
// the same order, and names the same first entry (the owner), whether it
// keeps one entry inline or many in its map.
#include "model/IntfIdSet.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "tests/support/Seeds.h"

namespace Routing::ConnectedRoute {
namespace {

using Reference = Vok::HashMap<IntfIdAndAddr, ConnectedRouteProperty>;

std::vector<std::pair<IntfIdAndAddr, ConnectedRouteProperty>> entriesOf(const IntfIdSet& set) {
   std::vector<std::pair<IntfIdAndAddr, ConnectedRouteProperty>> out;
   set.forEach([&](const IntfIdSet::Entry& e) { out.emplace_back(e.key, e.property); });
   return out;
}

std::vector<std::pair<IntfIdAndAddr, ConnectedRouteProperty>> entriesOf(const Reference& map) {
   std::vector<std::pair<IntfIdAndAddr, ConnectedRouteProperty>> out;
   for (const auto& [key, property] : map) {
      out.emplace_back(key, property);
   }
   return out;
}

TEST(IntfIdSet, HoldsAndOrdersEntriesAsTheHashMapDoesThroughRandomChanges) {
   std::vector<IntfIdAndAddr> keys;
   for (int i = 1; i <= 4; ++i) {
      for (const char* a : {"10.1.1.5/24", "10.1.1.6/24", "10.1.1.7/25"}) {
         keys.emplace_back(Ovel::IntfId("Ethernet" + std::to_string(i)),
                           Ovel::IpGenAddrWithMask::parse(a));
      }
   }
   const unsigned seeds = Testing::seedCount(200);
   for (unsigned seed = 1; seed <= seeds; ++seed) {
      SCOPED_TRACE("seed " + std::to_string(seed));
      std::mt19937 rng(seed);
      IntfIdSet set;
      Reference reference;
      for (int step = 0; step < 300; ++step) {
         const IntfIdAndAddr& key = keys[rng() % keys.size()];
         // Mostly few entries, where the inline place and the map meet.
         if (rng() % 2 == 0 || reference.size() > 3) {
            set.intfIdAndAddrDel(key);
            reference.erase(key);
         } else {
            const ConnectedRouteProperty property(Fib::RouteType(1 + rng() % 4),
                                                  Rib::ViaSetKey(1 + rng() % 5));
            set.intfIdAndAddrIs(key, property);
            reference.insertOrAssign(key, property);
         }
         ASSERT_EQ(set.intfIdAndAddrs(), reference.size());
         ASSERT_EQ(entriesOf(set), entriesOf(reference));
         if (reference.empty()) {
            ASSERT_FALSE(set.first());
         } else {
            ASSERT_TRUE(set.first());
            EXPECT_EQ(set.first()->key, reference.begin()->first);
         }
         for (const IntfIdAndAddr& probe : keys) {
            const ConnectedRouteProperty* expected = reference.lookup(probe);
            const ConnectedRouteProperty* actual = set.intfIdAndAddr(probe);
            ASSERT_EQ(actual != nullptr, expected != nullptr);
            if (expected) {
               EXPECT_EQ(*actual, *expected);
            }
         }
      }
   }
}

// Records move when their map grows: a set moved from is empty and usable,
// and a copy is independent of its source.
TEST(IntfIdSet, MovesLeaveAnEmptySetAndCopiesAreIndependent) {
   IntfIdSet many;
   for (const char* intf : {"Ethernet1", "Ethernet2", "Ethernet3"}) {
      many.intfIdAndAddrIs(IntfIdAndAddr(Ovel::IntfId(intf), Ovel::IpGenAddrWithMask::parse("10.1.1.5/24")),
                           ConnectedRouteProperty(Fib::RouteType::attachedSubnet, Rib::ViaSetKey(1)));
   }
   IntfIdSet copy = many;
   IntfIdSet moved = std::move(many);
   EXPECT_EQ(many.intfIdAndAddrs(), 0u);  // the set moved from
   EXPECT_FALSE(many.first());
   EXPECT_EQ(IntfIdSet(many), IntfIdSet());
   EXPECT_EQ(moved, copy);
   copy.intfIdAndAddrDel(copy.first()->key);
   EXPECT_EQ(moved.intfIdAndAddrs(), 3u);
   EXPECT_EQ(copy.intfIdAndAddrs(), 2u);
   copy = std::move(moved);
   EXPECT_EQ(copy.intfIdAndAddrs(), 3u);
   EXPECT_EQ(moved.intfIdAndAddrs(), 0u);
}

}  // namespace
}  // namespace Routing::ConnectedRoute
