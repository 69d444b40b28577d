// Vok::HashMap against std::unordered_map at a million entries: insert, find,
// erase and iterate, with the 44-byte keys the route store uses most.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <random>
#include <unordered_map>
#include <vector>

#include "bench/support/ThreadCpuTime.h"
#include "platform/vok/HashMap.h"

namespace {

// Shaped like the store's (interface, prefix) key.
struct Key {
   char intf[24];
   unsigned char prefix[20];
   friend bool operator==(const Key& a, const Key& b) { return std::memcmp(&a, &b, sizeof(Key)) == 0; }
};

struct KeyHash {
   std::size_t operator()(const Key& k) const noexcept { return Vok::hashBytes(&k, sizeof(k)); }
};

std::vector<Key> makeKeys(std::size_t n) {
   std::vector<Key> keys(n);
   std::mt19937 rng(7);
   for (std::size_t i = 0; i < n; ++i) {
      std::memset(&keys[i], 0, sizeof(Key));
      std::snprintf(keys[i].intf, sizeof(keys[i].intf), "Ethernet%u", static_cast<unsigned>(i / 20));
      std::uint32_t addr = rng();
      std::memcpy(keys[i].prefix + 4, &addr, 4);
      keys[i].prefix[0] = 1;
      keys[i].prefix[1] = 24;
   }
   return keys;
}

constexpr std::size_t kEntries = 1'000'000;
const std::vector<Key>& keys() {
   static const std::vector<Key> k = makeKeys(kEntries);
   return k;
}

template <class Map>
void insertAll(Map& map) {
   for (const Key& k : keys()) {
      if constexpr (requires { map.tryEmplace(k, 1); }) {
         map.tryEmplace(k, 1);
      } else {
         map.try_emplace(k, 1);
      }
   }
}

using VokMap = Vok::HashMap<Key, int>;
using StdMap = std::unordered_map<Key, int, KeyHash>;

template <class Map>
void BM_Insert(benchmark::State& state) {
   for (auto _ : state) {
      Map map;
      insertAll(map);
      benchmark::DoNotOptimize(map.size());
   }
   state.SetItemsProcessed(state.iterations() * kEntries);
}

template <class Map>
void BM_Find(benchmark::State& state) {
   Map map;
   insertAll(map);
   for (auto _ : state) {
      std::size_t found = 0;
      for (const Key& k : keys()) {
         if constexpr (requires { map.lookup(k); }) {
            found += map.lookup(k) != nullptr;
         } else {
            found += map.find(k) != map.end();
         }
      }
      benchmark::DoNotOptimize(found);
   }
   state.SetItemsProcessed(state.iterations() * kEntries);
}

template <class Map>
void BM_Erase(benchmark::State& state) {
   for (auto _ : state) {
      state.PauseTiming();
      Map map;
      insertAll(map);
      state.ResumeTiming();
      for (const Key& k : keys()) {
         map.erase(k);
      }
      benchmark::DoNotOptimize(map.size());
   }
   state.SetItemsProcessed(state.iterations() * kEntries);
}

template <class Map>
void BM_Iterate(benchmark::State& state) {
   Map map;
   insertAll(map);
   for (auto _ : state) {
      long sum = 0;
      for (const auto& entry : map) {
         sum += entry.second;
      }
      benchmark::DoNotOptimize(sum);
   }
   state.SetItemsProcessed(state.iterations() * kEntries);
}

// The slowest single insert while a map fills to state.range(0) entries,
// growths and splits included: it must not grow with the map's size. The
// thread's CPU time tells the map's own work from the VM's pauses, which
// reach milliseconds here even in a loop that does nothing.
void BM_WorstInsertStep(benchmark::State& state) {
   const auto entries = static_cast<std::size_t>(state.range(0));
   const std::vector<Key> all = makeKeys(entries);
   double worstUs = 0;
   double worstCpuUs = 0;
   std::size_t parts = 0;
   for (auto _ : state) {
      VokMap map;
      for (const Key& k : all) {
         const auto start = std::chrono::steady_clock::now();
         const double startCpu = Bench::threadCpuSeconds();
         map.tryEmplace(k, 1);
         worstCpuUs = std::max(worstCpuUs, (Bench::threadCpuSeconds() - startCpu) * 1e6);
         const std::chrono::duration<double, std::micro> took = std::chrono::steady_clock::now() - start;
         worstUs = std::max(worstUs, took.count());
      }
      parts = map.parts();
      benchmark::DoNotOptimize(map.size());
   }
   state.counters["worst_insert_us"] = worstUs;
   state.counters["worst_insert_cpu_us"] = worstCpuUs;
   state.counters["parts"] = static_cast<double>(parts);
   state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(entries));
}

BENCHMARK(BM_WorstInsertStep)->Arg(250'000)->Arg(1'000'000)->Arg(4'000'000)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Insert<VokMap>)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Insert<StdMap>)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Find<VokMap>)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Find<StdMap>)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Erase<VokMap>)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Erase<StdMap>)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Iterate<VokMap>)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Iterate<StdMap>)->Unit(benchmark::kMillisecond);

}  // namespace
