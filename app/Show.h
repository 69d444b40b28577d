// `connroute show`: what a table directory holds, read from another process
// than the agent writing it, as aligned text tables like the dumps' or as
// one JSON document.
#pragma once

#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>

#include "app/read/TableReader.h"

namespace App {

// A request that cannot be answered from the directory: an unknown VRF, a
// malformed prefix, a missing or foreign directory.
class ShowError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

struct ShowRequest {
   enum class What { routes, vias, viaSets, ready, prefix, summary, follow, metrics };
   std::string dir;
   What what = What::summary;
   std::optional<std::string> vrf;  // a name or an identifier; every VRF if absent
   int family = 0;                  // 4 or 6; both if 0
   std::string prefix;              // for What::prefix
   std::optional<std::uint64_t> from;  // for What::follow: the first turn to report
   bool json = false;
};

void show(const ShowRequest& request, std::ostream& out);

// The VRF `request.vrf` names (a name or an identifier) among `vrfs`;
// throws ShowError if none.
std::uint32_t requestedVrf(const std::map<std::uint32_t, TableReader::Vrf>& vrfs,
                           const ShowRequest& request);

// `show follow`: prints until SIGINT or SIGTERM, then returns.
void follow(const ShowRequest& request, std::ostream& out);

}  // namespace App
