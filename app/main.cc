// connroute: runs the connected-route engine on an in-process platform and
// plays a scenario of everything the platform publishes, printing what the
// engine wrote.
#include <fstream>
#include <iostream>

#include <CLI/CLI.hpp>

#include "app/BundledScenario.h"
#include "app/Player.h"
#include "platform/trace/Trace.h"
#include "platform/trace/Zipmark.h"
#include "platform/trace/ZipmarkDecoder.h"

namespace {

int runScenario(const std::string& path, bool json, bool checkOnly) {
   App::Scenario scenario = path.empty() ? App::parseScenario(App::bundledScenario(), "(bundled example)")
                                         : App::loadScenario(path);
   App::dryRun(scenario);
   if (checkOnly) {
      std::cout << scenario.name << ": ok, " << scenario.steps.size() << " steps\n";
      return 0;
   }
   nlohmann::json dumps = nlohmann::json::array();
   if (!json && !scenario.description.empty()) {
      std::cout << "# " << scenario.description << "\n";
   }
   App::play(scenario, [&](const App::Snapshot& snapshot) {
      if (json) {
         dumps.push_back(App::toJson(snapshot));
      } else {
         std::cout << App::renderText(snapshot);
      }
   });
   if (json) {
      std::cout << nlohmann::json{{"scenario", scenario.name}, {"dumps", dumps}}.dump(2) << "\n";
   }
   return 0;
}

}  // namespace

int main(int argc, char** argv) {
   CLI::App app{
         "connroute: the connected-route engine of a routing agent, on an in-process platform.\n"
         "Plays a scenario of interface, VRF, kernel and RIB state (docs/scenario.md) and prints\n"
         "the routes, vias, via sets and readiness marks the engine writes."};
   app.require_subcommand(1);

   std::string scenario, trace, fastTrace;
   bool json = false;
   auto* run = app.add_subcommand("run", "play a scenario (the bundled example when none is given)");
   run->add_option("scenario", scenario, "scenario file (JSON with comments)")->check(CLI::ExistingFile);
   run->add_flag("--json", json, "print the dumps as one JSON document");
   run->add_option("--trace", trace,
                   "text trace to stderr, e.g. 'IntfBacklogSm/8,ConnectedRoute/0-7' or '*/0-9' "
                   "(also CONNROUTE_TRACE)");
   run->add_option("--fast-trace", fastTrace,
                   "fast-trace levels to record, e.g. '1' (also CONNROUTE_FASTTRACE); the file is "
                   "ZMFILE or ConnectedRoute-<pid>.zm");

   std::string checkPath;
   auto* check = app.add_subcommand("check", "validate a scenario without printing its dumps");
   check->add_option("scenario", checkPath, "scenario file")->required()->check(CLI::ExistingFile);

   std::string zmPath;
   auto* decode = app.add_subcommand("zmdecode", "print a fast-trace file as text");
   decode->add_option("file", zmPath, "fast-trace file")->required()->check(CLI::ExistingFile);

   CLI11_PARSE(app, argc, argv);
   try {
      if (*decode) {
         std::ifstream in(zmPath, std::ios::binary);
         Zipmark::decode(in, std::cout);
         return 0;
      }
      if (!trace.empty()) {
         Vok::traceConfigIs(trace);
      }
      if (!fastTrace.empty()) {
         Zipmark::levelsIs(fastTrace);
      }
      if (*check) {
         return runScenario(checkPath, false, true);
      }
      return runScenario(scenario, json, false);
   } catch (const App::ScenarioError& e) {
      std::cerr << "connroute: " << e.what() << "\n";
      return 2;
   } catch (const std::exception& e) {
      std::cerr << "connroute: " << e.what() << "\n";
      return 1;
   }
}
