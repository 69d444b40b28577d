// A table's rows in a RowDatabase, for tables that outlive the process.
//
// The database is the table: the writer keeps no copy of its rows. It
// reads them back from the turn's transaction, which sees the turn's own
// writes, after the changes it has not handed over yet; a row read is a
// copy, valid until the next read. The rows' order in the database, by
// place then by key bytes, is the order the runtime's own tables keep, so
// a walk visits them as an in-memory store would.
//
// The table's rows are a database of their own, keyed by the key's place
// (RowPlace.h), then the key's bytes: a turn's writes, made in the engine's
// own order, land on a run of neighbouring B-tree pages, each copied once
// per turn, instead of on pages all over the tree; and rows written in
// ascending order, as a drain's first sweep writes them, fill the pages
// they end.
//
// Writes reach the database's open turn in runs, sorted and each key once.
// A run is written as soon as it is full, so that a long turn (a drain
// slice) pays for its writes while it makes them, where its own clock sees
// them, and the commit that ends the turn has at most one run per store
// left to write. Readers see none of it before the commit.
//
// Rows are stored as their bytes: the directory's layout record (see
// RowDatabase::open) refuses a directory written with other row layouts.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <optional>
#include <string_view>
#include <type_traits>
#include <vector>

#include "platform/plim/Cursor.h"
#include "platform/plim/RowDatabase.h"
#include "platform/plim/RowPlace.h"
#include "platform/plim/SortedWrites.h"
#include "platform/plim/Store.h"
#include "platform/vok/SameBytes.h"

namespace Plim {

template <class K, class V>
class DatabaseStore final : public Store<K, V>, private PendingWrites {
   static_assert(std::has_unique_object_representations_v<K>,
                 "a key is stored as its bytes: it must have no padding");
   static_assert(std::is_trivially_copyable_v<V> && std::is_default_constructible_v<V>,
                 "a row is stored as its bytes");

 public:
   // The rows of `kind` of the table at `path`. A writer starts with what
   // the directory holds for it: an earlier run's rows.
   DatabaseStore(std::shared_ptr<RowDatabase> db, std::string_view kind, const std::string& path)
         : db_(std::move(db)), kind_(kind), path_(path) {
      located();
      if (db_->writable()) {
         db_->pendingWritesIs(this);
      }
   }
   ~DatabaseStore() override {
      if (!db_->writable()) {
         return;
      }
      try {
         flush();  // into the open turn, which the database commits
      } catch (const std::exception&) {
         // A destructor cannot report it; the next run finds the table as
         // the last commit left it, as after a crash.
      }
      if (reader_ && db_->inTurn() && readerTxn_ == db_->turnTxn()) {
         mdb_cursor_close(reader_);
      }
      db_->pendingWritesDel(this);
   }
   DatabaseStore(const DatabaseStore&) = delete;
   DatabaseStore& operator=(const DatabaseStore&) = delete;

   // A copy, valid until the next call.
   const V* row(const K& key) const override { return rowAt(key, placeOf(key)); }

   void rowIs(const K& key, const V& value) override {
      roomForOneMore();  // first: a failed allocation changes nothing
      changed(Change{key, value, placeOf(key), true});
   }

   bool rowDel(const K& key) override {
      const std::uint32_t place = placeOf(key);
      if (!rowAt(key, place)) {
         return false;
      }
      roomForOneMore();
      changed(Change{key, V{}, place, false});
      return true;
   }

   void rowDelAll() override {
      db_->clearRows(*rows_, *number_, kind_);
      changes_.clear();
      changesSorted_ = true;
      tableChanged();
   }

   std::size_t size() const override {
      if (!located()) {
         return 0;
      }
      write();  // the turn's transaction then counts every change
      MDB_stat stat;
      db_->check(mdb_stat(db_->readTxn(), *rows_, &stat), "count a table's rows");
      return stat.ms_entries;
   }

   // The rows as they are when the walk starts: the visitor may change the
   // table as it goes. What it was handed stays valid, as a store in memory
   // keeps it, until the table next changes or is walked again.
   void forEach(const std::function<void(const K&, const V&)>& visit) const override {
      if (!db_->writable()) {
         scan(visit);
         return;
      }
      write();
      std::vector<std::pair<K, V>> rows;
      scan([&](const K& key, const V& value) { rows.emplace_back(key, value); });
      const std::uint64_t version = version_;
      for (const auto& [key, value] : rows) {
         visit(key, value);
      }
      if (version_ == version) {
         walked_ = std::move(rows);  // the same elements, where the visitor saw them
      }
   }

 private:
   // A change not yet written, with the row it wrote: the write reads no
   // row back from the table.
   struct Change {
      K key;
      V row;
      std::uint32_t place;
      bool written;  // false: removed

      friend bool operator<(const Change& a, const Change& b) noexcept {
         return placedLess(a.place, a.key, b.place, b.key);
      }
   };

   const V* rowAt(const K& key, std::uint32_t place) const {
      if (const Change* pending = pendingChange(key, place)) {
         if (!pending->written) {
            return nullptr;
         }
         last_ = pending->row;
         return &last_;
      }
      if (!located()) {
         return nullptr;
      }
      auto bytes = placedKey(place, key);
      MDB_val k{bytes.size(), bytes.data()}, v;
      const int rc = db_->inTurn() ? readInTurn(k, v) : mdb_get(db_->readTxn(), *rows_, &k, &v);
      if (rc == MDB_NOTFOUND) {
         return nullptr;
      }
      db_->check(rc, "read a row");
      last_ = decode(v);
      return &last_;
   }

   void roomForOneMore() {
      if (changes_.size() == changes_.capacity()) {
         changes_.reserve(std::max<std::size_t>(64, changes_.capacity() * 2));
      }
   }

   // The rows a walk handed out go with the table's change.
   void tableChanged() {
      ++version_;
      if (!walked_.empty()) {
         std::vector<std::pair<K, V>>().swap(walked_);
      }
   }

   // Finds the row of `k` in this turn's transaction through a cursor kept
   // for the turn: a drain reads its rows in the directory's order, and a
   // cursor finds the next one on the page it stands on rather than from
   // the tree's root.
   int readInTurn(MDB_val& k, MDB_val& v) const {
      if (!reader_ || readerTxn_ != db_->turnTxn()) {
         reader_ = nullptr;  // opened in an earlier turn: LMDB freed it
         db_->check(mdb_cursor_open(db_->txn(), *rows_, &reader_), "open a cursor");
         readerTxn_ = db_->turnTxn();
      }
      return mdb_cursor_get(reader_, &k, &v, MDB_SET);
   }

   // The last change of `key` not handed over yet, or null. The changes of
   // a drain come in key order, and are searched in halves then.
   const Change* pendingChange(const K& key, std::uint32_t place) const {
      if (changes_.empty()) {
         return nullptr;
      }
      const Change probe{key, V{}, place, false};
      if (changesSorted_) {
         auto it = std::lower_bound(changes_.begin(), changes_.end(), probe);
         return it != changes_.end() && !(probe < *it) ? &*it : nullptr;
      }
      for (auto it = changes_.rbegin(); it != changes_.rend(); ++it) {
         if (it->place == probe.place && Vok::sameBytes(it->key, key)) {
            return &*it;
         }
      }
      return nullptr;
   }

   // Records a change with room for it taken: a row written again at once
   // replaces its last change. A full run is written at once. A failure is
   // raised from here, inside the change that filled the run, and the
   // directory is written no more (RowDatabase::fail): the agent stops with
   // the error, as after a failed commit.
   void changed(const Change& change) {
      tableChanged();
      if (!changes_.empty() && Vok::sameBytes(changes_.back().key, change.key)) {
         changes_.back() = change;
         return;
      }
      changesSorted_ = changesSorted_ && (changes_.empty() || changes_.back() < change);
      changes_.push_back(change);
      if (changes_.size() == kRowRun) {
         write();
      }
   }

   // Hands this turn's last changes to the database, before it commits.
   void flush() override { write(); }

   // Writes the changes gathered into the open turn: each changed key once,
   // in key order, with the last row written to it.
   void write() const {
      if (changes_.empty()) {
         return;
      }
      // Stable: of a key's changes, the last stays last. A drain's run
      // comes sorted already.
      if (!changesSorted_) {
         std::stable_sort(changes_.begin(), changes_.end());
      }
      SortedWrites writes(*db_, *rows_);
      ChangeLog& log = db_->changeLog();
      log.beginTable(*number_, kind_, sizeof(K), sizeof(V), changes_.size());
      for (std::size_t i = 0; i < changes_.size(); ++i) {
         const Change& change = changes_[i];
         if (i + 1 < changes_.size() && Vok::sameBytes(change.key, changes_[i + 1].key)) {
            continue;  // a later change of the same key wins
         }
         auto bytes = placedKey(change.place, change.key);
         MDB_val k{bytes.size(), bytes.data()};
         if (!change.written) {
            if (writes.del(k)) {
               log.change(ChangeKind::removed, &change.key, nullptr);
            }
         } else if (auto what = writes.write(k, MDB_val{sizeof(V), const_cast<V*>(&change.row)})) {
            log.change(*what, &change.key, &change.row);
         }
      }
      log.endTable();
      changes_.clear();
      changesSorted_ = true;
   }

   V decode(const MDB_val& v) const {
      if (v.mv_size != sizeof(V)) {
         db_->fail(MDB_CORRUPTED, "read a row");
      }
      V value;
      std::memcpy(&value, v.mv_data, sizeof(V));  // LMDB's data is not aligned for V
      return value;
   }

   // Whether the table has rows in the directory; a reader looks again, as
   // the writer may have created the table after the store was made.
   bool located() const {
      if (!number_) {
         number_ = db_->tableNumber(path_);
      }
      if (number_ && !rows_) {
         rows_ = db_->rowsOf(kind_, *number_);
      }
      return rows_.has_value();
   }

   template <class Visit>
   void scan(const Visit& visit) const {
      if (!located()) {
         return;
      }
      Cursor cursor(*db_, db_->readTxn(), *rows_, "open a cursor");
      MDB_val k, v;
      int rc = cursor.get(k, v, MDB_FIRST);
      for (; rc == MDB_SUCCESS; rc = cursor.get(k, v, MDB_NEXT)) {
         if (k.mv_size != 4 + sizeof(K)) {
            db_->fail(MDB_CORRUPTED, "read a row's key");
         }
         const char* bytes = static_cast<const char*>(k.mv_data);
         K key;
         std::memcpy(&key, bytes + 4, sizeof(K));  // after the place
         if (std::memcmp(bytes, placedKey(key).data(), 4) != 0) {
            db_->fail(MDB_CORRUPTED, "read a row's key");  // a row no lookup would find
         }
         visit(key, decode(v));  // which checks the row's size
      }
      if (rc != MDB_SUCCESS && rc != MDB_NOTFOUND) {
         db_->fail(rc, "read a table's rows");
      }
   }

   std::shared_ptr<RowDatabase> db_;
   std::string kind_, path_;
   mutable std::optional<std::uint32_t> number_;
   mutable std::optional<MDB_dbi> rows_;
   // Not yet in the database, in the order made; written when a read needs
   // the whole table in it, so a const read may write them.
   mutable std::vector<Change> changes_;
   mutable bool changesSorted_ = true;  // strictly ascending: each key once
   mutable V last_{};
   std::uint64_t version_ = 0;  // changes so far
   mutable MDB_cursor* reader_ = nullptr;  // readInTurn()'s, in turn readerTxn_
   mutable std::uint64_t readerTxn_ = 0;
   mutable std::vector<std::pair<K, V>> walked_;  // the last walk's rows
};

// The layout of rows of `kind` as a directory records it: a change of
// either type's size or alignment makes older directories foreign.
template <class K, class V>
std::string rowLayout(std::string_view kind) {
   return std::string(kind) + " " + std::to_string(sizeof(K)) + "/" + std::to_string(sizeof(V)) +
          "/" + std::to_string(alignof(V));
}

template <class K, class V>
std::unique_ptr<Store<K, V>> databaseStore(const std::shared_ptr<RowDatabase>& db,
                                           std::string_view kind, const std::string& path) {
   return std::make_unique<DatabaseStore<K, V>>(db, kind, path);
}

}  // namespace Plim
