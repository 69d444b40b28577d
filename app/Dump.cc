#include "app/Dump.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace App {

namespace {

// Columns padded to their widest cell.
class TextTable {
 public:
   explicit TextTable(std::vector<std::string> headers) : rows_{std::move(headers)} {}
   void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
   void render(std::ostream& out, const std::string& indent) const {
      std::vector<std::size_t> width(rows_.front().size(), 0);
      for (const auto& row : rows_) {
         for (std::size_t i = 0; i < row.size(); ++i) {
            width[i] = std::max(width[i], row[i].size());
         }
      }
      for (const auto& row : rows_) {
         std::string line = indent;
         for (std::size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 < row.size()) {
               line += std::string(width[i] - row[i].size() + 2, ' ');
            }
         }
         out << line << '\n';
      }
   }

 private:
   std::vector<std::vector<std::string>> rows_;
};

std::string yesNo(const std::optional<bool>& flag) {
   return flag ? (*flag ? "yes" : "no") : "-";
}

std::string seconds(double value) {
   std::ostringstream os;
   os << std::fixed << std::setprecision(6) << value;
   return os.str();
}

std::string hex(std::uint32_t value) {
   std::ostringstream os;
   os << "0x" << std::hex << value;
   return os.str();
}

std::vector<std::string> routeCells(const RouteRow& r) {
   return {r.prefix, std::to_string(r.type), std::to_string(r.viaSet), r.owner,
           std::to_string(r.protocol), std::to_string(r.metric), std::to_string(r.preference),
           std::to_string(r.fecIndex), std::to_string(r.flags)};
}

const std::vector<std::string> kRouteHeaders = {"prefix", "type", "viaSet", "owner", "protocol",
                                                "metric", "pref", "fecIndex", "flags"};

void renderRoutes(std::ostream& out, const std::string& title, const std::vector<RouteRow>& rows) {
   out << "  " << title << ": " << rows.size() << '\n';
   if (rows.empty()) {
      return;
   }
   TextTable table(kRouteHeaders);
   for (const RouteRow& r : rows) {
      table.add(routeCells(r));
   }
   table.render(out, "    ");
}

void renderVias(std::ostream& out, const std::string& title, const std::vector<ViaRow>& rows) {
   out << "  " << title << ": " << rows.size() << '\n';
   if (rows.empty()) {
      return;
   }
   TextTable table({"via", "nexthop", "intf", "flags", "kind"});
   for (const ViaRow& v : rows) {
      table.add({v.key, v.nexthop, v.intf, hex(v.flags), std::to_string(v.kind)});
   }
   table.render(out, "    ");
}

nlohmann::json routeJson(const RouteRow& r) {
   return {{"prefix", r.prefix},     {"type", r.type},         {"viaSet", r.viaSet},
           {"owner", r.owner},       {"protocol", r.protocol}, {"metric", r.metric},
           {"preference", r.preference}, {"fecIndex", r.fecIndex}, {"flags", r.flags}};
}

nlohmann::json viaJson(const ViaRow& v) {
   return {{"via", v.key}, {"nexthop", v.nexthop}, {"intf", v.intf}, {"flags", v.flags},
           {"kind", v.kind}};
}

template <class Row, class Fn>
nlohmann::json array(const std::vector<Row>& rows, Fn fn) {
   nlohmann::json out = nlohmann::json::array();
   for (const Row& row : rows) {
      out.push_back(fn(row));
   }
   return out;
}

nlohmann::json flag(const std::optional<bool>& value) {
   return value ? nlohmann::json(*value) : nlohmann::json(nullptr);
}

}  // namespace

std::string renderText(const Snapshot& s) {
   std::ostringstream out;
   out << "=== " << s.label << " (t=" << seconds(s.time) << "s, agent "
       << (s.running ? "running" : "stopped") << ")\n";
   for (const VrfDump& vrf : s.vrfs) {
      out << "VRF " << (vrf.name.empty() ? "?" : vrf.name) << " (id " << vrf.id
          << ")  v4 ready: " << yesNo(vrf.v4Ready) << "  v6 ready: " << yesNo(vrf.v6Ready) << '\n';
      renderRoutes(out, "IPv4 routes", vrf.routes4);
      renderRoutes(out, "IPv6 routes", vrf.routes6);
      renderVias(out, "IPv4 vias", vrf.vias4);
      renderVias(out, "IPv6 vias", vrf.vias6);
   }
   if (!s.queryRows.empty()) {
      out << "Query-table rows: " << s.queryRows.size() << '\n';
      std::vector<std::string> headers = kRouteHeaders;
      headers.insert(headers.begin(), "vrfId");
      TextTable table(headers);
      for (const QueryRow& q : s.queryRows) {
         auto cells = routeCells(q.route);
         cells.insert(cells.begin(), std::to_string(q.vrfId));
         table.add(cells);
      }
      table.render(out, "    ");
   }
   out << "Via sets: " << s.viaSets.size() << '\n';
   if (!s.viaSets.empty()) {
      TextTable table({"key", "kind", "via", "protocol", "vias"});
      for (const ViaSetRow& v : s.viaSets) {
         table.add({std::to_string(v.key), std::to_string(v.kind), v.via, std::to_string(v.protocol),
                    std::to_string(v.vias)});
      }
      table.render(out, "    ");
   }
   out << "Protocol VRF status: " << s.protoVrfStatus.size() << '\n';
   if (!s.protoVrfStatus.empty()) {
      TextTable table({"vrf", "ready", "readyTime"});
      for (const ProtoRow& p : s.protoVrfStatus) {
         table.add({p.vrf, p.ready ? "true" : "false", seconds(p.readyTime)});
      }
      table.render(out, "    ");
   }
   return out.str();
}

nlohmann::json toJson(const Snapshot& s) {
   nlohmann::json vrfs = nlohmann::json::array();
   for (const VrfDump& vrf : s.vrfs) {
      vrfs.push_back({{"name", vrf.name},
                      {"id", vrf.id},
                      {"v4Ready", flag(vrf.v4Ready)},
                      {"v6Ready", flag(vrf.v6Ready)},
                      {"ipv4Routes", array(vrf.routes4, routeJson)},
                      {"ipv6Routes", array(vrf.routes6, routeJson)},
                      {"ipv4Vias", array(vrf.vias4, viaJson)},
                      {"ipv6Vias", array(vrf.vias6, viaJson)}});
   }
   return {{"label", s.label},
           {"time", s.time},
           {"running", s.running},
           {"vrfs", vrfs},
           {"queryRows", array(s.queryRows,
                               [](const QueryRow& q) {
                                  auto row = routeJson(q.route);
                                  row["vrfId"] = q.vrfId;
                                  return row;
                               })},
           {"viaSets", array(s.viaSets,
                             [](const ViaSetRow& v) {
                                return nlohmann::json{{"key", v.key}, {"kind", v.kind}, {"via", v.via},
                                                      {"protocol", v.protocol}, {"vias", v.vias}};
                             })},
           {"protoVrfStatus", array(s.protoVrfStatus, [](const ProtoRow& p) {
               return nlohmann::json{{"vrf", p.vrf}, {"ready", p.ready}, {"readyTime", p.readyTime}};
            })}};
}

}  // namespace App
