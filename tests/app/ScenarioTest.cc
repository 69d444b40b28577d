// The scenario reader refuses bad input with the file, the step and what is
// wrong, and the dry run refuses scenarios on which the engine would stop.
#include "app/Scenario.h"

#include <gtest/gtest.h>

#include "app/Player.h"

#include <sys/mman.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

namespace App {
namespace {

std::string errorOf(const std::string& steps) {
   try {
      parseScenario("{\"steps\": [" + steps + "]}", "s.json");
   } catch (const ScenarioError& e) {
      return e.what();
   }
   return "";
}

TEST(ScenarioReader, RefusesBadInputNamingFileStepAndProblem) {
   struct Row {
      std::string steps;
      std::string expected;  // a part of the message
   };
   const std::string longName(101, 'v');
   for (const Row& row : std::vector<Row>{
              {R"({"teleport": {}})", "s.json: step 1 (teleport): unknown step kind 'teleport'"},
              {R"({"run": "idle"}, {"ipv4": {"vrf": "red", "intf": "Ethernet1", "active": "10.0.0.300/24"}})",
               "s.json: step 2 (ipv4): field 'active':"},
              {R"({"vrfLocal": {"vrf": ")" + longName + R"(", "state": "active"}})",
               "step 1 (vrfLocal): field 'vrf': VrfName::bytes > 100 not allowed"},
              {R"({"kernel": {"netns": ")" + std::string(151, 'n') + R"("}})",
               "NamespaceName::bytes > 150 not allowed"},
              {R"({"ipv4": {"vrf": "red", "intf": "Ethernet1", "activ": "10.0.0.1/24"}})",
               "step 1 (ipv4): unknown field 'activ'"},
              {R"({"ipv6": {"vrf": "red", "add": ["2001:db8::1/64"]}})",
               "step 1 (ipv6): missing field 'intf'"},
              {R"({"advance": "soon"})", "step 1 (advance): bad duration 'soon'"},
              {R"({"vrfIdMap": {"set": {"red": -1}}})", "step 1 (vrfIdMap): field 'set':"},
              {R"({"vrfIdMap": {"set": {"red": 1}, "clear": true}})", "exactly one of"},
              {R"({"env": {"PATH": "/"}})", "unknown environment variable 'PATH'"},
              {R"({"toggle": {"FastPath": true}})", "unknown toggle 'FastPath'"},
              {R"({"start": {"startupMode": "warm"}})", "unknown start-up mode 'warm'"},
              {R"({"dump": "a", "run": "idle"})", "a step is an object with exactly one key"},
              {R"({"startReadyVerification": true})", "step 1 (startReadyVerification): the agent is not running"},
              {R"({"start": {}}, {"start": {}})", "step 2 (start): the agent is already running"},
        }) {
      SCOPED_TRACE(row.steps);
      EXPECT_NE(errorOf(row.steps).find(row.expected), std::string::npos) << errorOf(row.steps);
   }
   try {
      parseScenario("{\"steps\": [ // unterminated", "broken.json");
      FAIL() << "parsed";
   } catch (const ScenarioError& e) {
      EXPECT_TRUE(std::string(e.what()).starts_with("broken.json: not valid JSON")) << e.what();
   }
}

// Values JSON allows that would freeze virtual time, drop input silently or
// print as something else: each is refused where it stands.
TEST(ScenarioReader, RefusesValuesThatWouldMisbehaveLater) {
   struct Row {
      std::string steps;
      std::string expected;
   };
   for (const Row& row : std::vector<Row>{
              {R"({"advance": "nans"})", "step 1 (advance): bad duration 'nans'"},
              {R"({"advance": "infs"})", "bad duration 'infs'"},
              {R"({"advance": "0x10s"})", "bad duration '0x10s'"},
              {R"({"advance": "  5s"})", "bad duration '  5s'"},
              {R"({"advance": "-5s"})", "bad duration '-5s'"},
              {R"({"advance": "1e3s"})", "bad duration '1e3s'"},
              {R"({"advance": 1e300})", "step 1 (advance): duration out of range"},
              {R"({"run": {"limit": "99999999s"}})", "field 'limit': duration out of range"},
              {R"({"ipv4": {"vrf": "red", "intf": "", "active": "10.0.0.1/24"}})",
               "step 1 (ipv4): field 'intf': empty name"},
              {R"({"ipv4": {"vrf": " red", "intf": "Ethernet1"}})", "field 'vrf': name ' red' starts or ends"},
              {R"({"vrfLocal": {"vrf": "red", "netns": "ns ", "state": "active"}})",
               "field 'netns': name 'ns ' starts or ends with a space"},
              {R"({"vrfIdMap": {"set": {"": 1}}})", "VRF '': empty name"},
              {R"({"stale": {"vrfId": 1, "ipv4Routes": ["2001:db8::/64"]}})",
               "field 'ipv4Routes': '2001:db8::/64' is not an IPv4 prefix"},
              {R"({"stale": {"vrfId": 1, "ipv6Routes": ["10.0.0.0/8"]}})", "is not an IPv6 prefix"},
              {R"({"stale": {"vrfId": 1, "viaSets": 1000000000000}})", "field 'viaSets': expected a count"},
              {R"({"start": {}}, {"stale": {"vrfId": 1, "viaSets": 1}})",
               "step 2 (stale): stale rows are left by an earlier run"},
              {R"({"dump": "x\n=== forged"})", "step 1 (dump): string 'x...' holds the control character U+000A"},
              {R"({"ipv4": {"vrf": "red", "intf": "Ethernet1", "secondaries": {"10.0.0.1/24\t": true}}})",
               "step 1 (ipv4), field 'secondaries': key '10.0.0.1/24...' holds the control character U+0009"},
              {R"({"ipv4": {"vrf": "red", "vrf": "blue", "intf": "Ethernet1"}})",
               "step 1 (ipv4): duplicate key 'vrf'"},
              {R"({"ipv4": {"vrf": "red", "intf": "Tunnel1", "peers": ["10.9.1.1/30"]}})",
               "step 1 (ipv4): field 'peers': peer prefix '10.9.1.1/30' has host bits set"},
              {R"({"ipv6": {"vrf": "red", "intf": "Tunnel1", "removePeers": ["2001:db8::1/64"]}})",
               "step 1 (ipv6): field 'removePeers': peer prefix '2001:db8::1/64' has host bits set"},
              {R"({"dump": "a\u009bb"})", "holds the control character U+009B"},
              {R"({"dump": "a\u202eb"})", "holds the control character U+202E"},
        }) {
      SCOPED_TRACE(row.steps);
      EXPECT_NE(errorOf(row.steps).find(row.expected), std::string::npos) << errorOf(row.steps);
   }
   // Other characters outside ASCII are names and labels like any.
   EXPECT_EQ(errorOf(R"({"dump": "caf\u00e9 \u2192 ok"})"), "");
}

TEST(ScenarioReader, RefusesDocumentsAParserWouldReadOnlyInPart) {
   struct Row {
      std::string text;
      std::string expected;
   };
   for (const Row& row : std::vector<Row>{
              {R"({"steps": [], "steps": [{"start": {}}]})", "d.json: duplicate key 'steps'"},
              {R"({"description": "a", "description": "b", "steps": []})", "duplicate key 'description'"},
              {std::string("{\"steps\": []}") + '\0' + "{\"steps\": 1}", "d.json: not a text file: NUL byte at byte 13"},
              {R"({"description": "line\rfeed", "steps": []})",
               "field 'description': string 'line...' holds the control character U+000D"},
              {R"({"steps": [{"start": {}}, "bare\u0001"]})",
               "step 2: string 'bare...' holds the control character U+0001"},
              {R"({"steps": [{"start": {}}], "x": [1e999]})", "not valid JSON: "},
              {R"({"steps": [{"start": {}})", "not valid JSON: "},
        }) {
      SCOPED_TRACE(row.text);
      try {
         parseScenario(row.text, "d.json");
         ADD_FAILURE() << "parsed";
      } catch (const ScenarioError& e) {
         EXPECT_NE(std::string(e.what()).find(row.expected), std::string::npos) << e.what();
      }
   }
}

TEST(ScenarioReader, ReadsEveryStepKind) {
   const Scenario s = parseScenario(R"({
      // comments are allowed
      "description": "all kinds", "stepPerReading": "2us",
      "steps": [
        {"env": {"INTERFACEROUTEINFOSM_TEST": "0", "ZMFILE": null}},
        {"toggle": {"VrfScaleToggle": false}},
        {"ribAwaits": {"add": ["red"]}},
        {"stale": {"vrfId": 1, "ipv4Routes": ["10.9.0.0/16"], "vias": ["Ethernet9"], "viaSets": 2}},
        {"start": {"startupMode": "hitlessRestart"}},
        {"vrfIdMap": {"replace": {"default": 0, "red": "invalid"}}},
        {"vrfLocal": {"vrf": "red", "netns": "ns-red", "state": "inactive"}},
        {"interface": {"intf": "Ethernet1", "device": "et1", "netns": "ns-red"}},
        {"kernel": {"netns": "ns-red", "up": ["et1"], "down": ["et2"]}},
        {"ipv4Collection": {"vrf": "red", "present": true}},
        {"ipv4": {"vrf": "red", "intf": "Ethernet1", "active": "10.0.0.1/24",
                  "secondaries": {"10.1.0.1/24": true}, "directedBroadcast": true,
                  "peers": ["10.9.1.0/30"], "removePeers": ["10.9.2.0/30"]}},
        {"ipv6": {"vrf": "red", "intf": "Ethernet1", "add": ["2001:db8::1/64"],
                  "peers": ["2001:db8:2::1/128"]}},
        {"startReadyVerification": true},
        {"advance": "150ms"}, {"run": {"limit": "10s"}}, {"dump": "end"}, {"stop": {}}
      ]})",
                                    "all.json");
   ASSERT_EQ(s.steps.size(), 17u);
   EXPECT_DOUBLE_EQ(s.stepPerReading, 2e-6);
   EXPECT_DOUBLE_EQ(std::get<AdvanceStep>(s.steps[13].action).seconds, 0.15);
   EXPECT_FALSE(std::get<VrfIdMapStep>(s.steps[5].action).entries.at(L3::VrfName("red")).isValid());
   EXPECT_EQ(std::get<Ipv4Step>(s.steps[10].action).secondaries.size(), 1u);
   EXPECT_EQ(std::get<Ipv4Step>(s.steps[10].action).peers,
             std::vector{Ovel::IpAddrWithMask::parse("10.9.1.0/30")});
   EXPECT_EQ(std::get<Ipv4Step>(s.steps[10].action).removePeers.size(), 1u);
   EXPECT_EQ(std::get<Ipv6Step>(s.steps[11].action).peers.size(), 1u);
}

// The output of a play, written to an unnamed file and read back.
struct Played {
   std::string output;
   std::string error;  // the ScenarioError's text, if any
};

Played playTo(const Scenario& s, OutputFormat format) {
   const int fd = ::memfd_create("played", 0);
   Played out;
   try {
      play(s, format, fd);
   } catch (const ScenarioError& e) {
      out.error = e.what();
   }
   out.output.resize(static_cast<std::size_t>(::lseek(fd, 0, SEEK_END)));
   ::pread(fd, out.output.data(), out.output.size(), 0);
   ::close(fd);
   return out;
}

TEST(Player, RefusesAScenarioOnWhichTheEngineStopsNamingTheStepAndPrintsNothing) {
   const Scenario s = parseScenario(R"({"steps": [
        {"start": {}},
        {"vrfIdMap": {"set": {"default": 0}}},
        {"dump": "before"},
        {"kernel": {"netns": "default", "up": ["Ethernet1"]}},
        {"ipv4": {"vrf": "default", "intf": "Ethernet1", "active": "10.0.0.1/24",
                  "secondaries": {"10.1.0.1/24": false}}},
        {"run": "idle"}
      ]})",
                                    "hazard.json");
   const Played played = playTo(s, OutputFormat::text);
   EXPECT_NE(played.error.find("hazard.json: step 5 (ipv4): the engine stopped here: assertion failed: "
                               "intfIdSet"),
             std::string::npos)
         << played.error;
   EXPECT_EQ(played.output, "");
}

TEST(Player, PlaysOnceAndPrintsEveryDumpAsTextOrJson) {
   const Scenario s = parseScenario(R"({"description": "two dumps", "steps": [
        {"start": {}}, {"vrfIdMap": {"set": {"default": 0}}},
        {"kernel": {"netns": "default", "up": ["Ethernet1"]}},
        {"ipv4": {"vrf": "default", "intf": "Ethernet1", "active": "10.0.0.1/31"}},
        {"dump": "empty"}, {"run": "idle"}, {"dump": "routes"}]})",
                                    "fine.json");
   const Played text = playTo(s, OutputFormat::text);
   EXPECT_EQ(text.error, "");
   EXPECT_TRUE(text.output.starts_with("# two dumps\n=== empty (t=1.0000"))
         << text.output;
   EXPECT_NE(text.output.find("=== routes"), std::string::npos);
   EXPECT_NE(text.output.find("    10.0.0.0/31"), std::string::npos);

   const Played json = playTo(s, OutputFormat::json);
   const nlohmann::json document = nlohmann::json::parse(json.output);
   EXPECT_EQ(document["scenario"], "fine.json");
   ASSERT_EQ(document["dumps"].size(), 2u);
   EXPECT_EQ(document["dumps"][0]["vrfs"][0]["ipv4Routes"].size(), 0u);
   const auto& routes = document["dumps"][1]["vrfs"][0]["ipv4Routes"];
   ASSERT_EQ(routes.size(), 2u);
   EXPECT_EQ(routes[0]["prefix"], "10.0.0.0/31");
   EXPECT_EQ(routes[0]["owner"], "Ethernet1");
   EXPECT_EQ(document["dumps"][1]["vrfs"][0]["v4Ready"], true);

   const Played none = playTo(s, OutputFormat::none);
   EXPECT_EQ(none.output, "");
}

// A regular file is written at its end while the play runs, and cut back
// if the play fails; a pipe gets the output only after a play succeeded.
TEST(Player, AFileKeepsWhatItHeldAndAPipeGetsTheSameOutput) {
   const Scenario fine = parseScenario(R"({"steps": [
        {"start": {}}, {"vrfIdMap": {"set": {"default": 0}}},
        {"kernel": {"netns": "default", "up": ["Ethernet1"]}},
        {"ipv4": {"vrf": "default", "intf": "Ethernet1", "active": "10.0.0.1/24"}},
        {"run": "idle"}, {"dump": "routes"}]})",
                                       "fine.json");
   const Scenario stops = parseScenario(R"({"steps": [
        {"start": {}}, {"vrfIdMap": {"set": {"default": 0}}}, {"dump": "before"},
        {"kernel": {"netns": "default", "up": ["Ethernet1"]}},
        {"ipv4": {"vrf": "default", "intf": "Ethernet1", "active": "10.0.0.1/24",
                  "secondaries": {"10.1.0.1/24": false}}},
        {"run": "idle"}]})",
                                        "stops.json");
   const std::string expected = playTo(fine, OutputFormat::text).output;
   ASSERT_NE(expected.find("    10.0.0.0/24"), std::string::npos);

   const int file = ::memfd_create("kept", 0);
   ASSERT_EQ(::write(file, "kept\n", 5), 5);
   EXPECT_THROW(play(stops, OutputFormat::text, file), ScenarioError);
   play(fine, OutputFormat::text, file);
   std::string held(static_cast<std::size_t>(::lseek(file, 0, SEEK_END)), '\0');
   ::pread(file, held.data(), held.size(), 0);
   ::close(file);
   EXPECT_EQ(held, "kept\n" + expected);

   int pipe[2];
   ASSERT_EQ(::pipe(pipe), 0);
   EXPECT_THROW(play(stops, OutputFormat::text, pipe[1]), ScenarioError);
   play(fine, OutputFormat::text, pipe[1]);
   ::close(pipe[1]);
   std::string piped;
   char buffer[4096];
   for (ssize_t n; (n = ::read(pipe[0], buffer, sizeof(buffer))) > 0;) {
      piped.append(buffer, static_cast<std::size_t>(n));
   }
   ::close(pipe[0]);
   EXPECT_EQ(piped, expected);
}

TEST(Player, JsonIsValidWithoutDumpsWithoutVrfsAndWithQueryRows) {
   struct Row {
      const char* name;
      const char* scenario;
      std::size_t dumps;
   };
   for (const Row& row : std::vector<Row>{
              {"no dump", R"({"steps": [{"start": {}}]})", 0},
              {"no VRF", R"({"steps": [{"dump": "nothing"}]})", 1},
              {"query rows", R"({"steps": [{"toggle": {"VrfScaleToggle": true}}, {"start": {}},
                 {"vrfIdMap": {"set": {"default": 0}}}, {"kernel": {"netns": "default", "up": ["e1"]}},
                 {"ipv4": {"vrf": "default", "intf": "e1", "active": "10.0.0.1/32"}},
                 {"run": "idle"}, {"dump": "q"}, {"toggle": {"VrfScaleToggle": false}}]})", 1},
        }) {
      SCOPED_TRACE(row.name);
      const Played json = playTo(parseScenario(row.scenario, "s.json"), OutputFormat::json);
      ASSERT_EQ(json.error, "");
      const nlohmann::json document = nlohmann::json::parse(json.output);
      ASSERT_EQ(document["dumps"].size(), row.dumps);
      if (std::string(row.name) == "query rows") {
         ASSERT_EQ(document["dumps"][0]["queryRows"].size(), 1u);
         EXPECT_EQ(document["dumps"][0]["queryRows"][0]["prefix"], "10.0.0.1/32");
         EXPECT_EQ(document["dumps"][0]["queryRows"][0]["vrfId"], 0);
      }
   }
}

}  // namespace
}  // namespace App
