#include "platform/plim/RowDatabase.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <utility>
#include <vector>

#include "platform/belm/Exceptions.h"
#include "platform/plim/Cursor.h"
#include "platform/plim/MdbBytes.h"
#include "platform/trace/Trace.h"

namespace Plim {

namespace {

const Vok::TraceHandle trace("Plim");

// Address space only: with a write map the file is sparse, and tmpfs or a
// disk gives pages as rows arrive.
constexpr std::size_t kMapSize = std::size_t{64} << 30;
// A database per table and kind of row, six for each VRF served, one for
// its published candidates, and the few other rows published beside the
// tables. LMDB sizes a reader's transaction by it
// (57 bytes a database), and refuses a database past it with MDB_DBS_FULL.
constexpr unsigned kMaxDatabases = 16384;
constexpr const char* kMetaDatabase = "meta";
constexpr const char* kTablesDatabase = "tables";
constexpr std::string_view kLayoutKey = "layout";

// The kinds of rows a layout names: each is followed by its sizes, as
// rowLayout() writes them ("route 20/48/4").
std::set<std::string, std::less<>> kindsOf(std::string_view layout) {
   std::set<std::string, std::less<>> kinds;
   std::string_view previous;
   while (!layout.empty()) {
      const std::size_t end = std::min(layout.find_first_of(" ;"), layout.size());
      const std::string_view word = layout.substr(0, end);
      if (!word.empty() && word.find('/') != std::string_view::npos &&
          word.find_first_not_of("0123456789/") == std::string_view::npos) {
         kinds.emplace(previous);
      }
      if (!word.empty()) {
         previous = word;
      }
      layout.remove_prefix(std::min(end + 1, layout.size()));
   }
   return kinds;
}

std::string numberedRowsName(std::string_view kind, std::uint32_t number) {
   return "rows:" + std::string(kind) + ":" + std::to_string(number);
}

}  // namespace

RowDatabase::RowDatabase(std::string dir, Access access) : dir_(std::move(dir)), access_(access) {}

RowDatabase::~RowDatabase() {
   if (txn_ && writable()) {
      // What the last turn wrote is kept, as a crash would keep it, and
      // logged as any turn is.
      try {
         const std::uint64_t seq = log_.commit(txn_);
         if (mdb_txn_commit(std::exchange(txn_, nullptr)) == MDB_SUCCESS) {
            announceTurn(seq);
         }
      } catch (const std::exception&) {
         // fail() abandoned the turn: the directory keeps the turn before.
      }
   }
   if (txn_) {
      mdb_txn_abort(txn_);
   }
   if (snapshot_) {
      mdb_txn_abort(snapshot_);
   }
   if (env_) {
      mdb_env_close(env_);
   }
   for (int fd : {writerLock_, turns_}) {
      if (fd >= 0) {
         ::close(fd);
      }
   }
}

// LMDB serialises write transactions but not writers: two agents writing
// one directory would each take the other's rows for stale ones.
void RowDatabase::lockForWriting() {
   const std::string path = dir_ + "/writer.lock";
   writerLock_ = ::open(path.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0644);
   if (writerLock_ < 0) {
      throw DatabaseError(path + ": cannot open: " + std::strerror(errno));
   }
   if (::flock(writerLock_, LOCK_EX | LOCK_NB) != 0) {
      throw DatabaseError(dir_ + ": another connroute is writing these tables");
   }
   const std::string turns = dir_ + "/" + kTurnsFile;
   turns_ = ::open(turns.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
   if (turns_ < 0) {
      throw DatabaseError(turns + ": cannot open: " + std::strerror(errno));
   }
}

// Wakes followers. A write that fails wakes none: they read the turn at the
// next one that succeeds, or at their own next look (they look every
// second while nothing wakes them).
void RowDatabase::announceTurn(std::uint64_t seq) {
   [[maybe_unused]] const ssize_t written = ::pwrite(turns_, &seq, sizeof seq, 0);
}

std::shared_ptr<RowDatabase> RowDatabase::open(const std::string& dir, Access access,
                                               const std::string& layout) {
   namespace fs = std::filesystem;
   std::error_code error;
   if (access == Access::write) {
      fs::create_directories(dir, error);
      if (error) {
         throw DatabaseError(dir + ": cannot create the table directory: " + error.message());
      }
   } else {
      const bool isDirectory = fs::is_directory(dir, error);
      const bool hasData = isDirectory && fs::exists(fs::path(dir) / "data.mdb", error);
      if (error == std::errc::permission_denied) {
         throw DatabaseError(dir + ": permission denied");
      }
      if (!isDirectory) {
         throw DatabaseError(dir + ": no such table directory");
      }
      if (!hasData) {
         throw DatabaseError(dir + ": not a connroute table directory (no data.mdb)");
      }
   }
   std::shared_ptr<RowDatabase> db(new RowDatabase(dir, access));
   if (access == Access::readOnly && fs::file_size(fs::path(dir) / "data.mdb", error) == 0 && !error) {
      // A writer killed before LMDB wrote its first pages: nothing to read,
      // and LMDB would try to write them through a read-only descriptor.
      return db;
   }
   if (access == Access::write) {
      db->lockForWriting();
   }
   db->check(mdb_env_create(&db->env_), "create the environment");
   db->check(mdb_env_set_maxdbs(db->env_, kMaxDatabases), "set the database count");
   db->check(mdb_env_set_mapsize(db->env_, kMapSize), "set the map size");
   // Crash safety comes from the write map itself: a killed process leaves
   // its committed pages in the page cache. Syncing to disk only matters
   // when the machine goes down, and then the agent rebuilds everything.
   const unsigned flags = access == Access::write
                                ? MDB_WRITEMAP | MDB_NOSYNC | MDB_NOMETASYNC | MDB_NOTLS
                                : MDB_RDONLY | MDB_NOTLS;
   if (int rc = mdb_env_open(db->env_, dir.c_str(), flags, 0644); rc != MDB_SUCCESS) {
      throw DatabaseError(dir + ": cannot open the table directory: " + mdb_strerror(rc));
   }
   int stale = 0;
   db->check(mdb_reader_check(db->env_, &stale), "clear readers of dead processes");
   if (stale > 0) {
      VOK_TRACE(trace, 0, dir, "cleared " << stale << " readers of dead processes");
   }
   db->verifyLayout(layout);
   db->tableKinds_ = kindsOf(layout);
   return db;
}

void RowDatabase::verifyLayout(const std::string& layout) {
   MDB_txn* txn = nullptr;
   check(mdb_txn_begin(env_, nullptr, writable() ? 0 : MDB_RDONLY, &txn), "begin a transaction");
   auto finish = [&] {
      if (int rc = mdb_txn_commit(txn); rc != MDB_SUCCESS) {
         fail(rc, "commit the directory's layout");
      }
   };
   try {
      // Every database is opened here, in a transaction that commits, so
      // the handles stay for good.
      const Databases opened = openUnknownDatabases(txn);
      databases_.insert(opened.begin(), opened.end());
      auto meta = databases_.find(kMetaDatabase);
      if (meta == databases_.end() && !writable() && opened.empty()) {
         // A writer that died before its first commit leaves an empty
         // environment: nothing in it can be misread, and it holds no rows.
      } else if (meta == databases_.end()) {
         if (!writable() || !opened.empty()) {
            throw DatabaseError(dir_ + ": not a connroute table directory (no layout record)");
         }
         for (const char* name : {kMetaDatabase, kTablesDatabase}) {
            MDB_dbi dbi = 0;
            check(mdb_dbi_open(txn, name, MDB_CREATE, &dbi), "create the directory's databases");
            databases_.emplace(name, dbi);
         }
         MDB_val k = bytesOf(kLayoutKey), v = bytesOf(layout);
         check(mdb_put(txn, databases_.at(kMetaDatabase), &k, &v, 0), "record the layout");
      } else {
         MDB_val k = bytesOf(kLayoutKey), v;
         if (mdb_get(txn, meta->second, &k, &v) != MDB_SUCCESS) {
            throw DatabaseError(dir_ + ": not a connroute table directory (no layout record)");
         }
         if (textOf(v) != layout) {
            throw DatabaseError(dir_ + ": tables of another layout ('" + std::string(textOf(v)) +
                                "'; this connroute reads '" + layout + "')");
         }
      }
      loadTables(txn);
   } catch (...) {
      mdb_txn_abort(txn);
      throw;
   }
   finish();
   if (!writable()) {
      check(mdb_txn_begin(env_, nullptr, MDB_RDONLY, &txn_), "begin reading");
      loadTables(txn_);  // those created since the layout was read, in this snapshot
   }
}

void RowDatabase::openNewDatabases() {
   MDB_txn* txn = nullptr;
   check(mdb_txn_begin(env_, nullptr, MDB_RDONLY, &txn), "list the databases");
   Databases opened;
   try {
      opened = openUnknownDatabases(txn);
   } catch (...) {
      mdb_txn_abort(txn);  // and the handles it opened with it
      throw;
   }
   check(mdb_txn_commit(txn), "keep the databases open");  // handles stay after a commit
   databases_.insert(opened.begin(), opened.end());
}

// A name the directory lists that is no database (a key another program
// put there) is refused, not skipped: a reader would otherwise look for it
// again at every refresh, and never find the database it stands for.
RowDatabase::Databases RowDatabase::openUnknownDatabases(MDB_txn* txn) {
   Databases opened;
   for (const std::string& name : databaseNames(txn)) {
      if (databases_.contains(name)) {
         continue;
      }
      MDB_dbi dbi = 0;
      const int rc = mdb_dbi_open(txn, name.c_str(), 0, &dbi);
      if (rc == MDB_DBS_FULL) {
         fail(rc, "open every table");
      }
      if (rc != MDB_SUCCESS) {
         throw DatabaseError(dir_ + ": not a connroute table directory (foreign key '" + name + "')");
      }
      opened.emplace(name, dbi);
   }
   return opened;
}

// Named databases are keys of the unnamed one.
std::vector<std::string> RowDatabase::databaseNames(MDB_txn* txn) {
   MDB_dbi main = 0;
   check(mdb_dbi_open(txn, nullptr, 0, &main), "open the main database");
   Cursor cursor(*this, txn, main, "list the databases");
   std::vector<std::string> names;
   MDB_val key, value;
   for (int rc = cursor.get(key, value, MDB_FIRST); rc == MDB_SUCCESS; rc = cursor.get(key, value, MDB_NEXT)) {
      names.emplace_back(textOf(key));
   }
   return names;
}

void RowDatabase::loadTables(MDB_txn* txn) {
   auto tables = databases_.find(kTablesDatabase);
   if (tables == databases_.end()) {
      return;
   }
   Cursor cursor(*this, txn, tables->second, "list the tables");
   MDB_val key, value;
   int rc = cursor.get(key, value, MDB_FIRST);
   for (; rc == MDB_SUCCESS; rc = cursor.get(key, value, MDB_NEXT)) {
      std::uint32_t number = 0;
      if (value.mv_size != sizeof number) {
         rc = MDB_CORRUPTED;
         break;
      }
      std::memcpy(&number, value.mv_data, sizeof number);
      tableNumbers_.insert_or_assign(std::string(textOf(key)), number);
   }
   if (rc != MDB_NOTFOUND) {
      fail(rc, "read the table list");
   }
}

std::optional<MDB_dbi> RowDatabase::database(std::string_view name) {
   if (auto it = databases_.find(name); it != databases_.end()) {
      return it->second;
   }
   if (!writable()) {
      return std::nullopt;
   }
   MDB_dbi dbi = 0;
   check(mdb_dbi_open(txn(), std::string(name).c_str(), MDB_CREATE, &dbi), "create a database");
   databases_.emplace(name, dbi);
   return dbi;
}

std::optional<MDB_dbi> RowDatabase::existingRowsOf(std::string_view kind, std::uint32_t number) const {
   if (auto it = databases_.find(numberedRowsName(kind, number)); it != databases_.end()) {
      return it->second;
   }
   return std::nullopt;
}

std::optional<MDB_dbi> RowDatabase::rowsOf(std::string_view kind) {
   return database("rows:" + std::string(kind));
}

std::optional<MDB_dbi> RowDatabase::rowsOf(std::string_view kind, std::uint32_t number) {
   return database(numberedRowsName(kind, number));
}

std::vector<MDB_dbi> RowDatabase::numberedRowsOf(std::string_view kind) const {
   const std::string prefix = "rows:" + std::string(kind) + ":";
   std::vector<MDB_dbi> found;
   for (auto it = databases_.lower_bound(prefix); it != databases_.end() && it->first.starts_with(prefix); ++it) {
      found.push_back(it->second);
   }
   return found;
}

std::optional<std::uint32_t> RowDatabase::tableNumber(const std::string& path) {
   if (auto it = tableNumbers_.find(path); it != tableNumbers_.end()) {
      return it->second;
   }
   if (!writable()) {
      return std::nullopt;
   }
   const auto number = static_cast<std::uint32_t>(tableNumbers_.size());
   MDB_val k = bytesOf(path), v{sizeof number, const_cast<std::uint32_t*>(&number)};
   check(mdb_put(txn(), databases_.at(kTablesDatabase), &k, &v, 0), "record a table");
   tableNumbers_.emplace(path, number);
   return number;
}

std::map<std::string, std::uint32_t> RowDatabase::tables() {
   return {tableNumbers_.begin(), tableNumbers_.end()};
}

MDB_txn* RowDatabase::txn() {
   if (failed_) {
      throw DatabaseError(dir_ + ": no longer written: an earlier write to it failed");
   }
   if (released_) {
      refresh();
   }
   if (!txn_) {
      check(mdb_txn_begin(env_, nullptr, 0, &txn_), "begin a write transaction");
      ++txnsBegun_;
   }
   return txn_;
}

MDB_txn* RowDatabase::readTxn() {
   if (!writable() || txn_ || failed_) {
      return txn();  // which refuses a directory no longer written
   }
   if (!snapshot_) {
      check(mdb_txn_begin(env_, nullptr, MDB_RDONLY, &snapshot_), "begin reading");
   } else if (!snapshotHeld_) {
      check(mdb_txn_renew(snapshot_), "renew a snapshot");
   }
   snapshotHeld_ = true;
   return snapshot_;
}

void RowDatabase::commit() {
   if (!writable()) {
      return;
   }
   if (snapshotHeld_) {
      // Held, it would keep the pages this turn frees from being reused.
      mdb_txn_reset(snapshot_);
      snapshotHeld_ = false;
   }
   if (failed_) {
      return;
   }
   for (PendingWrites* store : pending_) {
      store->flush();
   }
   if (!txn_) {
      return;
   }
   const std::uint64_t seq = log_.commit(txn_);
   MDB_txn* txn = txn_;
   txn_ = nullptr;
   if (int rc = mdb_txn_commit(txn); rc != MDB_SUCCESS) {
      failed_ = true;  // the transaction is gone; handles it opened went with it
      fail(rc, "commit a turn's writes");
   }
   announceTurn(seq);
}

void RowDatabase::refresh() {
   if (writable() || !env_) {
      return;
   }
   // The writer may have added databases since; one it adds between the
   // look for them and the renewed snapshot would stay unknown in it (a
   // handle opened later is not valid in it): look again until none is.
   do {
      release();
      openNewDatabases();
      check(mdb_txn_renew(txn_), "renew the reader's snapshot");
      released_ = false;
   } while (hasUnknownDatabases());
   loadTables(txn_);  // and tables
}

bool RowDatabase::hasUnknownDatabases() {
   const auto names = databaseNames(txn_);
   return std::any_of(names.begin(), names.end(),
                      [&](const std::string& name) { return !databases_.contains(name); });
}

void RowDatabase::release() {
   if (!writable() && txn_ && !released_) {
      mdb_txn_reset(txn_);
      released_ = true;
   }
}

void RowDatabase::fail(int rc, std::string_view what) {
   const std::string detail = dir_ + ": cannot " + std::string(what) + ": " + mdb_strerror(rc);
   if (writable() && txn_) {
      // LMDB leaves a transaction that failed unusable: what this turn wrote
      // is dropped, and the in-memory tables are ahead of the directory from
      // now on, so the directory is written no more.
      mdb_txn_abort(txn_);
      txn_ = nullptr;
      log_.abandon();
      failed_ = true;
   }
   if (rc == MDB_CORRUPTED || rc == MDB_PAGE_NOTFOUND || rc == MDB_INVALID) {
      VOK_TRACE(trace, 0, dir_, detail);
      throw Belm::CorruptionDetectedException("Plim table corruption detected");
   }
   throw DatabaseError(detail);
}

}  // namespace Plim
