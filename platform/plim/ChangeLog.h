// What each committed turn of a RowDatabase changed, kept in the directory
// for readers that follow the tables instead of reading them again.
//
// Every committed turn has a sequence number. The `log` database holds,
// for the latest turns, their changes: per table and kind of row, which
// keys were added, changed or removed, with the rows written, and the
// tables that were cleared at once. The log is written in the turn's own
// transaction: a reader sees a turn and its changes together or not at all.
//
// The log is bounded (kKeptChanges): the oldest turns leave it as new ones
// come, and a turn larger than the bound is not logged at all. The feed
// record (`Feed`) says from which turn on the log is complete, so a
// follower that fell behind knows it and reads a fresh snapshot instead;
// nothing is ever skipped silently. A new writer starts a new log.
//
// Layout, for any LMDB client:
//   meta["feed"] = writer, seq, logStart, logged, committedAt: five
//     little-endian u64
//   log[seq (u64 big-endian) + part (u32 big-endian)] = one part:
//     u32 table number, u32 change count, u16 key size, u16 row size,
//     u8 kind-name length, the kind name (e.g. "route"): all little-endian;
//     then each change: u8 what (ChangeKind), the key's bytes unless
//     `cleared`, the row's bytes if `added` or `changed`.
#pragma once

#include <lmdb.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace Plim {

class RowDatabase;

enum class ChangeKind : std::uint8_t { added = 1, changed = 2, removed = 3, cleared = 4 };

// Where the log stands after the latest committed turn.
struct Feed {
   std::uint64_t writer = 0;    // changes when another process starts writing
   std::uint64_t seq = 0;       // the latest committed turn; 0 before the first
   std::uint64_t logStart = 1;  // the log holds every change of turns logStart..seq
   std::uint64_t logged = 0;    // changes the log holds
   std::uint64_t committedAt = 0;  // the latest turn's commit, Unix time in nanoseconds
};

// One logged change, its bytes valid while the snapshot it came from is.
struct LoggedChange {
   std::uint64_t seq;
   std::uint32_t table;
   std::string_view kind;  // the rows' kind: "route", "via", ...
   ChangeKind what;
   std::string_view key, row;  // empty for `cleared`; row empty for `removed`
};

// The writer's side: RowDatabase's stores record their changes here as they
// write them into the turn, a run at a time; the commit adds the feed.
class ChangeLog {
 public:
   // Turns that changed more than this are not logged; older turns leave
   // the log while it holds more.
   static constexpr std::uint64_t kKeptChanges = 1 << 17;

   explicit ChangeLog(RowDatabase& db) : db_(db) {}

   // A run of at most `writes` changes of one table's rows of one kind,
   // each made by `change()`: one run a store writes into the turn. A run
   // that would take the turn past the bound ends the turn's logging at
   // once, before anything of it is copied.
   void beginTable(std::uint32_t table, std::string_view kind, std::size_t keySize,
                   std::size_t rowSize, std::size_t writes);
   void change(ChangeKind what, const void* key, const void* row);
   void endTable();
   // Every row of `table` (of `kind`) removed at once.
   void cleared(std::uint32_t table, std::string_view kind);

   // Writes this turn's part of the log and the feed record into `txn`,
   // before it commits; returns the turn's sequence number.
   std::uint64_t commit(MDB_txn* txn);
   // The commit did not happen: the turn's changes are dropped.
   void abandon();
   // As this writer last committed it; nothing before its first turn.
   const std::optional<Feed>& feed() const noexcept { return feed_; }

 private:
   MDB_dbi start(MDB_txn* txn);
   void overflow();
   void putPart();
   void trim(MDB_txn* txn, MDB_dbi log);

   RowDatabase& db_;
   std::optional<Feed> feed_;  // read when this writer first logs or commits
   std::string part_;          // the part being gathered
   std::uint32_t partChanges_ = 0;
   std::uint32_t parts_ = 0;   // written this turn
   std::uint64_t turnChanges_ = 0;
   bool overflow_ = false;     // this turn is too large to log
   std::size_t keySize_ = 0, rowSize_ = 0;
};

// The reader's side, in the reader's snapshot.
// The feed record; a directory no writer has committed to since the log
// exists reads as Feed{}.
Feed readFeed(RowDatabase& db);
// Every logged change of turns first..last, in order.
void forEachLoggedChange(RowDatabase& db, std::uint64_t first, std::uint64_t last,
                         const std::function<void(const LoggedChange&)>& visit);

}  // namespace Plim
