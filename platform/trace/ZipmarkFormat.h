// The on-disk layout of fast-trace files, shared by writer and decoder.
//
// File: the magic "ZMK1\n", then records. Record: u16 payload length, then
// the payload: u8 level, u8 field count, u8 method length, method bytes, and
// per field u8 label length, label bytes, u8 kind, value. Values: text as u16
// length and bytes; integer as 8 bytes; boolean as 1 byte; AM4 as 4 address
// bytes (network order) and u8 length; AM6 as 16 bytes and u8 length.
// Integers are little-endian.
#pragma once

#include <string_view>

namespace Zipmark {

inline constexpr std::string_view kMagic = "ZMK1\n";

}  // namespace Zipmark
