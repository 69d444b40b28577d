// Equality of two values by their bytes, in machine words: for the small
// fixed-size keys of the hot maps, where a library memcmp call would cost
// more than the comparison itself.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

namespace Vok {

template <class T>
inline bool sameBytes(const T& a, const T& b) noexcept {
   static_assert(std::has_unique_object_representations_v<T>);
   const auto* pa = reinterpret_cast<const unsigned char*>(&a);
   const auto* pb = reinterpret_cast<const unsigned char*>(&b);
   std::size_t i = 0;
   for (; i + 8 <= sizeof(T); i += 8) {
      std::uint64_t wa, wb;
      std::memcpy(&wa, pa + i, 8);
      std::memcpy(&wb, pb + i, 8);
      if (wa != wb) {
         return false;
      }
   }
   for (; i + 4 <= sizeof(T); i += 4) {
      std::uint32_t wa, wb;
      std::memcpy(&wa, pa + i, 4);
      std::memcpy(&wb, pb + i, 4);
      if (wa != wb) {
         return false;
      }
   }
   for (; i < sizeof(T); ++i) {
      if (pa[i] != pb[i]) {
         return false;
      }
   }
   return true;
}

}  // namespace Vok
