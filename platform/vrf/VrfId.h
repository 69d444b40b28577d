// The numeric id the kernel and the forwarding tables use for a VRF. It is a
// distinct type rather than a bare uint32_t so an id cannot be mixed up with
// a via or table id, and so "no VRF" has one spelling, invalid().
#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>

namespace Vrf::VrfIdMap {

class VrfId {
 public:
   // Defaults to invalid(), so an id nobody assigned is never taken for the
   // VRF whose id happens to be zero.
   constexpr VrfId() = default;
   constexpr explicit VrfId(uint32_t value) : value_(value) {}
   static constexpr VrfId invalid() { return VrfId(invalidValue); }

   constexpr bool isValid() const { return value_ != invalidValue; }
   constexpr uint32_t value() const { return value_; }

   // Decimal, or "invalid".
   std::string toString() const;
   // Inverse of toString(); the all-ones number itself is refused so the
   // invalid id keeps a single spelling. Throws Vok::ParseError.
   static VrfId parse(std::string_view text);

   constexpr auto operator<=>(const VrfId&) const = default;

 private:
   static constexpr uint32_t invalidValue = 0xffffffff;
   uint32_t value_ = invalidValue;
};

static_assert(std::has_unique_object_representations_v<VrfId>);
static_assert(std::is_trivially_copyable_v<VrfId>);

std::ostream& operator<<(std::ostream& os, const VrfId& id);

}  // namespace Vrf::VrfIdMap
