// VRF identifiers of a live agent: "default" is 0; other names take theirs
// from a file (one "name id" a line, '#' starts a comment) or are assigned
// the smallest free identifier, which is kept in the table directory so
// that a restarted agent gives every VRF the identifier it had.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "platform/plim/RowDatabase.h"

namespace App {

class VrfIds {
 public:
   // Throws LiveError naming the file and line of a bad entry.
   VrfIds(const std::string& file, std::shared_ptr<Plim::RowDatabase> tables);

   std::uint32_t idFor(const std::string& name);

 private:
   void remember(const std::string& name, std::uint32_t id);

   std::shared_ptr<Plim::RowDatabase> tables_;
   std::map<std::string, std::uint32_t> fromFile_;
   std::map<std::string, std::uint32_t> assigned_;
   std::set<std::uint32_t> used_;
};

}  // namespace App
