// Following a table directory while a writer in another process commits,
// as `connroute show follow` follows a running agent.
//   - BM_FollowLag: the writer commits one route change a millisecond
//     (1,000 a second) for 3 s; for each turn, the time from the end of its
//     commit to the end of the batch of lines the follower wrote for it
//     (formatted and written to /dev/null). Counters: lag_median_ms,
//     lag_max_ms, and turns_missed (turns the follower never reported).
//   - BM_WriterCost/0 and /1: the writer's CPU time per change, committing
//     300 turns of 1,000 changes each, without (0) and with (1) a follower
//     attached. Counter: writer_ns_per_change.
// The writer is a child process, as the agent is for a follower, so that
// each side has its own LMDB environment.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <vector>

#include "app/read/TableFollower.h"
#include "bench/support/TableDirectory.h"
#include "platform/kordb/EntityManager.h"
#include "platform/rib/RouteConfig.h"
#include "platform/rib/TablePaths.h"

namespace {

namespace Rib = Routing::Rib;

constexpr std::size_t kMaxTurns = 8192;

// What the writer tells the follower's side, in memory both processes map.
struct Shared {
   std::atomic<std::int64_t> committedNs[kMaxTurns];  // by turn number
   std::atomic<std::int64_t> writerCpuNs;
};

std::int64_t nowNs(clockid_t clock = CLOCK_MONOTONIC) {
   timespec t{};
   ::clock_gettime(clock, &t);
   return std::int64_t{t.tv_sec} * 1'000'000'000 + t.tv_nsec;
}

Rib::Route route(std::uint32_t n, std::uint32_t flags) {
   const Ovel::IpGenPrefix prefix(Ovel::IpAddr(0x0A000000u + (n << 8)), 24);
   return Rib::Route{prefix, Rib::RoutingProtocol::connected, {0, 0}, Rib::ViaSetKey(1 + n % 7),
                     Rib::kUnassignedFecIndex, Routing::Fib::RouteType::attachedSubnet, flags};
}

struct WriterPlan {
   int turns;
   int changesPerTurn;
   long pauseNs;  // between turns
};

// The child: waits for `go`, writes and commits the turns, records each
// commit's end, then (after the follower had time to read the last one)
// closes `done`.
[[noreturn]] void write(const Bench::TableDirectory& dir, const WriterPlan& plan, Shared& shared,
                        int go, int done) {
   char byte;
   (void)!::read(go, &byte, 1);
   auto db = dir.open(Plim::Access::write);
   auto manager = Vok::make<Kordb::EntityManager>();
   manager->rowDatabaseIs(db);
   auto mount = manager->mount(Rib::routeTablePath(4, 1), Routing::Rib::kRouteConfigType, {},
                               Kordb::MountMode::write);
   auto table = mount->entityAs<Rib::RouteConfig>();
   const std::int64_t cpuStart = nowNs(CLOCK_PROCESS_CPUTIME_ID);
   for (int turn = 0; turn < plan.turns; ++turn) {
      for (int i = 0; i < plan.changesPerTurn; ++i) {
         table->routeAdd(route(std::uint32_t(i), std::uint32_t(turn)));
      }
      db->commit();
      shared.committedNs[db->changeLog().feed()->seq % kMaxTurns] = nowNs();
      if (plan.pauseNs > 0) {
         timespec pause{0, plan.pauseNs};
         ::nanosleep(&pause, nullptr);
      }
   }
   shared.writerCpuNs = nowNs(CLOCK_PROCESS_CPUTIME_ID) - cpuStart;
   timespec linger{0, 100'000'000};
   ::nanosleep(&linger, nullptr);
   ::close(done);
   ::_exit(0);
}

struct Run {
   std::vector<double> lagsMs;
   int missed = 0;
   double writerNsPerChange = 0;
};

// One writer run, followed or not; the directory starts with one turn.
Run run(const WriterPlan& plan, bool follow) {
   Bench::TableDirectory dir;
   dir.open(Plim::Access::write);  // made, and closed before the fork: no turn yet
   auto* shared = static_cast<Shared*>(
         ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
   int go[2], done[2];
   if (::pipe(go) != 0 || ::pipe(done) != 0) {
      throw std::runtime_error("pipe");
   }
   const pid_t child = ::fork();
   if (child == 0) {
      ::close(go[1]);
      ::close(done[0]);
      write(dir, plan, *shared, go[0], done[1]);
   }
   ::close(go[0]);
   ::close(done[1]);
   Run result;
   std::vector<std::uint64_t> batch;  // turns of the batch being written
   std::vector<bool> seen(kMaxTurns);
   std::string lines;
   const int devNull = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
   if (follow) {
      App::TableFollower follower(dir.path(), {});
      (void)!::write(go[1], "g", 1);
      follower.run(
            [&](const App::FollowEvent& event) {
               lines += std::to_string(event.seq) + ' ' + std::string(App::toString(event.kind)) + ' ' +
                        event.route.prefix.toString() + " type " +
                        std::to_string(static_cast<unsigned>(event.route.routeType)) + '\n';
               if (batch.empty() || batch.back() != event.seq) {
                  batch.push_back(event.seq);
               }
            },
            done[0],
            [&] {
               (void)!::write(devNull, lines.data(), lines.size());
               lines.clear();
               const std::int64_t now = nowNs();
               for (std::uint64_t seq : batch) {
                  if (seq == 0 || seen[seq % kMaxTurns]) {
                     continue;
                  }
                  seen[seq % kMaxTurns] = true;
                  // The follower may be faster than the writer's note of
                  // the commit's end: the lag is then nothing.
                  std::int64_t committed;
                  while ((committed = shared->committedNs[seq % kMaxTurns]) == 0) {
                  }
                  result.lagsMs.push_back(double(std::max<std::int64_t>(now - committed, 0)) / 1e6);
               }
               batch.clear();
            });
      result.missed = plan.turns - int(result.lagsMs.size());
   } else {
      (void)!::write(go[1], "g", 1);
   }
   ::waitpid(child, nullptr, 0);
   result.writerNsPerChange = double(shared->writerCpuNs) / (double(plan.turns) * plan.changesPerTurn);
   ::close(devNull);
   ::close(go[1]);
   ::close(done[0]);
   ::munmap(shared, sizeof(Shared));
   return result;
}

void BM_FollowLag(benchmark::State& state) {
   Run result;
   for (auto _ : state) {
      result = run(WriterPlan{3000, 1, 1'000'000}, true);
   }
   std::sort(result.lagsMs.begin(), result.lagsMs.end());
   state.counters["lag_median_ms"] = result.lagsMs.empty() ? -1 : result.lagsMs[result.lagsMs.size() / 2];
   state.counters["lag_max_ms"] = result.lagsMs.empty() ? -1 : result.lagsMs.back();
   state.counters["turns_missed"] = result.missed;
}
BENCHMARK(BM_FollowLag)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_WriterCost(benchmark::State& state) {
   Run result;
   for (auto _ : state) {
      result = run(WriterPlan{300, 1000, 0}, state.range(0) == 1);
   }
   state.counters["writer_ns_per_change"] = result.writerNsPerChange;
}
BENCHMARK(BM_WriterCost)->Arg(0)->Arg(1)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
