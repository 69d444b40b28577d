// An IPv4 address as the routing code handles it: one 32-bit value in host
// byte order, so that masking and ordering are plain integer operations and
// the object's bytes can serve directly as a hash key.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>

namespace Ovel {

class IpAddr {
 public:
   constexpr IpAddr() = default;
   constexpr explicit IpAddr(uint32_t value) : value_(value) {}

   constexpr uint32_t value() const { return value_; }
   constexpr bool isZero() const { return value_ == 0; }

   // Dotted quad, "10.1.1.5".
   std::string toString() const;
   // The same text written at out, without a terminating NUL; returns its
   // end. Room for kMaxChars is needed.
   static constexpr std::size_t kMaxChars = 15;
   char* toChars(char* out) const;
   // Exactly four decimal octets without leading zeros; throws Vok::ParseError.
   static IpAddr parse(std::string_view text);

   constexpr auto operator<=>(const IpAddr&) const = default;

 private:
   uint32_t value_ = 0;
};

static_assert(std::has_unique_object_representations_v<IpAddr>);
static_assert(std::is_trivially_copyable_v<IpAddr>);

std::ostream& operator<<(std::ostream& os, const IpAddr& addr);

}  // namespace Ovel
