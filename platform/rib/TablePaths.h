// Where the RIB's tables are: their paths in the entity tree, which are
// also their names in a table directory, and the entity types mounted there.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Routing::Rib {

// A VRF's connected route table and via table of one family (4 or 6):
// "routing/rib/<routeConfig|viaConfig>/ipv<4|6>/<vrfId>/connected".
std::string routeTablePath(int family, std::uint32_t vrfId);
std::string viaTablePath(int family, std::uint32_t vrfId);

// The query tables, which serve every VRF, and the shared via sets.
inline constexpr const char* kRouteQuery4Path = "routing/rib/routeQuery/ipv4";
inline constexpr const char* kRouteQuery6Path = "routing/rib/routeQuery/ipv6";
inline constexpr const char* kViaSetPath = "routing/rib/viaSetConfig";

// The entity types of the tables, as mounts and table directories name them.
inline constexpr const char* kRouteConfigType = "Routing::Rib::RouteConfig";
inline constexpr const char* kViaConfigType = "Routing::Rib::Ip::ViaConfig";
inline constexpr const char* kRouteQueryType = "Routing::Rib::IpRibRouteOrqTable";
inline constexpr const char* kViaSetConfigType = "Routing::Rib::ViaSetConfig";
inline constexpr const char* kProtoVrfStatusType = "Routing::Rib::ProtoVrfStatus";

// What a per-VRF table's path says.
struct VrfTablePath {
   bool routes;  // routeConfig; viaConfig otherwise
   int family;   // 4 or 6
   std::uint32_t vrfId;
};
std::optional<VrfTablePath> parseVrfTablePath(std::string_view path);

}  // namespace Routing::Rib
