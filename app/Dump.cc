#include "app/Dump.h"

#include <algorithm>
#include <iomanip>
#include <sstream>
#include <vector>

#include <nlohmann/json.hpp>

namespace App {

namespace {

using Cells = std::vector<std::string>;

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

Cells routeCells(const RouteRow& r) {
   return {r.prefix, std::to_string(r.type), std::to_string(r.viaSet), r.owner,
           std::to_string(r.protocol), std::to_string(r.metric), std::to_string(r.preference),
           std::to_string(r.fecIndex), std::to_string(r.flags)};
}

Cells viaCells(const ViaRow& v) {
   return {v.key, v.nexthop, v.intf, hex(v.flags), std::to_string(v.kind)};
}

const Cells kRouteHeaders = {"prefix", "type", "viaSet", "owner", "protocol",
                             "metric", "pref", "fecIndex", "flags"};

// Columns padded to their widest cell: one walk over the rows for the
// widths, one to print.
template <class Row, class ToCells>
void renderTable(std::ostream& out, const Cells& headers, const Section<Row>& rows, ToCells toCells) {
   std::vector<std::size_t> width(headers.size(), 0);
   auto measure = [&](const Cells& cells) {
      for (std::size_t i = 0; i < cells.size(); ++i) {
         width[i] = std::max(width[i], cells[i].size());
      }
   };
   measure(headers);
   rows.forEach([&](const Row& row) { measure(toCells(row)); });
   std::string line;
   auto print = [&](const Cells& cells) {
      line.assign("    ");
      for (std::size_t i = 0; i < cells.size(); ++i) {
         line += cells[i];
         if (i + 1 < cells.size()) {
            line.append(width[i] - cells[i].size() + 2, ' ');
         }
      }
      line += '\n';
      out << line;
   };
   print(headers);
   rows.forEach([&](const Row& row) { print(toCells(row)); });
}

class TextWriter final : public DumpWriter {
 public:
   explicit TextWriter(std::ostream& out) : out_(out) {}

   void scenarioBegin(const std::string&, const std::string& description) override {
      if (!description.empty()) {
         out_ << "# " << description << "\n";
      }
   }
   void dumpBegin(const DumpHeader& h) override {
      out_ << "=== " << h.label << " (t=" << seconds(h.time) << "s, agent "
           << (h.running ? "running" : "stopped") << ")\n";
   }
   void vrf(const VrfHeader& h, const Section<RouteRow>& routes4, const Section<RouteRow>& routes6,
            const Section<ViaRow>& vias4, const Section<ViaRow>& vias6) override {
      out_ << "VRF " << (h.name.empty() ? "?" : h.name) << " (id " << h.id
           << ")  v4 ready: " << yesNo(h.v4Ready) << "  v6 ready: " << yesNo(h.v6Ready) << '\n';
      titled("IPv4 routes", kRouteHeaders, routes4, routeCells);
      titled("IPv6 routes", kRouteHeaders, routes6, routeCells);
      const Cells viaHeaders = {"via", "nexthop", "intf", "flags", "kind"};
      titled("IPv4 vias", viaHeaders, vias4, viaCells);
      titled("IPv6 vias", viaHeaders, vias6, viaCells);
   }
   void queryRows(const Section<QueryRow>& rows) override {
      if (rows.count == 0) {
         return;
      }
      out_ << "Query-table rows: " << rows.count << '\n';
      Cells headers = kRouteHeaders;
      headers.insert(headers.begin(), "vrfId");
      renderTable(out_, headers, rows, [](const QueryRow& q) {
         Cells cells = routeCells(q.route);
         cells.insert(cells.begin(), std::to_string(q.vrfId));
         return cells;
      });
   }
   void viaSets(const Section<ViaSetRow>& rows) override {
      out_ << "Via sets: " << rows.count << '\n';
      if (rows.count > 0) {
         renderTable(out_, {"key", "kind", "via", "protocol", "vias"}, rows, [](const ViaSetRow& v) {
            return Cells{std::to_string(v.key), std::to_string(v.kind), v.via,
                         std::to_string(v.protocol), std::to_string(v.vias)};
         });
      }
   }
   void protoVrfStatus(const Section<ProtoRow>& rows) override {
      out_ << "Protocol VRF status: " << rows.count << '\n';
      if (rows.count > 0) {
         renderTable(out_, {"vrf", "ready", "readyTime"}, rows, [](const ProtoRow& p) {
            return Cells{p.vrf, p.ready ? "true" : "false", seconds(p.readyTime)};
         });
      }
   }
   void dumpEnd() override {}
   void scenarioEnd() override {}

 private:
   template <class Row, class ToCells>
   void titled(const char* title, const Cells& headers, const Section<Row>& rows, ToCells toCells) {
      out_ << "  " << title << ": " << rows.count << '\n';
      if (rows.count > 0) {
         renderTable(out_, headers, rows, toCells);
      }
   }

   std::ostream& out_;
};

// JSON written as it goes: containers on their own lines, each row one
// line. Scalars go through nlohmann for their exact text and escapes.
class JsonWriter final : public DumpWriter {
 public:
   explicit JsonWriter(std::ostream& out) : out_(out) {}

   void scenarioBegin(const std::string& name, const std::string& description) override {
      out_ << "{\n  \"scenario\": " << scalar(name) << ",\n  \"description\": "
           << scalar(description) << ",\n  \"dumps\": [";
   }
   void dumpBegin(const DumpHeader& h) override {
      out_ << (firstDump_ ? "\n" : ",\n") << "    {\n      \"label\": " << scalar(h.label)
           << ",\n      \"time\": " << scalar(h.time) << ",\n      \"running\": " << scalar(h.running)
           << ",\n      \"vrfs\": [";
      firstDump_ = false;
      firstVrf_ = true;
   }
   void vrf(const VrfHeader& h, const Section<RouteRow>& routes4, const Section<RouteRow>& routes6,
            const Section<ViaRow>& vias4, const Section<ViaRow>& vias6) override {
      out_ << (firstVrf_ ? "\n" : ",\n") << "        {\n          \"name\": " << scalar(h.name)
           << ",\n          \"id\": " << h.id << ",\n          \"v4Ready\": " << flag(h.v4Ready)
           << ",\n          \"v6Ready\": " << flag(h.v6Ready) << ",\n";
      firstVrf_ = false;
      const std::string indent(10, ' ');
      array(indent, "ipv4Routes", routes4, routeJson, false);
      array(indent, "ipv6Routes", routes6, routeJson, false);
      array(indent, "ipv4Vias", vias4, viaJson, false);
      array(indent, "ipv6Vias", vias6, viaJson, true);
      out_ << "        }";
   }
   void queryRows(const Section<QueryRow>& rows) override {
      out_ << (firstVrf_ ? "],\n" : "\n      ],\n");
      array(std::string(6, ' '), "queryRows", rows, [](const QueryRow& q) {
         nlohmann::json row = routeJson(q.route);
         row["vrfId"] = q.vrfId;
         return row;
      }, false);
   }
   void viaSets(const Section<ViaSetRow>& rows) override {
      array(std::string(6, ' '), "viaSets", rows, [](const ViaSetRow& v) {
         return nlohmann::json{{"key", v.key}, {"kind", v.kind}, {"via", v.via},
                               {"protocol", v.protocol}, {"vias", v.vias}};
      }, false);
   }
   void protoVrfStatus(const Section<ProtoRow>& rows) override {
      array(std::string(6, ' '), "protoVrfStatus", rows, [](const ProtoRow& p) {
         return nlohmann::json{{"vrf", p.vrf}, {"ready", p.ready}, {"readyTime", p.readyTime}};
      }, true);
   }
   void dumpEnd() override { out_ << "    }"; }
   void scenarioEnd() override { out_ << (firstDump_ ? "]\n}\n" : "\n  ]\n}\n"); }

 private:
   // Names from the command line need not be UTF-8: such bytes print as
   // U+FFFD rather than failing the dump.
   template <class T>
   static std::string scalar(const T& value) {
      return nlohmann::json(value).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
   }
   static std::string flag(const std::optional<bool>& value) {
      return value ? scalar(*value) : "null";
   }
   static nlohmann::json routeJson(const RouteRow& r) {
      return {{"prefix", r.prefix},     {"type", r.type},         {"viaSet", r.viaSet},
              {"owner", r.owner},       {"protocol", r.protocol}, {"metric", r.metric},
              {"preference", r.preference}, {"fecIndex", r.fecIndex}, {"flags", r.flags}};
   }
   static nlohmann::json viaJson(const ViaRow& v) {
      return {{"via", v.key}, {"nexthop", v.nexthop}, {"intf", v.intf}, {"flags", v.flags},
              {"kind", v.kind}};
   }
   template <class Row, class ToJson>
   void array(const std::string& indent, const char* name, const Section<Row>& rows, ToJson toJson,
              bool last) {
      out_ << indent << '"' << name << "\": [";
      bool first = true;
      rows.forEach([&](const Row& row) {
         out_ << (first ? "\n" : ",\n") << indent << "  "
              << toJson(row).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
         first = false;
      });
      out_ << (first ? "]" : "\n" + indent + "]") << (last ? "\n" : ",\n");
   }

   std::ostream& out_;
   bool firstDump_ = true;
   bool firstVrf_ = true;
};

}  // namespace

std::unique_ptr<DumpWriter> textDumpWriter(std::ostream& out) { return std::make_unique<TextWriter>(out); }
std::unique_ptr<DumpWriter> jsonDumpWriter(std::ostream& out) { return std::make_unique<JsonWriter>(out); }

}  // namespace App
