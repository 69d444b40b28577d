// Drain throughput of one VRF's installer: 1,000,000 queued (interface,
// prefix) pairs over 50,000 interfaces, in-memory tables, on the real
// monotonic clock so that 80 ms slices end as they would in the agent; and
// the same at 250,000 and 4,000,000 pairs for the scale curve.
//
// Reports CPU time per entry (items_per_second), the longest single clock
// callback, and heap bytes per installed route (store, owner map,
// route table, vias and via sets), measured with mallinfo2.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "install/IntfBacklogSm.h"
#include "tests/support/InstallerHarness.h"

namespace {

using namespace Routing::ConnectedRoute;

constexpr int kPrefixesPerInterface = 20;

// Heap in use, including the large blocks malloc serves with mmap (every
// big table's), which uordblks alone leaves out.
std::size_t heapInUse() {
   const struct mallinfo2 info = mallinfo2();
   return info.uordblks + info.hblkhd;
}

struct Table {
   explicit Table(int interfaces) : interfaces(interfaces) {}
   const int interfaces;
   Vok::MonotonicTimeSource time;
   Vok::ActivityManager am{time};
   Testing::RibTables tables{Vrf::VrfIdMap::VrfId(1)};
   Vok::Ptr<IntfBacklog> store = intfBacklogFactory("", L3::VrfName("bench"));
   Vok::Ptr<IntfBacklogSm> sm = intfBacklogSmFactory(
         L3::VrfName("bench"), Vrf::VrfIdMap::VrfId(1), &am, nullptr, nullptr, tables.via4,
         tables.route4, tables.query4, tables.via6, tables.route6, tables.query6, tables.viaSets,
         store);

   void fill() {
      for (int i = 0; i < interfaces; ++i) {
         const Ovel::IntfId intfId("Ethernet" + std::to_string(i));
         const IntfViaSetKey keys = sm->findOrCreateViaSetKey(intfId, Ovel::AddressFamily::ipv4);
         for (int p = 0; p < kPrefixesPerInterface; ++p) {
            // Distinct /24s: interfaces x 20 of them.
            const std::uint32_t net = (std::uint32_t(i) * kPrefixesPerInterface + p) << 8;
            const Ovel::IpAddrWithMask a(Ovel::IpAddr(0x0A000001u + net), 24);
            store->addToIntfIdsByPrefix(intfId, Ovel::IpGenPrefix(a.addr(), 24),
                                        Ovel::IpGenAddrWithMask(a), Routing::Fib::RouteType::attachedSubnet,
                                        keys.viaSetKey());
         }
         store->intfViaSetKeyStatus4()->incIntfVskRefcount(intfId);
      }
   }

   // Runs clocks as the agent's loop would; returns the longest callback.
   double drain() {
      double longest = 0;
      while (am.armedCount() > 0) {
         const double wait = am.nextDue() - am.now();
         if (wait > 0) {
            std::this_thread::sleep_for(std::chrono::duration<double>(wait));
         }
         const auto start = std::chrono::steady_clock::now();
         am.runOnce();
         longest = std::max(
               longest,
               std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
      }
      return longest;
   }
};

// Drains interfaces x 20 entries; the argument is the number of interfaces.
void drainEntries(benchmark::State& state) {
   const int interfaces = int(state.range(0));
   const std::size_t entries = std::size_t(interfaces) * kPrefixesPerInterface;
   double longest = 0;
   double bytesPerRoute = 0;
   for (auto _ : state) {
      state.PauseTiming();
      const std::size_t before = heapInUse();
      auto table = std::make_unique<Table>(interfaces);
      table->fill();
      state.ResumeTiming();
      longest = std::max(longest, table->drain());
      state.PauseTiming();
      if (table->tables.route4->routeCount() != entries) {
         state.SkipWithError("not every route was installed");
      }
      bytesPerRoute = double(heapInUse() - before) / double(entries);
      table.reset();
      state.ResumeTiming();
   }
   state.SetItemsProcessed(state.iterations() * entries);
   state.counters["longest_callback_ms"] = longest * 1e3;
   state.counters["bytes_per_route"] = bytesPerRoute;
}

void BM_DrainMillionEntries(benchmark::State& state) { drainEntries(state); }
BENCHMARK(BM_DrainMillionEntries)->Arg(50'000)->Unit(benchmark::kMillisecond)->Iterations(3);

// The scale curve around the million above: 250,000 and 4,000,000 entries
// (about 2 GB of heap). CPU per entry and bytes per route should stay flat
// as the tables grow.
void BM_DrainScaleCurve(benchmark::State& state) { drainEntries(state); }
BENCHMARK(BM_DrainScaleCurve)->Arg(12'500)->Arg(200'000)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace
