// Rows written in key order through one cursor: puts, removals of present
// and absent keys, and a failure, which is raised with its text and leaves
// the directory written no more (the sanitizer build would catch the
// cursor freed twice with the abandoned transaction).
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>

#include "platform/plim/SortedWrites.h"

namespace {

class SortedWritesTest : public ::testing::Test {
 protected:
   void SetUp() override {
      std::string pattern = ::testing::TempDir() + "sorted-XXXXXX";
      ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
      dir_ = pattern;
   }
   void TearDown() override { std::filesystem::remove_all(dir_); }

   std::shared_ptr<Plim::RowDatabase> open(Plim::Access access) {
      return Plim::RowDatabase::open(dir_, access, "sorted writes test");
   }

   static MDB_val val(const std::string& text) {
      return MDB_val{text.size(), const_cast<char*>(text.data())};
   }

   std::map<std::string, std::string> rows() {
      auto reader = open(Plim::Access::readOnly);
      std::map<std::string, std::string> found;
      MDB_cursor* cursor = nullptr;
      EXPECT_EQ(mdb_cursor_open(reader->txn(), *reader->rowsOf("kind"), &cursor), MDB_SUCCESS);
      MDB_val k, v;
      for (int rc = mdb_cursor_get(cursor, &k, &v, MDB_FIRST); rc == MDB_SUCCESS;
           rc = mdb_cursor_get(cursor, &k, &v, MDB_NEXT)) {
         found.emplace(std::string(static_cast<char*>(k.mv_data), k.mv_size),
                       std::string(static_cast<char*>(v.mv_data), v.mv_size));
      }
      mdb_cursor_close(cursor);
      return found;
   }

   std::string dir_;
};

TEST_F(SortedWritesTest, PutsAndRemovesInKeyOrder) {
   auto db = open(Plim::Access::write);
   {
      Plim::SortedWrites writes(*db, *db->rowsOf("kind"));
      for (const char* key : {"a", "b", "c", "d"}) {
         writes.put(val(key), val(std::string("row ") + key));
      }
   }
   db->commit();
   {
      Plim::SortedWrites writes(*db, *db->rowsOf("kind"));
      writes.del(val("a"));
      writes.put(val("b"), val("row b again"));
      writes.del(val("bb"));  // absent: nothing to remove, no error
      writes.del(val("d"));
   }
   db->commit();
   EXPECT_EQ(rows(), (std::map<std::string, std::string>{{"b", "row b again"}, {"c", "row c"}}));
}

TEST_F(SortedWritesTest, AFailureIsRaisedAndEndsTheWrites) {
   auto db = open(Plim::Access::write);
   {
      Plim::SortedWrites writes(*db, *db->rowsOf("kind"));
      writes.put(val("kept"), val("from an earlier turn"));
   }
   db->commit();
   {
      Plim::SortedWrites writes(*db, *db->rowsOf("kind"));
      writes.put(val("lost"), val("in the failed turn"));
      const std::string tooLong(mdb_env_get_maxkeysize(nullptr) + 1, 'k');
      try {
         writes.put(val(tooLong), val("x"), "publish a row");
         ADD_FAILURE() << "a key LMDB cannot hold was written";
      } catch (const Plim::DatabaseError& e) {
         EXPECT_NE(std::string(e.what()).find("publish a row"), std::string::npos) << e.what();
      }
   }
   EXPECT_THROW(db->txn(), Plim::DatabaseError);
   db.reset();
   EXPECT_EQ(rows(), (std::map<std::string, std::string>{{"kept", "from an earlier turn"}}));
}

}  // namespace
