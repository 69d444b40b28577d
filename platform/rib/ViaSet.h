// Via sets of the RIB's shared via-set table: the groups of vias that routes
// point at. Connected routes use sets of exactly one via.
#pragma once

#include <array>
#include <cstdint>
#include <iosfwd>

#include "platform/rib/Route.h"
#include "platform/rib/ViaKey.h"
#include "platform/rib/ViaSetKey.h"

namespace Routing::Rib {

// What the routes pointing at a via set do with matching traffic.
enum class ViaSetKind : std::uint8_t {
   connected = 0,
   receive = 2,
   receiveBroadcast = 4,
   directedBroadcast = 7,
};

struct ViaRef {
   ViaKey viaKey;
   RoutingProtocol rp = RoutingProtocol::unknown;
   friend bool operator==(const ViaRef&, const ViaRef&) = default;
};

inline constexpr std::uint32_t kNoBackupViaSet = 0xFFFFFFFF;

namespace Plim {

struct ViaSet {
   ViaSetKey key;
   ViaRef via;
   std::array<std::uint32_t, 4> weights{};  // unequal-cost weights; unused
   std::uint32_t flags = 0;
   std::uint32_t backupViaSet = kNoBackupViaSet;
   std::uint32_t version = 0;
   ViaSetKind kind = ViaSetKind::connected;
   std::uint32_t viaCount = 0;
   friend bool operator==(const ViaSet&, const ViaSet&) = default;
};

std::ostream& operator<<(std::ostream& os, const ViaSet& viaSet);

}  // namespace Plim
}  // namespace Routing::Rib
