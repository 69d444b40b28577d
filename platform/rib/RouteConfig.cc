#include "platform/rib/RouteConfig.h"

#include <ostream>

#include "platform/kordb/EntityManager.h"
#include "platform/plim/DatabaseStore.h"
#include "platform/rib/TablePaths.h"

namespace Routing::Rib {

namespace {
const bool registered = Kordb::registerMountableType(
      kRouteConfigType, {"route"},
      [](std::shared_ptr<::Plim::Backing>& backing, bool writable) -> Vok::Ptr<Vok::Entity> {
         return RouteConfig::attach(backing, writable);
      });
const bool persistent = Kordb::registerPersistentType(
      kRouteConfigType, ::Plim::rowLayout<Ovel::IpGenPrefix, Route>("route"),
      [](::Plim::Backing& backing, const std::shared_ptr<::Plim::RowDatabase>& db,
         const std::string& path) {
         static_cast<RouteConfig::Backing&>(backing).routes =
               ::Plim::databaseStore<Ovel::IpGenPrefix, Route>(db, "route", path);
      });
}  // namespace

std::ostream& operator<<(std::ostream& os, const Route& r) {
   return os << r.prefix << " protocol " << static_cast<unsigned>(r.routingProtocol) << " metric "
             << r.metricPref.metric << " preference " << r.metricPref.preference << " viaSet "
             << r.viaSetKey << " fecIndex " << r.fecIndex << " type " << r.routeType << " flags "
             << r.flags;
}

Vok::Ptr<RouteConfig> RouteConfig::attach(std::shared_ptr<::Plim::Backing>& backing, bool writable) {
   (void)registered;
   (void)persistent;
   if (!backing) {
      backing = std::make_shared<Backing>();
   }
   return Vok::Ptr<RouteConfig>(new RouteConfig(backing, writable));
}

void RouteConfig::routeAdd(const Route& route) {
   checkChange(Change::write);
   rows().routes->rowIs(route.prefix, route);
}

void RouteConfig::routeDel(Ovel::IpGenPrefix prefix) {
   checkChange(Change::remove);
   rows().routes->rowDel(prefix);
}

void RouteConfig::routeDelAll() {
   checkChange(Change::cleanup);
   rows().routes->rowDelAll();
}

const Route* RouteConfig::route(const Ovel::IpGenPrefix& prefix) const {
   checkRead();
   return rows().routes->row(prefix);
}

std::size_t RouteConfig::routeCount() const { return rows().routes->size(); }

void RouteConfig::forEachRoute(const std::function<void(const Route&)>& visit) const {
   rows().routes->forEach([&](const Ovel::IpGenPrefix&, const Route& r) { visit(r); });
}

}  // namespace Routing::Rib
