// Drain throughput of one VRF's installer: 1,000,000 queued (interface,
// prefix) pairs over 50,000 interfaces, in-memory tables, on the real
// monotonic clock so that 80 ms slices end as they would in the agent; and
// the same at 250,000 and 4,000,000 pairs for the scale curve.
//
// Reports CPU time per entry (items_per_second), the longest single clock
// callback, and heap bytes per installed route (store, owner map,
// route table, vias and via sets), measured with mallinfo2.
//
// The same drain with the tables in a table directory on /dev/shm, each
// clock firing one transaction; and with a reader in another process
// scanning the route table all along, which must only ever see the route
// count of a committed turn.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <set>
#include <vector>

#include "bench/support/TableDirectory.h"
#include "bench/support/ThreadCpuTime.h"
#include "install/IntfBacklogSm.h"
#include "platform/rib/TablePaths.h"
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
   explicit Table(int interfaces, std::shared_ptr<Plim::RowDatabase> db = nullptr)
         : interfaces(interfaces), tables(Vrf::VrfIdMap::VrfId(1), db) {
      if (db) {
         am.turnEndHandlerIs([this, db] {
            const auto start = std::chrono::steady_clock::now();
            db->commit();
            longestCommit = std::max(
                  longestCommit,
                  std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
         });
         db->commit();
      }
   }
   double longestCommit = 0;  // seconds, of a turn's commit (part of its callback)
   const int interfaces;
   Vok::MonotonicTimeSource time;
   Vok::ActivityManager am{time};
   Testing::RibTables tables;
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

   // The longest callback, in wall time and in the thread's CPU time: on a
   // VM the two differ by the time the host took the CPU away.
   struct Longest {
      double wall = 0;
      double cpu = 0;
   };

   // Runs clocks as the agent's loop would.
   Longest drain() {
      Longest longest;
      while (am.armedCount() > 0) {
         const double wait = am.nextDue() - am.now();
         if (wait > 0) {
            std::this_thread::sleep_for(std::chrono::duration<double>(wait));
         }
         const auto start = std::chrono::steady_clock::now();
         const double cpuStart = Bench::threadCpuSeconds();
         am.runOnce();
         longest.cpu = std::max(longest.cpu, Bench::threadCpuSeconds() - cpuStart);
         longest.wall = std::max(
               longest.wall,
               std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
      }
      return longest;
   }
};

// Drains interfaces x 20 entries; the argument is the number of interfaces.
void drainEntries(benchmark::State& state, bool inDirectory = false) {
   const int interfaces = int(state.range(0));
   const std::size_t entries = std::size_t(interfaces) * kPrefixesPerInterface;
   Table::Longest longest;
   double longestCommit = 0;
   double bytesPerRoute = 0;
   double directoryBytesPerRoute = 0;
   for (auto _ : state) {
      state.PauseTiming();
      const std::size_t before = heapInUse();
      std::unique_ptr<Bench::TableDirectory> dir;
      if (inDirectory) {
         dir = std::make_unique<Bench::TableDirectory>();
      }
      auto table = std::make_unique<Table>(interfaces, dir ? dir->open(Plim::Access::write) : nullptr);
      table->fill();
      state.ResumeTiming();
      const Table::Longest run = table->drain();
      longest.wall = std::max(longest.wall, run.wall);
      longest.cpu = std::max(longest.cpu, run.cpu);
      longestCommit = std::max(longestCommit, table->longestCommit);
      state.PauseTiming();
      if (table->tables.route4->routeCount() != entries) {
         state.SkipWithError("not every route was installed");
      }
      bytesPerRoute = double(heapInUse() - before) / double(entries);
      directoryBytesPerRoute = dir ? double(dir->bytesUsed()) / double(entries) : 0;
      table.reset();
      dir.reset();
      state.ResumeTiming();
   }
   state.SetItemsProcessed(state.iterations() * entries);
   state.counters["longest_callback_ms"] = longest.wall * 1e3;
   state.counters["longest_callback_cpu_ms"] = longest.cpu * 1e3;
   state.counters["bytes_per_route"] = bytesPerRoute;
   if (inDirectory) {
      state.counters["longest_commit_ms"] = longestCommit * 1e3;
      state.counters["directory_bytes_per_route"] = directoryBytesPerRoute;
   }
}

void BM_DrainMillionEntries(benchmark::State& state) { drainEntries(state); }
BENCHMARK(BM_DrainMillionEntries)->Arg(50'000)->Unit(benchmark::kMillisecond)->Iterations(3);

// The scale curve around the million above: 250,000 and 4,000,000 entries
// (about 2 GB of heap). CPU per entry and bytes per route should stay flat
// as the tables grow.
void BM_DrainScaleCurve(benchmark::State& state) { drainEntries(state); }
BENCHMARK(BM_DrainScaleCurve)->Arg(12'500)->Arg(200'000)->Unit(benchmark::kMillisecond)->Iterations(1);

// The million entries with the tables in a table directory on /dev/shm.
void BM_DrainMillionEntriesInDirectory(benchmark::State& state) { drainEntries(state, true); }
BENCHMARK(BM_DrainMillionEntriesInDirectory)->Arg(50'000)->Unit(benchmark::kMillisecond)->Iterations(3);

// Scans the IPv4 route table of VRF 1 in `dir` until `stop`, each scan in a
// fresh snapshot; returns the route counts it saw, one per scan.
[[noreturn]] void scanUntilStopped(const std::string& dir, const std::atomic<bool>& stop, int out) {
   std::vector<std::uint64_t> counts;
   try {
      auto db = Plim::RowDatabase::open(dir, Plim::Access::readOnly, Kordb::persistentLayout());
      while (!stop.load()) {
         db->refresh();
         auto manager = Vok::make<Kordb::EntityManager>();
         manager->rowDatabaseIs(db);
         auto mount = manager->mount("routing/rib/routeConfig/ipv4/1/connected",
                                     Routing::Rib::kRouteConfigType, {}, Kordb::MountMode::readOnly);
         counts.push_back(mount->entityAs<Routing::Rib::RouteConfig>()->routeCount());
      }
   } catch (...) {
      ::_exit(1);
   }
   const std::size_t bytes = counts.size() * sizeof(std::uint64_t);
   ::_exit(::write(out, counts.data(), bytes) == ssize_t(bytes) ? 0 : 1);
}

// The million entries into a table directory while another process scans
// it: every state it sees must be one a turn committed.
void BM_DrainWithReader(benchmark::State& state) {
   const int interfaces = int(state.range(0));
   std::size_t scans = 0, statesChecked = 0, inconsistent = 0;
   for (auto _ : state) {
      state.PauseTiming();
      Bench::TableDirectory dir;
      auto db = dir.open(Plim::Access::write);
      auto table = std::make_unique<Table>(interfaces, db);
      table->fill();
      std::set<std::uint64_t> committed = {0};
      table->am.turnEndHandlerIs([&] {
         db->commit();
         committed.insert(table->tables.route4->routeCount());
      });
      void* page = ::mmap(nullptr, sizeof(std::atomic<bool>), PROT_READ | PROT_WRITE,
                          MAP_SHARED | MAP_ANONYMOUS, -1, 0);
      auto* stop = new (page) std::atomic<bool>(false);
      int pipe[2];
      if (page == MAP_FAILED || ::pipe(pipe) != 0) {
         state.SkipWithError("cannot set up the reader");
         break;
      }
      const pid_t reader = ::fork();
      if (reader == 0) {
         ::close(pipe[0]);
         scanUntilStopped(dir.path(), *stop, pipe[1]);
      }
      ::close(pipe[1]);
      state.ResumeTiming();
      table->drain();
      state.PauseTiming();
      stop->store(true);
      std::vector<std::uint64_t> seen;
      std::uint64_t count = 0;
      while (::read(pipe[0], &count, sizeof count) == ssize_t(sizeof count)) {
         seen.push_back(count);
      }
      ::close(pipe[0]);
      int status = 0;
      ::waitpid(reader, &status, 0);
      ::munmap(page, sizeof(std::atomic<bool>));
      if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
         state.SkipWithError("the reader failed");
      }
      scans += seen.size();
      statesChecked += std::set<std::uint64_t>(seen.begin(), seen.end()).size();
      for (std::uint64_t c : seen) {
         inconsistent += !committed.contains(c);
      }
      table->am.turnEndHandlerIs(nullptr);
      table.reset();
      state.ResumeTiming();
   }
   if (inconsistent > 0) {
      state.SkipWithError("the reader saw a state no turn committed");
   }
   state.SetItemsProcessed(state.iterations() * std::size_t(interfaces) * kPrefixesPerInterface);
   state.counters["scans"] = double(scans);
   state.counters["states_checked"] = double(statesChecked);
   state.counters["inconsistent_states"] = double(inconsistent);
}
BENCHMARK(BM_DrainWithReader)->Arg(50'000)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace
