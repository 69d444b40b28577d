// A table directory on /dev/shm for one benchmark run, removed afterwards:
// shared memory, as the agent's tables would be on a switch.
#pragma once

#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

#include "platform/kordb/EntityManager.h"
#include "platform/plim/RowDatabase.h"

namespace Bench {

class TableDirectory {
 public:
   TableDirectory() {
      std::string pattern = "/dev/shm/connroute-bench-XXXXXX";
      if (!::mkdtemp(pattern.data())) {
         throw std::runtime_error("cannot create a table directory in /dev/shm");
      }
      path_ = pattern;
   }
   ~TableDirectory() { std::filesystem::remove_all(path_); }
   TableDirectory(const TableDirectory&) = delete;
   TableDirectory& operator=(const TableDirectory&) = delete;

   const std::string& path() const noexcept { return path_; }
   std::shared_ptr<Plim::RowDatabase> open(Plim::Access access) const {
      return Plim::RowDatabase::open(path_, access, Kordb::persistentLayout());
   }
   // What the directory's data file holds on the shared memory (its pages
   // written; the file is sparse).
   std::size_t bytesUsed() const {
      struct stat st;
      return ::stat((path_ + "/data.mdb").c_str(), &st) == 0 ? std::size_t(st.st_blocks) * 512 : 0;
   }

 private:
   std::string path_;
};

}  // namespace Bench
