// The RIB's query table of routes: one table for all VRFs, rows keyed by
// (VRF identifier, prefix). Used instead of the per-VRF route tables when the
// "VrfScaleToggle" feature is on.
#pragma once

#include <functional>
#include <memory>

#include "platform/plim/Store.h"
#include "platform/plim/Table.h"
#include "platform/rib/Route.h"

namespace Routing::Rib {

class IpRibRouteOrqTable final : public ::Plim::Table {
 public:
   struct Backing : ::Plim::Backing {
      std::unique_ptr<::Plim::Store<OrqKey, IpRibRouteOrq>> rows =
            std::make_unique<::Plim::MemoryStore<OrqKey, IpRibRouteOrq>>();
   };
   static Vok::Ptr<IpRibRouteOrqTable> attach(std::shared_ptr<::Plim::Backing>& backing,
                                              bool writable);
   // A writable table with contents of its own.
   static Vok::Ptr<IpRibRouteOrqTable> create();

   // The row of `key`, or null; raises CorruptionDetectedException when corrupt.
   const IpRibRouteOrq* row(const OrqKey& key) const;
   void rowIs(const IpRibRouteOrq& row);
   // Removes the row with row.key(), present or not.
   void rowDel(IpRibRouteOrq row);
   // Removes every row of one VRF.
   void vrfDelAll(Vrf::VrfIdMap::VrfId vrfId);
   std::size_t rowCount() const;
   void forEachRow(const std::function<void(const IpRibRouteOrq&)>& visit) const;

 private:
   using ::Plim::Table::Table;
   Backing& rows() const { return backing<Backing>(); }
};

}  // namespace Routing::Rib
