// Equality and order of two values by their bytes, in machine words: for
// the small fixed-size keys of the hot maps and of the stores' sorted
// writes, where a library memcmp call would cost more than the comparison
// itself. bytesLess orders as memcmp does (words read big-endian).
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

template <class T>
inline bool bytesLess(const T& a, const T& b) noexcept {
   static_assert(std::has_unique_object_representations_v<T>, "only keys that are their bytes");
   const auto* x = reinterpret_cast<const unsigned char*>(&a);
   const auto* y = reinterpret_cast<const unsigned char*>(&b);
   std::size_t at = 0;
   for (; at + 8 <= sizeof(T); at += 8) {
      std::uint64_t u, v;
      std::memcpy(&u, x + at, 8);
      std::memcpy(&v, y + at, 8);
      if (u != v) {
         return __builtin_bswap64(u) < __builtin_bswap64(v);
      }
   }
   for (; at < sizeof(T); ++at) {
      if (x[at] != y[at]) {
         return x[at] < y[at];
      }
   }
   return false;
}

}  // namespace Vok
