// What the engine holds, as metrics: for the file the live agent keeps,
// read from the engine's own tables rather than from a second reader of the
// directory its own process writes.
#include "app/Host.h"

namespace App {

using namespace Routing::ConnectedRoute;
namespace Rib = Routing::Rib;

namespace {

std::size_t queryRows(const Vok::Ptr<Rib::IpRibRouteOrqTable>& table, Vrf::VrfIdMap::VrfId id) {
   std::size_t count = 0;
   if (table) {
      table->forEachRow([&](const Rib::IpRibRouteOrq& row) { count += row.key().vrfId == id; });
   }
   return count;
}

Metrics::Vrf vrfMetrics(const RootSm& root, const ContainerSm& container,
                        const Agent::SharedState& shared) {
   Metrics::Vrf vrf;
   vrf.id = container.vrfId().value();
   vrf.name = container.vrfName().str();
   auto routes = [](const Vok::Ptr<Rib::RouteConfig>& table) { return table ? table->routeCount() : 0; };
   auto vias = [](const Vok::Ptr<Rib::Ip::ViaConfig>& table) { return table ? table->viaCount() : 0; };
   vrf.routes4 = routes(container.route4Config());
   vrf.routes6 = routes(container.route6Config());
   vrf.vias4 = vias(container.ipv4ViaConfig());
   vrf.vias6 = vias(container.ipv6ViaConfig());
   if (const IntfBacklogSm* installer = container.intfBacklogSm().get()) {
      vrf.routes4 += queryRows(installer->route4OrmoConfig(), container.vrfId());
      vrf.routes6 += queryRows(installer->route6OrmoConfig(), container.vrfId());
   }
   if (container.intfBacklog() && container.intfBacklogSm()) {
      vrf.status = vrfStatusOf(root, container, shared);
   }
   return vrf;
}

}  // namespace

Metrics Host::metrics() const {
   Metrics metrics;
   if (root_) {
      for (const auto& [name, container] : root_->containerSm()) {
         metrics.vrfs.push_back(vrfMetrics(*root_, *container, shared_));
      }
   }
   metrics.agent = std::pair{std::string(root_ ? "running" : "stopped"), clockTime()};
   const auto feed = tables_ ? tables_->changeLog().feed() : std::nullopt;
   if (tables_) {
      metrics.turns = feed ? feed->seq : 0;
      if (feed) {
         metrics.lastCommit = static_cast<double>(feed->committedAt) / 1e9;
      }
   } else {
      metrics.turns = turns_;
      if (turns_ > 0) {
         metrics.lastCommit = std::chrono::duration<double>(lastTurnAt_.time_since_epoch()).count();
      }
   }
   return metrics;
}

}  // namespace App
