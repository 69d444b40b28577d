// What the engine wrote, at one moment: per VRF its route rows with their
// owners and its vias, the query-table rows, the shared via sets, the
// protocol VRF status entities and the readiness flags. Rendered as aligned
// text tables or as JSON; every list is sorted, so output is deterministic.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace App {

struct RouteRow {
   std::string prefix;
   unsigned type;
   std::uint32_t viaSet;
   std::string owner;
   std::uint32_t protocol, metric, preference, fecIndex, flags;
};

struct ViaRow {
   std::string key, nexthop, intf;
   std::uint32_t flags, kind;
};

struct VrfDump {
   std::string name;
   std::uint32_t id;
   std::optional<bool> v4Ready, v6Ready;  // nothing: no readiness record
   std::vector<RouteRow> routes4, routes6;
   std::vector<ViaRow> vias4, vias6;
};

struct QueryRow {
   std::uint32_t vrfId;
   RouteRow route;
};

struct ViaSetRow {
   std::uint32_t key;
   unsigned kind;
   std::string via;
   std::uint32_t protocol, vias;
};

struct ProtoRow {
   std::string vrf;
   bool ready;
   double readyTime;
};

struct Snapshot {
   std::string label;
   double time;
   bool running;
   std::vector<VrfDump> vrfs;
   std::vector<QueryRow> queryRows;
   std::vector<ViaSetRow> viaSets;
   std::vector<ProtoRow> protoVrfStatus;
};

std::string renderText(const Snapshot& snapshot);
nlohmann::json toJson(const Snapshot& snapshot);

}  // namespace App
