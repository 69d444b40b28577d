// Heap huge pages: when the program restarts itself with glibc's setting,
// and that the restart is the same process, under the same name, with its
// arguments and the setting in its environment.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "platform/linux/HeapHugePages.h"

namespace Linux {
namespace {

constexpr const char* kMarker = "restarted:";

// What ps and pgrep call this process.
std::string processName() {
   std::ifstream comm("/proc/self/comm");
   std::string name;
   std::getline(comm, name);
   return name;
}

TEST(HeapHugePagesTest, AddsTheSettingOnlyWhereItHelpsAndNobodyChoseOtherwise) {
   struct Row {
      const char* current;
      std::string_view thpEnabled;
      std::optional<std::string> expected;
   };
   const Row rows[] = {
         {nullptr, "always [madvise] never\n", "glibc.malloc.hugetlb=1"},
         {nullptr, "[always] madvise never\n", std::nullopt},
         {nullptr, "always madvise [never]\n", std::nullopt},
         {nullptr, "", std::nullopt},  // no such file: no huge pages here
         {"", "always [madvise] never\n", std::nullopt},
         {"glibc.malloc.arena_max=2", "always [madvise] never\n", std::nullopt},
         {"glibc.malloc.hugetlb=1", "always [madvise] never\n", std::nullopt},
   };
   for (const Row& row : rows) {
      SCOPED_TRACE(std::string(row.current ? row.current : "(unset)") + " / " +
                   std::string(row.thpEnabled));
      EXPECT_EQ(heapHugePageTunables(row.current, row.thpEnabled), row.expected);
   }
}

// Run only as the restarted child of the test below, which selects it.
TEST(HeapHugePagesTest, DISABLED_ReportsWhatTheRestartedProcessSees) {
   const char* tunables = std::getenv("GLIBC_TUNABLES");
   std::cout << kMarker << ::getpid() << ":" << (tunables ? tunables : "(unset)") << ":"
             << processName() << "\n";
}

TEST(HeapHugePagesTest, RestartsAsTheSameProcessWithTheSetting) {
   std::ifstream file(kThpEnabledPath);
   const std::string thpEnabled{std::istreambuf_iterator<char>(file), {}};
   const bool expectRestart = heapHugePageTunables(nullptr, thpEnabled).has_value();

   int pipeFds[2];
   ASSERT_EQ(::pipe(pipeFds), 0);
   const pid_t child = ::fork();
   ASSERT_GE(child, 0);
   if (child == 0) {
      ::dup2(pipeFds[1], STDOUT_FILENO);
      ::close(pipeFds[0]);
      ::unsetenv("GLIBC_TUNABLES");
      std::string self = "heap_huge_pages_child";
      std::string filter = "--gtest_filter=HeapHugePagesTest.DISABLED_ReportsWhatTheRestartedProcessSees";
      std::string disabled = "--gtest_also_run_disabled_tests";
      char* argv[] = {self.data(), filter.data(), disabled.data(), nullptr};
      restartWithHeapHugePages(argv);
      std::cout << kMarker << "not restarted" << std::endl;
      ::_exit(0);
   }
   ::close(pipeFds[1]);
   std::string output;
   char buffer[4096];
   for (ssize_t n; (n = ::read(pipeFds[0], buffer, sizeof buffer)) > 0;) {
      output.append(buffer, std::size_t(n));
   }
   ::close(pipeFds[0]);
   int status = 0;
   ASSERT_EQ(::waitpid(child, &status, 0), child);
   EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << output;

   const std::string expected =
         expectRestart ? kMarker + std::to_string(child) + ":glibc.malloc.hugetlb=1:" + processName() + "\n"
                       : std::string(kMarker) + "not restarted\n";
   EXPECT_NE(output.find(expected), std::string::npos) << output;
}

}  // namespace
}  // namespace Linux
