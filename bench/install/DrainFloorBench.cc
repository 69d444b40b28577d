// The floor under the drain: per entry, the drain must find the prefix's
// record in the store and read, then write, the prefix's row in the RIB's
// route table. Both are keyed by prefix and hold a row per route, so at a
// million routes each is far larger than the caches, and the backlog's
// order is unrelated to either table's.
//
// These benchmarks do only that, over the same real maps and rows and in a
// fixed random order, with no engine around them:
//   - BM_FloorStoreLookup: the store's record only;
//   - BM_FloorStoreAndRouteRow: the record, then the route row read and
//     written, into a route table that grows as the drain's does;
//   - BM_FloorStoreAndFilledRouteRow: the same over a route table that
//     already holds every row, each rewritten in place (no growth).
// items_per_second is entries per CPU second, as in DrainBench.cc.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "model/PrefixRecords.h"
#include "platform/rib/Route.h"

namespace {

using Routing::ConnectedRoute::PrefixRecord;
using Routing::ConnectedRoute::PrefixRecords;
using RouteRows = Vok::HashMap<Ovel::IpGenPrefix, Routing::Rib::Route>;

constexpr std::size_t kEntries = 1'000'000;

// Distinct /24s, as the drain benchmark's, in a fixed random order.
const std::vector<Ovel::IpGenPrefix>& prefixesInDrainOrder() {
   static const std::vector<Ovel::IpGenPrefix> prefixes = [] {
      std::vector<Ovel::IpGenPrefix> all;
      all.reserve(kEntries);
      for (std::uint32_t i = 0; i < kEntries; ++i) {
         all.emplace_back(Ovel::IpAddr(0x0A000000u + (i << 8)), 24);
      }
      std::shuffle(all.begin(), all.end(), std::mt19937(7));
      return all;
   }();
   return prefixes;
}

PrefixRecords filledStore(const std::vector<Ovel::IpGenPrefix>& prefixes) {
   PrefixRecords store;
   for (const Ovel::IpGenPrefix& prefix : prefixes) {
      store.tryEmplace(prefix).first->listed = true;
   }
   return store;
}

Routing::Rib::Route routeOf(const Ovel::IpGenPrefix& prefix, std::uint32_t owner) {
   return Routing::Rib::Route{prefix, Routing::Rib::RoutingProtocol::connected, {}, {}, owner,
                              Routing::Fib::RouteType::attachedSubnet, 0};
}

// One drain-like pass: find the record, read the route row, write it.
std::size_t drainPass(const std::vector<Ovel::IpGenPrefix>& prefixes, PrefixRecords& store,
                      RouteRows* routes) {
   std::size_t written = 0;
   for (const Ovel::IpGenPrefix& prefix : prefixes) {
      PrefixRecord* record = store.lookup(prefix);
      benchmark::DoNotOptimize(record);
      if (!routes) {
         continue;
      }
      const Routing::Rib::Route* installed = routes->lookup(prefix);
      // Every row is written: a filled table holds the owner 0.
      const std::uint32_t owner = record->listed ? 1 : 2;
      if (!installed || installed->fecIndex != owner) {
         routes->insertOrAssign(prefix, routeOf(prefix, owner));
         ++written;
      }
   }
   return written;
}

enum class RouteTable { none, growing, filled };

void floorBench(benchmark::State& state, RouteTable kind) {
   const auto& prefixes = prefixesInDrainOrder();
   for (auto _ : state) {
      state.PauseTiming();
      PrefixRecords store = filledStore(prefixes);
      RouteRows routes;
      if (kind == RouteTable::filled) {
         for (const Ovel::IpGenPrefix& prefix : prefixes) {
            routes.insertOrAssign(prefix, routeOf(prefix, 0));
         }
      }
      state.ResumeTiming();
      benchmark::DoNotOptimize(
            drainPass(prefixes, store, kind == RouteTable::none ? nullptr : &routes));
      state.PauseTiming();
      store = PrefixRecords();
      routes = RouteRows();
      state.ResumeTiming();
   }
   state.SetItemsProcessed(state.iterations() * kEntries);
}

void BM_FloorStoreLookup(benchmark::State& state) { floorBench(state, RouteTable::none); }
void BM_FloorStoreAndRouteRow(benchmark::State& state) { floorBench(state, RouteTable::growing); }
void BM_FloorStoreAndFilledRouteRow(benchmark::State& state) {
   floorBench(state, RouteTable::filled);
}
BENCHMARK(BM_FloorStoreLookup)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_FloorStoreAndRouteRow)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_FloorStoreAndFilledRouteRow)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
