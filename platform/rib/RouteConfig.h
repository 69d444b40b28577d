// A per-VRF, per-family route table of the RIB ("route" collection keyed by
// prefix), mounted from the state database.
#pragma once

#include <functional>
#include <memory>

#include "platform/plim/Store.h"
#include "platform/plim/Table.h"
#include "platform/rib/Route.h"

namespace Routing::Rib {

class RouteConfig final : public ::Plim::Table {
 public:
   struct Backing : ::Plim::Backing {
      std::unique_ptr<::Plim::Store<Ovel::IpGenPrefix, Route>> routes =
            std::make_unique<::Plim::MemoryStore<Ovel::IpGenPrefix, Route>>();
   };
   // A view of `backing` (created if null), as a mount makes one.
   static Vok::Ptr<RouteConfig> attach(std::shared_ptr<::Plim::Backing>& backing, bool writable);

   // Inserts or replaces the row of route.prefix.
   void routeAdd(const Route& route);
   void routeDel(Ovel::IpGenPrefix prefix);
   void routeDelAll();
   // The row of `prefix`, or null. Raises CorruptionDetectedException when
   // the table is corrupt.
   const Route* route(const Ovel::IpGenPrefix& prefix) const;
   // A hint that the table is about to hold about `routes` routes.
   void reserveRoutes(std::size_t routes) { rows().routes->reserve(routes); }
   std::size_t routeCount() const;
   void forEachRoute(const std::function<void(const Route&)>& visit) const;

 private:
   using ::Plim::Table::Table;
   Backing& rows() const { return backing<Backing>(); }
};

}  // namespace Routing::Rib
