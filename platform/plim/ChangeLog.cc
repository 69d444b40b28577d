#include "platform/plim/ChangeLog.h"

#include <array>
#include <chrono>
#include <random>

#include "platform/plim/Cursor.h"
#include "platform/plim/MdbBytes.h"
#include "platform/plim/RowDatabase.h"

namespace Plim {

namespace {

constexpr std::string_view kFeedKey = "feed";
constexpr std::string_view kLogDatabase = "log";
// A part is one LMDB value: small enough to be written and read at once
// without holding a large turn twice.
constexpr std::uint32_t kPartChanges = 4096;
constexpr std::size_t kPartHeader = 13;  // before the kind's name

template <class T>
void appendLittle(std::string& out, T value) {
   for (std::size_t i = 0; i < sizeof(T); ++i) {
      out.push_back(char((value >> (8 * i)) & 0xff));
   }
}

template <class T>
T readLittle(const char* in) {
   T value = 0;
   for (std::size_t i = 0; i < sizeof(T); ++i) {
      value |= T(static_cast<unsigned char>(in[i])) << (8 * i);
   }
   return value;
}

std::array<char, 12> partKey(std::uint64_t seq, std::uint32_t part) {
   std::array<char, 12> key;
   for (int i = 0; i < 8; ++i) {
      key[i] = char(seq >> (56 - 8 * i));
   }
   for (int i = 0; i < 4; ++i) {
      key[8 + i] = char(part >> (24 - 8 * i));
   }
   return key;
}

std::uint64_t seqOfKey(const MDB_val& key) {
   std::uint64_t seq = 0;
   for (int i = 0; i < 8; ++i) {
      seq = seq << 8 | static_cast<unsigned char>(static_cast<const char*>(key.mv_data)[i]);
   }
   return seq;
}

std::uint64_t newWriterId() {
   std::random_device random;
   return (std::uint64_t{random()} << 32 | random()) | 1;  // never 0, which means "none yet"
}

MDB_dbi database(RowDatabase& db, std::string_view name) {
   const auto dbi = db.database(name);
   if (!dbi) {
      db.fail(MDB_NOTFOUND, "open the change log");
   }
   return *dbi;
}

}  // namespace

void ChangeLog::beginTable(std::uint32_t table, std::string_view kind, std::size_t keySize,
                           std::size_t rowSize, std::size_t writes) {
   if (!overflow_ && turnChanges_ + writes > kKeptChanges) {
      overflow();
   }
   keySize_ = keySize;
   rowSize_ = rowSize;
   part_.clear();
   partChanges_ = 0;
   appendLittle(part_, table);
   appendLittle(part_, std::uint32_t{0});  // the count, set when the part is put
   appendLittle(part_, static_cast<std::uint16_t>(keySize));
   appendLittle(part_, static_cast<std::uint16_t>(rowSize));
   part_.push_back(char(kind.size()));
   part_.append(kind);
}

void ChangeLog::change(ChangeKind what, const void* key, const void* row) {
   if (overflow_) {
      return;
   }
   ++turnChanges_;  // within the bound: beginTable() saw to it
   if (partChanges_ == kPartChanges) {
      putPart();
   }
   part_.push_back(char(what));
   if (what != ChangeKind::cleared) {
      part_.append(static_cast<const char*>(key), keySize_);
   }
   if (what == ChangeKind::added || what == ChangeKind::changed) {
      part_.append(static_cast<const char*>(row), rowSize_);
   }
   ++partChanges_;
}

// The turn is too large to log: a follower reads its result as a snapshot.
// The whole log goes at once, with what the turn logged already, while the
// turn runs rather than in its commit: a store writes its changes during a
// long turn so that the turn's own clock sees their cost.
void ChangeLog::overflow() {
   overflow_ = true;
   part_.clear();
   MDB_txn* txn = db_.txn();
   db_.check(mdb_drop(txn, start(txn), 0), "clear the change log");
}

void ChangeLog::endTable() {
   if (!overflow_ && partChanges_ > 0) {
      putPart();
   }
   part_.clear();
}

void ChangeLog::cleared(std::uint32_t table, std::string_view kind) {
   beginTable(table, kind, 0, 0, 1);
   change(ChangeKind::cleared, nullptr, nullptr);
   endTable();
}

// Puts the part gathered so far, and starts the next one with the same
// header: a table's changes may span several parts.
void ChangeLog::putPart() {
   MDB_txn* txn = db_.txn();
   const MDB_dbi log = start(txn);
   for (std::size_t i = 0; i < 4; ++i) {
      part_[4 + i] = char((partChanges_ >> (8 * i)) & 0xff);
   }
   auto key = partKey(feed_->seq + 1, parts_++);
   MDB_val k{key.size(), key.data()}, v = bytesOf(part_);
   db_.check(mdb_put(txn, log, &k, &v, MDB_APPEND), "write the change log");
   part_.resize(kPartHeader + static_cast<unsigned char>(part_[kPartHeader - 1]));
   partChanges_ = 0;
}

// The log as this writer finds it at its first turn.
MDB_dbi ChangeLog::start(MDB_txn* txn) {
   const MDB_dbi log = database(db_, kLogDatabase);
   if (!feed_) {
      feed_ = readFeed(db_);
      feed_->writer = newWriterId();
      // What another writer logged describes tables this one rebuilds: its
      // followers start again from a snapshot.
      db_.check(mdb_drop(txn, log, 0), "clear the change log");
      feed_->logStart = feed_->seq + 1;
      feed_->logged = 0;
   }
   return log;
}

// Drops the oldest turns, whole, while the log holds more than it keeps:
// what a reader finds in it is always every change of each turn there.
void ChangeLog::trim(MDB_txn* txn, MDB_dbi log) {
   Cursor cursor(db_, txn, log, "open the change log");
   MDB_val k, v;
   int rc = MDB_SUCCESS;
   std::optional<std::uint64_t> dropping;  // the turn whose parts go
   while ((rc = cursor.get(k, v, MDB_FIRST)) == MDB_SUCCESS) {
      const std::uint64_t seq = seqOfKey(k);
      if (seq != dropping && feed_->logged <= kKeptChanges) {
         break;
      }
      dropping = seq;
      feed_->logged -= readLittle<std::uint32_t>(static_cast<const char*>(v.mv_data) + 4);
      feed_->logStart = seq + 1;
      if ((rc = cursor.del()) != MDB_SUCCESS) {
         break;
      }
   }
   if (rc != MDB_SUCCESS && rc != MDB_NOTFOUND) {
      db_.fail(rc, "trim the change log");
   }
}

std::uint64_t ChangeLog::commit(MDB_txn* txn) {
   const MDB_dbi log = start(txn);
   const std::uint64_t seq = feed_->seq + 1;
   if (overflow_) {
      feed_->logStart = seq + 1;  // the log was cleared when the turn outgrew it
      feed_->logged = 0;
   } else {
      feed_->logged += turnChanges_;
      trim(txn, log);
   }
   feed_->seq = seq;
   feed_->committedAt = static_cast<std::uint64_t>(
         std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
               .count());
   std::string record;
   for (std::uint64_t field :
        {feed_->writer, feed_->seq, feed_->logStart, feed_->logged, feed_->committedAt}) {
      appendLittle(record, field);
   }
   MDB_val k = bytesOf(kFeedKey), v = bytesOf(record);
   db_.check(mdb_put(txn, database(db_, "meta"), &k, &v, 0), "write the feed record");
   abandon();
   return seq;
}

void ChangeLog::abandon() {
   part_.clear();
   partChanges_ = 0;
   parts_ = 0;
   turnChanges_ = 0;
   overflow_ = false;
}

Feed readFeed(RowDatabase& db) {
   const auto meta = db.database("meta");
   if (!meta) {
      return {};
   }
   MDB_val k = bytesOf(kFeedKey), v;
   const int rc = mdb_get(db.txn(), *meta, &k, &v);
   if (rc == MDB_NOTFOUND) {
      return {};
   }
   db.check(rc, "read the feed record");
   if (v.mv_size != 5 * sizeof(std::uint64_t)) {
      db.fail(MDB_CORRUPTED, "read the feed record");
   }
   const char* bytes = static_cast<const char*>(v.mv_data);
   return Feed{readLittle<std::uint64_t>(bytes), readLittle<std::uint64_t>(bytes + 8),
               readLittle<std::uint64_t>(bytes + 16), readLittle<std::uint64_t>(bytes + 24),
               readLittle<std::uint64_t>(bytes + 32)};
}

namespace {

// Walks one part's changes; false if the part is malformed.
bool visitPart(std::uint64_t seq, std::string_view part,
               const std::function<void(const LoggedChange&)>& visit) {
   if (part.size() < kPartHeader) {
      return false;
   }
   const char* bytes = part.data();
   const auto table = readLittle<std::uint32_t>(bytes);
   const auto count = readLittle<std::uint32_t>(bytes + 4);
   const auto keySize = readLittle<std::uint16_t>(bytes + 8);
   const auto rowSize = readLittle<std::uint16_t>(bytes + 10);
   const std::size_t nameSize = static_cast<unsigned char>(bytes[12]);
   if (part.size() < kPartHeader + nameSize) {
      return false;
   }
   const std::string_view kind = part.substr(kPartHeader, nameSize);
   std::size_t at = kPartHeader + nameSize;
   for (std::uint32_t i = 0; i < count; ++i) {
      if (at >= part.size()) {
         return false;
      }
      const auto what = static_cast<ChangeKind>(part[at++]);
      if (what < ChangeKind::added || what > ChangeKind::cleared) {
         return false;
      }
      const std::size_t keyBytes = what == ChangeKind::cleared ? 0 : keySize;
      const bool hasRow = what == ChangeKind::added || what == ChangeKind::changed;
      const std::size_t rowBytes = hasRow ? rowSize : 0;
      if (part.size() - at < keyBytes + rowBytes) {
         return false;
      }
      visit(LoggedChange{seq, table, kind, what, part.substr(at, keyBytes),
                         part.substr(at + keyBytes, rowBytes)});
      at += keyBytes + rowBytes;
   }
   return at == part.size();
}

}  // namespace

void forEachLoggedChange(RowDatabase& db, std::uint64_t first, std::uint64_t last,
                         const std::function<void(const LoggedChange&)>& visit) {
   if (first > last) {
      return;
   }
   const auto log = db.database(kLogDatabase);
   if (!log) {
      db.fail(MDB_CORRUPTED, "read the change log");  // a feed record without its log
   }
   Cursor cursor(db, *log, "open the change log");
   auto key = partKey(first, 0);
   MDB_val k{key.size(), key.data()}, v;
   int rc = cursor.get(k, v, MDB_SET_RANGE);
   for (; rc == MDB_SUCCESS; rc = cursor.get(k, v, MDB_NEXT)) {
      if (k.mv_size != key.size()) {
         rc = MDB_CORRUPTED;
         break;
      }
      const std::uint64_t seq = seqOfKey(k);
      if (seq > last) {
         break;
      }
      if (!visitPart(seq, {static_cast<const char*>(v.mv_data), v.mv_size}, visit)) {
         rc = MDB_CORRUPTED;
         break;
      }
   }
   if (rc != MDB_SUCCESS && rc != MDB_NOTFOUND) {
      db.fail(rc, "read the change log");
   }
}

}  // namespace Plim
