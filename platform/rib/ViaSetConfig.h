// The RIB's shared via-set table ("viaSet" collection keyed by via-set key)
// and the allocator of via-set keys, which never hands out a key twice.
#pragma once

#include <functional>
#include <memory>

#include "platform/plim/DenseStore.h"
#include "platform/plim/Store.h"
#include "platform/plim/Table.h"
#include "platform/rib/ViaSet.h"

namespace Routing::Rib {

class ViaSetConfig final : public ::Plim::Table {
 public:
   struct Backing : ::Plim::Backing {
      std::uint32_t lastKey = 0;
      std::unique_ptr<::Plim::Store<ViaSetKey, Plim::ViaSet>> viaSets =
            std::make_unique<::Plim::DenseStore<ViaSetKey, Plim::ViaSet>>();
   };
   static Vok::Ptr<ViaSetConfig> attach(std::shared_ptr<::Plim::Backing>& backing, bool writable);
   static Vok::Ptr<ViaSetConfig> create();

   // A key that was never handed out before.
   ViaSetKey newViaSetKey();

   const Plim::ViaSet* viaSet(ViaSetKey key) const;
   void viaSetIs(const Plim::ViaSet& viaSet);
   void viaSetDel(ViaSetKey key);
   void viaSetDelAll();
   std::size_t viaSetCount() const { return rows().viaSets->size(); }
   void forEachViaSet(const std::function<void(const Plim::ViaSet&)>& visit) const;

 private:
   using ::Plim::Table::Table;
   Backing& rows() const { return backing<Backing>(); }
};

}  // namespace Routing::Rib
