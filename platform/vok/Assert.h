// Fatal assertions for broken internal invariants.
//
// An invariant that no longer holds means the program itself is wrong, so we
// stop at once with the fixed text the assertion names, instead of limping on
// with corrupted state. Unlike <cassert>, these stay active in every build.
#pragma once

namespace Vok {

[[noreturn]] void assertionFailed(const char* text, const char* file, int line);

}  // namespace Vok

// VOK_ASSERT(cond, "text"): stops the process with "assertion failed: text"
// when cond is false.
#define VOK_ASSERT(cond, text)                                                 \
   do {                                                                        \
      if (!(cond)) [[unlikely]] {                                              \
         ::Vok::assertionFailed(text, __FILE__, __LINE__);                     \
      }                                                                        \
   } while (false)
