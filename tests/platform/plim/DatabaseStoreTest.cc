// Tables kept in a table directory: what the writer sees, what readers in
// other processes see, and what the next run starts with.
#include <gtest/gtest.h>
#include <lmdb.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <numeric>
#include <random>

#include "platform/kordb/EntityManager.h"
#include "platform/plim/DatabaseStore.h"
#include "platform/rib/RouteConfig.h"

namespace {

namespace Rib = Routing::Rib;
using Prefix = Ovel::IpGenPrefix;

class DatabaseStoreTest : public ::testing::Test {
 protected:
   void SetUp() override {
      std::string pattern = ::testing::TempDir() + "tables-XXXXXX";
      ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
      dir_ = pattern;
   }
   void TearDown() override { std::filesystem::remove_all(dir_); }

   std::shared_ptr<Plim::RowDatabase> open(Plim::Access access) {
      return Plim::RowDatabase::open(dir_, access, Kordb::persistentLayout());
   }

   // The route table at `path`, mounted from a manager that keeps its rows in `db`.
   static Vok::Ptr<Rib::RouteConfig> routes(const std::shared_ptr<Plim::RowDatabase>& db,
                                            const std::string& path) {
      auto manager = Vok::make<Kordb::EntityManager>();
      manager->rowDatabaseIs(db);
      auto mount = manager->mount(path, "Routing::Rib::RouteConfig", {},
                                  db->writable() ? Kordb::MountMode::write : Kordb::MountMode::readOnly);
      return mount->entityAs<Rib::RouteConfig>();
   }

   static Rib::Route route(std::uint32_t n) {
      const Prefix prefix(Ovel::IpAddr(0x0A000000u + (n << 8)), 24);
      return Rib::Route{prefix, Rib::RoutingProtocol::connected, {n, 0}, Rib::ViaSetKey(n % 7),
                        Rib::kUnassignedFecIndex, Routing::Fib::RouteType::attachedSubnet, 0};
   }

   std::string dir_;
};

// Random writes, removals and clears on two tables of one kind, committed
// turn by turn (short turns, and long ones whose changes reach the
// directory in several runs before the commit, a key in more than one of
// them; in the last phase keys come in place order, as a drain writes
// them), with the writer closed and opened again now and then: the
// writer's view always matches an in-memory table given the same changes
// (each row read between changes, the rows and their order, their count),
// the next run starts with exactly those rows, and a reader finds the same
// in the end.
TEST_F(DatabaseStoreTest, TablesMatchAnInMemoryReferenceAcrossTurnsAndRuns) {
   const std::vector<std::string> paths = {"routing/rib/routeConfig/ipv4/1/connected",
                                           "routing/rib/routeConfig/ipv4/2/connected"};
   std::mt19937 random(20261122);
   constexpr std::uint32_t kKeys = 3000;  // few enough to rewrite, enough to keep a lost change
   std::vector<Plim::MemoryStore<Prefix, Rib::Route>> reference(paths.size());
   auto db = open(Plim::Access::write);
   std::vector<Vok::Ptr<Rib::RouteConfig>> tables;
   for (const auto& path : paths) {
      tables.push_back(routes(db, path));
   }
   std::vector<std::uint32_t> sweep(kKeys);  // keys in place order
   std::iota(sweep.begin(), sweep.end(), 0);
   std::sort(sweep.begin(), sweep.end(), [](std::uint32_t a, std::uint32_t b) {
      const Prefix pa = route(a).prefix, pb = route(b).prefix;
      return Plim::placedLess(Plim::placeOf(pa), pa, Plim::placeOf(pb), pb);
   });
   for (int op = 0; op < 40000; ++op) {
      const std::size_t t = random() % paths.size();
      const bool inPlaceOrder = op >= 30000;
      const std::uint32_t n = inPlaceOrder ? sweep[(op / 2) % kKeys] : random() % kKeys;
      // Phases of short turns, and of long ones (a phase long, unless a rare
      // clear or restart comes).
      const bool longTurns = op / 10000 % 2 == 1;
      const unsigned draw = random() % 1000;
      const bool clearOrRestart = draw >= 995 && (!longTurns || random() % 128 == 0);
      const unsigned kind = draw < 600 ? 0 : !clearOrRestart ? 1 : draw < 997 ? 2 : 3;
      switch (kind) {
         case 0: {
            // Rows of one key differ from write to write, so the directory
            // must end with a turn's last one.
            Rib::Route row = route(n);
            row.flags = std::uint32_t(op);
            tables[t]->routeAdd(row);
            reference[t].rowIs(row.prefix, row);
            break;
         }
         case 1:
            tables[t]->routeDel(route(n).prefix);
            reference[t].rowDel(route(n).prefix);
            break;
         case 2:
            tables[t]->routeDelAll();
            reference[t].rowDelAll();
            break;
         case 3:  // the agent restarts
            tables.clear();
            db.reset();
            db = open(Plim::Access::write);
            for (const auto& path : paths) {
               tables.push_back(routes(db, path));
            }
            break;
      }
      if (!longTurns && random() % 50 == 0) {
         db->commit();
      }
      // A row read back while changes wait to be written: the one just
      // changed, the next in place order, or any.
      const std::uint32_t read = random() % 3 == 0 ? n : random() % 3 == 0 ? sweep[(op / 2 + 1) % kKeys]
                                                                          : random() % kKeys;
      const Rib::Route* row = tables[t]->route(route(read).prefix);
      const Rib::Route* expectedRow = reference[t].row(route(read).prefix);
      ASSERT_EQ(row != nullptr, expectedRow != nullptr) << "key " << read << " after operation " << op;
      if (row) {
         ASSERT_EQ(*row, *expectedRow) << "key " << read << " after operation " << op;
      }
      if (op % 101 == 0) {
         ASSERT_EQ(tables[t]->routeCount(), reference[t].size()) << "after operation " << op;
      }
      if (op % 997 == 0 || kind == 3) {
         for (std::size_t i = 0; i < paths.size(); ++i) {
            SCOPED_TRACE(paths[i] + " after operation " + std::to_string(op));
            std::vector<Rib::Route> expected, actual;
            reference[i].forEach([&](const Prefix&, const Rib::Route& r) { expected.push_back(r); });
            tables[i]->forEachRoute([&](const Rib::Route& r) { actual.push_back(r); });
            ASSERT_EQ(actual, expected);  // same rows, same order
         }
      }
   }
   tables.clear();
   db.reset();
   auto reader = open(Plim::Access::readOnly);
   for (std::size_t i = 0; i < paths.size(); ++i) {
      std::map<Prefix, Rib::Route> expected;
      std::vector<Rib::Route> inOrder, read;
      reference[i].forEach([&](const Prefix& p, const Rib::Route& r) {
         expected.emplace(p, r);
         inOrder.push_back(r);
      });
      const auto table = routes(reader, paths[i]);
      table->forEachRoute([&](const Rib::Route& r) { read.push_back(r); });
      EXPECT_EQ(read, inOrder);  // the directory keeps the rows in the tables' own order
      EXPECT_EQ(table->routeCount(), expected.size());
      for (std::uint32_t n = 0; n < kKeys; ++n) {
         const Rib::Route* row = table->route(route(n).prefix);
         auto it = expected.find(route(n).prefix);
         ASSERT_EQ(row != nullptr, it != expected.end()) << n;
         if (row) {
            EXPECT_EQ(*row, it->second);
         }
      }
   }
}

// Puts `key` into the directory's unnamed database, as a program that is
// not connroute might: LMDB lists it among the databases, and it is none.
// From another process, as a second handle on one environment in one
// process is not allowed.
void putForeignKey(const std::string& dir, const std::string& key) {
   const pid_t child = ::fork();
   if (child == 0) {
      MDB_env* env = nullptr;
      MDB_txn* txn = nullptr;
      MDB_dbi main = 0;
      MDB_val k{key.size(), const_cast<char*>(key.data())}, v{1, const_cast<char*>("x")};
      // The map's size is the one the directory records.
      const bool done = mdb_env_create(&env) == MDB_SUCCESS &&
                        mdb_env_open(env, dir.c_str(), 0, 0644) == MDB_SUCCESS &&
                        mdb_txn_begin(env, nullptr, 0, &txn) == MDB_SUCCESS &&
                        mdb_dbi_open(txn, nullptr, 0, &main) == MDB_SUCCESS &&
                        mdb_put(txn, main, &k, &v, 0) == MDB_SUCCESS && mdb_txn_commit(txn) == MDB_SUCCESS;
      ::_exit(done ? 0 : 1);
   }
   int status = -1;
   ::waitpid(child, &status, 0);
   ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "could not put the foreign key";
}

// Counts the rows a reader in another process sees now.
std::size_t rowsSeenByAnotherProcess(const std::string& dir, const std::string& path) {
   int pipe[2];
   EXPECT_EQ(::pipe(pipe), 0);
   const pid_t child = ::fork();
   if (child == 0) {
      ::close(pipe[0]);
      std::uint64_t count = ~std::uint64_t{0};
      try {
         auto db = Plim::RowDatabase::open(dir, Plim::Access::readOnly, Kordb::persistentLayout());
         auto manager = Vok::make<Kordb::EntityManager>();
         manager->rowDatabaseIs(db);
         auto mount = manager->mount(path, "Routing::Rib::RouteConfig", {}, Kordb::MountMode::readOnly);
         count = mount->entityAs<Rib::RouteConfig>()->routeCount();
      } catch (...) {
      }
      (void)!::write(pipe[1], &count, sizeof count);
      ::_exit(0);
   }
   ::close(pipe[1]);
   std::uint64_t count = 0;
   EXPECT_EQ(::read(pipe[0], &count, sizeof count), ssize_t(sizeof count));
   ::close(pipe[0]);
   ::waitpid(child, nullptr, 0);
   return count;
}

TEST_F(DatabaseStoreTest, ReadersSeeWholeTurnsOnly) {
   const std::string path = "routing/rib/routeConfig/ipv4/7/connected";
   auto db = open(Plim::Access::write);
   auto table = routes(db, path);
   db->commit();
   // Enough rows that most reach the turn's transaction before it commits.
   constexpr std::uint32_t kRows = 10000;
   for (std::uint32_t n = 0; n < kRows; ++n) {
      table->routeAdd(route(n));
   }
   EXPECT_EQ(rowsSeenByAnotherProcess(dir_, path), 0u);
   db->commit();
   EXPECT_EQ(rowsSeenByAnotherProcess(dir_, path), kRows);
   table->routeDelAll();
   EXPECT_EQ(rowsSeenByAnotherProcess(dir_, path), kRows);
   db->commit();
   EXPECT_EQ(rowsSeenByAnotherProcess(dir_, path), 0u);
}

TEST_F(DatabaseStoreTest, ReadOnlyTablesRefuseEveryChange) {
   const std::string path = "routing/rib/routeConfig/ipv4/1/connected";
   {
      auto db = open(Plim::Access::write);
      routes(db, path)->routeAdd(route(1));
   }
   auto table = routes(open(Plim::Access::readOnly), path);
   ASSERT_NE(table->route(route(1).prefix), nullptr);
   auto expectRefused = [](const std::function<void()>& change, const std::string& text) {
      try {
         change();
         ADD_FAILURE() << "not refused: " << text;
      } catch (const Belm::NoPermissionException& e) {
         EXPECT_EQ(std::string(e.what()), text);
      }
   };
   expectRefused([&] { table->routeAdd(route(2)); }, "write to read-only Plim table");
   expectRefused([&] { table->routeDel(route(1).prefix); }, "remove to read-only Plim table");
   expectRefused([&] { table->routeDelAll(); }, "cleanup to read-only Plim table");
   EXPECT_EQ(table->routeCount(), 1u);
}

TEST_F(DatabaseStoreTest, DirectoriesThatCannotBeUsedAreRefused) {
   auto expectRefused = [](const std::function<void()>& openIt, const std::string& part) {
      try {
         openIt();
         ADD_FAILURE() << "not refused: " << part;
      } catch (const Plim::DatabaseError& e) {
         EXPECT_NE(std::string(e.what()).find(part), std::string::npos) << e.what();
      }
   };
   expectRefused([&] { open(Plim::Access::readOnly); }, "not a connroute table directory (no data.mdb)");
   expectRefused([&] { Plim::RowDatabase::open(dir_ + "/missing", Plim::Access::readOnly, "x"); },
                 "no such table directory");
   {
      auto writer = open(Plim::Access::write);
      expectRefused([&] { open(Plim::Access::write); }, "another connroute is writing these tables");
   }
   expectRefused([&] { Plim::RowDatabase::open(dir_, Plim::Access::write, "another layout"); },
                 "tables of another layout");
   expectRefused([&] { Plim::RowDatabase::open(dir_, Plim::Access::readOnly, "another layout"); },
                 "tables of another layout");
   auto reader = open(Plim::Access::readOnly);
   // Another program puts a key of its own beside the databases: refused
   // when a reader opens the directory, and when one refreshes (it would
   // look for the key's database at every refresh, for ever).
   putForeignKey(dir_, "stranger");
   ::alarm(60);  // a refresh that looks for ever ends the test, failed, instead of hanging it
   expectRefused([&] { reader->refresh(); }, "not a connroute table directory (foreign key 'stranger')");
   ::alarm(0);
   expectRefused([&] { open(Plim::Access::readOnly); },
                 "not a connroute table directory (foreign key 'stranger')");
}

// A row whose key's place is not its key's hash would be invisible to a
// lookup: a walk that meets it, a reader's or the next writer's, finds
// corruption, not a row.
TEST_F(DatabaseStoreTest, ARowOutOfItsPlaceIsCorruption) {
   const std::string path = "routing/rib/routeConfig/ipv4/1/connected";
   {
      auto writer = open(Plim::Access::write);
      routes(writer, path)->routeAdd(route(1));
      const std::uint32_t number = *writer->tableNumber(path);
      const Prefix prefix = route(2).prefix;
      const Rib::Route row = route(2);
      auto key = Plim::placedKey(Plim::placeOf(prefix) ^ 1, prefix);
      MDB_val k{key.size(), key.data()}, v{sizeof row, const_cast<Rib::Route*>(&row)};
      ASSERT_EQ(mdb_put(writer->txn(), *writer->rowsOf("route", number), &k, &v, 0), MDB_SUCCESS);
      writer->commit();
   }
   for (const Plim::Access access : {Plim::Access::readOnly, Plim::Access::write}) {
      const auto table = routes(open(access), path);
      ASSERT_NE(table->route(route(1).prefix), nullptr);
      try {
         table->forEachRoute([](const Rib::Route&) {});
         ADD_FAILURE() << "the misplaced row was read";
      } catch (const Belm::CorruptionDetectedException& e) {
         EXPECT_STREQ(e.what(), "Plim table corruption detected");
      }
   }
}

// A writer's walk hands out rows the visitor may change the table under
// (removing what it is handed, as a VRF's query rows are cleared), and rows
// that stay valid until the table next changes, however often it is read
// meanwhile (the dump holds them while it formats).
TEST_F(DatabaseStoreTest, AWritersWalkSurvivesChangesAndReads) {
   const std::string path = "routing/rib/routeConfig/ipv4/1/connected";
   auto writer = open(Plim::Access::write);
   const auto table = routes(writer, path);
   for (std::uint32_t n = 0; n < 1000; ++n) {
      table->routeAdd(route(n));
   }
   writer->commit();
   std::size_t visited = 0;
   table->forEachRoute([&](const Rib::Route& r) {
      if (++visited % 2 == 1) {
         table->routeDel(r.prefix);
      }
   });
   EXPECT_EQ(visited, 1000u);
   EXPECT_EQ(table->routeCount(), 500u);
   std::vector<const Rib::Route*> held;
   table->forEachRoute([&](const Rib::Route& r) { held.push_back(&r); });
   for (const Rib::Route* r : held) {
      const Rib::Route* read = table->route(r->prefix);
      ASSERT_NE(read, nullptr);
      EXPECT_EQ(*read, *r);
   }
   writer->commit();
   EXPECT_EQ(table->routeCount(), 500u);
}

// A writer killed before LMDB wrote anything leaves an empty data file:
// readers see an empty directory, and the next writer starts it.
TEST_F(DatabaseStoreTest, AnEmptyDataFileReadsAsAnEmptyDirectory) {
   const std::string path = "routing/rib/routeConfig/ipv4/1/connected";
   std::ofstream(dir_ + "/data.mdb").close();
   auto reader = open(Plim::Access::readOnly);
   EXPECT_TRUE(reader->tables().empty());
   EXPECT_EQ(routes(reader, path)->routeCount(), 0u);
   reader.reset();
   auto writer = open(Plim::Access::write);
   routes(writer, path)->routeAdd(route(1));
   writer->commit();
   writer.reset();
   EXPECT_EQ(routes(open(Plim::Access::readOnly), path)->routeCount(), 1u);
}

}  // namespace
