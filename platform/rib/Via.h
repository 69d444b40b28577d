// Vias of the RIB's per-VRF via tables, and the allocator of their
// identifiers.
#pragma once

#include <cstdint>
#include <iosfwd>

#include "platform/ovel/IntfId.h"
#include "platform/ovel/IpGenAddr.h"
#include "platform/rib/ViaKey.h"

namespace Routing::Rib {

// Hands out identifiers that are never reused: each is one above the last.
class IdAllocator {
 public:
   static constexpr std::uint32_t kMaxId = 0xFFFFFFFF;
   std::uint32_t currentId() const noexcept { return currentId_; }
   std::uint32_t maxId() const noexcept { return kMaxId; }
   // Stops the process when every identifier has been used.
   std::uint32_t newId();
   // Resumes from an identifier handed out earlier, as after a restart.
   void currentIdIs(std::uint32_t id) noexcept { currentId_ = id; }

 private:
   std::uint32_t currentId_ = 0;
};

// Flag of a via whose next hop is the interface itself (a directly attached
// network), and the via's kind as the RIB defines them.
inline constexpr std::uint32_t kViaFlagsAttached = 0x100000;
inline constexpr std::uint32_t kViaKindInterface = 2;

struct Via {
   ViaKey key;
   Ovel::IpGenAddr nexthop;
   Ovel::IntfId intfId;
   std::uint32_t flags = 0;
   std::uint32_t kind = 0;
   friend bool operator==(const Via&, const Via&) = default;
};

// The via of a directly attached network: the interface itself, no next hop.
inline Via attachedVia(ViaKey key, const Ovel::IntfId& intfId) {
   return Via{key, Ovel::IpGenAddr(), intfId, kViaFlagsAttached, kViaKindInterface};
}

// An entry of a via table's via map: another agent's alias of a via. This
// engine writes none; it only clears them when it takes a table over.
struct ViaMapEntry {
   ViaKey from;
   ViaKey to;
   friend bool operator==(const ViaMapEntry&, const ViaMapEntry&) = default;
};

std::ostream& operator<<(std::ostream& os, const Via& via);

}  // namespace Routing::Rib
