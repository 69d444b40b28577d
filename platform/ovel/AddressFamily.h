// The address family tag carried by the generic address and prefix types. It
// is a single byte because it sits inside hash keys whose layout is fixed;
// the numeric values are stored, so they must never be renumbered.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Ovel {

enum class AddressFamily : uint8_t { unknown = 0, ipv4 = 1, ipv6 = 2 };

// "unknown", "ipv4" or "ipv6". A byte outside the enumeration prints as
// "AddressFamily(7)" so that a corrupted value shows up in logs as such.
std::string toString(AddressFamily af);

// Inverse of toString() for the three named families; throws Vok::ParseError.
AddressFamily parseAddressFamily(std::string_view text);

std::ostream& operator<<(std::ostream& os, AddressFamily af);

}  // namespace Ovel
