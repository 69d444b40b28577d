// Where a row sits among its table's rows in a table directory (or among a
// VRF's published candidates): its key begins with its place, the placed
// hash of its own key, big-endian. The directory then keeps rows in the
// order the runtime's own tables keep them, which is the order the engine
// walks and writes them in (a drain slice sweeps a range of places).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/vok/KeyTraits.h"
#include "platform/vok/SameBytes.h"

namespace Plim {

template <class K>
std::uint32_t placeOf(const K& key) noexcept {
   static_assert(!Vok::HasOwnHash<K>,
                 "a row's place is the hash of its key's bytes, as readers compute it");
   return Vok::placedHash(Vok::KeyTraits<K>::hash(key));
}

inline std::array<char, 4> bigEndianBytes(std::uint32_t value) noexcept {
   return {char(value >> 24), char(value >> 16), char(value >> 8), char(value)};
}

// A placed row's key: its place, then the key's bytes.
template <class K>
std::array<char, 4 + sizeof(K)> placedKey(std::uint32_t place, const K& key) noexcept {
   std::array<char, 4 + sizeof(K)> bytes;
   const auto placeBytes = bigEndianBytes(place);
   std::memcpy(bytes.data(), placeBytes.data(), 4);
   std::memcpy(bytes.data() + 4, &key, sizeof(K));
   return bytes;
}
template <class K>
std::array<char, 4 + sizeof(K)> placedKey(const K& key) noexcept {
   return placedKey(placeOf(key), key);
}

// As the directory orders two rows' keys of one table: by place, then by
// the key's bytes.
template <class K>
bool placedLess(std::uint32_t placeA, const K& a, std::uint32_t placeB, const K& b) noexcept {
   return placeA != placeB ? placeA < placeB : Vok::bytesLess(a, b);
}

// The changes a writer hands to the turn's transaction at once, while the
// turn runs: about 0.1 ms of writes, the most a commit has left per table.
// In place order a run's keys land on neighbouring pages; much shorter runs
// cost more in set-up (a cursor, a log part) than they save.
inline constexpr std::size_t kRowRun = 256;

}  // namespace Plim
