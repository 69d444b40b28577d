// An interface name such as "Ethernet1" or "Port-Channel10.100", held inline
// in a fixed zero-padded array instead of a std::string: interface ids are
// the most common key in the routing tables, and a fixed layout makes them
// trivially copyable and hashable by their bytes.
#pragma once

#include "platform/vok/SameBytes.h"

#include <array>
#include <compare>
#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>

namespace Ovel {

class IntfId {
 public:
   // One byte of the array is kept for the terminating zero.
   static constexpr size_t maxBytes = 23;

   // The empty id, meaning "no interface"; its text is "".
   constexpr IntfId() = default;
   // Throws std::range_error for more than 23 bytes and std::invalid_argument
   // for a character outside letters, digits and "/.-_:".
   explicit IntfId(std::string_view name);

   std::string_view name() const;
   constexpr bool empty() const { return name_[0] == '\0'; }

   std::string toString() const { return std::string(name()); }
   // Same rules as the constructor, but throws Vok::ParseError.
   static IntfId parse(std::string_view text);

   // Bytewise: equal values have identical bytes, and a fixed-size compare
   // compiles to a few word loads on the hot lookup paths.
   bool operator==(const IntfId& other) const noexcept {
      return Vok::sameBytes(*this, other);
   }
   // Lexicographic by name.
   std::strong_ordering operator<=>(const IntfId& other) const {
      return name() <=> other.name();
   }

 private:
   std::array<char, maxBytes + 1> name_{};
};

static_assert(std::has_unique_object_representations_v<IntfId>);
static_assert(std::is_trivially_copyable_v<IntfId>);

std::ostream& operator<<(std::ostream& os, const IntfId& intf);

}  // namespace Ovel
