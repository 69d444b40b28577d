// The order of two objects' bytes, as memcmp gives it, for the plain-bytes
// keys the stores sort before each flush: read as big-endian words, eight
// bytes compare in one integer comparison instead of a call per pair.
//
//   std::sort(keys.begin(), keys.end(), Plim::bytewiseLess<Ovel::IpGenPrefix>);
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace Plim {

template <class T>
bool bytewiseLess(const T& a, const T& b) noexcept {
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

}  // namespace Plim
