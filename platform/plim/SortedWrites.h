// A run of row writes to one database of a RowDatabase, made in key order
// through one cursor: LMDB then finds a key on the page of the key before
// without a search from the root, which keeps a turn's writes to the pages
// they share instead of a descent per row.
//
//   Plim::SortedWrites writes(db, dbi);     // rows sorted by key
//   for (...) writes.put(key, value);       // or writes.del(key)
//
// A failure is raised as RowDatabase::fail raises it.
#pragma once

#include <cstring>
#include <optional>
#include <string_view>

#include "platform/plim/Cursor.h"
#include "platform/plim/RowDatabase.h"

namespace Plim {

class SortedWrites {
 public:
   SortedWrites(RowDatabase& db, MDB_dbi dbi) : db_(db), cursor_(db, dbi, "open a cursor") {}

   void put(MDB_val key, MDB_val value, std::string_view what = "write a row") {
      db_.check(cursor_.put(key, value, 0), what);
   }
   // Writes the key's row unless it holds these bytes already; says which
   // (nothing: unchanged). One search either way: a new key is put by it,
   // and an existing one is found by it and then replaced where it is.
   std::optional<ChangeKind> write(MDB_val key, MDB_val value, std::string_view what = "write a row") {
      MDB_val found = value;
      const int rc = cursor_.put(key, found, MDB_NOOVERWRITE);
      if (rc == MDB_SUCCESS) {
         return ChangeKind::added;
      }
      if (rc != MDB_KEYEXIST) {
         db_.check(rc, what);
      }
      if (found.mv_size == value.mv_size && std::memcmp(found.mv_data, value.mv_data, value.mv_size) == 0) {
         return std::nullopt;
      }
      db_.check(cursor_.put(key, value, MDB_CURRENT), what);
      return ChangeKind::changed;
   }
   // Removes the key's row, if there is one; says whether there was.
   bool del(MDB_val key, std::string_view what = "remove a row") {
      MDB_val found;
      const int rc = cursor_.get(key, found, MDB_SET);
      db_.check(rc == MDB_SUCCESS ? cursor_.del() : rc == MDB_NOTFOUND ? MDB_SUCCESS : rc, what);
      return rc == MDB_SUCCESS;
   }

 private:
   RowDatabase& db_;
   Cursor cursor_;
};

}  // namespace Plim
