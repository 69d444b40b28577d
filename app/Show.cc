#include "app/Show.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "app/read/Metrics.h"
#include "app/RowJson.h"
#include "app/read/TableReader.h"
#include "app/TableRows.h"
#include "app/TextTable.h"
#include "platform/belm/Exceptions.h"

namespace App {

namespace Rib = Routing::Rib;

namespace {

using Vrfs = std::map<std::uint32_t, TableReader::Vrf>;

std::string vrfName(const TableReader::Vrf& vrf) { return vrf.name; }

std::string vrfTitle(const TableReader::Vrf& vrf) {
   const std::string name = vrfName(vrf);
   return "VRF " + (name.empty() ? "?" : name) + " (id " + std::to_string(vrf.id) + ")";
}

nlohmann::json vrfJson(const TableReader::Vrf& vrf) { return App::vrfJson(vrf.name, vrf.id); }

std::string fixed(double value, const char* format = "%.6f") {
   char text[64];
   std::snprintf(text, sizeof(text), format, value);
   return text;
}

// The VRFs a request is about: one named by name or identifier, or all.
Vrfs selected(const TableReader& reader, const ShowRequest& request) {
   Vrfs vrfs = reader.vrfs();
   if (!request.vrf) {
      return vrfs;
   }
   const std::uint32_t id = requestedVrf(vrfs, request);
   return Vrfs{{id, vrfs.at(id)}};
}

std::vector<int> families(const ShowRequest& request) {
   return request.family == 0 ? std::vector<int>{4, 6} : std::vector<int>{request.family};
}

// A JSON array written a row at a time: a million routes are never one
// document in memory.
template <class Item, class ToJson>
void jsonArray(std::ostream& out, const std::string& indent, const std::vector<Item>& items,
               ToJson toJson) {
   out << '[';
   bool first = true;
   for (const Item& item : items) {
      out << (first ? "\n" : ",\n") << indent << "  " << jsonLine(toJson(item));
      first = false;
   }
   out << (first ? "]" : "\n" + indent + "]");
}

// Per VRF, one section of rows per address family: what `routes` and
// `vias` share. `rowsOf(id)` gives the VRF's rows of a family as printed.
template <class RowsOf, class ToCells, class ToJson>
void showPerFamily(const TableReader& reader, const ShowRequest& request, std::ostream& out,
                   const std::string& noun, const std::vector<std::string_view>& headers,
                   RowsOf rowsOf, ToCells toCells, ToJson toJson) {
   bool firstVrf = true;
   if (request.json) {
      out << "{\n  \"vrfs\": [";
   }
   for (const auto& [id, vrf] : selected(reader, request)) {
      if (request.json) {
         out << (firstVrf ? "\n" : ",\n") << "    {\"vrf\": " << jsonText(vrfJson(vrf));
      } else {
         out << vrfTitle(vrf) << '\n';
      }
      firstVrf = false;
      const auto familyRows = rowsOf(id);
      for (int family : families(request)) {
         const auto rows = familyRows(family);
         using Row = typename decltype(rows)::value_type;
         if (request.json) {
            out << ",\n     \"ipv" << family << noun << "\": ";
            jsonArray(out, "     ", rows, toJson);
            continue;
         }
         std::string title = noun;
         title[0] = char(std::tolower(title[0]));
         out << "  IPv" << family << ' ' << title << ": " << rows.size() << '\n';
         if (!rows.empty()) {
            renderTable(out, headers, sectionOver(rows, [](const Row& r) -> const Row& { return r; }),
                        toCells);
         }
      }
      if (request.json) {
         out << "}";
      }
   }
   if (request.json) {
      out << (firstVrf ? "]\n}\n" : "\n  ]\n}\n");
   }
}

void showRoutes(const TableReader& reader, const ShowRequest& request, std::ostream& out) {
   auto rowsOf = [&reader](std::uint32_t id) {
      return [&reader, id, owners = reader.owners(id)](int family) {
         std::vector<RouteRow> rows;
         for (const Rib::Route& r : reader.routes(id, family)) {
            rows.push_back(routeRow(r, std::string(owners.of(r.prefix))));
         }
         return rows;
      };
   };
   showPerFamily(reader, request, out, "Routes", kRouteHeaders, rowsOf, routeCells, routeJsonText);
}

void showVias(const TableReader& reader, const ShowRequest& request, std::ostream& out) {
   auto rowsOf = [&reader](std::uint32_t id) {
      return [&reader, id](int family) {
         std::vector<ViaRow> rows;
         for (const Rib::Via& v : reader.vias(id, family)) {
            rows.push_back(viaRow(v));
         }
         return rows;
      };
   };
   showPerFamily(reader, request, out, "Vias", kViaHeaders, rowsOf, viaCells,
                 [](const ViaRow& v) { return viaJson(v); });
}

void showViaSets(const TableReader& reader, const ShowRequest& request, std::ostream& out) {
   const auto sets = reader.viaSets();
   if (request.json) {
      out << "{\n  \"viaSets\": ";
      jsonArray(out, "  ", sets, [](const Rib::Plim::ViaSet& v) { return viaSetJson(viaSetRow(v)); });
      out << "\n}\n";
      return;
   }
   out << "Via sets: " << sets.size() << '\n';
   if (!sets.empty()) {
      renderTable(out, {"key", "kind", "via", "protocol", "vias"},
                  sectionOver(sets, [](const Rib::Plim::ViaSet& v) { return viaSetRow(v); }),
                  [](const ViaSetRow& v, Cells& cells) {
                     cells << v.key << v.kind << v.via << v.protocol << v.vias;
                  });
   }
}

void showReady(const TableReader& reader, const ShowRequest& request, std::ostream& out) {
   std::vector<TableReader::Vrf> vrfs;
   for (const auto& [id, vrf] : selected(reader, request)) {
      vrfs.push_back(vrf);
   }
   const VrfStatusRow none;
   auto status = [&none](const TableReader::Vrf& vrf) -> const VrfStatusRow& {
      return vrf.status ? *vrf.status : none;
   };
   if (request.json) {
      out << "{\n  \"vrfs\": ";
      jsonArray(out, "  ", vrfs, [&](const TableReader::Vrf& vrf) {
         const VrfStatusRow& s = status(vrf);
         nlohmann::json row = vrfJson(vrf);
         row["v4Ready"] = s.v4Ready;
         row["v6Ready"] = s.v6Ready;
         row["protocolReady"] = s.protoReady;
         row["readyTime"] = s.protoReadyTime;
         return row;
      });
      out << "\n}\n";
      return;
   }
   out << "VRFs: " << vrfs.size() << '\n';
   if (!vrfs.empty()) {
      renderTable(out, {"vrf", "id", "v4Ready", "v6Ready", "protocolReady", "readyTime"},
                  sectionOver(vrfs, [](const TableReader::Vrf& vrf) { return vrf; }),
                  [&](const TableReader::Vrf& vrf, Cells& cells) {
                     const VrfStatusRow& s = status(vrf);
                     const std::string name = vrfName(vrf);
                     cells << (name.empty() ? "?" : name) << vrf.id << s.v4Ready << s.v6Ready
                           << s.protoReady << fixed(s.protoReadyTime);
                  });
   }
}

void showSummary(const TableReader& reader, const ShowRequest& request, std::ostream& out) {
   struct Line {
      TableReader::Vrf vrf;
      std::size_t routes4, routes6, vias4, vias6;
   };
   std::vector<Line> lines;
   for (const auto& [id, vrf] : selected(reader, request)) {
      lines.push_back(Line{vrf, reader.routeCount(id, 4), reader.routeCount(id, 6),
                           reader.viaCount(id, 4), reader.viaCount(id, 6)});
   }
   const VrfStatusRow none;
   auto status = [&none](const Line& line) -> const VrfStatusRow& {
      return line.vrf.status ? *line.vrf.status : none;
   };
   const auto agent = reader.agent();
   if (request.json) {
      out << "{\n  \"agent\": "
          << (agent ? jsonText({{"state", agent->first}, {"time", agent->second}}) : "null")
          << ",\n  \"vrfs\": ";
      jsonArray(out, "  ", lines, [&](const Line& line) {
         const VrfStatusRow& s = status(line);
         nlohmann::json row = vrfJson(line.vrf);
         row.update({{"ipv4Routes", line.routes4}, {"ipv6Routes", line.routes6},
                     {"ipv4Vias", line.vias4},     {"ipv6Vias", line.vias6},
                     {"backlog", s.backlog},       {"drains", s.drains},
                     {"longestSliceMs", std::round(s.longestSlice * 1e6) / 1e3}});
         return row;
      });
      out << "\n}\n";
      return;
   }
   out << "Agent: " << (agent ? agent->first + " at t=" + fixed(agent->second) + "s" : "never ran")
       << '\n';
   out << "VRFs: " << lines.size() << '\n';
   if (!lines.empty()) {
      renderTable(out,
                  {"vrf", "id", "ipv4Routes", "ipv6Routes", "ipv4Vias", "ipv6Vias", "backlog",
                   "drains", "longestSliceMs"},
                  sectionOver(lines, [](const Line& line) { return line; }),
                  [&](const Line& line, Cells& cells) {
                     const VrfStatusRow& s = status(line);
                     const std::string name = vrfName(line.vrf);
                     cells << (name.empty() ? "?" : name) << line.vrf.id << line.routes4
                           << line.routes6 << line.vias4 << line.vias6 << s.backlog << s.drains
                           << fixed(s.longestSlice * 1e3, "%.3f");
                  });
   }
}

void showMetrics(const TableReader& reader, const ShowRequest&, std::ostream& out) {
   writePrometheus(metricsOf(reader), out);
}

void showPrefix(const TableReader& reader, const ShowRequest& request, std::ostream& out) {
   if (!request.vrf) {
      throw ShowError("show prefix needs --vrf");
   }
   Ovel::IpGenPrefix prefix;
   try {
      prefix = Ovel::IpGenPrefix::parse(request.prefix);
   } catch (const std::exception& e) {
      throw ShowError("'" + request.prefix + "' is not a prefix: " + e.what());
   }
   const auto [id, vrf] = *selected(reader, request).begin();
   std::optional<Rib::Route> installed;
   for (const Rib::Route& r : reader.routes(id, prefix.af() == Ovel::AddressFamily::ipv4 ? 4 : 6)) {
      if (r.prefix == prefix) {
         installed = r;
      }
   }
   const Candidates candidates = reader.candidates(id, prefix).value_or(Candidates{"-", {}});
   if (request.json) {
      nlohmann::json doc = {{"vrf", vrfJson(vrf)}, {"prefix", prefix.toString()}};
      doc["installed"] = installed ? routeJson(routeRow(*installed, candidates.installedOwner))
                                   : nlohmann::json();
      doc["candidates"] = nlohmann::json::array();
      for (const CandidateRow& c : candidates.rows) {
         doc["candidates"].push_back(
               {{"intf", c.intf}, {"address", c.address}, {"type", c.type}, {"viaSet", c.viaSet}});
      }
      out << doc.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
      return;
   }
   out << vrfTitle(vrf) << " prefix " << prefix.toString() << '\n';
   if (installed) {
      out << "  installed: type " << static_cast<unsigned>(installed->routeType) << "  viaSet "
          << installed->viaSetKey.value() << "  owner " << candidates.installedOwner << '\n';
   } else {
      out << "  installed: none\n";
   }
   out << "  candidates: " << candidates.rows.size()
       << (candidates.rows.empty() ? "" : " (the first one owns the prefix)") << '\n';
   if (!candidates.rows.empty()) {
      renderTable(out, {"intf", "address", "type", "viaSet"},
                  sectionOver(candidates.rows, [](const CandidateRow& c) { return c; }),
                  [](const CandidateRow& c, Cells& cells) {
                     cells << c.intf << c.address << c.type << c.viaSet;
                  });
   }
}

}  // namespace

std::uint32_t requestedVrf(const std::map<std::uint32_t, TableReader::Vrf>& vrfs,
                           const ShowRequest& request) {
   if (const auto id = vrfNamed(vrfs, *request.vrf)) {
      return *id;
   }
   throw ShowError("no VRF '" + *request.vrf + "' in " + request.dir +
                   " (connroute show summary lists them)");
}

void show(const ShowRequest& request, std::ostream& out) {
   std::optional<TableReader> reader;
   try {
      reader.emplace(request.dir);
   } catch (const Plim::DatabaseError& e) {
      throw ShowError(e.what());
   } catch (const Belm::CorruptionDetectedException& e) {
      throw ShowError(request.dir + ": " + e.what());
   }
   try {
      switch (request.what) {
         case ShowRequest::What::routes:
            return showRoutes(*reader, request, out);
         case ShowRequest::What::vias:
            return showVias(*reader, request, out);
         case ShowRequest::What::viaSets:
            return showViaSets(*reader, request, out);
         case ShowRequest::What::ready:
            return showReady(*reader, request, out);
         case ShowRequest::What::prefix:
            return showPrefix(*reader, request, out);
         case ShowRequest::What::summary:
            return showSummary(*reader, request, out);
         case ShowRequest::What::metrics:
            return showMetrics(*reader, request, out);
         case ShowRequest::What::follow:
            break;  // not a snapshot: follow()
      }
   } catch (const ShowError&) {
      throw;
   } catch (const std::exception& e) {
      // Corruption, or a published row this connroute cannot read.
      throw ShowError(request.dir + ": " + e.what());
   }
}

}  // namespace App
