// A hint to start fetching the cache line at an address.
#pragma once

namespace Vok {

// GCC 12 discards __builtin_prefetch whose address comes out of a
// shift-and-multiply like the hash tables' home-slot computation (the
// dead-code pass treats the hint as removable), so on x86-64 the
// instruction is written out.
inline void prefetchLine(const void* address) noexcept {
#if defined(__x86_64__)
   asm volatile("prefetcht0 %0" : : "m"(*static_cast<const char*>(address)));
#else
   __builtin_prefetch(address);
#endif
}

}  // namespace Vok
