// An interface address of either family with its mask length, or none: the
// generic counterpart of IpAddrWithMask and Ip6AddrWithMask, for tables that
// hold both families. Host bits are kept; prefix() derives the subnet. Same
// 20-byte zero-padded layout as IpGenPrefix, so it hashes by bytes as well.
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
#include "platform/ovel/Ip6AddrWithMask.h"
#include "platform/ovel/IpAddrWithMask.h"
#include "platform/ovel/IpGenAddr.h"
#include "platform/ovel/IpGenPrefix.h"

namespace Ovel {

class IpGenAddrWithMask {
 public:
   // The empty value: family unknown, text "none".
   constexpr IpGenAddrWithMask() = default;
   explicit IpGenAddrWithMask(const IpAddrWithMask& addr);
   explicit IpGenAddrWithMask(const Ip6AddrWithMask& addr);

   constexpr AddressFamily af() const { return af_; }
   constexpr uint8_t len() const { return len_; }
   constexpr bool isEmpty() const { return af_ == AddressFamily::unknown; }
   // The address with its host bits; empty for the empty value.
   IpGenAddr addr() const;
   // The attached subnet; the empty prefix for the empty value.
   IpGenPrefix prefix() const;

   // "none", "10.1.1.5/24" or "2001:db8::1/64".
   std::string toString() const;
   // The same text written at out, without a terminating NUL; returns its
   // end. Room for kMaxChars is needed.
   static constexpr std::size_t kMaxChars = IpGenAddr::kMaxChars + 4;  // and "/128"
   char* toChars(char* out) const;
   // "none", or an address of either family (IPv6 recognised by its ':')
   // with a mask length. Throws Vok::ParseError.
   static IpGenAddrWithMask parse(std::string_view text);

   // Bytewise: equal values have identical bytes, and a fixed-size compare
   // compiles to a few word loads on the hot lookup paths.
   bool operator==(const IpGenAddrWithMask& other) const noexcept {
      return Vok::sameBytes(*this, other);
   }
   // By family, then address, then length, like IpGenPrefix.
   std::strong_ordering operator<=>(const IpGenAddrWithMask& other) const;

 private:
   AddressFamily af_ = AddressFamily::unknown;
   uint8_t len_ = 0;
   uint8_t pad_[2]{};
   std::array<uint8_t, 16> bytes_{};
};

static_assert(sizeof(IpGenAddrWithMask) == 20);
static_assert(std::has_unique_object_representations_v<IpGenAddrWithMask>);
static_assert(std::is_trivially_copyable_v<IpGenAddrWithMask>);

std::ostream& operator<<(std::ostream& os, const IpGenAddrWithMask& addr);

}  // namespace Ovel
