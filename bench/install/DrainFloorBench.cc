// The floor under the drain: per entry, the drain finds the prefix's record
// in the store and reads, then writes, the prefix's row in the RIB's route
// table. At a million routes both tables are far larger than the caches.
//
// Each benchmark does only that, over a million /24 prefixes, twice in one
// process: with the runtime's map (the store's PrefixRecords and a route
// table's rows), and with the plainest table there is (PlainTable below:
// open addressing, linear probing, a power-of-two slot array at most 80 %
// full, sized ahead), over the same keys, records and rows. The ratio of the two is
// reported as a counter, so the runtime's cost over what the machine
// charges shows in one run whatever the VM's speed that day:
//   - BM_FloorStoreLookup: the store's record only;
//   - BM_FloorFilledRouteTable: the record, then the route row read and
//     written in a table that holds every row already;
//   - BM_FloorGrowingRouteTable: the record, then the row written into an
//     empty route table sized ahead (reserve), as a drain at start-up does.
//   - BM_FloorGrowingRouteDirectory: the same with the route table in a
//     table directory on /dev/shm, committed every 170,000 rows as drain
//     slices commit their turns; the plain side is LMDB itself, the row
//     put through one cursor in key order (what LMDB charges for a sorted
//     put), its record found in the plain table. The counter
//     directory_over_lmdb is the runtime's cost over that.
// The argument picks the order: 0 a fixed random order, 1 the order the
// drain walks its backlog in (the prefixes' hash order). Counters:
// runtime_ns and plain_ns per entry, and runtime_over_plain.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdint>
#include <random>
#include <vector>

#include "bench/support/TableDirectory.h"
#include "model/PrefixRecords.h"
#include "platform/plim/DatabaseStore.h"
#include "platform/plim/RowPlace.h"
#include "platform/rib/Route.h"

namespace {

using Routing::ConnectedRoute::PrefixRecord;
using Routing::ConnectedRoute::PrefixRecords;
using Prefix = Ovel::IpGenPrefix;
using RouteRows = Vok::HashMap<Prefix, Routing::Rib::Route>;

constexpr std::size_t kEntries = 1'000'000;

std::uint32_t hashOf(const Prefix& prefix) { return Vok::KeyTraits<Prefix>::hash(prefix); }

// Open addressing with linear probing; a key's home is its hash's top bits,
// so slot order is hash order, as in the runtime's map. Doubles at 80 %.
template <class V>
class PlainTable {
 public:
   explicit PlainTable(std::size_t expected) {
      std::size_t capacity = 16;
      while (capacity * 4 < expected * 5) {
         capacity *= 2;
      }
      slots_.resize(capacity);
      bits_ = std::countr_zero(capacity);
   }
   V* find(const Prefix& key) {
      for (std::size_t i = home(key);; i = (i + 1) & (slots_.size() - 1)) {
         if (!slots_[i].used) {
            return nullptr;
         }
         if (slots_[i].key == key) {
            return &slots_[i].value;
         }
      }
   }
   V& insert(const Prefix& key) {
      if ((size_ + 1) * 5 > slots_.size() * 4) {
         grow();
      }
      for (std::size_t i = home(key);; i = (i + 1) & (slots_.size() - 1)) {
         Slot& slot = slots_[i];
         if (!slot.used) {
            slot = Slot{key, true, V()};
            ++size_;
            return slot.value;
         }
         if (slot.key == key) {
            return slot.value;
         }
      }
   }

 private:
   struct Slot {
      Prefix key;
      bool used = false;
      V value;
   };
   std::size_t home(const Prefix& key) const { return hashOf(key) >> (32 - bits_); }
   void grow() {
      std::vector<Slot> old(slots_.size() * 2);
      old.swap(slots_);
      ++bits_;
      size_ = 0;
      for (Slot& slot : old) {
         if (slot.used) {
            insert(slot.key) = std::move(slot.value);
         }
      }
   }
   std::vector<Slot> slots_;
   int bits_ = 0;
   std::size_t size_ = 0;
};

// The runtime's tables and the plain ones, behind the same three calls.
struct RuntimeTables {
   PrefixRecords store;
   RouteRows routes;
   PrefixRecord* record(const Prefix& prefix) { return store.lookup(prefix); }
   void addRecord(const Prefix& prefix) { store.tryEmplace(prefix).first->listed = true; }
   const Routing::Rib::Route* row(const Prefix& prefix) { return routes.lookup(prefix); }
   void rowIs(const Routing::Rib::Route& route) { routes.insertOrAssign(route.prefix, route); }
   void reserveRows(std::size_t rows) { routes.reserve(rows); }
};

struct PlainTables {
   PlainTable<PrefixRecord> store{kEntries};
   PlainTable<Routing::Rib::Route> routes{16};
   PrefixRecord* record(const Prefix& prefix) { return store.find(prefix); }
   void addRecord(const Prefix& prefix) { store.insert(prefix).listed = true; }
   const Routing::Rib::Route* row(const Prefix& prefix) { return routes.find(prefix); }
   void rowIs(const Routing::Rib::Route& route) { routes.insert(route.prefix) = route; }
   void reserveRows(std::size_t rows) { routes = PlainTable<Routing::Rib::Route>(rows); }
};

Routing::Rib::Route routeOf(const Prefix& prefix, std::uint32_t owner) {
   return Routing::Rib::Route{prefix, Routing::Rib::RoutingProtocol::connected, {}, {}, owner,
                              Routing::Fib::RouteType::attachedSubnet, 0};
}

// Distinct /24s, as the drain benchmark's: in a fixed random order, or in
// the drain's (hash) order.
const std::vector<Prefix>& prefixesIn(bool drainOrder) {
   static const std::vector<Prefix> random = [] {
      std::vector<Prefix> all;
      all.reserve(kEntries);
      for (std::uint32_t i = 0; i < kEntries; ++i) {
         all.emplace_back(Ovel::IpAddr(0x0A000000u + (i << 8)), 24);
      }
      std::shuffle(all.begin(), all.end(), std::mt19937(7));
      return all;
   }();
   static const std::vector<Prefix> hashed = [] {
      std::vector<Prefix> all = random;
      std::ranges::sort(all, [](const Prefix& a, const Prefix& b) {
         return hashOf(a) != hashOf(b) ? hashOf(a) < hashOf(b)
                                       : Vok::KeyTraits<Prefix>::tieBreak(a, b) < 0;
      });
      return all;
   }();
   return drainOrder ? hashed : random;
}

enum class Work { storeOnly, filledRoutes, growingRoutes };

// One drain-like pass over `prefixes`; returns ns per entry.
template <class Tables>
double pass(Work work, const std::vector<Prefix>& prefixes) {
   Tables tables;
   if (work == Work::filledRoutes) {
      // Filled in hash order, a doubling table would crowd its keys into
      // its low slots, and every insertion walk them all.
      tables.reserveRows(prefixes.size());
   }
   for (const Prefix& prefix : prefixes) {
      tables.addRecord(prefix);
      if (work == Work::filledRoutes) {
         tables.rowIs(routeOf(prefix, 0));
      }
   }
   // Sizing ahead is part of the work: its pages are touched while timed.
   const auto start = std::chrono::steady_clock::now();
   if (work == Work::growingRoutes) {
      tables.reserveRows(prefixes.size());
   }
   for (const Prefix& prefix : prefixes) {
      PrefixRecord* record = tables.record(prefix);
      benchmark::DoNotOptimize(record);
      if (work == Work::storeOnly) {
         continue;
      }
      // Every row is written: a filled table holds the owner 0.
      const std::uint32_t owner = record->listed ? 1 : 2;
      const Routing::Rib::Route* installed = tables.row(prefix);
      if (!installed || installed->fecIndex != owner) {
         tables.rowIs(routeOf(prefix, owner));
      }
   }
   const std::chrono::duration<double, std::nano> took = std::chrono::steady_clock::now() - start;
   return took.count() / double(prefixes.size());
}

void sideBySide(benchmark::State& state, Work work) {
   const std::vector<Prefix>& prefixes = prefixesIn(state.range(0) != 0);
   double runtime = 0;
   double plain = 0;
   for (auto _ : state) {
      runtime += pass<RuntimeTables>(work, prefixes);
      plain += pass<PlainTables>(work, prefixes);
   }
   const double runs = double(state.iterations());
   state.counters["runtime_ns"] = runtime / runs;
   state.counters["plain_ns"] = plain / runs;
   state.counters["runtime_over_plain"] = runtime / plain;
}

constexpr std::size_t kRowsPerTurn = 170'000;

// The drain's work into a table directory: the record found in the store,
// the row read and written through the route table's store, a commit every
// kRowsPerTurn rows.
double directoryPass(const std::vector<Prefix>& prefixes) {
   Bench::TableDirectory dir;
   const auto db = dir.open(Plim::Access::write);
   const auto routes =
         Plim::databaseStore<Prefix, Routing::Rib::Route>(db, "route", "routing/rib/routeConfig/ipv4/1/connected");
   RuntimeTables tables;
   for (const Prefix& prefix : prefixes) {
      tables.addRecord(prefix);
   }
   const auto start = std::chrono::steady_clock::now();
   std::size_t inTurn = 0;
   for (const Prefix& prefix : prefixes) {
      PrefixRecord* record = tables.record(prefix);
      const std::uint32_t owner = record->listed ? 1 : 2;
      const Routing::Rib::Route* installed = routes->row(prefix);
      if (!installed || installed->fecIndex != owner) {
         routes->rowIs(prefix, routeOf(prefix, owner));
      }
      if (++inTurn == kRowsPerTurn) {
         db->commit();
         inTurn = 0;
      }
   }
   db->commit();
   const std::chrono::duration<double, std::nano> took = std::chrono::steady_clock::now() - start;
   return took.count() / double(prefixes.size());
}

void check(int rc) {
   if (rc != MDB_SUCCESS) {
      throw std::runtime_error(mdb_strerror(rc));
   }
}

// The same rows put by LMDB alone, opened as the agent opens a directory:
// one database, one cursor per turn, each row put in key order (the place,
// then the prefix) unless its key is there already.
double lmdbPass(const std::vector<Prefix>& prefixes) {
   Bench::TableDirectory dir;
   MDB_env* env = nullptr;
   check(mdb_env_create(&env));
   check(mdb_env_set_mapsize(env, std::size_t{4} << 30));
   check(mdb_env_set_maxdbs(env, 1));
   check(mdb_env_open(env, dir.path().c_str(), MDB_WRITEMAP | MDB_NOSYNC | MDB_NOMETASYNC | MDB_NOTLS, 0644));
   PlainTable<PrefixRecord> store{prefixes.size()};
   for (const Prefix& prefix : prefixes) {
      store.insert(prefix).listed = true;
   }
   const auto start = std::chrono::steady_clock::now();
   MDB_txn* txn = nullptr;
   MDB_dbi dbi = 0;
   MDB_cursor* cursor = nullptr;
   const auto begin = [&] {
      check(mdb_txn_begin(env, nullptr, 0, &txn));
      check(mdb_dbi_open(txn, "rows", MDB_CREATE, &dbi));
      check(mdb_cursor_open(txn, dbi, &cursor));
   };
   begin();
   std::size_t inTurn = 0;
   for (const Prefix& prefix : prefixes) {
      const PrefixRecord* record = store.find(prefix);
      const Routing::Rib::Route route = routeOf(prefix, record->listed ? 1 : 2);
      auto key = Plim::placedKey(prefix);
      MDB_val k{key.size(), key.data()};
      MDB_val v{sizeof(route), const_cast<Routing::Rib::Route*>(&route)};
      const int rc = mdb_cursor_put(cursor, &k, &v, MDB_NOOVERWRITE);
      if (rc != MDB_KEYEXIST) {
         check(rc);
      }
      if (++inTurn == kRowsPerTurn) {
         mdb_cursor_close(cursor);
         check(mdb_txn_commit(txn));
         begin();
         inTurn = 0;
      }
   }
   mdb_cursor_close(cursor);
   check(mdb_txn_commit(txn));
   const std::chrono::duration<double, std::nano> took = std::chrono::steady_clock::now() - start;
   mdb_env_close(env);
   return took.count() / double(prefixes.size());
}

void BM_FloorGrowingRouteDirectory(benchmark::State& state) {
   const std::vector<Prefix>& prefixes = prefixesIn(state.range(0) != 0);
   double directory = 0;
   double lmdb = 0;
   for (auto _ : state) {
      directory += directoryPass(prefixes);
      lmdb += lmdbPass(prefixes);
   }
   const double runs = double(state.iterations());
   state.counters["directory_ns"] = directory / runs;
   state.counters["lmdb_ns"] = lmdb / runs;
   state.counters["directory_over_lmdb"] = directory / lmdb;
}

void BM_FloorStoreLookup(benchmark::State& state) { sideBySide(state, Work::storeOnly); }
void BM_FloorFilledRouteTable(benchmark::State& state) { sideBySide(state, Work::filledRoutes); }
void BM_FloorGrowingRouteTable(benchmark::State& state) { sideBySide(state, Work::growingRoutes); }
BENCHMARK(BM_FloorStoreLookup)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_FloorFilledRouteTable)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_FloorGrowingRouteTable)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_FloorGrowingRouteDirectory)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
