// The agent's state as Prometheus metrics (the text exposition format), for
// `connroute show metrics` (from a table directory) and for the file the
// live agent keeps for node_exporter's textfile collector (from memory).
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "app/read/PublishedRows.h"

namespace App {

class TableReader;

struct Metrics {
   struct Vrf {
      std::uint32_t id = 0;
      std::string name;  // "" when no container of the agent serves it
      std::size_t routes4 = 0, routes6 = 0, vias4 = 0, vias6 = 0;
      std::optional<VrfStatusRow> status;  // nothing: not served
   };
   std::vector<Vrf> vrfs;
   std::optional<std::pair<std::string, double>> agent;  // "running"/"stopped", agent time
   std::uint64_t turns = 0;                             // committed so far
   std::optional<double> lastCommit;                    // Unix time
   std::vector<NamespaceCounters> namespaces;           // the live agent's
};

Metrics metricsOf(const TableReader& reader);
void writePrometheus(const Metrics& metrics, std::ostream& out);

}  // namespace App
