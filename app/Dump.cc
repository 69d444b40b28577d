#include "app/Dump.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace App {

namespace {

// One row's cells, written into one buffer that every row reuses: a dump
// of millions of rows formats them without an allocation per cell.
class Cells {
 public:
   void clear() {
      text_.clear();
      ends_.clear();
   }
   Cells& operator<<(std::string_view cell) {
      text_ += cell;
      ends_.push_back(text_.size());
      return *this;
   }
   Cells& operator<<(std::uint64_t number) {
      char digits[24];
      const auto end = std::to_chars(digits, digits + sizeof(digits), number).ptr;
      return *this << std::string_view(digits, std::size_t(end - digits));
   }
   std::size_t size() const noexcept { return ends_.size(); }
   std::string_view operator[](std::size_t i) const {
      const std::size_t begin = i == 0 ? 0 : ends_[i - 1];
      return std::string_view(text_).substr(begin, ends_[i] - begin);
   }

 private:
   std::string text_;
   std::vector<std::size_t> ends_;
};

std::string yesNo(const std::optional<bool>& flag) {
   return flag ? (*flag ? "yes" : "no") : "-";
}

std::string seconds(double value) {
   char text[64];
   std::snprintf(text, sizeof(text), "%.6f", value);
   return text;
}

std::string hex(std::uint32_t value) {
   char digits[16] = "0x";
   const auto end = std::to_chars(digits + 2, digits + sizeof(digits), value, 16).ptr;
   return std::string(digits, end);
}

void routeCells(const RouteRow& r, Cells& cells) {
   cells << r.prefix << r.type << r.viaSet << r.owner << r.protocol << r.metric << r.preference
         << r.fecIndex << r.flags;
}

void viaCells(const ViaRow& v, Cells& cells) {
   cells << v.key << v.nexthop << v.intf << hex(v.flags) << v.kind;
}

const std::vector<std::string_view> kRouteHeaders = {"prefix", "type",  "viaSet",   "owner", "protocol",
                                                     "metric", "pref", "fecIndex", "flags"};

// Columns padded to their widest cell: one walk over the rows for the
// widths, one to print.
template <class Row, class ToCells>
void renderTable(std::ostream& out, const std::vector<std::string_view>& headers,
                 const Section<Row>& rows, ToCells toCells) {
   std::vector<std::size_t> width(headers.size(), 0);
   Cells cells;
   auto measure = [&] {
      for (std::size_t i = 0; i < cells.size(); ++i) {
         width[i] = std::max(width[i], cells[i].size());
      }
   };
   auto headerCells = [&] {
      cells.clear();
      for (std::string_view header : headers) {
         cells << header;
      }
   };
   headerCells();
   measure();
   rows.forEach([&](const Row& row) {
      cells.clear();
      toCells(row, cells);
      measure();
   });
   std::string line;
   auto print = [&] {
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
   headerCells();
   print();
   rows.forEach([&](const Row& row) {
      cells.clear();
      toCells(row, cells);
      print();
   });
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
      const std::vector<std::string_view> viaHeaders = {"via", "nexthop", "intf", "flags", "kind"};
      titled("IPv4 vias", viaHeaders, vias4, viaCells);
      titled("IPv6 vias", viaHeaders, vias6, viaCells);
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
