#include "platform/rib/ViaConfig.h"

#include <ostream>

#include "platform/kordb/EntityManager.h"
#include "platform/plim/DatabaseStore.h"
#include "platform/rib/TablePaths.h"
#include "platform/vok/Assert.h"

namespace Routing::Rib {

std::uint32_t IdAllocator::newId() {
   VOK_ASSERT(currentId() < maxId(), "( currentId() < maxId() ) && \"Reached maximum number of IDs.\"");
   return ++currentId_;
}

std::ostream& operator<<(std::ostream& os, const Via& via) {
   return os << via.key << " nexthop " << via.nexthop << " intf " << via.intfId << " flags 0x"
             << std::hex << via.flags << std::dec << " kind " << via.kind;
}

}  // namespace Routing::Rib

namespace Routing::Rib::Ip {

namespace {
const bool registered = Kordb::registerMountableType(
      kViaConfigType, {"via"},
      [](std::shared_ptr<::Plim::Backing>& backing, bool writable) -> Vok::Ptr<Vok::Entity> {
         return ViaConfig::attach(backing, writable);
      });
// The table's scalars (transport, VRF, identifier allocator) are not kept:
// a restarted agent sets them again and starts its tables afresh.
const bool persistent = Kordb::registerPersistentType(
      kViaConfigType,
      ::Plim::rowLayout<ViaKey, Via>("via") + " " + ::Plim::rowLayout<ViaKey, ViaMapEntry>("viaMap"),
      [](::Plim::Backing& backing, const std::shared_ptr<::Plim::RowDatabase>& db,
         const std::string& path) {
         auto& rows = static_cast<ViaConfig::Backing&>(backing);
         rows.vias = ::Plim::databaseStore<ViaKey, Via>(db, "via", path);
         rows.viaMaps = ::Plim::databaseStore<ViaKey, ViaMapEntry>(db, "viaMap", path);
      });
}  // namespace

Vok::Ptr<ViaConfig> ViaConfig::attach(std::shared_ptr<::Plim::Backing>& backing, bool writable) {
   (void)registered;
   (void)persistent;
   if (!backing) {
      backing = std::make_shared<Backing>();
   }
   return Vok::Ptr<ViaConfig>(new ViaConfig(backing, writable));
}

void ViaConfig::transportIs(std::uint8_t transport) {
   checkChange(Change::write);
   rows().transport = transport;
}

void ViaConfig::rpIs(RoutingProtocol rp) {
   checkChange(Change::write);
   rows().rp = rp;
}

void ViaConfig::vrfIdIs(Vrf::VrfIdMap::VrfId vrfId) {
   checkChange(Change::write);
   rows().vrfId = vrfId;
}

ViaKey ViaConfig::newViaKey() {
   checkChange(Change::write);
   std::uint32_t id = rows().viaIdAllocator.newId();
   return ViaKey(rows().transport, rows().vrfId.value(), id);
}

void ViaConfig::viaIdCurrentIs(std::uint32_t id) {
   checkChange(Change::write);
   rows().viaIdAllocator.currentIdIs(id);
}

const Via* ViaConfig::via(const ViaKey& key) const {
   checkRead();
   return rows().vias->row(key);
}

void ViaConfig::viaIs(const Via& via) {
   checkChange(Change::write);
   rows().vias->rowIs(via.key, via);
}

void ViaConfig::viaDel(ViaKey key) {
   checkChange(Change::remove);
   rows().vias->rowDel(key);
}

void ViaConfig::viaDelAll() {
   checkChange(Change::cleanup);
   rows().vias->rowDelAll();
}

void ViaConfig::forEachVia(const std::function<void(const Via&)>& visit) const {
   rows().vias->forEach([&](const ViaKey&, const Via& v) { visit(v); });
}

void ViaConfig::viaMapIs(const ViaMapEntry& entry) {
   checkChange(Change::write);
   rows().viaMaps->rowIs(entry.from, entry);
}

void ViaConfig::viaMapDelAll() {
   checkChange(Change::cleanup);
   rows().viaMaps->rowDelAll();
}

}  // namespace Routing::Rib::Ip
