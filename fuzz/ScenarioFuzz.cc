// libFuzzer target for the scenario reader: whole files in, and either a
// validated scenario or a ScenarioError out. A crash, a hang, any other
// exception, or a validated scenario that breaks the reader's own promises
// (steps numbered 1..n in order, durations finite and in range) is a
// finding.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "app/Scenario.h"

namespace {

[[noreturn]] void finding(const char* what) {
   std::fprintf(stderr, "scenario reader finding: %s\n", what);
   std::abort();
}

void checkDuration(double seconds) {
   if (!std::isfinite(seconds) || seconds < 0 || seconds > App::kMaxDurationSeconds) {
      finding("a duration out of range was accepted");
   }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
   const std::string text(reinterpret_cast<const char*>(data), size);
   App::Scenario scenario;
   try {
      scenario = App::parseScenario(text, "fuzz.json");
   } catch (const App::ScenarioError&) {
      return 0;
   } catch (const std::exception& e) {
      std::fprintf(stderr, "unexpected exception: %s\n", e.what());
      finding("an exception other than ScenarioError");
   }
   checkDuration(scenario.stepPerReading);
   for (std::size_t i = 0; i < scenario.steps.size(); ++i) {
      const App::Step& step = scenario.steps[i];
      if (step.number != i + 1) {
         finding("steps out of order");
      }
      if (const auto* advance = std::get_if<App::AdvanceStep>(&step.action)) {
         checkDuration(advance->seconds);
      }
      if (const auto* run = std::get_if<App::RunStep>(&step.action)) {
         checkDuration(run->limit);
      }
   }
   return 0;
}
