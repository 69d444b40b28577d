// Walks what the engine wrote into a DumpWriter: every VRF whose tables
// exist, in identifier order, each table's rows sorted by key. The VRF
// names, containers and owners are indexed once per dump, so a dump costs
// O(rows log rows), whatever the number of VRFs.
#include <algorithm>
#include <map>
#include <type_traits>
#include <utility>

#include "app/Host.h"
#include "app/TableRows.h"

namespace App {

using namespace Routing::ConnectedRoute;
namespace Rib = Routing::Rib;

namespace {

Ovel::IntfId ownerOf(const Rib::Route& r, const ContainerSm* container) {
   return container ? container->intfBacklogSm()->installedIntfId(r.prefix) : Ovel::IntfId();
}

// A route with its owner, looked up once while the table is walked: the
// route table and the owner map are both in hash order, so the lookups
// stream through memory instead of jumping. The prefix is copied beside
// them so that sorting compares without following the pointer.
struct OwnedRoute {
   Ovel::IpGenPrefix prefix;
   const Rib::Route* route;
   Ovel::IntfId owner;
};

// Rows of a table as pointers sorted by `key`: the table is not written
// while a dump runs, so its rows stay where they are. The keys are sorted
// beside the pointers, which keeps the comparisons in one array.
template <class Row, class ForEach, class Key>
std::vector<const Row*> sortedRows(ForEach forEach, Key key) {
   using SortKey = std::decay_t<decltype(key(std::declval<const Row&>()))>;
   std::vector<std::pair<SortKey, const Row*>> keyed;
   forEach([&](const Row& row) { keyed.emplace_back(key(row), &row); });
   std::sort(keyed.begin(), keyed.end(),
             [](const auto& a, const auto& b) { return a.first < b.first; });
   std::vector<const Row*> rows;
   rows.reserve(keyed.size());
   for (const auto& entry : keyed) {
      rows.push_back(entry.second);
   }
   return rows;
}

// A table's sorted rows, with the mount that keeps them readable.
template <class Row>
struct MountedRows {
   Vok::Ptr<VokPlim::Mount> mount;
   std::vector<const Row*> rows;
};

template <class Row, class Convert>
auto section(const std::vector<const Row*>& rows, Convert convert) {
   return sectionOver(rows, [convert](const Row* row) { return convert(*row); });
}

}  // namespace

void Host::dump(const std::string& label, DumpWriter& writer) {
   writer.dumpBegin(DumpHeader{label, clockTime(), root_ != nullptr});
   std::map<std::uint32_t, const ContainerSm*> containers;
   if (root_) {
      for (const auto& [name, container] : root_->containerSm()) {
         containers.emplace(container->vrfId().value(), container.get());
      }
   }
   std::map<std::uint32_t, std::string> mapNames;  // the first name of each identifier
   if (const auto& map = shared_.nameToIdMapWrapper->nameToIdMap()) {
      for (const auto& [name, id] : map->vrfNameToId()) {
         mapNames.try_emplace(id.value(), name.str());
      }
   }
   std::vector<std::uint32_t> vrfIds;
   for (const std::string& path : shared_.entityManager->paths()) {
      if (auto table = Routing::Rib::parseVrfTablePath(path)) {
         vrfIds.push_back(table->vrfId);
      }
   }
   std::sort(vrfIds.begin(), vrfIds.end());
   vrfIds.erase(std::unique(vrfIds.begin(), vrfIds.end()), vrfIds.end());

   auto mounted = [&](const std::string& path, std::string_view type) -> Vok::Ptr<VokPlim::Mount> {
      if (shared_.entityManager->typeName(path).empty()) {
         return nullptr;
      }
      return shared_.entityManager->mount(path, type, {}, Kordb::MountMode::readOnly);
   };
   auto routesOf = [&](const std::string& path, const ContainerSm* container) {
      std::pair<Vok::Ptr<VokPlim::Mount>, std::vector<OwnedRoute>> out{
            mounted(path, "Routing::Rib::RouteConfig"), {}};
      if (out.first) {
         out.first->entityAs<Rib::RouteConfig>()->forEachRoute([&](const Rib::Route& r) {
            out.second.push_back(OwnedRoute{r.prefix, &r, ownerOf(r, container)});
         });
         std::sort(out.second.begin(), out.second.end(),
                   [](const OwnedRoute& a, const OwnedRoute& b) { return a.prefix < b.prefix; });
      }
      return out;
   };
   auto routeSection = [](const std::vector<OwnedRoute>& rows) {
      return sectionOver(rows, [](const OwnedRoute& row) { return routeRow(*row.route, row.owner); });
   };
   auto viasOf = [&](const std::string& path) {
      MountedRows<Rib::Via> out{mounted(path, "Routing::Rib::Ip::ViaConfig"), {}};
      if (out.mount) {
         auto table = out.mount->entityAs<Rib::Ip::ViaConfig>();
         out.rows = sortedRows<Rib::Via>([&](auto visit) { table->forEachVia(visit); },
                                         [](const Rib::Via& v) { return v.key; });
      }
      return out;
   };

   for (std::uint32_t id : vrfIds) {
      const Vrf::VrfIdMap::VrfId vrfId(id);
      auto found = containers.find(id);
      const ContainerSm* container = found == containers.end() ? nullptr : found->second;
      VrfHeader header{container ? container->vrfName().str() : "", id, std::nullopt, std::nullopt};
      if (!container) {
         if (auto name = mapNames.find(id); name != mapNames.end()) {
            header.name = name->second;
         }
      }
      if (root_ && root_->allVrfReadyStatus() && !header.name.empty()) {
         if (auto record = root_->allVrfReadyStatus()->vrfReadyStatus(L3::VrfName(header.name))) {
            header.v4Ready = record->v4ConnectedRoutesReady();
            header.v6Ready = record->v6ConnectedRoutesReady();
         }
      }
      const auto routes4 = routesOf(ContainerSm::rib4Path(vrfId), container);
      const auto routes6 = routesOf(ContainerSm::rib6Path(vrfId), container);
      const auto vias4 = viasOf(ContainerSm::via4Path(vrfId));
      const auto vias6 = viasOf(ContainerSm::via6Path(vrfId));
      writer.vrf(header, routeSection(routes4.second), routeSection(routes6.second),
                 section(vias4.rows, viaRow), section(vias6.rows, viaRow));
   }

   std::vector<const Rib::IpRibRouteOrq*> query;
   for (const auto& table : {shared_.route4OrmoConfig, shared_.route6OrmoConfig}) {
      table->forEachRow([&](const Rib::IpRibRouteOrq& row) { query.push_back(&row); });
   }
   std::sort(query.begin(), query.end(), [](const auto* a, const auto* b) {
      return std::pair(a->key().vrfId.value(), a->key().prefix) <
             std::pair(b->key().vrfId.value(), b->key().prefix);
   });
   writer.queryRows(section(query, [&containers](const Rib::IpRibRouteOrq& row) {
      const std::uint32_t id = row.key().vrfId.value();
      auto found = containers.find(id);
      const ContainerSm* container = found == containers.end() ? nullptr : found->second;
      return QueryRow{id, routeRow(row.route(), ownerOf(row.route(), container))};
   }));

   const auto viaSets = sortedRows<Rib::Plim::ViaSet>(
         [&](auto visit) { shared_.viaSetConfig->forEachViaSet(visit); },
         [](const Rib::Plim::ViaSet& v) { return v.key.value(); });
   writer.viaSets(section(viaSets, viaSetRow));

   std::vector<ProtoRow> proto;
   shared_.protoVrfStatusDir->forEachName([&](const std::string& name) {
      auto entity = shared_.protoVrfStatusDir->entityAs<Rib::ProtoVrfStatus>(name);
      proto.push_back(ProtoRow{name, entity->ready(), entity->readyTime()});
   });
   writer.protoVrfStatus(sectionOver(proto, [](const ProtoRow& p) -> const ProtoRow& { return p; }));
   writer.dumpEnd();
}

}  // namespace App
