// An interface's IPv4 address together with its mask length, as configured.
// Host bits are the point here (they are the interface's own address), so
// unlike a prefix nothing is cleared; subnet() and broadcast() derive the
// routes the interface implies.
#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>

#include "platform/ovel/IpAddr.h"

namespace Ovel {

class IpAddrWithMask {
 public:
   static constexpr uint8_t maxLen = 32;

   // 0.0.0.0/0.
   constexpr IpAddrWithMask() = default;
   // Throws std::range_error when len > 32.
   IpAddrWithMask(IpAddr addr, uint8_t len);

   constexpr IpAddr addr() const { return addr_; }
   constexpr uint8_t len() const { return len_; }
   // The top len bits set; shifting a 32-bit value by 32 is undefined, hence
   // the explicit case for /0.
   constexpr uint32_t mask() const { return len_ == 0 ? 0 : ~uint32_t{0} << (32 - len_); }
   constexpr IpAddr subnet() const { return IpAddr(addr_.value() & mask()); }
   constexpr IpAddr broadcast() const { return IpAddr(addr_.value() | ~mask()); }

   // "10.1.1.5/24".
   std::string toString() const;
   // Throws Vok::ParseError.
   static IpAddrWithMask parse(std::string_view text);

   // Ordered by address, then length.
   constexpr auto operator<=>(const IpAddrWithMask&) const = default;

 private:
   IpAddr addr_;
   uint8_t len_ = 0;
   uint8_t pad_[3]{};
};

static_assert(std::has_unique_object_representations_v<IpAddrWithMask>);
static_assert(std::is_trivially_copyable_v<IpAddrWithMask>);

std::ostream& operator<<(std::ostream& os, const IpAddrWithMask& addr);

}  // namespace Ovel
