// The benchmarks' entry: Google Benchmark's own, after the restart with
// heap huge pages that the connroute program makes too, so that the
// figures are those of the engine as the program runs it. Run with
// GLIBC_TUNABLES= (set, empty) to measure with 4 KiB pages.
#include <benchmark/benchmark.h>

#include "platform/linux/HeapHugePages.h"

int main(int argc, char** argv) {
   Linux::restartWithHeapHugePages(argv);
   benchmark::Initialize(&argc, argv);
   if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
      return 1;
   }
   benchmark::RunSpecifiedBenchmarks();
   benchmark::Shutdown();
   return 0;
}
