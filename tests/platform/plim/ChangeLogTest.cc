// The change log a table directory keeps for followers: replaying what it
// logged onto the tables as of any turn it still holds gives the tables of
// every later turn, and it says from which turn on it is complete.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <map>
#include <random>

#include "platform/kordb/EntityManager.h"
#include "platform/plim/ChangeLog.h"
#include "platform/plim/RowDatabase.h"
#include "platform/rib/RouteConfig.h"

namespace {

namespace Rib = Routing::Rib;
using Prefix = Ovel::IpGenPrefix;
// Every table's rows, by table number and prefix.
using Tables = std::map<std::pair<std::uint32_t, Prefix>, Rib::Route>;

class ChangeLogTest : public ::testing::Test {
 protected:
   void SetUp() override {
      std::string pattern = ::testing::TempDir() + "changelog-XXXXXX";
      ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
      dir_ = pattern;
   }
   void TearDown() override { std::filesystem::remove_all(dir_); }

   std::shared_ptr<Plim::RowDatabase> open(Plim::Access access) {
      return Plim::RowDatabase::open(dir_, access, Kordb::persistentLayout());
   }

   // The writer of a run: its route tables at `paths`.
   struct Writer {
      std::shared_ptr<Plim::RowDatabase> db;
      Vok::Ptr<Kordb::EntityManager> manager = Vok::make<Kordb::EntityManager>();
      std::vector<Vok::Ptr<Rib::RouteConfig>> tables;
      std::vector<std::uint32_t> numbers;
   };
   Writer writer(const std::vector<std::string>& paths) {
      Writer w;
      w.db = open(Plim::Access::write);
      w.manager->rowDatabaseIs(w.db);
      for (const std::string& path : paths) {
         auto mount = w.manager->mount(path, "Routing::Rib::RouteConfig", {}, Kordb::MountMode::write);
         w.tables.push_back(mount->entityAs<Rib::RouteConfig>());
         w.numbers.push_back(*w.db->tableNumber(path));
      }
      return w;
   }

   static Rib::Route route(std::uint32_t n, std::uint32_t flags) {
      const Prefix prefix(Ovel::IpAddr(0x0A000000u + (n << 8)), 24);
      return Rib::Route{prefix, Rib::RoutingProtocol::connected, {n, 0}, Rib::ViaSetKey(n % 7),
                        Rib::kUnassignedFecIndex, Routing::Fib::RouteType::attachedSubnet, flags};
   }

   // `tables` with the logged changes of turns first..last applied.
   static Tables replay(Plim::RowDatabase& db, Tables tables, std::uint64_t first, std::uint64_t last) {
      Plim::forEachLoggedChange(db, first, last, [&](const Plim::LoggedChange& change) {
         EXPECT_EQ(change.kind, "route");
         if (change.what == Plim::ChangeKind::cleared) {
            std::erase_if(tables, [&](const auto& row) { return row.first.first == change.table; });
            return;
         }
         Prefix prefix;
         EXPECT_EQ(change.key.size(), sizeof prefix);
         std::memcpy(&prefix, change.key.data(), sizeof prefix);
         const auto key = std::pair{change.table, prefix};
         if (change.what == Plim::ChangeKind::removed) {
            EXPECT_TRUE(tables.contains(key)) << "removed a row that was not there";
            tables.erase(key);
            return;
         }
         EXPECT_EQ(tables.contains(key), change.what == Plim::ChangeKind::changed);
         Rib::Route row;
         EXPECT_EQ(change.row.size(), sizeof row);
         std::memcpy(&row, change.row.data(), sizeof row);
         EXPECT_NE(tables[key], row) << "a change that changes nothing";
         tables[key] = row;
      });
      return tables;
   }

   std::string dir_;
};

// A turn long enough that its changes reach the directory in runs before it
// commits, cleared after some of those runs and written again: the log
// replays it, runs, clear and all, into the table the turn committed.
TEST_F(ChangeLogTest, ATurnClearedAfterItsFirstRunsReplaysAsCommitted) {
   const std::string path = "routing/rib/routeConfig/ipv4/1/connected";
   Writer w = writer({path});
   const Rib::Route earlier = route(5000, 1);  // of the turn before, which the clear removes
   w.tables[0]->routeAdd(earlier);
   w.db->commit();
   for (std::uint32_t n = 0; n < 1000; ++n) {
      w.tables[0]->routeAdd(route(n, 2));
   }
   w.tables[0]->routeDelAll();
   Tables committed;
   for (std::uint32_t n = 1000; n < 1300; ++n) {
      w.tables[0]->routeAdd(route(n, 3));
      committed[{w.numbers[0], route(n, 3).prefix}] = route(n, 3);
   }
   w.db->commit();
   auto reader = open(Plim::Access::readOnly);
   const Plim::Feed feed = Plim::readFeed(*reader);
   ASSERT_LE(feed.logStart, feed.seq);
   EXPECT_EQ(replay(*reader, {{{w.numbers[0], earlier.prefix}, earlier}}, feed.seq, feed.seq), committed);
}

// Random turns of writes, removals and clears on two tables, now and then
// one larger than the log keeps, and a restart (a new writer): after each
// run, every turn the log holds turns the tables of the turn before into
// those of its own, and so does every run of turns up to the last.
TEST_F(ChangeLogTest, ReplayingTheLogGivesEveryLaterTurnsTables) {
   const std::vector<std::string> paths = {"routing/rib/routeConfig/ipv4/1/connected",
                                           "routing/rib/routeConfig/ipv6/1/connected"};
   std::mt19937 random(20261125);
   std::map<std::uint64_t, Tables> asOf;  // the tables as of each turn, by sequence number
   Tables now;
   std::uint64_t seq = 0;
   std::uint64_t previousWriter = 0;
   for (int run = 0; run < 3; ++run) {
      SCOPED_TRACE("run " + std::to_string(run));
      const std::uint64_t firstOfRun = seq + 1;
      {
         Writer w = writer(paths);
         bool clearNext = false;
         for (int turn = 0; turn < 150; ++turn) {
            // Now and then a turn of a third of what the log keeps (older
            // turns must leave it), or of more than it keeps (not logged);
            // the turn after either clears the tables again.
            const auto size = random() % 40;
            const bool bulk = !clearNext && size < 3;
            const std::uint64_t bulkChanges = size == 0 ? Plim::ChangeLog::kKeptChanges + 10
                                                        : Plim::ChangeLog::kKeptChanges / 3;
            if (clearNext) {
               for (std::size_t t = 0; t < paths.size(); ++t) {
                  w.tables[t]->routeDelAll();
               }
               now.clear();
            }
            clearNext = bulk;
            const int ops = bulk ? int(bulkChanges) : int(size);
            for (int op = 0; op < ops; ++op) {
               const std::size_t t = bulk ? 0 : random() % paths.size();
               const std::uint32_t n = bulk ? std::uint32_t(op) : random() % 200;
               const auto kind = random() % 100;
               // Rewrites of the same row now and then; a bulk turn's rows are new.
               const Rib::Route row = route(n, bulk ? 1000 + turn : kind % 3);
               if (bulk || kind < 60) {
                  w.tables[t]->routeAdd(row);
                  now[{w.numbers[t], row.prefix}] = row;
               } else if (kind < 98) {
                  w.tables[t]->routeDel(row.prefix);
                  now.erase({w.numbers[t], row.prefix});
               } else {
                  w.tables[t]->routeDelAll();
                  std::erase_if(now, [&](const auto& r) { return r.first.first == w.numbers[t]; });
               }
            }
            w.db->commit();
            // A turn that wrote nothing commits nothing, and has no number.
            const auto& feed = w.db->changeLog().feed();
            if (!feed || feed->seq == seq) {
               ASSERT_EQ(asOf[seq], now);
            }
            seq = feed ? feed->seq : seq;
            asOf[seq] = now;
         }
      }
      auto reader = open(Plim::Access::readOnly);
      const Plim::Feed feed = Plim::readFeed(*reader);
      ASSERT_EQ(feed.seq, seq);
      EXPECT_NE(feed.writer, previousWriter) << "a restart is a new writer";
      previousWriter = feed.writer;
      EXPECT_LE(feed.logged, Plim::ChangeLog::kKeptChanges);
      EXPECT_GE(feed.logStart, firstOfRun) << "another writer's turns are not in the log";
      EXPECT_LE(feed.logStart, seq + 1);
      EXPECT_EQ(replay(*reader, asOf[feed.logStart - 1], feed.logStart, seq), now);
      for (std::uint64_t s = feed.logStart; s <= seq; ++s) {
         ASSERT_EQ(replay(*reader, asOf[s - 1], s, s), asOf[s]) << "turn " << s;
      }
   }
}

TEST_F(ChangeLogTest, ATurnLargerThanTheLogKeepsEmptiesItAndStartsItAfter) {
   Writer w = writer({"routing/rib/routeConfig/ipv4/1/connected"});
   w.tables[0]->routeAdd(route(1, 0));
   w.db->commit();  // turn 1
   for (std::uint32_t n = 0; n <= Plim::ChangeLog::kKeptChanges; ++n) {
      w.tables[0]->routeAdd(route(n, 1));
   }
   w.db->commit();  // turn 2
   w.tables[0]->routeDel(route(5, 1).prefix);
   w.db->commit();  // turn 3
   const auto feed = w.db->changeLog().feed();
   ASSERT_TRUE(feed);
   EXPECT_EQ(feed->seq, 3u);
   EXPECT_EQ(feed->logStart, 3u);
   EXPECT_EQ(feed->logged, 1u);
}

// The turn a writer is in when it closes is committed and logged as any
// other; clearing a table no store holds is logged too, and leaves alone
// the rows published beside the tables, even those whose key begins with
// the table's number.
TEST_F(ChangeLogTest, AClosingWritersTurnAndAClearedTableAreLogged) {
   const std::string path = "routing/rib/routeConfig/ipv4/1/connected";
   std::uint32_t number = 0;
   {
      Writer w = writer({path});
      number = w.numbers[0];
      w.tables[0]->routeAdd(route(1, 0));
      w.tables[0]->routeAdd(route(2, 0));
   }  // closed without a commit
   Tables asOfClose;
   {
      auto reader = open(Plim::Access::readOnly);
      const Plim::Feed feed = Plim::readFeed(*reader);
      ASSERT_EQ(feed.seq, 1u);
      asOfClose = replay(*reader, {}, 1, 1);
      EXPECT_EQ(asOfClose.size(), 2u);
   }
   const std::string published(1, '\0');  // a published row keyed by the table's number, as a VRF id
   const std::string key = std::string(3, '\0') + char(number);
   {
      auto db = open(Plim::Access::write);
      MDB_val k{key.size(), const_cast<char*>(key.data())}, v{published.size(), const_cast<char*>(published.data())};
      db->check(mdb_put(db->txn(), *db->rowsOf("vrfName"), &k, &v, 0), "publish");
      db->commit();
      db->clearTable(path);
      db->commit();
      EXPECT_FALSE(db->tableHasRows(path));
   }
   auto reader = open(Plim::Access::readOnly);
   const Plim::Feed feed = Plim::readFeed(*reader);
   EXPECT_EQ(replay(*reader, asOfClose, feed.logStart, feed.seq), Tables{});
   MDB_val k{key.size(), const_cast<char*>(key.data())}, v;
   EXPECT_EQ(mdb_get(reader->txn(), *reader->rowsOf("vrfName"), &k, &v), MDB_SUCCESS)
         << "clearing a table took a published row with it";
}

}  // namespace
