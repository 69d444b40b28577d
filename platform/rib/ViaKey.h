// Identifies one via (next hop) in the RIB: which family's via table it is
// in, the VRF, and the table's own id for it. It is a hash key, so it has a
// fixed 12-byte layout with explicit zero padding.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>

namespace Routing::Rib {

class ViaKey {
 public:
   // "0:0:0", the empty key.
   constexpr ViaKey() = default;
   // transport is the address-family code of the via table (the numeric
   // value of Ovel::AddressFamily); vrfId the VRF's numeric id; id the
   // via's id within that table.
   constexpr ViaKey(uint8_t transport, uint32_t vrfId, uint32_t id)
         : transport_(transport), vrfId_(vrfId), id_(id) {}

   constexpr uint8_t transport() const { return transport_; }
   constexpr uint32_t vrfId() const { return vrfId_; }
   constexpr uint32_t id() const { return id_; }
   constexpr bool isEmpty() const { return transport_ == 0 && vrfId_ == 0 && id_ == 0; }

   // "transport:vrfId:id", e.g. "1:0:17".
   std::string toString() const;
   // The same text written at out, without a terminating NUL; returns its
   // end. Room for kMaxChars is needed.
   static constexpr std::size_t kMaxChars = 3 + 1 + 10 + 1 + 10;
   char* toChars(char* out) const;
   // Three canonical decimals; throws Vok::ParseError.
   static ViaKey parse(std::string_view text);

   constexpr auto operator<=>(const ViaKey&) const = default;

 private:
   uint8_t transport_ = 0;
   uint8_t pad_[3]{};
   uint32_t vrfId_ = 0;
   uint32_t id_ = 0;
};

static_assert(sizeof(ViaKey) == 12);
static_assert(std::has_unique_object_representations_v<ViaKey>);
static_assert(std::is_trivially_copyable_v<ViaKey>);

std::ostream& operator<<(std::ostream& os, const ViaKey& key);

}  // namespace Routing::Rib
