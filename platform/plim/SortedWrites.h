// A run of row writes to one database of a RowDatabase, made in key order
// through one cursor: LMDB then finds a key on the page of the key before
// without a search from the root, which keeps a turn's writes to the pages
// they share instead of a descent per row.
//
//   Plim::SortedWrites writes(db, dbi);     // rows sorted by key
//   for (...) writes.put(key, value);       // or writes.del(key)
//
// A failure is raised as RowDatabase::fail raises it; the cursor is closed
// first, since the failed transaction frees its cursors when abandoned.
#pragma once

#include <cstring>
#include <optional>
#include <string_view>

#include "platform/plim/RowDatabase.h"

namespace Plim {

class SortedWrites {
 public:
   SortedWrites(RowDatabase& db, MDB_dbi dbi) : db_(db) {
      db_.check(mdb_cursor_open(db_.txn(), dbi, &cursor_), "open a cursor");
   }
   ~SortedWrites() {
      if (!db_.failed()) {
         close();  // a failed transaction took its cursors with it
      }
   }
   SortedWrites(const SortedWrites&) = delete;
   SortedWrites& operator=(const SortedWrites&) = delete;

   void put(MDB_val key, MDB_val value, std::string_view what = "write a row") {
      check(mdb_cursor_put(cursor_, &key, &value, 0), what);
   }
   // Writes the key's row unless it holds these bytes already; says which
   // (nothing: unchanged). One search either way: a new key is put by it,
   // and an existing one is found by it and then replaced where it is.
   std::optional<ChangeKind> write(MDB_val key, MDB_val value, std::string_view what = "write a row") {
      MDB_val found = value;
      const int rc = mdb_cursor_put(cursor_, &key, &found, MDB_NOOVERWRITE);
      if (rc == MDB_SUCCESS) {
         return ChangeKind::added;
      }
      if (rc != MDB_KEYEXIST) {
         check(rc, what);
      }
      if (found.mv_size == value.mv_size && std::memcmp(found.mv_data, value.mv_data, value.mv_size) == 0) {
         return std::nullopt;
      }
      check(mdb_cursor_put(cursor_, &key, &value, MDB_CURRENT), what);
      return ChangeKind::changed;
   }
   // Removes the key's row, if there is one; says whether there was.
   bool del(MDB_val key, std::string_view what = "remove a row") {
      MDB_val found;
      const int rc = mdb_cursor_get(cursor_, &key, &found, MDB_SET);
      check(rc == MDB_SUCCESS ? mdb_cursor_del(cursor_, 0) : rc == MDB_NOTFOUND ? MDB_SUCCESS : rc,
            what);
      return rc == MDB_SUCCESS;
   }

 private:
   void close() noexcept {
      if (cursor_) {
         mdb_cursor_close(cursor_);
         cursor_ = nullptr;
      }
   }
   void check(int rc, std::string_view what) {
      if (rc != MDB_SUCCESS) {
         close();
         db_.fail(rc, what);
      }
   }

   RowDatabase& db_;
   MDB_cursor* cursor_ = nullptr;
};

}  // namespace Plim
