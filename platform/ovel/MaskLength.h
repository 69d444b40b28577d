// Mask-length rules shared by the address-with-mask and prefix types: the
// valid range per family with its error text, the "addr/len" text split, and
// host-bit clearing on the 16-byte network-order form both families use.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/ovel/AddressFamily.h"

namespace Ovel {

// 32 for IPv4, 128 for IPv6.
uint8_t maxMaskLength(AddressFamily af);

// "mask length 33 out of range for IPv4", the text of both the constructors'
// std::range_error and the parsers' Vok::ParseError.
std::string maskLengthRangeText(std::string_view len, AddressFamily af);

// Throws std::range_error when len exceeds the family's maximum.
void checkMaskLength(unsigned len, AddressFamily af);

struct MaskedText {
   std::string_view addr;
   uint8_t len;
};

// Splits "addr/len" and checks the length against the family; the address
// part is left to the family's own parser. Throws Vok::ParseError.
MaskedText splitMaskedText(std::string_view text, AddressFamily af);

// Zeroes every bit after the first len bits. Works for both families because
// an IPv4 address occupies the leading four bytes in network order.
void clearHostBits(std::array<uint8_t, 16>& bytes, unsigned len);

}  // namespace Ovel
