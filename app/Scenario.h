// A scenario: everything the platform publishes to the engine, step by step,
// and where to dump what the engine wrote. Parsing checks every value up
// front, so a scenario with any error plays nothing.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "platform/agent/StartupMode.h"
#include "platform/ip/VrfStatusLocal.h"
#include "platform/l3/VrfName.h"
#include "platform/ovel/Ip6AddrWithMask.h"
#include "platform/ovel/IpAddrWithMask.h"
#include "platform/ovel/IntfId.h"
#include "platform/ovel/NamespaceName.h"
#include "platform/vok/Time.h"
#include "platform/vrf/VrfId.h"

namespace App {

// A scenario that cannot be played: what, and where ("file: step 3 (ipv4): ...").
class ScenarioError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

struct VrfIdMapStep {
   enum class Op { set, remove, replace, clear };
   Op op;
   std::map<L3::VrfName, Vrf::VrfIdMap::VrfId> entries;  // set, replace
   std::vector<L3::VrfName> names;                        // remove
};

struct VrfLocalStep {
   L3::VrfName vrf;
   bool remove = false;
   std::optional<Ip::VrfState> state;
   std::optional<Ovel::NamespaceName> netns;
};

struct KernelStep {
   Ovel::NamespaceName netns;
   std::vector<std::string> up, down;  // device names
};

struct InterfaceStep {
   Ovel::IntfId intf;
   bool remove = false;
   std::optional<std::string> device;
   std::optional<Ovel::NamespaceName> netns;
};

struct Ipv4Step {
   L3::VrfName vrf;
   Ovel::IntfId intf;
   bool remove = false;
   std::optional<Ovel::IpAddrWithMask> active;
   std::map<Ovel::IpAddrWithMask, bool> secondaries;
   std::vector<Ovel::IpAddrWithMask> removeSecondaries;
   std::optional<bool> directedBroadcast;
   std::vector<Ovel::IpAddrWithMask> peers, removePeers;
};

struct Ipv6Step {
   L3::VrfName vrf;
   Ovel::IntfId intf;
   bool remove = false;
   std::vector<Ovel::Ip6AddrWithMask> add, removeAddrs, makeDefault;
   std::vector<Ovel::Ip6AddrWithMask> peers, removePeers;
};

struct CollectionStep {
   int family;  // 4 or 6
   L3::VrfName vrf;
   bool present;
};

struct RibAwaitsStep {
   std::vector<L3::VrfName> add, remove;
};

struct StartStep {
   Agent::StartupMode mode;
};
struct StopStep {};
struct VerificationStep {
   bool value;
};
struct ToggleStep {
   std::string name;
   bool enabled;
};
struct EnvStep {
   std::map<std::string, std::optional<std::string>> values;  // nothing: unset
};
struct AdvanceStep {
   Vok::Seconds seconds;
};
struct RunStep {
   Vok::Seconds limit;
};
struct DumpStep {
   std::string label;
};
// Rows an earlier run left in the shared tables, for restart scenarios.
struct StaleStep {
   Vrf::VrfIdMap::VrfId vrfId;
   std::vector<std::string> ipv4Routes, ipv6Routes;  // prefixes
   std::vector<Ovel::IntfId> vias;                   // one via per interface and family
   std::size_t viaSets = 0;
   std::vector<L3::VrfName> protoVrfStatus;
};

using Action = std::variant<VrfIdMapStep, VrfLocalStep, KernelStep, InterfaceStep, Ipv4Step,
                            Ipv6Step, CollectionStep, RibAwaitsStep, StartStep, StopStep,
                            VerificationStep, ToggleStep, EnvStep, AdvanceStep, RunStep, DumpStep,
                            StaleStep>;

struct Step {
   std::size_t number;  // 1-based
   std::string kind;
   Action action;
};

struct Scenario {
   std::string name;  // file name, for messages
   std::string description;
   Vok::Seconds stepPerReading = 1e-6;
   std::vector<Step> steps;
};

// Parses a scenario text (JSON with // and /* */ comments). Throws
// ScenarioError naming `name`, the step and the problem.
Scenario parseScenario(const std::string& text, const std::string& name);

// Durations are at most this long: virtual time stays exact and finite.
constexpr double kMaxDurationSeconds = 1e6;

// "100ms", "1.5s", "40us", "2m"; throws std::invalid_argument.
Vok::Seconds parseDuration(const std::string& text);
// A duration given as a number of seconds; throws std::invalid_argument
// unless it is finite and within 0..kMaxDurationSeconds.
Vok::Seconds checkedDuration(double seconds);

// The feature toggles a scenario or CONNROUTE_TOGGLES may name.
const std::set<std::string>& knownToggles();
std::string knownTogglesText();

}  // namespace App
