// Reads a table directory from another process than the agent writing it:
// the RIB's tables through read-only mounts, and what the agent publishes
// beside them (TablePublisher). Everything one reader returns comes from one
// snapshot, so it is consistent whatever the writer does meanwhile.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/read/PublishedRows.h"
#include "platform/kordb/EntityManager.h"
#include "platform/plim/RowDatabase.h"
#include "platform/rib/Route.h"
#include "platform/rib/Via.h"
#include "platform/rib/ViaSet.h"

namespace App {

class TableReader {
 public:
   // Throws Plim::DatabaseError for a missing or foreign directory.
   explicit TableReader(const std::string& dir);

   struct Vrf {
      std::uint32_t id = 0;
      std::optional<VrfStatusRow> status;  // nothing: no container of the agent serves it
      std::string name;  // the name it is, or was last, served under; "" if never
   };
   // Every VRF that has rows, a published status or a name, by identifier.
   std::map<std::uint32_t, Vrf> vrfs() const;
   // "running" or "stopped" and the agent's time, or nothing before its first turn.
   std::optional<std::pair<std::string, double>> agent() const;

   // A VRF's routes of one family (its route table's and the query table's
   // rows), sorted by prefix.
   std::vector<Routing::Rib::Route> routes(std::uint32_t vrfId, int family) const;
   std::vector<Routing::Rib::Via> vias(std::uint32_t vrfId, int family) const;
   // How many routes() and vias() would return, without reading them into
   // rows and sorting them: what a summary polled while a writer runs needs.
   std::size_t routeCount(std::uint32_t vrfId, int family) const;
   std::size_t viaCount(std::uint32_t vrfId, int family) const;
   std::vector<Routing::Rib::Plim::ViaSet> viaSets() const;

   // The installed owners of a VRF's prefixes.
   class Owners {
    public:
      // The owner of `prefix`, or "-".
      std::string_view of(const Ovel::IpGenPrefix& prefix) const;

    private:
      friend class TableReader;
      // In the bytes' order, sorted once: no hashing of a million prefixes
      // to look up each once.
      std::vector<std::pair<Ovel::IpGenPrefix, std::string>> owners_;
   };
   Owners owners(std::uint32_t vrfId) const;
   std::optional<Candidates> candidates(std::uint32_t vrfId, const Ovel::IpGenPrefix& prefix) const;

   // What the live agent read from each namespace, by name.
   std::vector<NamespaceCounters> namespaceCounters() const;

   // The change feed: where the log stands in this snapshot, and the
   // changes of turns first..last with the path of each change's table.
   Plim::Feed feed() const { return Plim::readFeed(*db_); }
   void forEachChange(std::uint64_t first, std::uint64_t last,
                      const std::function<void(const Plim::LoggedChange&, const std::string& path)>&
                            visit) const;
   // Moves to the latest committed state.
   void refresh();
   // Lets go of the snapshot until the next read (RowDatabase::release).
   void release() { db_->release(); }

 private:
   template <class Table>
   Vok::Ptr<Table> table(const std::string& path, std::string_view type) const;
   std::optional<std::string> published(std::string_view kind, std::string_view key) const;
   std::optional<std::string> published(std::optional<MDB_dbi> dbi, std::string_view key) const;

   std::shared_ptr<Plim::RowDatabase> db_;
   Vok::Ptr<Kordb::EntityManager> entityManager_;
   std::map<std::string, std::uint32_t> tables_;
   std::map<std::uint32_t, std::string> paths_;  // tables_ the other way round
};

// The VRF of `vrfs` that `nameOrId` names, by its name or by its
// identifier in decimal, if any.
std::optional<std::uint32_t> vrfNamed(const std::map<std::uint32_t, TableReader::Vrf>& vrfs,
                                      std::string_view nameOrId);

}  // namespace App
