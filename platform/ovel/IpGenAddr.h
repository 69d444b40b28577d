// An address of either family, or none. Tables keyed by address hold both
// families side by side, so the key has one fixed 20-byte layout whatever the
// family; the explicit pad keeps equal values byte-identical for hashing.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>

#include "platform/ovel/AddressFamily.h"
#include "platform/ovel/Ip6Addr.h"
#include "platform/ovel/IpAddr.h"

namespace Ovel {

class IpGenAddr {
 public:
   // The empty address: family unknown, text "none".
   constexpr IpGenAddr() = default;
   explicit IpGenAddr(IpAddr addr);
   explicit IpGenAddr(Ip6Addr addr);

   constexpr AddressFamily af() const { return af_; }
   constexpr bool isV4() const { return af_ == AddressFamily::ipv4; }
   constexpr bool isV6() const { return af_ == AddressFamily::ipv6; }
   constexpr bool isEmpty() const { return af_ == AddressFamily::unknown; }
   // The value as its family's type; asking for the wrong family is a fatal
   // programming error, not a conversion.
   IpAddr v4() const;
   Ip6Addr v6() const;

   // "none", or the family's own text.
   std::string toString() const;
   // The same text written at out, without a terminating NUL; returns its
   // end. Room for kMaxChars is needed.
   static constexpr std::size_t kMaxChars = Ip6Addr::kMaxChars;
   char* toChars(char* out) const;
   // "none", an IPv6 address (recognised by its ':'), or an IPv4 address.
   // Throws Vok::ParseError.
   static IpGenAddr parse(std::string_view text);

   // Ordered by family, then address bytes.
   constexpr auto operator<=>(const IpGenAddr&) const = default;

 private:
   AddressFamily af_ = AddressFamily::unknown;
   uint8_t pad_[3]{};
   std::array<uint8_t, 16> bytes_{};
};

static_assert(sizeof(IpGenAddr) == 20);
static_assert(std::has_unique_object_representations_v<IpGenAddr>);
static_assert(std::is_trivially_copyable_v<IpGenAddr>);

std::ostream& operator<<(std::ostream& os, const IpGenAddr& addr);

}  // namespace Ovel
