// The store of rows keyed by sequential numbers: against a sorted map under
// random writes and deletions, in key order, and under deletion while it is
// visited.
#include "platform/plim/DenseStore.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <utility>
#include <vector>

namespace {

struct Number {
   std::uint32_t n = 0;
   Number() = default;
   explicit Number(std::uint32_t value) : n(value) {}
   std::uint32_t value() const { return n; }
};

using Store = Plim::DenseStore<Number, int>;

std::vector<std::pair<std::uint32_t, int>> rowsOf(const Store& store) {
   std::vector<std::pair<std::uint32_t, int>> rows;
   store.forEach([&](const Number& key, const int& value) { rows.emplace_back(key.value(), value); });
   return rows;
}

std::vector<std::pair<std::uint32_t, int>> rowsOf(const std::map<std::uint32_t, int>& map) {
   return {map.begin(), map.end()};
}

TEST(DenseStore, AgreesWithASortedMapUnderRandomWritesAndDeletions) {
   // Keys in a few ranges: within one page, across page boundaries, and far
   // out, where the page index grows long and mostly empty.
   const std::vector<std::pair<std::uint32_t, std::uint32_t>> ranges = {
         {0, 100}, {4000, 8300}, {1u << 20, (1u << 20) + 50}, {0xFFFFFF00u, 0xFFFFFFFFu}};
   for (unsigned seed = 1; seed <= 20; ++seed) {
      SCOPED_TRACE(seed);
      std::mt19937 rng(seed);
      Store store;
      std::map<std::uint32_t, int> reference;
      for (int step = 0; step < 5000; ++step) {
         const auto [low, high] = ranges[rng() % ranges.size()];
         const std::uint32_t key = low + rng() % (high - low + 1);
         const int value = static_cast<int>(rng() % 1000);
         switch (rng() % 4) {
            case 0:
               ASSERT_EQ(store.rowDel(Number(key)), reference.erase(key) == 1);
               break;
            case 1:
               if (step % 997 == 0) {
                  store.rowDelAll();
                  reference.clear();
               }
               break;
            default:
               store.rowIs(Number(key), value);
               reference[key] = value;
         }
         const int* row = store.row(Number(key));
         const auto found = reference.find(key);
         ASSERT_EQ(row != nullptr, found != reference.end());
         if (row) {
            ASSERT_EQ(*row, found->second);
         }
         ASSERT_EQ(store.size(), reference.size());
      }
      EXPECT_EQ(rowsOf(store), rowsOf(reference));
   }
}

TEST(DenseStore, AVisitMayDeleteTheRowItIsGivenEvenThePagesLast) {
   Store store;
   std::map<std::uint32_t, int> reference;
   for (std::uint32_t key : {1u, 2u, 4095u, 4096u, 9000u, 9001u, 70000u}) {
      store.rowIs(Number(key), int(key));
      reference[key] = int(key);
   }
   std::vector<std::pair<std::uint32_t, int>> visited;
   store.forEach([&](const Number& key, const int& value) {
      visited.emplace_back(key.value(), value);
      if (key.value() % 2 == 1 || key.value() == 4096 || key.value() == 70000) {
         store.rowDel(key);  // 4096 and 70000 are their pages' only rows
         reference.erase(key.value());
      }
   });
   EXPECT_EQ(visited.size(), 7u);
   EXPECT_EQ(rowsOf(store), rowsOf(reference));
   EXPECT_EQ(store.size(), 2u);
   EXPECT_EQ(store.row(Number(70000)), nullptr);
   EXPECT_FALSE(store.rowDel(Number(70000)));
   EXPECT_FALSE(store.rowDel(Number(0xFFFFFFFFu)));
}

}  // namespace
