// Transparent huge pages for the process's heap, through glibc's malloc.
//
// Building the tables of many VRFs is mostly first touches of fresh memory,
// and each fresh 4 KiB page costs a fault, which is dear on a virtual
// machine. glibc can grow its heap in 2 MiB steps advised as huge pages,
// a fault per 2 MiB, but only when told at start-up, through
// GLIBC_TUNABLES; so a program that wants it starts itself again with the
// setting added.
//
//   int main(int argc, char** argv) {
//      Linux::restartWithHeapHugePages(argv);   // returns if nothing to do
//      ...
//   }
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace Linux {

// Where the kernel says whether and when it backs memory with huge pages.
inline constexpr const char* kThpEnabledPath = "/sys/kernel/mm/transparent_hugepage/enabled";

// The GLIBC_TUNABLES value to start with, given the variable's current value
// (null when unset) and the text of kThpEnabledPath; nothing when there is
// nothing to add. A variable already set is the user's choice and stands,
// even empty; the restarted process finds it set too, so it starts once.
// Only the kernel's "madvise" mode needs the advice: "always" backs the heap
// anyway, "never" not at all.
std::optional<std::string> heapHugePageTunables(const char* current, std::string_view thpEnabled);

// Starts this program again, same process and arguments, with the setting
// added to its environment, and returns only when there is nothing to add
// or the restart failed (the program then runs as it is). Call it before
// any thread exists and before anything is written: buffered output would
// be lost with the old process image.
void restartWithHeapHugePages(char** argv);

}  // namespace Linux
