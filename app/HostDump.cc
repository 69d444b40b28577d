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
#include "platform/rib/TablePaths.h"

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

Section<RouteRow> routeSection(const std::vector<OwnedRoute>& rows) {
   return sectionOver(rows, [](const OwnedRoute& row) { return routeRow(*row.route, row.owner); });
}

}  // namespace

// One dump's walk: the indexes it builds once, and one step per section.
class Host::DumpWalk {
 public:
   DumpWalk(const Host& host, DumpWriter& writer) : host_(host), writer_(writer) {
      if (host.root_) {
         for (const auto& [name, container] : host.root_->containerSm()) {
            containers_.emplace(container->vrfId().value(), container.get());
         }
      }
      if (const auto& map = host.shared_.nameToIdMapWrapper->nameToIdMap()) {
         for (const auto& [name, id] : map->vrfNameToId()) {
            mapNames_.try_emplace(id.value(), name.str());  // the first name of each identifier
         }
      }
   }

   // Every VRF identifier some table path names, in order.
   std::vector<std::uint32_t> vrfIds() const {
      std::vector<std::uint32_t> ids;
      for (const std::string& path : host_.shared_.entityManager->paths()) {
         if (auto table = Rib::parseVrfTablePath(path)) {
            ids.push_back(table->vrfId);
         }
      }
      std::sort(ids.begin(), ids.end());
      ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
      return ids;
   }

   void vrf(std::uint32_t id) {
      const ContainerSm* container = containerOf(id);
      const auto routes4 = routesOf(Rib::routeTablePath(4, id), container);
      const auto routes6 = routesOf(Rib::routeTablePath(6, id), container);
      const auto vias4 = viasOf(Rib::viaTablePath(4, id));
      const auto vias6 = viasOf(Rib::viaTablePath(6, id));
      writer_.vrf(header(id, container), routeSection(routes4.second), routeSection(routes6.second),
                  section(vias4.rows, viaRow), section(vias6.rows, viaRow));
   }

   void queryRows() {
      std::vector<const Rib::IpRibRouteOrq*> query;
      for (const auto& table : {host_.shared_.route4OrmoConfig, host_.shared_.route6OrmoConfig}) {
         table->forEachRow([&](const Rib::IpRibRouteOrq& row) { query.push_back(&row); });
      }
      std::sort(query.begin(), query.end(), [](const auto* a, const auto* b) {
         return std::pair(a->key().vrfId.value(), a->key().prefix) <
                std::pair(b->key().vrfId.value(), b->key().prefix);
      });
      writer_.queryRows(section(query, [this](const Rib::IpRibRouteOrq& row) {
         const std::uint32_t id = row.key().vrfId.value();
         return QueryRow{id, routeRow(row.route(), ownerOf(row.route(), containerOf(id)))};
      }));
   }

   void viaSets() {
      const auto sets = sortedRows<Rib::Plim::ViaSet>(
            [&](auto visit) { host_.shared_.viaSetConfig->forEachViaSet(visit); },
            [](const Rib::Plim::ViaSet& v) { return v.key.value(); });
      writer_.viaSets(section(sets, viaSetRow));
   }

   void protoVrfStatus() {
      std::vector<ProtoRow> proto;
      const auto& dir = host_.shared_.protoVrfStatusDir;
      dir->forEachName([&](const std::string& name) {
         auto entity = dir->entityAs<Rib::ProtoVrfStatus>(name);
         proto.push_back(ProtoRow{name, entity->ready(), entity->readyTime()});
      });
      writer_.protoVrfStatus(sectionOver(proto, [](const ProtoRow& p) -> const ProtoRow& { return p; }));
   }

 private:
   const ContainerSm* containerOf(std::uint32_t id) const {
      auto found = containers_.find(id);
      return found == containers_.end() ? nullptr : found->second;
   }

   // The VRF's name (its container's, else the VRF map's) and readiness.
   VrfHeader header(std::uint32_t id, const ContainerSm* container) const {
      VrfHeader header{container ? container->vrfName().str() : "", id, std::nullopt, std::nullopt};
      if (!container) {
         if (auto name = mapNames_.find(id); name != mapNames_.end()) {
            header.name = name->second;
         }
      }
      const auto& root = host_.root_;
      if (root && root->allVrfReadyStatus() && !header.name.empty()) {
         if (auto record = root->allVrfReadyStatus()->vrfReadyStatus(L3::VrfName(header.name))) {
            header.v4Ready = record->v4ConnectedRoutesReady();
            header.v6Ready = record->v6ConnectedRoutesReady();
         }
      }
      return header;
   }

   Vok::Ptr<VokPlim::Mount> mounted(const std::string& path, std::string_view type) const {
      const auto& entityManager = host_.shared_.entityManager;
      if (entityManager->typeName(path).empty()) {
         return nullptr;
      }
      return entityManager->mount(path, type, {}, Kordb::MountMode::readOnly);
   }

   std::pair<Vok::Ptr<VokPlim::Mount>, std::vector<OwnedRoute>> routesOf(const std::string& path,
                                                                        const ContainerSm* container) const {
      std::pair<Vok::Ptr<VokPlim::Mount>, std::vector<OwnedRoute>> out{
            mounted(path, Rib::kRouteConfigType), {}};
      if (out.first) {
         out.first->entityAs<Rib::RouteConfig>()->forEachRoute([&](const Rib::Route& r) {
            out.second.push_back(OwnedRoute{r.prefix, &r, ownerOf(r, container)});
         });
         std::sort(out.second.begin(), out.second.end(),
                   [](const OwnedRoute& a, const OwnedRoute& b) { return a.prefix < b.prefix; });
      }
      return out;
   }

   MountedRows<Rib::Via> viasOf(const std::string& path) const {
      MountedRows<Rib::Via> out{mounted(path, Rib::kViaConfigType), {}};
      if (out.mount) {
         auto table = out.mount->entityAs<Rib::Ip::ViaConfig>();
         out.rows = sortedRows<Rib::Via>([&](auto visit) { table->forEachVia(visit); },
                                         [](const Rib::Via& v) { return v.key; });
      }
      return out;
   }

   const Host& host_;
   DumpWriter& writer_;
   std::map<std::uint32_t, const ContainerSm*> containers_;
   std::map<std::uint32_t, std::string> mapNames_;
};

void Host::dump(const std::string& label, DumpWriter& writer) {
   writer.dumpBegin(DumpHeader{label, clockTime(), root_ != nullptr});
   DumpWalk walk(*this, writer);
   for (std::uint32_t id : walk.vrfIds()) {
      walk.vrf(id);
   }
   walk.queryRows();
   walk.viaSets();
   walk.protoVrfStatus();
   writer.dumpEnd();
}

}  // namespace App
