// End to end through the root: 16 VRFs of 1,024 interfaces, each interface
// with an IPv4 address, an IPv4 secondary and an IPv6 address, from an empty
// platform to every VRF marked ready in the RIB; then every VRF removed.
// Reports CPU time, routes per second, peak RSS and the virtual time to
// ready (1 us of virtual time per clock reading); and, apart, the CPU time
// to withdraw every route by removing every VRF. To ready also with the
// tables in a table directory.
#include <benchmark/benchmark.h>

#include <algorithm>

#include "bench/support/PeakRss.h"
#include "bench/support/TableDirectory.h"
#include "tests/support/AgentHarness.h"

namespace {

using namespace Routing::ConnectedRoute;

constexpr int kVrfs = 16;
constexpr int kInterfaces = 1024;

std::string vrf(int v) { return "vrf" + std::to_string(v); }
std::string intf(int v, int i) { return "Et" + std::to_string(v) + "-" + std::to_string(i); }

void publish(Testing::AgentHarness& h) {
   for (int v = 0; v < kVrfs; ++v) {
      h.shared.allVrfRibReady->vrfRibReadyIs(L3::VrfName(vrf(v)));
      h.vrfLocal(vrf(v), Ip::VrfState::active, "ns" + std::to_string(v));
      auto kernel = h.shared.kernelNamespace(Ovel::NamespaceName("ns" + std::to_string(v)));
      auto v4 = h.shared.ipStatus->vrfIpIntfStatusIs(L3::VrfName(vrf(v)));
      auto v6 = h.shared.ip6Status->vrfIp6IntfStatusIs(L3::VrfName(vrf(v)));
      for (int i = 0; i < kInterfaces; ++i) {
         kernel->deviceIs(intf(v, i), Interface::KernelIntfState::up);
         const std::uint32_t low = std::uint32_t(i) << 8;
         auto s = v4->ipIntfStatusIs(Ovel::IntfId(intf(v, i)));
         s->activeAddrWithMaskIs(Ovel::IpAddrWithMask(Ovel::IpAddr(0x0A000001u + low), 24));
         s->activeSecondaryWithMaskIs(Ovel::IpAddrWithMask(Ovel::IpAddr(0x0B000001u + low), 24),
                                      true);
         Ovel::Ip6Addr::Bytes bytes{0x20, 0x01, 0x0d, 0xb8, std::uint8_t(i >> 8), std::uint8_t(i)};
         bytes[15] = 1;
         v6->ip6IntfStatusIs(Ovel::IntfId(intf(v, i)))
               ->addrIs(Ovel::Ip6AddrWithMask(Ovel::Ip6Addr(bytes), 64),
                        Ip6::AddressInfo{Ip6::AddressInfo::Source::manual});
      }
      h.vrfId(vrf(v), std::uint32_t(v + 1));
   }
}

bool allReady(Testing::AgentHarness& h) {
   for (int v = 0; v < kVrfs; ++v) {
      auto entity = h.shared.protoVrfStatusDir->entityAs<Routing::Rib::ProtoVrfStatus>(vrf(v));
      if (!entity || !entity->ready()) {
         return false;
      }
   }
   return true;
}

std::size_t routeCount(Testing::AgentHarness& h) {
   std::size_t routes = 0;
   for (const auto& [name, container] : h.root->containerSm()) {
      routes += container->route4Config()->routeCount() + container->route6Config()->routeCount();
   }
   return routes;
}

// What one run to ready measured.
struct ReadyRun {
   std::size_t routes = 0;
   double virtualSeconds = 0;
   long long peakBytes = 0;  // above the resident memory at the start
   std::size_t directoryBytes = 0;  // the table directory's data on /dev/shm, if any
};

void sixteenVrfsToReady(benchmark::State& state, bool inDirectory) {
   ReadyRun run;
   for (auto _ : state) {
      state.PauseTiming();
      const long long base = Bench::resetPeakRss();
      std::unique_ptr<Bench::TableDirectory> dir;
      if (inDirectory) {
         dir = std::make_unique<Bench::TableDirectory>();
      }
      auto h = std::make_unique<Testing::AgentHarness>(
            Agent::StartupMode::coldStart, dir ? dir->open(Plim::Access::write) : nullptr);
      h->start();
      const double start = h->time.peek();
      state.ResumeTiming();
      publish(*h);
      h->drain();
      state.PauseTiming();
      if (!allReady(*h)) {
         state.SkipWithError("not every VRF is ready");
      }
      run.routes = routeCount(*h);
      run.virtualSeconds = h->time.peek() - start;
      run.peakBytes = std::max(run.peakBytes, Bench::peakRss() - base);
      run.directoryBytes = dir ? dir->bytesUsed() : 0;
      h.reset();
      dir.reset();
      state.ResumeTiming();
   }
   state.SetItemsProcessed(state.iterations() * run.routes);
   state.counters["routes"] = double(run.routes);
   state.counters["virtual_s_to_ready"] = run.virtualSeconds;
   state.counters["peak_rss_bytes_per_route"] = double(run.peakBytes) / double(run.routes);
   if (inDirectory) {
      state.counters["directory_bytes_per_route"] = double(run.directoryBytes) / double(run.routes);
   }
}

void BM_SixteenVrfsToReady(benchmark::State& state) { sixteenVrfsToReady(state, false); }

// The same with the tables in a table directory on /dev/shm: the peak RSS
// then counts the directory's pages the agent touched too.
void BM_SixteenVrfsToReadyInDirectory(benchmark::State& state) { sixteenVrfsToReady(state, true); }

void BM_SixteenVrfsWithdrawn(benchmark::State& state) {
   std::size_t routes = 0;
   for (auto _ : state) {
      state.PauseTiming();
      auto h = std::make_unique<Testing::AgentHarness>();
      h->start();
      publish(*h);
      h->drain();
      routes = routeCount(*h);
      state.ResumeTiming();
      for (int v = 0; v < kVrfs; ++v) {
         h->map()->vrfNameToIdDel(L3::VrfName(vrf(v)));  // every VRF removed
      }
      state.PauseTiming();
      if (!h->root->containerSm().empty()) {
         state.SkipWithError("containers left");
      }
      h.reset();
      state.ResumeTiming();
   }
   state.SetItemsProcessed(state.iterations() * routes);
   state.counters["routes"] = double(routes);
}

BENCHMARK(BM_SixteenVrfsToReady)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_SixteenVrfsToReadyInDirectory)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_SixteenVrfsWithdrawn)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
