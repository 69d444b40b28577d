// Identifies a set of vias shared by routes with the same next hops, so that
// a route refers to its next hops by one small key and identical sets are
// stored once. Zero is reserved for the empty key, "no via set".
#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>

namespace Routing::Rib {

class ViaSetKey {
 public:
   constexpr ViaSetKey() = default;
   constexpr explicit ViaSetKey(uint32_t value) : value_(value) {}

   constexpr uint32_t value() const { return value_; }
   constexpr bool isEmpty() const { return value_ == 0; }

   // Decimal.
   std::string toString() const { return std::to_string(value_); }
   // A canonical decimal that fits 32 bits; throws Vok::ParseError.
   static ViaSetKey parse(std::string_view text);

   constexpr auto operator<=>(const ViaSetKey&) const = default;

 private:
   uint32_t value_ = 0;
};

static_assert(std::has_unique_object_representations_v<ViaSetKey>);
static_assert(std::is_trivially_copyable_v<ViaSetKey>);

std::ostream& operator<<(std::ostream& os, const ViaSetKey& key);

}  // namespace Routing::Rib
