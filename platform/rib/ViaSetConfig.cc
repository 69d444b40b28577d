#include "platform/rib/ViaSetConfig.h"

#include <ostream>

#include "platform/kordb/EntityManager.h"
#include "platform/plim/DatabaseStore.h"
#include "platform/rib/TablePaths.h"
#include "platform/vok/Assert.h"

namespace Routing::Rib {

namespace Plim {
std::ostream& operator<<(std::ostream& os, const ViaSet& s) {
   return os << s.key << " via " << s.via.viaKey << " kind " << static_cast<unsigned>(s.kind)
             << " vias " << s.viaCount;
}
}  // namespace Plim

namespace {
const bool registered = Kordb::registerMountableType(
      kViaSetConfigType, {"viaSet"},
      [](std::shared_ptr<::Plim::Backing>& backing, bool writable) -> Vok::Ptr<Vok::Entity> {
         return ViaSetConfig::attach(backing, writable);
      });
const bool persistent = Kordb::registerPersistentType(
      kViaSetConfigType, ::Plim::rowLayout<ViaSetKey, Plim::ViaSet>("viaSet"),
      [](::Plim::Backing& backing, const std::shared_ptr<::Plim::RowDatabase>& db,
         const std::string& path) {
         static_cast<ViaSetConfig::Backing&>(backing).viaSets =
               ::Plim::databaseStore<ViaSetKey, Plim::ViaSet>(db, "viaSet", path);
      });
}  // namespace

Vok::Ptr<ViaSetConfig> ViaSetConfig::attach(std::shared_ptr<::Plim::Backing>& backing,
                                            bool writable) {
   (void)registered;
   (void)persistent;
   if (!backing) {
      backing = std::make_shared<Backing>();
   }
   return Vok::Ptr<ViaSetConfig>(new ViaSetConfig(backing, writable));
}

Vok::Ptr<ViaSetConfig> ViaSetConfig::create() {
   std::shared_ptr<::Plim::Backing> backing;
   return attach(backing, true);
}

ViaSetKey ViaSetConfig::newViaSetKey() {
   checkChange(Change::write);
   VOK_ASSERT(rows().lastKey < 0xFFFFFFFF, "via-set keys exhausted");
   return ViaSetKey(++rows().lastKey);
}

const Plim::ViaSet* ViaSetConfig::viaSet(ViaSetKey key) const {
   checkRead();
   return rows().viaSets->row(key);
}

void ViaSetConfig::viaSetIs(const Plim::ViaSet& viaSet) {
   checkChange(Change::write);
   rows().viaSets->rowIs(viaSet.key, viaSet);
}

void ViaSetConfig::viaSetDel(ViaSetKey key) {
   checkChange(Change::remove);
   rows().viaSets->rowDel(key);
}

void ViaSetConfig::viaSetDelAll() {
   checkChange(Change::cleanup);
   rows().viaSets->rowDelAll();
}

void ViaSetConfig::forEachViaSet(const std::function<void(const Plim::ViaSet&)>& visit) const {
   rows().viaSets->forEach([&](const ViaSetKey&, const Plim::ViaSet& s) { visit(s); });
}

}  // namespace Routing::Rib
