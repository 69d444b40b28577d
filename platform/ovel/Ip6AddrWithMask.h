// An interface's IPv6 address together with its mask length, host bits kept
// as configured; subnet() gives the attached prefix the interface implies.
// IPv6 has no broadcast, so there is no counterpart to the IPv4 broadcast().
#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>

#include "platform/ovel/Ip6Addr.h"

namespace Ovel {

class Ip6AddrWithMask {
 public:
   static constexpr uint8_t maxLen = 128;

   // ::/0.
   constexpr Ip6AddrWithMask() = default;
   // Throws std::range_error when len > 128.
   Ip6AddrWithMask(Ip6Addr addr, uint8_t len);

   constexpr const Ip6Addr& addr() const { return addr_; }
   constexpr uint8_t len() const { return len_; }
   Ip6Addr subnet() const;

   // "2001:db8::1/64".
   std::string toString() const;
   // Throws Vok::ParseError.
   static Ip6AddrWithMask parse(std::string_view text);

   // Ordered by address, then length.
   constexpr auto operator<=>(const Ip6AddrWithMask&) const = default;

 private:
   Ip6Addr addr_;
   uint8_t len_ = 0;
};

static_assert(std::has_unique_object_representations_v<Ip6AddrWithMask>);
static_assert(std::is_trivially_copyable_v<Ip6AddrWithMask>);

std::ostream& operator<<(std::ostream& os, const Ip6AddrWithMask& addr);

}  // namespace Ovel
