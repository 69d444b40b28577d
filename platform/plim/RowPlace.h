// Where a row sits among its table's rows in a table directory: after the
// table's number (or a published row's VRF), its place, the placed hash of
// its own key, big-endian. The directory then keeps rows in the order the
// runtime's own tables keep them, which is the order the engine walks and
// writes them in (a drain slice sweeps a range of places).
#pragma once

#include <array>
#include <cstdint>

#include "platform/vok/KeyTraits.h"

namespace Plim {

template <class K>
std::uint32_t placeOf(const K& key) noexcept {
   return Vok::placedHash(Vok::KeyTraits<K>::hash(key));
}

inline std::array<char, 4> bigEndianBytes(std::uint32_t value) noexcept {
   return {char(value >> 24), char(value >> 16), char(value >> 8), char(value)};
}

}  // namespace Plim
