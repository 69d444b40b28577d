// `connroute show`: what a table directory holds, read from another process
// than the agent writing it, as aligned text tables like the dumps' or as
// one JSON document.
#pragma once

#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>

namespace App {

// A request that cannot be answered from the directory: an unknown VRF, a
// malformed prefix, a missing or foreign directory.
class ShowError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

struct ShowRequest {
   enum class What { routes, vias, viaSets, ready, prefix, summary };
   std::string dir;
   What what = What::summary;
   std::optional<std::string> vrf;  // a name or an identifier; every VRF if absent
   int family = 0;                  // 4 or 6; both if 0
   std::string prefix;              // for What::prefix
   bool json = false;
};

void show(const ShowRequest& request, std::ostream& out);

}  // namespace App
