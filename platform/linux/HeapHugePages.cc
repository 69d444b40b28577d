#include "platform/linux/HeapHugePages.h"

#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace Linux {

std::optional<std::string> heapHugePageTunables(const char* current, std::string_view thpEnabled) {
   if (current) {
      return std::nullopt;
   }
   if (thpEnabled.find("[madvise]") == std::string_view::npos) {
      return std::nullopt;
   }
   return "glibc.malloc.hugetlb=1";
}

void restartWithHeapHugePages(char** argv) {
   std::ifstream file(kThpEnabledPath);
   const std::string thpEnabled{std::istreambuf_iterator<char>(file), {}};
   const auto tunables = heapHugePageTunables(std::getenv("GLIBC_TUNABLES"), thpEnabled);
   if (!tunables || ::setenv("GLIBC_TUNABLES", tunables->c_str(), 1) != 0) {
      return;
   }
   // The program's own path, not /proc/self/exe: the process is named
   // after the file it runs, and must stay "connroute" for ps and pgrep.
   // A program replaced on disk meanwhile reads "... (deleted)" and is not
   // restarted.
   char self[PATH_MAX];
   if (const ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1); n > 0) {
      self[n] = '\0';
      ::execv(self, argv);
   }
   ::unsetenv("GLIBC_TUNABLES");  // not restarted: leave the environment as it was
}

}  // namespace Linux
