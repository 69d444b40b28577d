#include "app/Scenario.h"

#include <cmath>
#include <regex>
#include <set>

#include <nlohmann/json.hpp>

#include "app/ScenarioDocument.h"
#include "app/ScenarioValues.h"
#include "platform/ovel/IpGenPrefix.h"

namespace App {

using nlohmann::json;

namespace {

using namespace ScenarioValues;

const std::set<std::string> kEnvironment = {"CONNECTEDROUTE_INTFENTRY_WITHOUT_KERNEL_INTF",
                                            "INTERFACEROUTEINFOSM_TEST", "ZMFILE"};

// Stale via sets are made one by one: a count is a size, bounded like one.
constexpr std::size_t kMaxStaleViaSets = 1'000'000;

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

Action parseVrfIdMap(const json& /*value*/, Reader& r) {
   return vrfIdMapStep(r);
}

Action parseVrfLocal(const json& /*value*/, Reader& r) {
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

Action parseKernel(const json& /*value*/, Reader& r) {
   KernelStep s;
   s.netns = r.get("netns", netns);
   auto devices = [](const json& v) { return list(v, device); };
   s.up = r.maybe("up", devices).value_or(std::vector<std::string>{});
   s.down = r.maybe("down", devices).value_or(std::vector<std::string>{});
   return s;
}

Action parseInterface(const json& /*value*/, Reader& r) {
   InterfaceStep s;
   s.intf = r.get("intf", intfId);
   s.remove = flagTrue(r, "remove");
   s.device = r.maybe("device", device);
   s.netns = r.maybe("netns", netns);
   return s;
}

Action parseIpv4(const json& /*value*/, Reader& r) {
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
   auto prefixes = [](const json& v) { return list(v, peerPrefix<Ovel::IpAddrWithMask>); };
   s.peers = r.maybe("peers", prefixes).value_or(std::vector<Ovel::IpAddrWithMask>{});
   s.removePeers = r.maybe("removePeers", prefixes).value_or(std::vector<Ovel::IpAddrWithMask>{});
   return s;
}

Action parseIpv6(const json& /*value*/, Reader& r) {
   Ipv6Step s;
   s.vrf = r.get("vrf", vrfName);
   s.intf = r.get("intf", intfId);
   s.remove = flagTrue(r, "removeInterface");
   auto addrs = [](const json& v) { return list(v, v6); };
   s.add = r.maybe("add", addrs).value_or(std::vector<Ovel::Ip6AddrWithMask>{});
   s.removeAddrs = r.maybe("remove", addrs).value_or(std::vector<Ovel::Ip6AddrWithMask>{});
   s.makeDefault = r.maybe("default", addrs).value_or(std::vector<Ovel::Ip6AddrWithMask>{});
   auto prefixes = [](const json& v) { return list(v, peerPrefix<Ovel::Ip6AddrWithMask>); };
   s.peers = r.maybe("peers", prefixes).value_or(std::vector<Ovel::Ip6AddrWithMask>{});
   s.removePeers = r.maybe("removePeers", prefixes).value_or(std::vector<Ovel::Ip6AddrWithMask>{});
   return s;
}

// ipv4Collection and ipv6Collection.
Action parseCollection(int family, Reader& r) {
   return CollectionStep{family, r.get("vrf", vrfName), r.get("present", boolean)};
}

Action parseRibAwaits(const json& /*value*/, Reader& r) {
   auto names = [](const json& v) { return list(v, vrfName); };
   return RibAwaitsStep{r.maybe("add", names).value_or(std::vector<L3::VrfName>{}),
                        r.maybe("remove", names).value_or(std::vector<L3::VrfName>{})};
}

Action parseStart(const json& /*value*/, Reader& r) {
   return StartStep{r.maybe("startupMode", startupMode).value_or(Agent::StartupMode::coldStart)};
}

Action parseStop(const json& /*value*/, Reader& /*r*/) {
   return StopStep{};
}

Action parseStartReadyVerification(const json& value, Reader& /*r*/) {
   return VerificationStep{boolean(value)};
}

Action parseToggle(const json& value, Reader& r) {
   if (value.size() != 1) {
      r.fail("expected one toggle, like {\"VrfScaleToggle\": true}");
   }
   const std::string name = value.begin().key();
   if (!knownToggles().contains(name)) {
      r.fail("unknown toggle '" + name + "' (" + knownTogglesText() + ")");
   }
   return ToggleStep{name, r.get(name, boolean)};
}

Action parseEnv(const json& /*value*/, Reader& r) {
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

Action parseAdvance(const json& value, Reader& /*r*/) {
   return AdvanceStep{duration(value)};
}

Action parseRun(const json& value, Reader& r) {
   if (value.is_string() && value.get<std::string>() == "idle") {
      return RunStep{3600.0};
   }
   return RunStep{r.get("limit", duration)};
}

Action parseDump(const json& value, Reader& /*r*/) {
   return DumpStep{text(value)};
}

Action parseStale(const json& /*value*/, Reader& r) {
   StaleStep s;
   s.vrfId = r.get("vrfId", vrfId);
   auto prefixes = [](Ovel::AddressFamily family) {
      return [family](const json& v) {
         return list(v, [family](const json& p) {
            const Ovel::IpGenPrefix prefix = Ovel::IpGenPrefix::parse(text(p));
            if (prefix.af() != family) {
               throw std::invalid_argument("'" + prefix.toString() + "' is not an " +
                                           (family == Ovel::AddressFamily::ipv4 ? "IPv4" : "IPv6") +
                                           " prefix");
            }
            return prefix.toString();
         });
      };
   };
   s.ipv4Routes = r.maybe("ipv4Routes", prefixes(Ovel::AddressFamily::ipv4))
                        .value_or(std::vector<std::string>{});
   s.ipv6Routes = r.maybe("ipv6Routes", prefixes(Ovel::AddressFamily::ipv6))
                        .value_or(std::vector<std::string>{});
   s.vias = r.maybe("vias", [](const json& v) { return list(v, intfId); })
                  .value_or(std::vector<Ovel::IntfId>{});
   s.viaSets = r.maybe("viaSets", [](const json& v) {
                   if (!v.is_number_unsigned() || v.get<std::uint64_t>() > kMaxStaleViaSets) {
                      throw std::invalid_argument("expected a count 0.." +
                                                  std::to_string(kMaxStaleViaSets));
                   }
                   return v.get<std::size_t>();
                }).value_or(0);
   s.protoVrfStatus = r.maybe("protoVrfStatus", [](const json& v) { return list(v, vrfName); })
                            .value_or(std::vector<L3::VrfName>{});
   return s;
}

using StepParser = Action (*)(const json& value, Reader& r);

// Every step kind with its parser, in the order the documentation gives.
const std::vector<std::pair<std::string_view, StepParser>>& stepParsers() {
   static const std::vector<std::pair<std::string_view, StepParser>> parsers = {
         {"vrfIdMap", parseVrfIdMap},
         {"vrfLocal", parseVrfLocal},
         {"kernel", parseKernel},
         {"interface", parseInterface},
         {"ipv4", parseIpv4},
         {"ipv6", parseIpv6},
         {"ipv4Collection", [](const json&, Reader& r) { return parseCollection(4, r); }},
         {"ipv6Collection", [](const json&, Reader& r) { return parseCollection(6, r); }},
         {"ribAwaits", parseRibAwaits},
         {"start", parseStart},
         {"stop", parseStop},
         {"startReadyVerification", parseStartReadyVerification},
         {"toggle", parseToggle},
         {"env", parseEnv},
         {"advance", parseAdvance},
         {"run", parseRun},
         {"dump", parseDump},
         {"stale", parseStale},
   };
   return parsers;
}

Action parseAction(const std::string& kind, const json& value, Reader& r) {
   std::string kinds;
   for (const auto& [name, parse] : stepParsers()) {
      if (name == kind) {
         return parse(value, r);
      }
      kinds += (kinds.empty() ? "" : ", ") + std::string(name);
   }
   r.fail("unknown step kind '" + kind + "' (" + kinds + ")");
}

// Steps whose value is not an object of fields.
bool scalarValued(const std::string& kind, const json& value) {
   return kind == "startReadyVerification" || kind == "advance" || kind == "dump" ||
          (kind == "run" && value.is_string());
}

}  // namespace

Vok::Seconds parseDuration(const std::string& text) {
   // Digits, an optional fraction and a unit, nothing else: no sign, no
   // space, no hexadecimal, no "nan" or "inf" that would stop virtual time.
   static const std::regex kDuration(R"(([0-9]+(\.[0-9]+)?)(s|ms|us|m))");
   static const std::map<std::string, double> kUnits = {
         {"s", 1.0}, {"ms", 1e-3}, {"us", 1e-6}, {"m", 60.0}};
   std::smatch match;
   if (text.size() > 32 || !std::regex_match(text, match, kDuration)) {
      throw std::invalid_argument("bad duration '" + text.substr(0, 40) +
                                  "' (like 100ms, 1.5s, 40us, 2m)");
   }
   return checkedDuration(std::stod(match[1]) * kUnits.at(match[3]));
}

Vok::Seconds checkedDuration(double seconds) {
   if (!std::isfinite(seconds) || seconds < 0 || seconds > kMaxDurationSeconds) {
      throw std::invalid_argument("duration out of range (0 to " +
                                  std::to_string(static_cast<long>(kMaxDurationSeconds)) + " s)");
   }
   return seconds;
}

const std::set<std::string>& knownToggles() {
   static const std::set<std::string> toggles = {"VrfScaleToggle"};
   return toggles;
}

std::string knownTogglesText() {
   std::string out;
   for (const std::string& name : knownToggles()) {
      out += (out.empty() ? "" : ", ") + name;
   }
   return out;
}

namespace {

json readDocument(const std::string& source, const std::string& name) {
   if (auto nul = source.find('\0'); nul != std::string::npos) {
      throw ScenarioError(name + ": not a text file: NUL byte at byte " + std::to_string(nul));
   }
   try {
      return DocumentReader::read(source);
   } catch (const JsonSyntaxError& e) {
      throw ScenarioError(name + ": not valid JSON: " + e.what());
   } catch (const DocumentError& e) {
      throw ScenarioError(name + ": " + e.what());
   }
}

// One step: its one key is its kind, parsed by the kind's parser.
Action parseStep(const json& step, const std::string& where) {
   if (!step.is_object() || step.size() != 1) {
      throw ScenarioError(where + ": a step is an object with exactly one key, its kind");
   }
   const std::string kind = step.begin().key();
   const json& value = step.begin().value();
   Reader reader(value, where + " (" + kind + "): ");
   try {
      Action action = parseAction(kind, value, reader);
      if (!scalarValued(kind, value) && kind != "env" && kind != "toggle") {
         reader.done();
      }
      return action;
   } catch (const ScenarioError&) {
      throw;
   } catch (const std::exception& e) {
      throw ScenarioError(where + " (" + kind + "): " + e.what());
   }
}

// The agent's lifetime across the steps: verification needs a running
// agent, and stale rows are what an earlier run left behind, so while the
// agent runs it is the only writer of its tables.
void checkLifetime(const Action& action, const std::string& context, bool& running) {
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
   } else if (std::holds_alternative<StaleStep>(action) && running) {
      throw ScenarioError(context + "stale rows are left by an earlier run: write them before "
                                    "'start' (or after 'stop'), not while the agent runs");
   }
}

}  // namespace

Scenario parseScenario(const std::string& source, const std::string& name) {
   const json document = readDocument(source, name);
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
      Action action = parseStep(step, where);
      const std::string kind = step.begin().key();
      checkLifetime(action, where + " (" + kind + "): ", running);
      scenario.steps.push_back(Step{number, kind, std::move(action)});
   }
   return scenario;
}

}  // namespace App
