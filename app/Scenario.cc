#include "app/Scenario.h"

#include <fstream>
#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

#include "app/ScenarioValues.h"
#include "platform/ovel/IpGenPrefix.h"

namespace App {

using nlohmann::json;

namespace {

using namespace ScenarioValues;

const std::set<std::string> kEnvironment = {"CONNECTEDROUTE_INTFENTRY_WITHOUT_KERNEL_INTF",
                                            "INTERFACEROUTEINFOSM_TEST", "ZMFILE"};
const std::set<std::string> kToggles = {"VrfScaleToggle"};

Action vrfIdMapStep(Reader& r) {
   VrfIdMapStep s{};
   int ops = 0;
   if (r.has("set")) {
      s = {VrfIdMapStep::Op::set, r.get("set", idMap), {}};
      ++ops;
   }
   if (r.has("replace")) {
      s = {VrfIdMapStep::Op::replace, r.get("replace", idMap), {}};
      ++ops;
   }
   if (r.has("remove")) {
      s = {VrfIdMapStep::Op::remove, {}, r.get("remove", [](const json& v) { return list(v, vrfName); })};
      ++ops;
   }
   if (r.has("clear")) {
      if (!r.get("clear", boolean)) {
         r.fail("'clear' must be true");
      }
      s = {VrfIdMapStep::Op::clear, {}, {}};
      ++ops;
   }
   if (ops != 1) {
      r.fail("expected exactly one of 'set', 'replace', 'remove', 'clear'");
   }
   return s;
}

Ip::VrfState vrfState(const json& v) {
   const std::string t = text(v);
   if (t == "active") return Ip::VrfState::active;
   if (t == "inactive") return Ip::VrfState::inactive;
   if (t == "deleting") return Ip::VrfState::deleting;
   throw std::invalid_argument("unknown state '" + t + "' (active, inactive, deleting)");
}

Agent::StartupMode startupMode(const json& v) {
   const std::string t = text(v);
   if (t == "coldStart") return Agent::StartupMode::coldStart;
   if (t == "hitlessRestart") return Agent::StartupMode::hitlessRestart;
   throw std::invalid_argument("unknown start-up mode '" + t + "' (coldStart, hitlessRestart)");
}

bool flagTrue(Reader& r, const std::string& name) { return r.has(name) && r.get(name, boolean); }

Action parseAction(const std::string& kind, const json& value, Reader& r) {
   if (kind == "vrfIdMap") {
      return vrfIdMapStep(r);
   }
   if (kind == "vrfLocal") {
      VrfLocalStep s;
      s.vrf = r.get("vrf", vrfName);
      s.remove = flagTrue(r, "remove");
      s.state = r.maybe("state", vrfState);
      s.netns = r.maybe("netns", netns);
      if (s.remove == (s.state || s.netns)) {
         r.fail(s.remove ? "'remove' takes no other field" : "expected 'state', 'netns' or 'remove'");
      }
      return s;
   }
   if (kind == "kernel") {
      KernelStep s;
      s.netns = r.get("netns", netns);
      auto devices = [](const json& v) { return list(v, device); };
      s.up = r.maybe("up", devices).value_or(std::vector<std::string>{});
      s.down = r.maybe("down", devices).value_or(std::vector<std::string>{});
      return s;
   }
   if (kind == "interface") {
      InterfaceStep s;
      s.intf = r.get("intf", intfId);
      s.remove = flagTrue(r, "remove");
      s.device = r.maybe("device", device);
      s.netns = r.maybe("netns", netns);
      return s;
   }
   if (kind == "ipv4") {
      Ipv4Step s;
      s.vrf = r.get("vrf", vrfName);
      s.intf = r.get("intf", intfId);
      s.remove = flagTrue(r, "removeInterface");
      s.active = r.maybe("active", v4);
      if (r.has("secondaries")) {
         const json& secondaries = r.field("secondaries");
         if (!secondaries.is_object()) {
            r.fail("field 'secondaries': expected an object of addresses to true or false");
         }
         for (const auto& [addr, active] : secondaries.items()) {
            try {
               s.secondaries.emplace(Ovel::IpAddrWithMask::parse(addr), boolean(active));
            } catch (const std::exception& e) {
               r.fail("field 'secondaries': " + std::string(e.what()));
            }
         }
      }
      s.removeSecondaries = r.maybe("removeSecondaries", [](const json& v) { return list(v, v4); })
                                  .value_or(std::vector<Ovel::IpAddrWithMask>{});
      s.directedBroadcast = r.maybe("directedBroadcast", boolean);
      return s;
   }
   if (kind == "ipv6") {
      Ipv6Step s;
      s.vrf = r.get("vrf", vrfName);
      s.intf = r.get("intf", intfId);
      s.remove = flagTrue(r, "removeInterface");
      auto addrs = [](const json& v) { return list(v, v6); };
      s.add = r.maybe("add", addrs).value_or(std::vector<Ovel::Ip6AddrWithMask>{});
      s.removeAddrs = r.maybe("remove", addrs).value_or(std::vector<Ovel::Ip6AddrWithMask>{});
      s.makeDefault = r.maybe("default", addrs).value_or(std::vector<Ovel::Ip6AddrWithMask>{});
      return s;
   }
   if (kind == "ipv4Collection" || kind == "ipv6Collection") {
      return CollectionStep{kind == "ipv4Collection" ? 4 : 6, r.get("vrf", vrfName),
                            r.get("present", boolean)};
   }
   if (kind == "ribAwaits") {
      auto names = [](const json& v) { return list(v, vrfName); };
      return RibAwaitsStep{r.maybe("add", names).value_or(std::vector<L3::VrfName>{}),
                           r.maybe("remove", names).value_or(std::vector<L3::VrfName>{})};
   }
   if (kind == "start") {
      return StartStep{r.maybe("startupMode", startupMode).value_or(Agent::StartupMode::coldStart)};
   }
   if (kind == "stop") {
      return StopStep{};
   }
   if (kind == "startReadyVerification") {
      return VerificationStep{boolean(value)};
   }
   if (kind == "toggle") {
      if (value.size() != 1) {
         r.fail("expected one toggle, like {\"VrfScaleToggle\": true}");
      }
      const std::string name = value.begin().key();
      if (!kToggles.contains(name)) {
         r.fail("unknown toggle '" + name + "' (VrfScaleToggle)");
      }
      return ToggleStep{name, r.get(name, boolean)};
   }
   if (kind == "env") {
      EnvStep s;
      for (const auto& [name, v] : r.object().items()) {
         if (!kEnvironment.contains(name)) {
            r.fail("unknown environment variable '" + name + "'");
         }
         r.field(name);
         if (v.is_null()) {
            s.values[name] = std::nullopt;
         } else if (v.is_string()) {
            s.values[name] = v.get<std::string>();
         } else {
            r.fail("variable '" + name + "': expected a string, or null to unset it");
         }
      }
      return s;
   }
   if (kind == "advance") {
      return AdvanceStep{duration(value)};
   }
   if (kind == "run") {
      if (value.is_string() && value.get<std::string>() == "idle") {
         return RunStep{3600.0};
      }
      return RunStep{r.get("limit", duration)};
   }
   if (kind == "dump") {
      return DumpStep{text(value)};
   }
   if (kind == "stale") {
      StaleStep s;
      s.vrfId = r.get("vrfId", vrfId);
      auto prefixes = [](const json& v) {
         return list(v, [](const json& p) { return Ovel::IpGenPrefix::parse(text(p)).toString(); });
      };
      s.ipv4Routes = r.maybe("ipv4Routes", prefixes).value_or(std::vector<std::string>{});
      s.ipv6Routes = r.maybe("ipv6Routes", prefixes).value_or(std::vector<std::string>{});
      s.vias = r.maybe("vias", [](const json& v) { return list(v, intfId); })
                     .value_or(std::vector<Ovel::IntfId>{});
      s.viaSets = r.maybe("viaSets", [](const json& v) {
                      if (!v.is_number_unsigned()) {
                         throw std::invalid_argument("expected a count");
                      }
                      return v.get<std::size_t>();
                   }).value_or(0);
      s.protoVrfStatus = r.maybe("protoVrfStatus", [](const json& v) { return list(v, vrfName); })
                               .value_or(std::vector<L3::VrfName>{});
      return s;
   }
   r.fail("unknown step kind '" + kind +
          "' (vrfIdMap, vrfLocal, kernel, interface, ipv4, ipv6, ipv4Collection, ipv6Collection, "
          "ribAwaits, start, stop, startReadyVerification, toggle, env, advance, run, dump, stale)");
}

// Steps whose value is not an object of fields.
bool scalarValued(const std::string& kind, const json& value) {
   return kind == "startReadyVerification" || kind == "advance" || kind == "dump" ||
          (kind == "run" && value.is_string());
}

}  // namespace

Vok::Seconds parseDuration(const std::string& text) {
   std::size_t used = 0;
   double number = 0;
   try {
      number = std::stod(text, &used);
   } catch (const std::exception&) {
      throw std::invalid_argument("bad duration '" + text + "' (like 100ms, 1.5s, 40us)");
   }
   const std::string unit = text.substr(used);
   static const std::map<std::string, double> kUnits = {
         {"s", 1.0}, {"ms", 1e-3}, {"us", 1e-6}, {"m", 60.0}};
   auto it = kUnits.find(unit);
   if (it == kUnits.end() || number < 0) {
      throw std::invalid_argument("bad duration '" + text + "' (like 100ms, 1.5s, 40us)");
   }
   return number * it->second;
}

Scenario parseScenario(const std::string& source, const std::string& name) {
   json document;
   try {
      document = json::parse(source, nullptr, true, /*ignore_comments=*/true);
   } catch (const json::parse_error& e) {
      throw ScenarioError(name + ": not valid JSON: " + e.what());
   }
   Scenario scenario;
   scenario.name = name;
   Reader top(document, name + ": ");
   if (top.has("description")) {
      scenario.description = top.get("description", text);
   }
   if (top.has("stepPerReading")) {
      scenario.stepPerReading = top.get("stepPerReading", duration);
   }
   const json& steps = top.field("steps");
   top.done();
   if (!steps.is_array()) {
      throw ScenarioError(name + ": 'steps' must be a list");
   }
   std::size_t number = 0;
   bool running = false;
   for (const json& step : steps) {
      ++number;
      const std::string where = name + ": step " + std::to_string(number);
      if (!step.is_object() || step.size() != 1) {
         throw ScenarioError(where + ": a step is an object with exactly one key, its kind");
      }
      const std::string kind = step.begin().key();
      const json& value = step.begin().value();
      Reader reader(value, where + " (" + kind + "): ");
      Action action;
      try {
         action = parseAction(kind, value, reader);
         if (!scalarValued(kind, value) && kind != "env" && kind != "toggle") {
            reader.done();
         }
      } catch (const ScenarioError&) {
         throw;
      } catch (const std::exception& e) {
         throw ScenarioError(where + " (" + kind + "): " + e.what());
      }
      // The agent's lifetime: verification needs a running agent.
      const std::string context = where + " (" + kind + "): ";
      if (std::holds_alternative<StartStep>(action)) {
         if (running) {
            throw ScenarioError(context + "the agent is already running (stop it first)");
         }
         running = true;
      } else if (std::holds_alternative<StopStep>(action)) {
         if (!running) {
            throw ScenarioError(context + "the agent is not running");
         }
         running = false;
      } else if (std::holds_alternative<VerificationStep>(action) && !running) {
         throw ScenarioError(context + "the agent is not running (start it first)");
      }
      scenario.steps.push_back(Step{number, kind, std::move(action)});
   }
   return scenario;
}

Scenario loadScenario(const std::string& path) {
   std::ifstream in(path);
   if (!in) {
      throw ScenarioError(path + ": cannot read the file");
   }
   std::stringstream buffer;
   buffer << in.rdbuf();
   return parseScenario(buffer.str(), path);
}

}  // namespace App
