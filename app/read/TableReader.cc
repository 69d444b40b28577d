#include "app/read/TableReader.h"

#include <set>

#include <algorithm>
#include <charconv>
#include <cstring>

#include "platform/plim/Cursor.h"
#include "platform/rib/IpRibRouteOrqTable.h"
#include "platform/rib/RouteConfig.h"
#include "platform/rib/TablePaths.h"
#include "platform/rib/ViaConfig.h"
#include "platform/rib/ViaSetConfig.h"

namespace App {

namespace Rib = Routing::Rib;

namespace {

std::string_view text(const MDB_val& value) {
   return {static_cast<const char*>(value.mv_data), value.mv_size};
}

}  // namespace

TableReader::TableReader(const std::string& dir)
      : db_(Plim::RowDatabase::open(dir, Plim::Access::readOnly, Kordb::persistentLayout())),
        entityManager_(Vok::make<Kordb::EntityManager>()),
        tables_(db_->tables()) {
   entityManager_->rowDatabaseIs(db_);
   for (const auto& [path, number] : tables_) {
      paths_.emplace(number, path);
   }
}

void TableReader::refresh() {
   db_->refresh();
   tables_ = db_->tables();
   for (const auto& [path, number] : tables_) {
      paths_.emplace(number, path);  // numbers are never given twice
   }
}

void TableReader::forEachChange(
      std::uint64_t first, std::uint64_t last,
      const std::function<void(const Plim::LoggedChange&, const std::string& path)>& visit) const {
   static const std::string unknown;
   Plim::forEachLoggedChange(*db_, first, last, [&](const Plim::LoggedChange& change) {
      auto path = paths_.find(change.table);
      visit(change, path == paths_.end() ? unknown : path->second);
   });
}

template <class Table>
Vok::Ptr<Table> TableReader::table(const std::string& path, std::string_view type) const {
   if (!tables_.contains(path)) {
      return nullptr;
   }
   auto mount = entityManager_->mount(path, type, {}, Kordb::MountMode::readOnly);
   return mount->entityAs<Table>();
}

std::optional<std::string> TableReader::published(std::string_view kind, std::string_view key) const {
   return published(db_->rowsOf(kind), key);
}

std::optional<std::string> TableReader::published(std::optional<MDB_dbi> dbi, std::string_view key) const {
   if (!dbi) {
      return std::nullopt;
   }
   MDB_val k{key.size(), const_cast<char*>(key.data())}, v;
   const int rc = mdb_get(db_->txn(), *dbi, &k, &v);
   if (rc == MDB_NOTFOUND) {
      return std::nullopt;
   }
   db_->check(rc, "read a published row");
   return std::string(text(v));
}

std::map<std::uint32_t, TableReader::Vrf> TableReader::vrfs() const {
   std::map<std::uint32_t, Vrf> vrfs;
   std::set<std::uint32_t> withRows;
   for (const auto& [path, number] : tables_) {
      if (auto parsed = Rib::parseVrfTablePath(path)) {
         vrfs[parsed->vrfId].id = parsed->vrfId;
         if (db_->tableHasRows(path)) {
            withRows.insert(parsed->vrfId);
         }
      }
   }
   if (const auto dbi = db_->rowsOf(kVrfStatusKind)) {
      Plim::Cursor cursor(*db_, *dbi, "list the VRFs");
      MDB_val k, v;
      int rc = cursor.get(k, v, MDB_FIRST);
      for (; rc == MDB_SUCCESS; rc = cursor.get(k, v, MDB_NEXT)) {
         if (k.mv_size != 4) {
            db_->fail(MDB_CORRUPTED, "read a VRF's status");
         }
         const auto* b = static_cast<const unsigned char*>(k.mv_data);
         const std::uint32_t id = std::uint32_t(b[0]) << 24 | std::uint32_t(b[1]) << 16 |
                                  std::uint32_t(b[2]) << 8 | b[3];
         vrfs[id].id = id;
         vrfs[id].status = parseVrfStatus(text(v));
         vrfs[id].name = vrfs[id].status->name;
      }
      if (rc != MDB_NOTFOUND) {
         db_->fail(rc, "list the VRFs");
      }
   }
   for (auto& [id, vrf] : vrfs) {
      if (vrf.name.empty()) {
         vrf.name = published(kVrfNameKind, vrfKey(id)).value_or("");
      }
   }
   // Tables once written and emptied since, of a VRF nobody names: nothing
   // to show, as after a cold start.
   std::erase_if(vrfs, [&](const auto& entry) {
      const Vrf& vrf = entry.second;
      return !vrf.status && vrf.name.empty() && !withRows.contains(vrf.id);
   });
   return vrfs;
}

std::optional<std::pair<std::string, double>> TableReader::agent() const {
   const auto row = published(kAgentKind, "agent");
   if (!row) {
      return std::nullopt;
   }
   const auto tab = row->find('\t');
   if (tab == std::string::npos) {
      db_->fail(MDB_CORRUPTED, "read the agent's state");
   }
   return std::pair{row->substr(0, tab), std::stod(row->substr(tab + 1))};
}

std::vector<Rib::Route> TableReader::routes(std::uint32_t vrfId, int family) const {
   const ::Vrf::VrfIdMap::VrfId id(vrfId);
   std::vector<Rib::Route> routes;
   if (auto config = table<Rib::RouteConfig>(Rib::routeTablePath(family, vrfId),
                                             Rib::kRouteConfigType)) {
      routes.reserve(config->routeCount());
      config->forEachRoute([&](const Rib::Route& r) { routes.push_back(r); });
   }
   if (auto query = table<Rib::IpRibRouteOrqTable>(
             family == 4 ? Rib::kRouteQuery4Path : Rib::kRouteQuery6Path,
             Rib::kRouteQueryType)) {
      query->forEachRow([&](const Rib::IpRibRouteOrq& row) {
         if (row.key().vrfId == id) {
            routes.push_back(row.route());
         }
      });
   }
   std::sort(routes.begin(), routes.end(),
             [](const Rib::Route& a, const Rib::Route& b) { return a.prefix < b.prefix; });
   return routes;
}

std::size_t TableReader::routeCount(std::uint32_t vrfId, int family) const {
   const ::Vrf::VrfIdMap::VrfId id(vrfId);
   std::size_t count = 0;
   if (auto config = table<Rib::RouteConfig>(Rib::routeTablePath(family, vrfId),
                                             Rib::kRouteConfigType)) {
      count += config->routeCount();
   }
   if (auto query = table<Rib::IpRibRouteOrqTable>(
             family == 4 ? Rib::kRouteQuery4Path : Rib::kRouteQuery6Path,
             Rib::kRouteQueryType)) {
      query->forEachRow([&](const Rib::IpRibRouteOrq& row) { count += row.key().vrfId == id; });
   }
   return count;
}

std::size_t TableReader::viaCount(std::uint32_t vrfId, int family) const {
   const ::Vrf::VrfIdMap::VrfId id(vrfId);
   auto config = table<Rib::Ip::ViaConfig>(Rib::viaTablePath(family, vrfId),
                                           Rib::kViaConfigType);
   return config ? config->viaCount() : 0;
}

std::vector<Rib::Via> TableReader::vias(std::uint32_t vrfId, int family) const {
   const ::Vrf::VrfIdMap::VrfId id(vrfId);
   std::vector<Rib::Via> vias;
   if (auto config = table<Rib::Ip::ViaConfig>(Rib::viaTablePath(family, vrfId),
                                               Rib::kViaConfigType)) {
      config->forEachVia([&](const Rib::Via& v) { vias.push_back(v); });
   }
   std::sort(vias.begin(), vias.end(),
             [](const Rib::Via& a, const Rib::Via& b) { return a.key < b.key; });
   return vias;
}

std::vector<Rib::Plim::ViaSet> TableReader::viaSets() const {
   std::vector<Rib::Plim::ViaSet> sets;
   if (auto config = table<Rib::ViaSetConfig>(Rib::kViaSetPath, Rib::kViaSetConfigType)) {
      config->forEachViaSet([&](const Rib::Plim::ViaSet& v) { sets.push_back(v); });
   }
   std::sort(sets.begin(), sets.end(),
             [](const auto& a, const auto& b) { return a.key.value() < b.key.value(); });
   return sets;
}

std::string_view TableReader::Owners::of(const Ovel::IpGenPrefix& prefix) const {
   auto it = std::lower_bound(owners_.begin(), owners_.end(), prefix, [](const auto& entry, const auto& p) {
      return std::memcmp(&entry.first, &p, sizeof p) < 0;
   });
   return it != owners_.end() && it->first == prefix ? std::string_view(it->second) : "-";
}

TableReader::Owners TableReader::owners(std::uint32_t vrfId) const {
   Owners owners;
   const auto dbi = db_->rowsOf(kCandidatesKind, vrfId);
   if (!dbi) {
      return owners;
   }
   Plim::Cursor cursor(*db_, *dbi, "read the owners");
   MDB_val k, v;
   int rc = cursor.get(k, v, MDB_FIRST);
   for (; rc == MDB_SUCCESS; rc = cursor.get(k, v, MDB_NEXT)) {
      const std::string_view value = text(v);
      const std::string_view owner = value.substr(0, value.find('\n'));
      if (owner != "-") {
         owners.owners_.emplace_back(candidatePrefix(text(k)), std::string(owner));
      }
   }
   if (rc != MDB_SUCCESS && rc != MDB_NOTFOUND) {
      db_->fail(rc, "read the owners");
   }
   std::sort(owners.owners_.begin(), owners.owners_.end(), [](const auto& a, const auto& b) {
      return std::memcmp(&a.first, &b.first, sizeof a.first) < 0;
   });
   return owners;
}

std::optional<std::uint32_t> vrfNamed(const std::map<std::uint32_t, TableReader::Vrf>& vrfs,
                                      std::string_view nameOrId) {
   std::uint32_t id = 0;
   const char* last = nameOrId.data() + nameOrId.size();
   const auto [end, error] = std::from_chars(nameOrId.data(), last, id);
   const bool numeric = error == std::errc() && end == last;
   for (const auto& [vrfId, vrf] : vrfs) {
      if (vrf.name == nameOrId || (numeric && vrfId == id)) {
         return vrfId;
      }
   }
   return std::nullopt;
}

std::vector<NamespaceCounters> TableReader::namespaceCounters() const {
   std::vector<NamespaceCounters> counters;
   const auto dbi = db_->rowsOf(kNetnsKind);
   if (!dbi) {
      return counters;
   }
   Plim::Cursor cursor(*db_, *dbi, "read the namespaces' counters");
   MDB_val k, v;
   int rc = cursor.get(k, v, MDB_FIRST);
   for (; rc == MDB_SUCCESS; rc = cursor.get(k, v, MDB_NEXT)) {
      counters.push_back(parseNamespaceCounters(text(k), text(v)));
   }
   if (rc != MDB_NOTFOUND) {
      db_->fail(rc, "read the namespaces' counters");
   }
   return counters;
}

std::optional<Candidates> TableReader::candidates(std::uint32_t vrfId,
                                                  const Ovel::IpGenPrefix& prefix) const {
   const auto row = published(db_->rowsOf(kCandidatesKind, vrfId), candidateKey(prefix));
   if (!row) {
      return std::nullopt;
   }
   return parseCandidates(*row);
}

}  // namespace App
