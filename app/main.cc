// connroute: runs the connected-route engine on an in-process platform and
// plays a scenario of everything the platform publishes, printing what the
// engine wrote.
//
// Exit status: 0 done; 1 the output could not be written; 2 a usage or
// input error (a bad option, environment variable, scenario or fast-trace
// file, or a scenario on which the engine stops), with a message naming it.
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <iostream>
#include <limits>
#include <sstream>

#include <CLI/CLI.hpp>

#include "app/BundledScenario.h"
#include "app/InputFile.h"
#include "app/Player.h"
#include "app/Show.h"
#include "app/live/LiveAgent.h"
#include "platform/linux/HeapHugePages.h"
#include "platform/trace/Trace.h"
#include "platform/trace/Zipmark.h"
#include "platform/trace/ZipmarkDecoder.h"

namespace {

constexpr std::size_t kMaxScenarioBytes = std::size_t{1} << 30;
constexpr std::size_t kMaxFastTraceBytes = std::size_t{1} << 30;

// A usage error: a bad option or environment variable.
class UsageError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// Environment settings are checked before anything runs, so that a bad one
// is reported as itself rather than as a failure of whatever step first
// traced. A command-line flag replaces its variable, bad or not.
void checkEnvironment(bool traceFlag, bool fastTraceFlag) {
   if (!traceFlag && !Vok::traceEnvironmentError().empty()) {
      throw UsageError("CONNROUTE_TRACE: " + Vok::traceEnvironmentError());
   }
   if (!fastTraceFlag && !Zipmark::environmentError().empty()) {
      throw UsageError("CONNROUTE_FASTTRACE: " + Zipmark::environmentError());
   }
   const char* toggles = std::getenv("CONNROUTE_TOGGLES");
   std::istringstream names(toggles ? toggles : "");
   for (std::string name; std::getline(names, name, ',');) {
      if (!name.empty() && !App::knownToggles().contains(name)) {
         throw UsageError("CONNROUTE_TOGGLES: unknown toggle '" + name + "' (" +
                          App::knownTogglesText() + ")");
      }
   }
}

void flushOrFail(std::ostream& out) {
   out.flush();
   if (!out) {
      throw App::OutputError(std::string("cannot write the output: ") + std::strerror(errno));
   }
}

int runScenario(const std::string& path, bool json, bool checkOnly, const std::string& tablesDir) {
   // A play is one burst: memory freed by one phase (the scenario document,
   // a table's old slots after it grows) is kept for the next instead of
   // being handed back to the kernel, which would fault every page in and
   // zero it again. The live agent, which runs for long, keeps the defaults.
   ::mallopt(M_TRIM_THRESHOLD, 1 << 30);
   ::mallopt(M_TOP_PAD, 64 << 20);
   ::mallopt(M_MMAP_THRESHOLD, 32 << 20);
   const App::Scenario scenario =
         path.empty() ? App::parseScenario(App::bundledScenario(), "(bundled example)")
                      : App::parseScenario(App::readInputFile(path, kMaxScenarioBytes), path);
   if (checkOnly) {
      App::play(scenario, App::OutputFormat::none, STDOUT_FILENO, tablesDir);
      std::cout << scenario.name << ": ok, " << scenario.steps.size() << " steps\n";
      flushOrFail(std::cout);
      return 0;
   }
   App::play(scenario, json ? App::OutputFormat::json : App::OutputFormat::text, STDOUT_FILENO,
             tablesDir);
   return 0;
}

int decodeFastTrace(const std::string& path) {
   std::istringstream in(App::readInputFile(path, kMaxFastTraceBytes));
   try {
      Zipmark::decode(in, std::cout);
   } catch (const std::runtime_error& e) {
      flushOrFail(std::cout);
      throw App::ScenarioError(path + ": " + e.what());
   }
   flushOrFail(std::cout);
   return 0;
}

// Standard descriptors closed by whoever started the program would be
// taken by the first files it opens (and output written into them).
void keepStandardDescriptorsOpen() {
   for (int fd = 0; fd <= 2; ++fd) {
      if (::fcntl(fd, F_GETFD) < 0) {
         ::open("/dev/null", fd == 0 ? O_RDONLY : O_WRONLY);  // takes the lowest free number: fd
      }
   }
}

// The command line: every command, its options, and where they land.
struct CommandLine {
   CLI::App app{
         "connroute: the connected-route engine of a routing agent, on an in-process platform.\n"
         "Plays a scenario of interface, VRF, kernel and RIB state (docs/scenario.md) and prints\n"
         "the routes, vias, via sets and readiness marks the engine writes."};

   CLI::App* run = nullptr;
   std::string scenario, trace, fastTrace, tablesDir;
   bool json = false;
   CLI::Option* traceOption = nullptr;
   CLI::Option* fastTraceOption = nullptr;

   CLI::App* check = nullptr;
   std::string checkPath;

   CLI::App* show = nullptr;
   App::ShowRequest showRequest;
   std::vector<std::pair<CLI::App*, App::ShowRequest::What>> showCommands;

   CLI::App* live = nullptr;
   App::LiveOptions liveOptions;

   CLI::App* decode = nullptr;
   std::string zmPath;
};

void addRunAndCheck(CommandLine& line) {
   line.run = line.app.add_subcommand("run", "play a scenario (the bundled example when none is given)");
   line.run->add_option("scenario", line.scenario, "scenario file (JSON with comments)");
   line.run->add_flag("--json", line.json, "print the dumps as one JSON document");
   line.run->add_option("--tables", line.tablesDir,
                        "keep the RIB's tables in this table directory (created if absent), where "
                        "`connroute show` reads them; rows an earlier run left are the new run's "
                        "stale rows");
   line.traceOption = line.run->add_option(
         "--trace", line.trace,
         "text trace to stderr, e.g. 'IntfBacklogSm/8,ConnectedRoute/0-7' or '*/0-9' "
         "(replaces CONNROUTE_TRACE)");
   line.fastTraceOption = line.run->add_option(
         "--fast-trace", line.fastTrace,
         "fast-trace levels to record, e.g. '1' (replaces CONNROUTE_FASTTRACE); the file is "
         "ZMFILE or ConnectedRoute-<pid>.zm");
   line.check = line.app.add_subcommand("check", "validate a scenario and play it without printing");
   line.check->add_option("scenario", line.checkPath, "scenario file")->required();
}

void addShow(CommandLine& line) {
   App::ShowRequest& request = line.showRequest;
   line.show = line.app.add_subcommand(
         "show", "print what a table directory holds (read while an agent writes it)");
   line.show->add_option("--tables", request.dir, "the table directory `run --tables` writes")
         ->required();
   line.show->add_flag("--json", request.json, "print one JSON document");
   line.show->require_subcommand(1);
   auto add = [&](const char* name, const char* what, App::ShowRequest::What kind) {
      CLI::App* command = line.show->add_subcommand(name, what);
      command->add_flag("--json", request.json, "print one JSON document");
      line.showCommands.emplace_back(command, kind);
      return command;
   };
   auto addVrf = [&](CLI::App* command) {
      return command->add_option("--vrf", request.vrf, "a VRF's name or identifier");
   };
   using What = App::ShowRequest::What;
   CLI::App* routes = add("routes", "the routes of every VRF, with owners", What::routes);
   CLI::App* vias = add("vias", "the vias of every VRF", What::vias);
   for (CLI::App* command : {routes, vias}) {
      addVrf(command);
      command->add_option("--af", request.family, "one address family: 4 or 6")
            ->check(CLI::IsMember({4, 6}));
   }
   add("viasets", "the shared via sets", What::viaSets);
   addVrf(add("ready", "every VRF's readiness", What::ready));
   CLI::App* prefix = add("prefix", "one prefix: its route, owner and every candidate interface",
                          What::prefix);
   prefix->add_option("prefix", request.prefix, "e.g. 10.1.0.0/24")->required();
   addVrf(prefix)->required();
   addVrf(add("summary", "per VRF: routes, vias, backlog, drains so far, longest slice",
              What::summary));
   add("metrics", "the agent's state in the Prometheus text format", What::metrics);
   CLI::App* follow = add("follow",
                          "the routes, then every change as the writer commits it, until "
                          "interrupted (--json: JSON Lines)",
                          What::follow);
   addVrf(follow);
   follow->add_option("--af", request.family, "one address family: 4 or 6")
         ->check(CLI::IsMember({4, 6}));
   follow->add_option("--from", request.from,
                      "start with the changes of this turn instead of the routes")
         ->check(CLI::Range(std::uint64_t{1}, std::numeric_limits<std::uint64_t>::max()));
}

void addLiveAndDecode(CommandLine& line) {
   App::LiveOptions& options = line.liveOptions;
   line.live = line.app.add_subcommand(
         "live", "run the engine on this Linux host: namespaces are VRFs, fed by rtnetlink");
   line.live->add_option("--tables", options.tablesDir,
                         "keep the RIB's tables in this table directory (a restart over it is hitless)");
   line.live->add_option("--vrf-ids", options.vrfIdsFile, "VRF identifiers, one 'name id' a line");
   line.live->add_option("--netns-dir", options.netnsDir, "where named namespaces are")
         ->capture_default_str();
   auto* once = line.live->add_flag("--once", options.once,
                                    "dump the tables once every VRF is ready, then stop");
   line.live->add_flag("--json", options.json, "the --once dump as JSON")->needs(once);
   line.live->add_option("--rcvbuf", options.receiveBuffer,
                         "bytes each namespace's rtnetlink socket may queue; when a flood overflows "
                         "it, the namespace is read again")
         ->capture_default_str()
         ->check(CLI::Range(4096, 1 << 30));
   line.live->add_option("--metrics-file", options.metricsFile,
                         "keep Prometheus metrics in this file (node_exporter's textfile collector)");
   line.live->add_option("--metrics-interval", options.metricsInterval,
                         "seconds between rewrites of the metrics file")
         ->capture_default_str()
         ->check(CLI::Range(0.1, 86400.0));
   line.decode = line.app.add_subcommand("zmdecode", "print a fast-trace file as text");
   line.decode->add_option("file", line.zmPath, "fast-trace file")->required();
}

int show(CommandLine& line) {
   for (const auto& [command, what] : line.showCommands) {
      if (*command) {
         line.showRequest.what = what;
      }
   }
   if (line.showRequest.what == App::ShowRequest::What::follow) {
      App::follow(line.showRequest, std::cout);
   } else {
      App::show(line.showRequest, std::cout);
   }
   flushOrFail(std::cout);
   return 0;
}

// run and check: the trace settings first, then the play.
int play(const CommandLine& line) {
   checkEnvironment(line.traceOption->count() > 0, line.fastTraceOption->count() > 0);
   if (line.traceOption->count() > 0) {
      try {
         Vok::traceConfigIs(line.trace);
      } catch (const std::invalid_argument& e) {
         throw UsageError(std::string("--trace: ") + e.what());
      }
   }
   if (line.fastTraceOption->count() > 0) {
      try {
         Zipmark::levelsIs(line.fastTrace);
      } catch (const std::invalid_argument& e) {
         throw UsageError(std::string("--fast-trace: ") + e.what());
      }
   }
   if (*line.check) {
      return runScenario(line.checkPath, false, true, {});
   }
   return runScenario(line.scenario, line.json, false, line.tablesDir);
}

int execute(CommandLine& line, char** argv) {
   if (line.app.get_subcommands().empty()) {
      throw UsageError("a command is required: run, check, live, show or zmdecode (connroute --help)");
   }
   if (*line.run || *line.check) {
      // A play builds every table at once on virtual time, so only its
      // throughput counts. The live agent keeps 4 KiB pages: the first
      // touch of a huge page inside a drain slice lengthens the slice by
      // milliseconds, and the event loop's latency is its promise. A
      // `show` or a decode is over before huge pages would pay.
      Linux::restartWithHeapHugePages(argv);
   }
   if (*line.decode) {
      return decodeFastTrace(line.zmPath);
   }
   if (*line.live) {
      checkEnvironment(false, false);
      return App::runLive(line.liveOptions);
   }
   if (*line.show) {
      return show(line);
   }
   return play(line);
}

// --help and --version print and exit 0, unless their output is lost;
// anything else is a usage error.
int parseFailed(const CommandLine& line, const CLI::ParseError& e) {
   if (e.get_exit_code() != 0) {
      std::cerr << "connroute: " << e.what() << " (connroute --help lists the commands)\n";
      return 2;
   }
   const int status = line.app.exit(e);
   std::cout.flush();
   if (!std::cout) {
      std::cerr << "connroute: cannot write the output: " << std::strerror(errno) << "\n";
      return 1;
   }
   return status;
}

}  // namespace

int main(int argc, char** argv) {
   keepStandardDescriptorsOpen();
   // A closed pipe is a write error to report, not a signal to die of.
   std::signal(SIGPIPE, SIG_IGN);
   CommandLine line;
   line.app.set_version_flag("--version", "connroute " CONNROUTE_VERSION);
   line.app.require_subcommand(0, 1);
   addRunAndCheck(line);
   addShow(line);
   addLiveAndDecode(line);
   try {
      line.app.parse(argc, argv);
   } catch (const CLI::ParseError& e) {
      return parseFailed(line, e);
   }
   try {
      return execute(line, argv);
   } catch (const UsageError& e) {
      std::cerr << "connroute: " << e.what() << "\n";
      return 2;
   } catch (const App::ScenarioError& e) {
      std::cerr << "connroute: " << e.what() << "\n";
      return 2;
   } catch (const App::LiveError& e) {
      std::cerr << "connroute: live: " << e.what() << "\n";
      return 2;
   } catch (const App::ShowError& e) {
      std::cerr << "connroute: show: " << e.what() << "\n";
      return 2;
   } catch (const App::OutputError& e) {
      std::cerr << "connroute: " << e.what() << "\n";
      return 1;
   } catch (const std::exception& e) {
      std::cerr << "connroute: " << e.what() << "\n";
      return 1;
   }
}
