// An LMDB cursor of a RowDatabase that closes itself, on every way out of a
// walk, and leaves alone a cursor a failed write transaction took with it
// (LMDB frees a write transaction's cursors when it is abandoned).
//
//   Plim::Cursor rows(db, dbi, "read the rows");
//   for (int rc = rows.get(k, v, MDB_FIRST); rc == MDB_SUCCESS; rc = rows.get(k, v, MDB_NEXT)) ...
#pragma once

#include <lmdb.h>

#include <string_view>

#include "platform/plim/RowDatabase.h"

namespace Plim {

class Cursor {
 public:
   // In the database's transaction of now (RowDatabase::txn()).
   Cursor(RowDatabase& db, MDB_dbi dbi, std::string_view what) : Cursor(db, db.txn(), dbi, what) {}
   // In another transaction of the database's environment.
   Cursor(RowDatabase& db, MDB_txn* txn, MDB_dbi dbi, std::string_view what) : db_(db) {
      db_.check(mdb_cursor_open(txn, dbi, &cursor_), what);
   }
   ~Cursor() {
      if (!db_.failed()) {
         mdb_cursor_close(cursor_);
      }
   }
   Cursor(const Cursor&) = delete;
   Cursor& operator=(const Cursor&) = delete;

   int get(MDB_val& key, MDB_val& value, MDB_cursor_op op) { return mdb_cursor_get(cursor_, &key, &value, op); }
   int put(MDB_val& key, MDB_val& value, unsigned flags) { return mdb_cursor_put(cursor_, &key, &value, flags); }
   int del() { return mdb_cursor_del(cursor_, 0); }

 private:
   RowDatabase& db_;
   MDB_cursor* cursor_ = nullptr;
};

}  // namespace Plim
