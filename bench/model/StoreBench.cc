// Memory of the store alone: candidates for 1,000,000 prefixes (one
// candidate each, and two), with nothing drained, so that the budget of the
// store's own structures (candidate sets, the backlog of pending pairs) is
// visible apart from the installer's and the tables'; and the cost of one
// prefix claimed by many interfaces.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include "model/IntfBacklog.h"

namespace {

using namespace Routing::ConnectedRoute;

constexpr std::size_t kPrefixes = 1'000'000;
constexpr int kPrefixesPerInterface = 20;

std::size_t heapInUse() {
   const struct mallinfo2 info = mallinfo2();
   return info.uordblks + info.hblkhd;  // mmapped blocks too: every big table's
}

void fill(IntfBacklog& store, int candidates) {
   for (std::size_t n = 0; n < kPrefixes; ++n) {
      const std::uint32_t net = std::uint32_t(n) << 8;
      for (int c = 0; c < candidates; ++c) {
         const Ovel::IntfId intfId("Ethernet" + std::to_string(n / kPrefixesPerInterface + c));
         const Ovel::IpAddrWithMask a(Ovel::IpAddr(0x0A000001u + net + std::uint32_t(c)), 24);
         store.addToIntfIdsByPrefix(intfId, Ovel::IpGenPrefix(a.subnet(), 24),
                                    Ovel::IpGenAddrWithMask(a), Routing::Fib::RouteType::attachedSubnet,
                                    Routing::Rib::ViaSetKey(1));
      }
   }
}

void BM_StoreCandidates(benchmark::State& state) {
   const int candidates = int(state.range(0));
   double bytesPerPrefix = 0;
   double pendingBytesPerPrefix = 0;
   for (auto _ : state) {
      const std::size_t before = heapInUse();
      auto store = intfBacklogFactory("", L3::VrfName("bench"));
      fill(*store, candidates);
      state.PauseTiming();
      const std::size_t filled = heapInUse();
      // The pending pairs go as the installer would take them.
      for (auto it = store->backlog().begin(); it != store->backlog().end(); ++it) {
         store->backlogDel(it->first);
      }
      bytesPerPrefix = double(heapInUse() - before) / double(kPrefixes);
      pendingBytesPerPrefix = double(filled - heapInUse()) / double(kPrefixes);
      store = nullptr;
      state.ResumeTiming();
   }
   state.SetItemsProcessed(state.iterations() * kPrefixes * std::size_t(candidates));
   state.counters["bytes_per_route"] = bytesPerPrefix;
   state.counters["backlog_bytes_per_route"] = pendingBytesPerPrefix;
}

BENCHMARK(BM_StoreCandidates)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

// One prefix claimed by k interfaces: its k backlog entries sit together in
// the backlog's order (by prefix), so each insertion and removal walks or
// shifts the ones before it. Time per entry to queue all k and take them
// out again as the installer would.
void BM_StoreSharedPrefix(benchmark::State& state) {
   const int interfaces = int(state.range(0));
   const Ovel::IpAddrWithMask address(Ovel::IpAddr(0x0A000001u), 24);
   const Ovel::IpGenPrefix prefix(address.subnet(), 24);
   for (auto _ : state) {
      auto store = intfBacklogFactory("", L3::VrfName("bench"));
      for (int i = 0; i < interfaces; ++i) {
         store->addToIntfIdsByPrefix(Ovel::IntfId("Ethernet" + std::to_string(i)), prefix,
                                     Ovel::IpGenAddrWithMask(address),
                                     Routing::Fib::RouteType::attachedSubnet,
                                     Routing::Rib::ViaSetKey(1));
      }
      for (auto it = store->backlog().begin(); it != store->backlog().end(); ++it) {
         store->backlogDel(it->first);
      }
   }
   state.SetItemsProcessed(state.iterations() * std::size_t(interfaces));
}

BENCHMARK(BM_StoreSharedPrefix)->Arg(500)->Arg(2'000)->Arg(8'000)->Unit(benchmark::kMillisecond);
