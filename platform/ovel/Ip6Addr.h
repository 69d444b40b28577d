// An IPv6 address as its 16 network-order bytes. Keeping the wire form means
// no conversion on the way in from or out to the kernel, and bytewise order
// is the natural address order.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>

namespace Ovel {

class Ip6Addr {
 public:
   using Bytes = std::array<uint8_t, 16>;

   constexpr Ip6Addr() = default;
   constexpr explicit Ip6Addr(const Bytes& bytes) : bytes_(bytes) {}

   constexpr const Bytes& bytes() const { return bytes_; }
   bool isZero() const;
   // fe80::/10. Such addresses are only meaningful together with their
   // interface, so the route code must keep them out of shared tables.
   bool isLinkLocal() const;

   // RFC 5952 canonical text: lower case, longest zero run compressed.
   std::string toString() const;
   // The same text written at out, without a terminating NUL; returns its
   // end. Room for kMaxChars is needed.
   static constexpr std::size_t kMaxChars = 45;  // "ffff:ffff:ffff:ffff:ffff:ffff:255.255.255.255"
   char* toChars(char* out) const;
   // Any RFC 4291 spelling (no zone index); throws Vok::ParseError.
   static Ip6Addr parse(std::string_view text);

   constexpr auto operator<=>(const Ip6Addr&) const = default;

 private:
   Bytes bytes_{};
};

static_assert(std::has_unique_object_representations_v<Ip6Addr>);
static_assert(std::is_trivially_copyable_v<Ip6Addr>);

std::ostream& operator<<(std::ostream& os, const Ip6Addr& addr);

}  // namespace Ovel
