// The runtime hash map: history-independent order, safe iteration under
// erasure, and agreement with a reference map under random operations.
#include "platform/vok/HashMap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Map = Vok::HashMap<std::uint64_t, int>;
// Splits into parts of at most 16 entries: every test below runs on both, so
// the split, the per-table growth and iteration across tables are covered.
using SmallSplitMap = Vok::HashMap<std::uint64_t, int, Vok::KeyTraits<std::uint64_t>, 16>;

// A value that is not plain bytes, so that its maps move entries one at a
// time instead of as blocks of slots; it counts its live copies, so that an
// entry lost, copied twice or destroyed twice shows.
struct Tracked {
   static inline int live = 0;
   int value = 0;
   Tracked(int v = 0) : value(v) { ++live; }  // NOLINT: stands in for an int
   Tracked(const Tracked& other) : value(other.value) { ++live; }
   Tracked& operator=(const Tracked&) = default;
   ~Tracked() { --live; }
   operator int() const { return value; }  // NOLINT
};
using TrackedSplitMap = Vok::HashMap<std::uint64_t, Tracked, Vok::KeyTraits<std::uint64_t>, 16>;

template <class M>
std::vector<std::uint64_t> order(const M& map) {
   std::vector<std::uint64_t> keys;
   for (const auto& [key, value] : map) {
      keys.push_back(key);
   }
   return keys;
}

// Every key hashes alike: the whole map is one cluster ordered by tie-break.
struct CollidingTraits {
   static std::uint32_t hash(const std::uint64_t&) noexcept { return 0xABCD0000u; }
   static std::strong_ordering tieBreak(const std::uint64_t& a, const std::uint64_t& b) noexcept {
      return a <=> b;
   }
};

template <class M>
struct EveryHashMap : ::testing::Test {};
using MapTypes = ::testing::Types<Map, SmallSplitMap, TrackedSplitMap>;
TYPED_TEST_SUITE(EveryHashMap, MapTypes);

TYPED_TEST(EveryHashMap, IterationOrderDependsOnlyOnTheKeysPresent) {
   using Map = TypeParam;
   std::vector<std::uint64_t> keys(5000);
   for (std::size_t i = 0; i < keys.size(); ++i) {
      keys[i] = i * 7919;
   }
   Map reference;
   for (auto k : keys) {
      reference.tryEmplace(k, 0);
   }
   const auto expected = order(reference);
   std::mt19937 rng(1);
   for (int round = 0; round < 20; ++round) {
      SCOPED_TRACE(round);
      std::shuffle(keys.begin(), keys.end(), rng);
      Map map;
      // A different history each round: extra keys that come and go, and a
      // detour through a larger capacity.
      for (std::uint64_t extra = 0; extra < std::uint64_t(round) * 500; ++extra) {
         map.tryEmplace(1'000'000'000 + extra, 0);
      }
      for (auto k : keys) {
         map.tryEmplace(k, 1);
      }
      for (std::uint64_t extra = 0; extra < std::uint64_t(round) * 500; ++extra) {
         map.erase(1'000'000'000 + extra);
      }
      EXPECT_EQ(order(map), expected);
   }
}

TEST(HashMap, EqualHashesAreOrderedByTieBreakWhateverTheInsertionOrder) {
   Vok::HashMap<std::uint64_t, int, CollidingTraits> forward, backward;
   for (std::uint64_t k = 0; k < 300; ++k) {
      forward.tryEmplace(k, 0);
      backward.tryEmplace(299 - k, 0);
   }
   std::vector<std::uint64_t> a, b;
   for (const auto& e : forward) a.push_back(e.first);
   for (const auto& e : backward) b.push_back(e.first);
   EXPECT_EQ(a, b);
   EXPECT_TRUE(std::is_sorted(a.begin(), a.end()));
   for (std::uint64_t k = 0; k < 300; k += 2) {
      ASSERT_TRUE(forward.erase(k));
   }
   for (std::uint64_t k = 0; k < 300; ++k) {
      EXPECT_EQ(forward.contains(k), k % 2 == 1) << k;
   }
}

// Hashes at the very top of the range, where a table marks its free slots.
struct TopOfRangeTraits {
   static std::uint32_t hash(const std::uint64_t& k) noexcept { return 0xFFFFFFFFu - k % 2; }
   static std::strong_ordering tieBreak(const std::uint64_t& a, const std::uint64_t& b) noexcept {
      return a <=> b;
   }
};

TEST(HashMap, KeysHashingToTheTopOfTheRangeAreKeptFoundAndOrderedLikeAnyOther) {
   Vok::HashMap<std::uint64_t, int, TopOfRangeTraits, 16> map;
   for (std::uint64_t k = 0; k < 100; ++k) {
      map.tryEmplace(99 - k, int(k));
   }
   const std::vector<std::uint64_t> keys = order(map);
   ASSERT_EQ(keys.size(), 100u);
   // The two hashes order alike, so the keys are one run in tie-break order.
   EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
   for (std::uint64_t k = 0; k < 100; k += 3) {
      ASSERT_TRUE(map.erase(k));
   }
   for (std::uint64_t k = 0; k < 100; ++k) {
      EXPECT_EQ(map.contains(k), k % 3 != 0) << k;
   }
}

// Values that fail to build from a negative number: one of plain bytes (its
// map moves runs of slots as blocks) and one that is not.
struct PickyBytes {
   int value = 0;
   PickyBytes(int v) : value(v) {  // NOLINT: stands in for an int
      if (v < 0) throw std::invalid_argument("negative");
   }
};
struct PickyObject {
   std::string text;
   PickyObject(int v) : text(std::to_string(v)) {  // NOLINT: stands in for an int
      if (v < 0) throw std::invalid_argument("negative");
   }
};

TEST(HashMap, AnInsertionWhoseValueFailsToBuildLeavesTheMapAsItWas) {
   auto check = []<class V>(V, auto valueOf) {
      // One cluster: every insertion lands inside the run and shifts it.
      Vok::HashMap<std::uint64_t, V, CollidingTraits> map;
      for (std::uint64_t k = 0; k < 40; k += 2) {
         map.tryEmplace(k, int(k));
      }
      for (std::uint64_t k = 1; k < 40; k += 2) {
         EXPECT_THROW(map.tryEmplace(k, -1), std::invalid_argument) << k;
      }
      EXPECT_EQ(map.size(), 20u);
      for (std::uint64_t k = 0; k < 40; ++k) {
         const V* found = map.lookup(k);
         ASSERT_EQ(found != nullptr, k % 2 == 0) << k;
         if (found) {
            EXPECT_EQ(valueOf(*found), int(k));
         }
      }
      const std::vector<std::uint64_t> keys = order(map);
      EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
      map.tryEmplace(41, 41);  // the last entry is still known as last
      EXPECT_EQ(order(map).back(), 41u);
   };
   check(PickyBytes(0), [](const PickyBytes& v) { return v.value; });
   check(PickyObject(0), [](const PickyObject& v) { return std::stoi(v.text); });
}

TYPED_TEST(EveryHashMap, ErasingTheCurrentEntryWhileIteratingVisitsEveryOtherEntryOnce) {
   using Map = TypeParam;
   Map map;
   for (std::uint64_t k = 0; k < 10000; ++k) {
      map.tryEmplace(k * 31, int(k));
   }
   const auto expected = order(map);
   std::vector<std::uint64_t> visited;
   for (auto it = map.begin(); it != map.end(); ++it) {
      visited.push_back(it->first);
      map.erase(it->first);  // shifts successors and shrinks the table
   }
   EXPECT_EQ(visited, expected);
   EXPECT_TRUE(map.empty());
}

TYPED_TEST(EveryHashMap, ErasingAndInsertingOtherEntriesWhileIteratingIsWellDefined) {
   using Map = TypeParam;
   Map map;
   for (std::uint64_t k = 0; k < 2000; ++k) {
      map.tryEmplace(k, 0);
   }
   std::map<std::uint64_t, int> seen;
   for (auto it = map.begin(); it != map.end(); ++it) {
      ++seen[it->first];
      map.erase(it->first ^ 1);               // a neighbour, seen or not
      map.tryEmplace(it->first + 100'000, 0);  // may land before or after
   }
   for (const auto& [key, count] : seen) {
      EXPECT_EQ(count, 1) << key;
   }
}

TYPED_TEST(EveryHashMap, ProbesStayShortWhenEntriesLeaveInIterationOrder) {
   using Map = TypeParam;
   // The drain erases in iteration order, that is in hash order: the
   // survivors then crowd one end of the hash range.
   Map map;
   for (std::uint64_t k = 0; k < 100'000; ++k) {
      map.tryEmplace(k * 2654435761u, 0);
   }
   std::size_t erased = 0;
   for (auto it = map.begin(); it != map.end() && erased < 95'000; ++it, ++erased) {
      map.erase(it->first);
   }
   EXPECT_LE(map.longestProbe(), 64u);
   for (std::uint64_t k = 0; k < 50'000; ++k) {
      map.tryEmplace(k * 40503u + 7, 0);
   }
   EXPECT_LE(map.longestProbe(), 64u);
   EXPECT_EQ(map.size(), 55'000u);
}

// A map filled in its own order appends each key after the last one, and
// must find that last one again as entries leave from the end.
TYPED_TEST(EveryHashMap, FilledInItsOwnOrderAndEmptiedFromTheEndKeepsEveryOtherEntry) {
   using Map = TypeParam;
   std::vector<std::uint64_t> keys(3000);
   for (std::size_t i = 0; i < keys.size(); ++i) {
      keys[i] = i * 7919;
   }
   std::ranges::sort(keys, {}, [](std::uint64_t k) { return Vok::KeyTraits<std::uint64_t>::hash(k); });
   Map map;
   for (std::uint64_t k : keys) {
      map.tryEmplace(k, int(k));
   }
   for (std::size_t left = keys.size(); left-- > 1;) {
      ASSERT_TRUE(map.erase(keys[left]));
      if (left % 100 == 0) {  // back in, after the new last entry, and out again
         ASSERT_TRUE(map.tryEmplace(keys[left], 0).second);
         ASSERT_TRUE(map.erase(keys[left]));
      }
      ASSERT_FALSE(map.contains(keys[left]));
      ASSERT_NE(map.lookup(keys[left - 1]), nullptr);
      ASSERT_EQ(*map.lookup(keys[left / 2]), int(keys[left / 2]));
   }
   EXPECT_EQ(order(map), std::vector<std::uint64_t>{keys[0]});
}

TYPED_TEST(EveryHashMap, IteratorOnARemovedEntryCannotBeDereferenced) {
   using Map = TypeParam;
   Map map;
   map.tryEmplace(1, 1);
   map.tryEmplace(2, 2);
   auto it = map.find(1);
   map.erase(1);
   EXPECT_DEATH((void)it->second, "dereferenced a map iterator whose entry was removed");
}

TYPED_TEST(EveryHashMap, AgreesWithAReferenceMapUnderRandomOperations) {
   using Map = TypeParam;
   for (unsigned seed = 1; seed <= 10; ++seed) {
      SCOPED_TRACE(seed);
      std::mt19937 rng(seed);
      Map map;
      std::map<std::uint64_t, int> reference;
      for (int step = 0; step < 20000; ++step) {
         if (step % 1000 == 0) {
            map.reserve(rng() % 6000);  // a promise, kept or not, changes no entry
         }
         std::uint64_t key = rng() % 3000;
         switch (rng() % 4) {
            case 0:
            case 1: {
               int value = int(rng() % 100);
               map.insertOrAssign(key, value);
               reference[key] = value;
               break;
            }
            case 2:
               EXPECT_EQ(map.erase(key), reference.erase(key) == 1);
               break;
            case 3: {
               const auto* found = map.lookup(key);
               auto it = reference.find(key);
               ASSERT_EQ(found != nullptr, it != reference.end());
               if (found) {
                  EXPECT_EQ(*found, it->second);
               }
               break;
            }
         }
      }
      ASSERT_EQ(map.size(), reference.size());
      std::map<std::uint64_t, int> contents;
      for (const auto& [k, v] : map) {
         contents[k] = v;
      }
      EXPECT_EQ(contents, reference);
      Map fresh;
      for (const auto& [k, v] : reference) {
         fresh.tryEmplace(k, v);
      }
      EXPECT_EQ(order(map), order(fresh));
   }
}

TEST(HashMap, EntriesThatAreNotPlainBytesLiveExactlyAsLongAsTheirMap) {
   const int before = Tracked::live;
   {
      std::mt19937 rng(7);
      TrackedSplitMap map;
      for (int step = 0; step < 20000; ++step) {
         const std::uint64_t key = rng() % 2000;
         if (rng() % 3 == 0) {
            map.erase(key);
         } else {
            map.insertOrAssign(key, int(key));
         }
         ASSERT_EQ(Tracked::live - before, int(map.size()));
      }
      EXPECT_GT(map.parts(), 1u);
   }
   EXPECT_EQ(Tracked::live, before);
}

TYPED_TEST(EveryHashMap, CopiesAreIndependentAndEqual) {
   using Map = TypeParam;
   Map map;
   for (std::uint64_t k = 0; k < 100; ++k) {
      map.tryEmplace(k, int(k));
   }
   Map copy = map;
   copy.erase(5);
   EXPECT_TRUE(map.contains(5));
   EXPECT_FALSE(copy.contains(5));
   EXPECT_EQ(copy.size(), 99u);
}

TEST(HashMap, SplittingIntoTablesKeepsTheOrderAndTheEntries) {
   Map whole;
   SmallSplitMap split;
   std::mt19937 rng(7);
   for (int step = 0; step < 20000; ++step) {
      const std::uint64_t key = rng() % 5000;
      if (rng() % 3 == 0) {
         whole.erase(key);
         split.erase(key);
      } else {
         whole.insertOrAssign(key, int(key));
         split.insertOrAssign(key, int(key));
      }
      if (step % 1000 == 0) {
         ASSERT_EQ(order(whole), order(split)) << step;
      }
   }
   EXPECT_EQ(order(whole), order(split));
   // Emptied, the split map joins back into one table and splits again.
   for (auto key : order(split)) {
      split.erase(key);
   }
   EXPECT_TRUE(split.empty());
   Map fresh;
   for (std::uint64_t k = 0; k < 100; ++k) {
      split.tryEmplace(k, 0);
      fresh.tryEmplace(k, 0);
   }
   EXPECT_EQ(order(split), order(fresh));
}

// Hashes that share their top 24 bits and differ below: as skewed as keys
// get short of equal hashes.
struct SkewedTraits {
   static std::uint32_t hash(const std::uint64_t& k) noexcept {
      return 0x5A5A5A00u | static_cast<std::uint32_t>(k % 256);
   }
   static std::strong_ordering tieBreak(const std::uint64_t& a, const std::uint64_t& b) noexcept {
      return a <=> b;
   }
};

// Well-spread hashes whose top bit is always set: every key falls in the
// upper half of a map's first split.
struct TopBitTraits {
   static std::uint32_t hash(const std::uint64_t& k) noexcept {
      return Vok::KeyTraits<std::uint64_t>::hash(k) | 0x80000000u;
   }
   static std::strong_ordering tieBreak(const std::uint64_t& a, const std::uint64_t& b) noexcept {
      return a <=> b;
   }
};

template <class Traits, std::size_t PartSize>
using MapOf = Vok::HashMap<std::uint64_t, int, Traits, PartSize>;

TEST(HashMap, PartsStaySmallAsTheMapGrowsAndSkewedKeysStayInOnePart) {
   struct Row {
      const char* name;
      std::function<std::size_t(const std::vector<std::uint64_t>&)> parts;
      std::size_t atLeast, atMost;
   };
   // Each map is compared with one of the same keys that never splits.
   auto partsAfter = []<class Traits>(Traits, const std::vector<std::uint64_t>& keys) {
      MapOf<Traits, 16> small;
      MapOf<Traits, std::size_t{1} << 20> whole;
      for (std::uint64_t k : keys) {
         small.tryEmplace(k, int(k));
         whole.tryEmplace(k, int(k));
      }
      EXPECT_EQ(order(small), order(whole));
      for (std::size_t i = 0; i < keys.size(); i += 2) {
         small.erase(keys[i]);
         whole.erase(keys[i]);
      }
      EXPECT_EQ(order(small), order(whole));
      for (std::size_t i = 1; i < keys.size(); i += 2) {
         EXPECT_EQ(*small.lookup(keys[i]), int(keys[i]));
      }
      return small.parts();
   };
   std::vector<std::uint64_t> keys(5000);
   for (std::size_t i = 0; i < keys.size(); ++i) {
      keys[i] = i * 7919;
   }
   const Row rows[] = {
         // Parts split on reaching 16 entries: well over 5,000 / 16 of them.
         {"spread", [&](const auto& k) { return partsAfter(Vok::KeyTraits<std::uint64_t>(), k); },
          5000 / 16, 5000},
         // The first split leaves its lower half empty; the upper splits on.
         {"top bit set", [&](const auto& k) { return partsAfter(TopBitTraits(), k); }, 5000 / 16,
          5000},
         // Alike in their top 24 bits: nothing to split them by, one part.
         {"skewed", [&](const auto& k) { return partsAfter(SkewedTraits(), k); }, 1, 1},
   };
   for (const Row& row : rows) {
      SCOPED_TRACE(row.name);
      const std::size_t parts = row.parts(keys);
      EXPECT_GE(parts, row.atLeast);
      EXPECT_LE(parts, row.atMost);
   }
}

// Filled in its own order, a map crowds its newest keys into one end of a
// part, and lookups there walk ever longer runs of slots, unless it was
// told its size: each part then spans the hashes it will hold from its
// first entry on.
TEST(HashMap, AMapToldItsSizeFillsInItsOwnOrderWithShortProbes) {
   std::vector<std::uint64_t> keys(20000);
   for (std::size_t i = 0; i < keys.size(); ++i) {
      keys[i] = i * 7919;
   }
   Map unordered;
   for (std::uint64_t k : keys) {
      unordered.tryEmplace(k, int(k));
   }
   std::ranges::sort(keys, {}, [](std::uint64_t k) { return Vok::KeyTraits<std::uint64_t>::hash(k); });
   Map map;
   map.reserve(keys.size());
   std::size_t longest = 0;
   for (std::size_t i = 0; i < keys.size(); ++i) {
      map.tryEmplace(keys[i], int(keys[i]));
      if (i % 500 == 0) {
         longest = std::max(longest, map.longestProbe());
      }
   }
   EXPECT_EQ(order(map), order(unordered));
   EXPECT_LE(longest, 32u);  // several hundred slots when not told
}

TEST(HashMap, AnEmptiedMapForgetsTheSizeItWasTold) {
   Map map;
   map.reserve(100000);
   map.tryEmplace(1, 1);
   EXPECT_GT(map.parts(), 1u);  // split down to the promised size's parts
   map.erase(1);
   map.tryEmplace(2, 2);
   EXPECT_EQ(map.parts(), 1u);
   map.reserve(100000);
   map.clear();
   map.tryEmplace(3, 3);
   EXPECT_EQ(map.parts(), 1u);
}

TEST(HashMap, AnIteratorMovesOnAcrossASplitAndCannotReachAnEntryErasedMeanwhile) {
   SmallSplitMap map;
   for (std::uint64_t k = 0; k < 10; ++k) {
      map.tryEmplace(k, int(k));
   }
   const auto before = order(map);
   auto it = map.find(before[4]);
   auto gone = map.find(before[6]);
   map.erase(before[6]);
   for (std::uint64_t k = 100; k < 200; ++k) {
      map.tryEmplace(k, 0);  // splits the map
   }
   const auto after = order(map);
   const auto next = std::find(after.begin(), after.end(), before[4]) + 1;
   ++it;  // no dereference first: the step itself crosses the split
   ASSERT_NE(next, after.end());
   EXPECT_EQ(it->first, *next);
   EXPECT_DEATH((void)gone->second, "dereferenced a map iterator whose entry was removed");
}

TEST(HashMap, ClearSwapAndMoveWorkOnSplitMaps) {
   SmallSplitMap a, b;
   for (std::uint64_t k = 0; k < 100; ++k) {
      a.tryEmplace(k, 1);
   }
   b.tryEmplace(7, 2);
   const auto aOrder = order(a);
   a.swap(b);
   EXPECT_EQ(order(b), aOrder);
   EXPECT_EQ(order(a), std::vector<std::uint64_t>{7});
   SmallSplitMap moved(std::move(b));
   EXPECT_EQ(order(moved), aOrder);
   moved.clear();
   EXPECT_TRUE(moved.empty());
   moved.tryEmplace(3, 3);
   EXPECT_EQ(order(moved), std::vector<std::uint64_t>{3});
   // A key that refers into the map itself updates in place, also at the
   // size that splits the map.
   SmallSplitMap full;
   for (std::uint64_t k = 0; k < 16; ++k) {
      full.tryEmplace(k, 0);
   }
   auto first = full.begin();
   full.insertOrAssign(first->first, 5);
   EXPECT_EQ(*full.lookup(first->first), 5);
   EXPECT_EQ(full.size(), 16u);
}

TEST(HashMap, AnIteratorFollowsItsEntryWhenTheMapSplitsUnderIt) {
   SmallSplitMap map;
   for (std::uint64_t k = 0; k < 10; ++k) {
      map.tryEmplace(k, int(k));
   }
   auto it = map.find(3);
   for (std::uint64_t k = 100; k < 200; ++k) {
      map.tryEmplace(k, 0);  // splits the map
   }
   EXPECT_EQ(it->second, 3);
   std::vector<std::uint64_t> rest;
   for (++it; it != map.end(); ++it) {
      rest.push_back(it->first);
   }
   const auto all = order(map);
   const auto at = std::find(all.begin(), all.end(), 3u);
   EXPECT_EQ(rest, std::vector<std::uint64_t>(at + 1, all.end()));
}

}  // namespace
