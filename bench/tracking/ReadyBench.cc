// From nothing to ready: one VRF with 4,096 interfaces, each with an IPv4
// /24, a secondary /24 and an IPv6 /64, every kernel device present. CPU
// time from the first status notification to both readiness flags set, and
// the same for removing every interface. Virtual time: 1 us per time reading
// models processing, so the drain's 80 ms slices and 40 ms gaps are real.
#include <benchmark/benchmark.h>

#include "tests/support/VrfHarness.h"

namespace {

using namespace Routing::ConnectedRoute;

constexpr int kInterfaces = 4096;

std::string name(int i) { return "Ethernet" + std::to_string(i); }

void configure(Testing::VrfHarness& h) {
   for (int i = 0; i < kInterfaces; ++i) {
      const std::uint32_t low = std::uint32_t(i) << 8;
      auto s = h.ip4(name(i));
      s->activeAddrWithMaskIs(Ovel::IpAddrWithMask(Ovel::IpAddr(0x0A000001u + low), 24));
      s->activeSecondaryWithMaskIs(Ovel::IpAddrWithMask(Ovel::IpAddr(0x0B000001u + low), 24), true);
      Ovel::Ip6Addr::Bytes bytes{0x20, 0x01, 0x0d, 0xb8, std::uint8_t(i >> 8), std::uint8_t(i)};
      bytes[15] = 1;
      h.ip6(name(i))->addrIs(Ovel::Ip6AddrWithMask(Ovel::Ip6Addr(bytes), 64),
                             Ip6::AddressInfo{Ip6::AddressInfo::Source::manual});
   }
}

std::size_t routeCount(Testing::VrfHarness& h) {
   return h.tables.route4->routeCount() + h.tables.route6->routeCount();
}

// A VRF with every interface's kernel device present, nothing configured.
std::unique_ptr<Testing::VrfHarness> devicesUp(Agent::StartupMode mode) {
   auto h = std::make_unique<Testing::VrfHarness>(mode, 1e-6);
   for (int i = 0; i < kInterfaces; ++i) {
      h->kernelUp(name(i));
   }
   return h;
}

void BM_NothingToReady(benchmark::State& state) {
   double virtualSeconds = 0;
   std::size_t routes = 0;
   for (auto _ : state) {
      state.PauseTiming();
      auto h = devicesUp(Agent::StartupMode::hitlessRestart);
      const double start = h->time.peek();
      state.ResumeTiming();
      configure(*h);
      h->drain();
      h->ivo->startReadyVerificationIs(true);
      state.PauseTiming();
      if (!h->ready->v4ConnectedRoutesReady() || !h->ready->v6ConnectedRoutesReady()) {
         state.SkipWithError("not ready");
      }
      routes = routeCount(*h);
      virtualSeconds = h->time.peek() - start;
      h.reset();
      state.ResumeTiming();
   }
   state.SetItemsProcessed(state.iterations() * routes);
   state.counters["routes"] = double(routes);
   state.counters["virtual_s"] = virtualSeconds;
}

void BM_RemoveEverything(benchmark::State& state) {
   double virtualSeconds = 0;
   std::size_t routes = 0;
   for (auto _ : state) {
      state.PauseTiming();
      auto h = devicesUp(Agent::StartupMode::coldStart);
      configure(*h);
      h->drain();
      routes = routeCount(*h);
      const double start = h->time.peek();
      state.ResumeTiming();
      h->ipStatus->vrfIpIntfStatusDel(h->vrfName);
      h->ip6Status->vrfIp6IntfStatusDel(h->vrfName);
      h->drain();
      state.PauseTiming();
      if (routeCount(*h) != 0) {
         state.SkipWithError("routes left");
      }
      virtualSeconds = h->time.peek() - start;
      h.reset();
      state.ResumeTiming();
   }
   state.SetItemsProcessed(state.iterations() * routes);
   state.counters["routes"] = double(routes);
   state.counters["virtual_s"] = virtualSeconds;
}

BENCHMARK(BM_NothingToReady)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_RemoveEverything)->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace
