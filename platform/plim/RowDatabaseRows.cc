// A table's rows in a directory: clearing them, asking whether there are
// any, and removing a range of keys (RowDatabase.h).
#include "platform/plim/RowDatabase.h"

#include "platform/plim/Cursor.h"
#include "platform/plim/MdbBytes.h"

namespace Plim {

void RowDatabase::clearRows(MDB_dbi dbi, std::uint32_t table, std::string_view kind) {
   check(mdb_drop(txn(), dbi, 0), "clear a table");
   log_.cleared(table, kind);
}

void RowDatabase::clearTable(const std::string& path) {
   const auto number = tableNumbers_.find(path);
   if (number == tableNumbers_.end()) {
      return;
   }
   for (const std::string& kind : tableKinds_) {
      if (const auto dbi = existingRowsOf(kind, number->second)) {
         clearRows(*dbi, number->second, kind);
      }
   }
}

bool RowDatabase::tableHasRows(const std::string& path) {
   const auto number = tableNumbers_.find(path);
   if (number == tableNumbers_.end()) {
      return false;
   }
   for (const std::string& kind : tableKinds_) {
      if (const auto dbi = existingRowsOf(kind, number->second)) {
         MDB_stat stat;
         check(mdb_stat(txn(), *dbi, &stat), "count a table's rows");
         if (stat.ms_entries > 0) {
            return true;
         }
      }
   }
   return false;
}

void RowDatabase::delRange(MDB_dbi dbi, std::string_view prefix) {
   Cursor cursor(*this, dbi, "open a cursor");
   // Positioned afresh after each removal: a cursor's place after a delete
   // is not something to build on.
   auto first = [&](MDB_val& k, MDB_val& v) {
      k = bytesOf(prefix);
      return cursor.get(k, v, MDB_SET_RANGE);
   };
   MDB_val k, v;
   int rc = first(k, v);
   while (rc == MDB_SUCCESS && textOf(k).starts_with(prefix)) {
      if (rc = cursor.del(); rc != MDB_SUCCESS) {
         break;
      }
      rc = first(k, v);
   }
   if (rc != MDB_SUCCESS && rc != MDB_NOTFOUND) {
      fail(rc, "remove rows");
   }
}

}  // namespace Plim
