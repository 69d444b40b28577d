// A per-VRF, per-family via table of the RIB: its transport, routing
// protocol and VRF identifier (which make up the keys of its vias), the vias
// ("via" collection), the via map, and the via identifier allocator.
#pragma once

#include <functional>
#include <memory>

#include "platform/plim/Store.h"
#include "platform/plim/Table.h"
#include "platform/rib/Route.h"
#include "platform/rib/Via.h"

namespace Routing::Rib::Ip {

class ViaConfig final : public ::Plim::Table {
 public:
   struct Backing : ::Plim::Backing {
      std::uint8_t transport = 0;
      RoutingProtocol rp = RoutingProtocol::unknown;
      Vrf::VrfIdMap::VrfId vrfId;
      IdAllocator viaIdAllocator;
      std::unique_ptr<::Plim::Store<ViaKey, Via>> vias =
            std::make_unique<::Plim::MemoryStore<ViaKey, Via>>();
      std::unique_ptr<::Plim::Store<ViaKey, ViaMapEntry>> viaMaps =
            std::make_unique<::Plim::MemoryStore<ViaKey, ViaMapEntry>>();
   };
   static Vok::Ptr<ViaConfig> attach(std::shared_ptr<::Plim::Backing>& backing, bool writable);

   std::uint8_t transport() const { return rows().transport; }
   void transportIs(std::uint8_t transport);
   RoutingProtocol rp() const { return rows().rp; }
   void rpIs(RoutingProtocol rp);
   Vrf::VrfIdMap::VrfId vrfId() const { return rows().vrfId; }
   void vrfIdIs(Vrf::VrfIdMap::VrfId vrfId);

   // A new via key from the table's transport and VRF and a fresh identifier.
   ViaKey newViaKey();
   const IdAllocator& viaIdAllocator() const { return rows().viaIdAllocator; }
   // Resumes identifier allocation after `id`, as after a restart.
   void viaIdCurrentIs(std::uint32_t id);

   const Via* via(const ViaKey& key) const;
   void viaIs(const Via& via);
   void viaDel(ViaKey key);
   void viaDelAll();
   std::size_t viaCount() const { return rows().vias->size(); }
   void forEachVia(const std::function<void(const Via&)>& visit) const;

   void viaMapIs(const ViaMapEntry& entry);
   void viaMapDelAll();
   std::size_t viaMapCount() const { return rows().viaMaps->size(); }

 private:
   using ::Plim::Table::Table;
   Backing& rows() const { return backing<Backing>(); }
};

}  // namespace Routing::Rib::Ip
