// The 16-byte form the generic address types share for both families: IPv4
// sits in the leading four bytes in network order with the rest zero, so
// that prefix masking and bytewise ordering treat both families alike.
#pragma once

#include <array>
#include <cstdint>

#include "platform/ovel/IpAddr.h"

namespace Ovel {

using GenBytes = std::array<uint8_t, 16>;

constexpr GenBytes toGenBytes(IpAddr addr) {
   uint32_t v = addr.value();
   return GenBytes{static_cast<uint8_t>(v >> 24), static_cast<uint8_t>(v >> 16),
                   static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v)};
}

constexpr IpAddr v4FromGenBytes(const GenBytes& bytes) {
   return IpAddr(uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 |
                 uint32_t{bytes[2]} << 8 | uint32_t{bytes[3]});
}

}  // namespace Ovel
