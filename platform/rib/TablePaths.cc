#include "platform/rib/TablePaths.h"

#include <charconv>

namespace Routing::Rib {

namespace {

std::string vrfTablePath(std::string_view kind, int family, std::uint32_t vrfId) {
   return "routing/rib/" + std::string(kind) + "/ipv" + std::to_string(family) + "/" +
          std::to_string(vrfId) + "/connected";
}

}  // namespace

std::string routeTablePath(int family, std::uint32_t vrfId) {
   return vrfTablePath("routeConfig", family, vrfId);
}

std::string viaTablePath(int family, std::uint32_t vrfId) {
   return vrfTablePath("viaConfig", family, vrfId);
}

std::optional<VrfTablePath> parseVrfTablePath(std::string_view path) {
   for (std::string_view head : {"routing/rib/routeConfig/ipv", "routing/rib/viaConfig/ipv"}) {
      if (!path.starts_with(head)) {
         continue;
      }
      VrfTablePath parsed{head.find("route") != std::string_view::npos, 0, 0};
      path.remove_prefix(head.size());
      if (path.size() < 2 || (path[0] != '4' && path[0] != '6') || path[1] != '/') {
         return std::nullopt;
      }
      parsed.family = path[0] - '0';
      path.remove_prefix(2);
      constexpr std::string_view tail = "/connected";
      if (!path.ends_with(tail)) {
         return std::nullopt;
      }
      path.remove_suffix(tail.size());
      auto [end, error] = std::from_chars(path.data(), path.data() + path.size(), parsed.vrfId);
      if (error != std::errc() || end != path.data() + path.size()) {
         return std::nullopt;
      }
      return parsed;
   }
   return std::nullopt;
}

}  // namespace Routing::Rib
