// A table's rows in a directory: clearing them, asking whether there are
// any, and removing a range of keys (RowDatabase.h).
#include "platform/plim/RowDatabase.h"

#include "platform/plim/Cursor.h"
#include "platform/plim/MdbBytes.h"

namespace Plim {

namespace {

// Big-endian, as the stores key their rows: a table's rows sit together.
std::string numberPrefix(std::uint32_t number) {
   return {char(number >> 24), char(number >> 16), char(number >> 8), char(number)};
}

}  // namespace

void RowDatabase::clearTable(const std::string& path) {
   const auto number = tableNumbers_.find(path);
   if (number == tableNumbers_.end()) {
      return;
   }
   for (const std::string& kind : tableKinds_) {
      if (const auto dbi = rowsOf(kind)) {
         delRange(*dbi, numberPrefix(number->second));
         log_.cleared(number->second, kind);
      }
   }
}

bool RowDatabase::tableHasRows(const std::string& path) {
   const auto number = tableNumbers_.find(path);
   if (number == tableNumbers_.end()) {
      return false;
   }
   const std::string prefix = numberPrefix(number->second);
   for (const std::string& kind : tableKinds_) {
      const auto dbi = rowsOf(kind);
      if (!dbi) {
         continue;
      }
      Cursor cursor(*this, *dbi, "open a cursor");
      MDB_val k = bytesOf(prefix), v;
      const int rc = cursor.get(k, v, MDB_SET_RANGE);
      const bool found = rc == MDB_SUCCESS && textOf(k).starts_with(prefix);
      if (rc != MDB_SUCCESS && rc != MDB_NOTFOUND) {
         fail(rc, "look for a table's rows");
      }
      if (found) {
         return true;
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
