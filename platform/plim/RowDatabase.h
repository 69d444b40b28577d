// A directory of tables that outlives the process and that other processes
// read while the agent writes: one LMDB environment, one database per table
// and kind of row (named after the table's number, from its path), every
// row keyed by its place (RowPlace.h), then its own key bytes.
//
//   auto db = Plim::RowDatabase::open("/dev/shm/connroute", Plim::Access::write, layout);
//   ... tables write through stores bound to db ...
//   db->commit();   // at the end of every turn of the event loop
//
// Writes gather in one write transaction, begun by the first write and
// committed by commit(), so that readers see the state of whole turns only.
// A reader keeps one read transaction and renews it with refresh().
#pragma once

#include <lmdb.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/plim/ChangeLog.h"

namespace Plim {

enum class Access { readOnly, write };

// The directory cannot be opened as a table directory: missing, foreign, of
// another layout, or unreadable. The message names the directory and why.
class DatabaseError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// A store that holds back some of its writes (its last run) until the turn
// ends (see commit()).
class PendingWrites {
 public:
   virtual ~PendingWrites() = default;
   virtual void flush() = 0;
};

class RowDatabase {
 public:
   // Opens (for writing: creates, with the directory if absent) the table
   // directory `dir`. `layout` names the row layouts of every kind: a
   // directory written with another layout is refused, never misread.
   static std::shared_ptr<RowDatabase> open(const std::string& dir, Access access,
                                            const std::string& layout);
   ~RowDatabase();
   RowDatabase(const RowDatabase&) = delete;
   RowDatabase& operator=(const RowDatabase&) = delete;

   // The file a writer rewrites after every commit, with the turn's
   // sequence number: what a follower watches (inotify) to wake.
   static constexpr const char* kTurnsFile = "turns";

   const std::string& dir() const noexcept { return dir_; }
   bool writable() const noexcept { return access_ == Access::write; }
   // A write failed: the turn's transaction, and every cursor of it, is gone.
   bool failed() const noexcept { return failed_; }

   // The database of the rows of `kind` published beside the tables
   // (created for writing if absent); nullopt when a read-only directory
   // has none.
   std::optional<MDB_dbi> rowsOf(std::string_view kind);
   // The database of the rows of `kind` numbered `number`, "rows:route:7":
   // a table's rows by the table's number, or a VRF's published rows by its
   // identifier (created for writing if absent); nullopt when a
   // read-only directory has none. Rows that end their database fill its
   // pages when written in key order (LMDB splits a page in the middle
   // unless the new row goes last), and are cleared in one drop.
   std::optional<MDB_dbi> rowsOf(std::string_view kind, std::uint32_t number);
   // The same, never creating it.
   std::optional<MDB_dbi> existingRowsOf(std::string_view kind, std::uint32_t number) const;
   // Every database of rows of `kind` numbered, whatever the number.
   std::vector<MDB_dbi> numberedRowsOf(std::string_view kind) const;
   // The database `name` (created for writing if absent); nullopt when a
   // read-only directory has none.
   std::optional<MDB_dbi> database(std::string_view name);

   // Where stores record what their turn changed (a writer's only).
   ChangeLog& changeLog() noexcept { return log_; }
   // The number of the table at `path`, assigned on first use when writing;
   // nullopt when a read-only directory has no such table.
   std::optional<std::uint32_t> tableNumber(const std::string& path);
   // Every table of the directory: path and number, in path order.
   std::map<std::string, std::uint32_t> tables();

   // The transaction rows are read and written in now: the write
   // transaction of this turn (begun if needed) when writing, the reader's
   // snapshot otherwise.
   MDB_txn* txn();
   // Whether this turn's write transaction has begun, and which of those
   // the writer began it is: LMDB frees a cursor opened in one when it ends.
   bool inTurn() const noexcept { return writable() && txn_ != nullptr; }
   std::uint64_t turnTxn() const noexcept { return txnsBegun_; }
   // The transaction rows are read in: this turn's, once it has begun, or
   // else the latest committed state (a writer's own snapshot, let go of
   // when the turn ends: a read begins no turn).
   MDB_txn* readTxn();
   // Makes this turn's writes visible to readers, after every store has
   // handed over the writes it held back; nothing to do if there are none.
   void commit();
   // Stores register while they exist.
   void pendingWritesIs(PendingWrites* store) { pending_.push_back(store); }
   void pendingWritesDel(PendingWrites* store) { std::erase(pending_, store); }
   // A reader moves its snapshot to the latest committed state.
   void refresh();
   // A reader lets go of its snapshot until it reads again (then at the
   // latest state): a snapshot held keeps the writer from reusing the pages
   // it has freed since, and each of its turns takes fresh ones instead.
   void release();

   // Removes every row of `dbi` whose key starts with `prefix`.
   void delRange(MDB_dbi dbi, std::string_view prefix);
   // Removes every row of `dbi`, and logs it as the table's clear.
   void clearRows(MDB_dbi dbi, std::uint32_t table, std::string_view kind);
   // Removes every row of the table at `path`, of every kind of table rows
   // the layout names; the table keeps its number (numbers are never given
   // twice). Only for a table no store of this process holds: a store would
   // not see its rows go.
   void clearTable(const std::string& path);
   // Does the table at `path` hold a row (of a kind the layout names)?
   bool tableHasRows(const std::string& path);

   // Raises the error LMDB reported for `what`: corruption as
   // Belm::CorruptionDetectedException, anything else as DatabaseError. A
   // writer's failed transaction is abandoned, and the directory is written
   // no more (txn() raises DatabaseError).
   [[noreturn]] void fail(int rc, std::string_view what);
   void check(int rc, std::string_view what) {
      if (rc != MDB_SUCCESS) {
         fail(rc, what);
      }
   }

 private:
   using Databases = std::map<std::string, MDB_dbi, std::less<>>;

   RowDatabase(std::string dir, Access access);
   void lockForWriting();
   void verifyLayout(const std::string& layout);
   void loadTables(MDB_txn* txn);
   void openNewDatabases();
   // Opens, in `txn`, every database the directory lists that this handle
   // has not opened yet; the caller keeps the handles once `txn` commits.
   Databases openUnknownDatabases(MDB_txn* txn);
   void announceTurn(std::uint64_t seq);
   bool hasUnknownDatabases();
   std::vector<std::string> databaseNames(MDB_txn* txn);

   std::string dir_;
   Access access_;
   int writerLock_ = -1;  // held by the one writer of the directory
   int turns_ = -1;       // kTurnsFile, for a writer
   MDB_env* env_ = nullptr;
   MDB_txn* txn_ = nullptr;  // this turn's writes, or the reader's snapshot
   std::uint64_t txnsBegun_ = 0;
   MDB_txn* snapshot_ = nullptr;  // a writer's reads between turns
   bool snapshotHeld_ = false;
   bool failed_ = false;
   bool released_ = false;  // a reader's snapshot, let go of
   Databases databases_;
   std::map<std::string, std::uint32_t, std::less<>> tableNumbers_;
   std::set<std::string, std::less<>> tableKinds_;  // the kinds of table rows the layout names
   std::vector<PendingWrites*> pending_;
   ChangeLog log_{*this};
};

}  // namespace Plim
