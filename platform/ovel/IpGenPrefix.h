// A route prefix of either family, or none: the key of the routing tables.
// The constructors clear host bits, so two spellings of one prefix can never
// become two keys; the layout is a fixed 20 bytes with explicit zero padding
// so equal prefixes are byte-identical for the runtime's byte hashing.
#pragma once

#include "platform/vok/SameBytes.h"

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
#include "platform/ovel/IpGenAddr.h"

namespace Ovel {

class IpGenPrefix {
 public:
   // The empty prefix: family unknown, text "none".
   constexpr IpGenPrefix() = default;
   // Clear the bits after len; throw std::range_error when len exceeds the
   // family's maximum.
   IpGenPrefix(IpAddr addr, uint8_t len);
   IpGenPrefix(Ip6Addr addr, uint8_t len);

   constexpr AddressFamily af() const { return af_; }
   constexpr uint8_t len() const { return len_; }
   constexpr bool isEmpty() const { return af_ == AddressFamily::unknown; }
   // The network address; asking for the wrong family is a fatal programming
   // error.
   IpAddr v4Addr() const;
   Ip6Addr v6Addr() const;
   // The network address as a generic address, empty for the empty prefix.
   IpGenAddr addr() const;

   // "none", "10.1.1.0/24" or "2001:db8::/64".
   std::string toString() const;
   // The same text written at out, without a terminating NUL; returns its
   // end. Room for kMaxChars is needed.
   static constexpr std::size_t kMaxChars = IpGenAddr::kMaxChars + 4;
   char* toChars(char* out) const;
   // Rejects host bits rather than clearing them: a configured "10.1.1.5/24"
   // where a prefix is expected is almost always a mistake worth reporting.
   // Throws Vok::ParseError.
   static IpGenPrefix parse(std::string_view text);

   // Bytewise: equal values have identical bytes, and a fixed-size compare
   // compiles to a few word loads on the hot lookup paths.
   bool operator==(const IpGenPrefix& other) const noexcept {
      return Vok::sameBytes(*this, other);
   }
   // By family, then address, then length: a prefix sorts right before the
   // longer prefixes it covers, and those follow contiguously, which the
   // member order (length before address) would not give.
   std::strong_ordering operator<=>(const IpGenPrefix& other) const;

 private:
   AddressFamily af_ = AddressFamily::unknown;
   uint8_t len_ = 0;
   uint8_t pad_[2]{};
   std::array<uint8_t, 16> bytes_{};
};

static_assert(sizeof(IpGenPrefix) == 20);
static_assert(std::has_unique_object_representations_v<IpGenPrefix>);
static_assert(std::is_trivially_copyable_v<IpGenPrefix>);

std::ostream& operator<<(std::ostream& os, const IpGenPrefix& prefix);

}  // namespace Ovel
