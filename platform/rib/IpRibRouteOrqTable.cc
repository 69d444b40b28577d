#include "platform/rib/IpRibRouteOrqTable.h"

#include "platform/kordb/EntityManager.h"
#include "platform/plim/DatabaseStore.h"
#include "platform/rib/TablePaths.h"

namespace Routing::Rib {

namespace {
const bool registered = Kordb::registerMountableType(
      kRouteQueryType, {"route"},
      [](std::shared_ptr<::Plim::Backing>& backing, bool writable) -> Vok::Ptr<Vok::Entity> {
         return IpRibRouteOrqTable::attach(backing, writable);
      });
const bool persistent = Kordb::registerPersistentType(
      kRouteQueryType, ::Plim::rowLayout<OrqKey, IpRibRouteOrq>("routeQuery"),
      [](::Plim::Backing& backing, const std::shared_ptr<::Plim::RowDatabase>& db,
         const std::string& path) {
         static_cast<IpRibRouteOrqTable::Backing&>(backing).rows =
               ::Plim::databaseStore<OrqKey, IpRibRouteOrq>(db, "routeQuery", path);
      });
}  // namespace

Vok::Ptr<IpRibRouteOrqTable> IpRibRouteOrqTable::attach(std::shared_ptr<::Plim::Backing>& backing,
                                                        bool writable) {
   (void)registered;
   (void)persistent;
   if (!backing) {
      backing = std::make_shared<Backing>();
   }
   return Vok::Ptr<IpRibRouteOrqTable>(new IpRibRouteOrqTable(backing, writable));
}

Vok::Ptr<IpRibRouteOrqTable> IpRibRouteOrqTable::create() {
   std::shared_ptr<::Plim::Backing> backing;
   return attach(backing, true);
}

const IpRibRouteOrq* IpRibRouteOrqTable::row(const OrqKey& key) const {
   checkRead();
   return rows().rows->row(key);
}

void IpRibRouteOrqTable::rowIs(const IpRibRouteOrq& row) {
   checkChange(Change::write);
   rows().rows->rowIs(row.key(), row);
}

void IpRibRouteOrqTable::rowDel(IpRibRouteOrq row) {
   checkChange(Change::remove);
   rows().rows->rowDel(row.key());
}

void IpRibRouteOrqTable::vrfDelAll(Vrf::VrfIdMap::VrfId vrfId) {
   checkChange(Change::cleanup);
   auto& store = *rows().rows;
   store.forEach([&](const OrqKey& key, const IpRibRouteOrq&) {
      if (key.vrfId == vrfId) {
         store.rowDel(key);
      }
   });
}

std::size_t IpRibRouteOrqTable::rowCount() const { return rows().rows->size(); }

void IpRibRouteOrqTable::forEachRow(const std::function<void(const IpRibRouteOrq&)>& visit) const {
   rows().rows->forEach([&](const OrqKey&, const IpRibRouteOrq& r) { visit(r); });
}

}  // namespace Routing::Rib
