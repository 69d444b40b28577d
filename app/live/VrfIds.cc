#include "app/live/VrfIds.h"

#include <charconv>
#include <fstream>
#include <sstream>

#include "app/live/LiveAgent.h"
#include "platform/l3/VrfName.h"
#include "platform/plim/Cursor.h"

namespace App {

namespace {

constexpr std::string_view kAssignedKind = "vrfIds";  // name -> decimal identifier

std::optional<std::uint32_t> number(std::string_view text) {
   std::uint32_t value = 0;
   auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
   if (error != std::errc() || end != text.data() + text.size()) {
      return std::nullopt;
   }
   return value;
}

}  // namespace

VrfIds::VrfIds(const std::string& file, std::shared_ptr<Plim::RowDatabase> tables)
      : tables_(std::move(tables)) {
   used_.insert(0);
   if (!file.empty()) {
      std::ifstream in(file);
      if (!in) {
         throw LiveError(file + ": cannot read the VRF identifiers");
      }
      std::string line;
      for (int number_ = 1; std::getline(in, line); ++number_) {
         line = line.substr(0, line.find('#'));
         std::istringstream fields(line);
         std::string name, id, extra;
         if (!(fields >> name)) {
            continue;
         }
         const auto value = fields >> id ? number(id) : std::nullopt;
         const std::string where = file + ":" + std::to_string(number_) + ": ";
         if (!value || (fields >> extra)) {
            throw LiveError(where + "expected 'name id', got '" + line + "'");
         }
         if ((name == L3::VrfName::kDefault) != (*value == 0)) {
            throw LiveError(where + "identifier 0 is the default VRF's, and only its");
         }
         if (fromFile_.contains(name) || (*value != 0 && used_.contains(*value))) {
            throw LiveError(where + "'" + name + "' or identifier " + id + " is listed twice");
         }
         fromFile_.emplace(name, *value);
         used_.insert(*value);
      }
   }
   if (!tables_) {
      return;
   }
   // Identifiers an earlier run assigned, unless the file now says otherwise.
   const auto dbi = tables_->rowsOf(kAssignedKind);
   Plim::Cursor cursor(*tables_, *dbi, "read the assigned VRF identifiers");
   MDB_val k, v;
   for (int rc = cursor.get(k, v, MDB_FIRST); rc == MDB_SUCCESS; rc = cursor.get(k, v, MDB_NEXT)) {
      const std::string name(static_cast<const char*>(k.mv_data), k.mv_size);
      const auto id = number(std::string_view(static_cast<const char*>(v.mv_data), v.mv_size));
      if (id && !fromFile_.contains(name) && !used_.contains(*id)) {
         assigned_.emplace(name, *id);
         used_.insert(*id);
      }
   }
}

void VrfIds::remember(const std::string& name, std::uint32_t id) {
   assigned_.emplace(name, id);
   used_.insert(id);
   if (!tables_) {
      return;
   }
   const std::string text = std::to_string(id);
   MDB_val k{name.size(), const_cast<char*>(name.data())}, v{text.size(), const_cast<char*>(text.data())};
   tables_->check(mdb_put(tables_->txn(), *tables_->rowsOf(kAssignedKind), &k, &v, 0),
                  "keep an assigned VRF identifier");
}

std::uint32_t VrfIds::idFor(const std::string& name) {
   if (name == L3::VrfName::kDefault) {
      return 0;
   }
   if (auto it = fromFile_.find(name); it != fromFile_.end()) {
      return it->second;
   }
   if (auto it = assigned_.find(name); it != assigned_.end()) {
      return it->second;
   }
   std::uint32_t id = 1;
   while (used_.contains(id)) {
      ++id;
   }
   remember(name, id);
   return id;
}

}  // namespace App
