#include "app/Dump.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "app/RowJson.h"
#include "app/TextTable.h"

namespace App {

namespace {

std::string yesNo(const std::optional<bool>& flag) {
   return flag ? (*flag ? "yes" : "no") : "-";
}

std::string seconds(double value) {
   char text[64];
   std::snprintf(text, sizeof(text), "%.6f", value);
   return text;
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
      titled("IPv4 vias", kViaHeaders, vias4, viaCells);
      titled("IPv6 vias", kViaHeaders, vias6, viaCells);
   }
   void queryRows(const Section<QueryRow>& rows) override {
      if (rows.count == 0) {
         return;
      }
      out_ << "Query-table rows: " << rows.count << '\n';
      std::vector<std::string_view> headers = kRouteHeaders;
      headers.insert(headers.begin(), "vrfId");
      renderTable(out_, headers, rows, [](const QueryRow& q, Cells& cells) {
         cells << q.vrfId;
         routeCells(q.route, cells);
      });
   }
   void viaSets(const Section<ViaSetRow>& rows) override {
      out_ << "Via sets: " << rows.count << '\n';
      if (rows.count > 0) {
         renderTable(out_, {"key", "kind", "via", "protocol", "vias"}, rows,
                     [](const ViaSetRow& v, Cells& cells) {
                        cells << v.key << v.kind << v.via << v.protocol << v.vias;
                     });
      }
   }
   void protoVrfStatus(const Section<ProtoRow>& rows) override {
      out_ << "Protocol VRF status: " << rows.count << '\n';
      if (rows.count > 0) {
         renderTable(out_, {"vrf", "ready", "readyTime"}, rows, [](const ProtoRow& p, Cells& cells) {
            cells << p.vrf << (p.ready ? "true" : "false") << seconds(p.readyTime);
         });
      }
   }
   void dumpEnd() override {}
   void scenarioEnd() override {}

 private:
   template <class Row, class ToCells>
   void titled(const char* title, const std::vector<std::string_view>& headers,
               const Section<Row>& rows, ToCells toCells) {
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
      out_ << "{\n  \"scenario\": " << jsonScalar(name) << ",\n  \"description\": "
           << jsonScalar(description) << ",\n  \"dumps\": [";
   }
   void dumpBegin(const DumpHeader& h) override {
      out_ << (firstDump_ ? "\n" : ",\n") << "    {\n      \"label\": " << jsonScalar(h.label)
           << ",\n      \"time\": " << jsonScalar(h.time) << ",\n      \"running\": " << jsonScalar(h.running)
           << ",\n      \"vrfs\": [";
      firstDump_ = false;
      firstVrf_ = true;
   }
   void vrf(const VrfHeader& h, const Section<RouteRow>& routes4, const Section<RouteRow>& routes6,
            const Section<ViaRow>& vias4, const Section<ViaRow>& vias6) override {
      out_ << (firstVrf_ ? "\n" : ",\n") << "        {\n          \"vrf\": " << jsonText(vrfJson(h.name, h.id))
           << ",\n          \"v4Ready\": " << jsonFlag(h.v4Ready)
           << ",\n          \"v6Ready\": " << jsonFlag(h.v6Ready) << ",\n";
      firstVrf_ = false;
      const std::string indent(10, ' ');
      array(indent, "ipv4Routes", routes4, routeJsonText, false);
      array(indent, "ipv6Routes", routes6, routeJsonText, false);
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
         return viaSetJson(v);
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
   template <class Row, class ToJson>
   void array(const std::string& indent, const char* name, const Section<Row>& rows, ToJson toJson,
              bool last) {
      out_ << indent << '"' << name << "\": [";
      bool first = true;
      rows.forEach([&](const Row& row) {
         out_ << (first ? "\n" : ",\n") << indent << "  "
              << jsonLine(toJson(row));
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
