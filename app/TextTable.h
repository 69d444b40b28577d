// Aligned text tables, as the dumps and `connroute show` print them: each
// column padded to its widest cell, rows indented by four spaces.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "app/Dump.h"

namespace App {

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

inline std::string hex(std::uint32_t value) {
   char digits[16] = "0x";
   const auto end = std::to_chars(digits + 2, digits + sizeof(digits), value, 16).ptr;
   return std::string(digits, end);
}

inline const std::vector<std::string_view> kRouteHeaders = {
      "prefix", "type", "viaSet", "owner", "protocol", "metric", "pref", "fecIndex", "flags"};
inline const std::vector<std::string_view> kViaHeaders = {"via", "nexthop", "intf", "flags", "kind"};

inline void routeCells(const RouteRow& r, Cells& cells) {
   cells << r.prefix << r.type << r.viaSet << r.owner << r.protocol << r.metric << r.preference
         << r.fecIndex << r.flags;
}

inline void viaCells(const ViaRow& v, Cells& cells) {
   cells << v.key << v.nexthop << v.intf << hex(v.flags) << v.kind;
}

}  // namespace App
