// The scenario reader refuses bad input with the file, the step and what is
// wrong, and the dry run refuses scenarios on which the engine would stop.
#include "app/Scenario.h"

#include <gtest/gtest.h>

#include "app/Player.h"

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
                  "secondaries": {"10.1.0.1/24": true}, "directedBroadcast": true}},
        {"ipv6": {"vrf": "red", "intf": "Ethernet1", "add": ["2001:db8::1/64"]}},
        {"startReadyVerification": true},
        {"advance": "150ms"}, {"run": {"limit": "10s"}}, {"dump": "end"}, {"stop": {}}
      ]})",
                                    "all.json");
   ASSERT_EQ(s.steps.size(), 17u);
   EXPECT_DOUBLE_EQ(s.stepPerReading, 2e-6);
   EXPECT_DOUBLE_EQ(std::get<AdvanceStep>(s.steps[13].action).seconds, 0.15);
   EXPECT_FALSE(std::get<VrfIdMapStep>(s.steps[5].action).entries.at(L3::VrfName("red")).isValid());
   EXPECT_EQ(std::get<Ipv4Step>(s.steps[10].action).secondaries.size(), 1u);
}

TEST(ScenarioDryRun, RefusesAScenarioOnWhichTheEngineWouldStop) {
   const Scenario s = parseScenario(R"({"steps": [
        {"start": {}},
        {"vrfIdMap": {"set": {"default": 0}}},
        {"kernel": {"netns": "default", "up": ["Ethernet1"]}},
        {"ipv4": {"vrf": "default", "intf": "Ethernet1", "active": "10.0.0.1/24",
                  "secondaries": {"10.1.0.1/24": false}}},
        {"run": "idle"}
      ]})",
                                    "hazard.json");
   try {
      dryRun(s);
      FAIL() << "accepted";
   } catch (const ScenarioError& e) {
      EXPECT_NE(std::string(e.what()).find(
                      "hazard.json: step 4 (ipv4): the engine would stop here: assertion failed: "
                      "intfIdSet"),
                std::string::npos)
            << e.what();
   }
}

TEST(ScenarioDryRun, AcceptsAScenarioTheEngineCanPlay) {
   const Scenario s = parseScenario(R"({"steps": [
        {"start": {}}, {"vrfIdMap": {"set": {"default": 0}}}, {"run": "idle"}, {"dump": "x"}]})",
                                    "fine.json");
   EXPECT_NO_THROW(dryRun(s));
   int dumps = 0;
   play(s, [&](const Snapshot& snapshot) {
      ++dumps;
      ASSERT_EQ(snapshot.vrfs.size(), 1u);
      EXPECT_EQ(snapshot.vrfs[0].name, "default");
      EXPECT_EQ(snapshot.vrfs[0].v4Ready, true);
   });
   EXPECT_EQ(dumps, 1);
}

}  // namespace
}  // namespace App
