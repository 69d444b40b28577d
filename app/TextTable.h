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
#include "platform/vok/Assert.h"

namespace App {

// Cells written one after another into one buffer: a table of millions
// of rows is formatted without an allocation per cell.
class Cells {
 public:
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

// Columns padded to their widest cell. Every cell is formatted once, while
// the widths are measured; the lines are then written in large blocks.
template <class Row, class ToCells>
void renderTable(std::ostream& out, const std::vector<std::string_view>& headers,
                 const Section<Row>& rows, ToCells toCells) {
   const std::size_t columns = headers.size();
   Cells cells;
   for (std::string_view header : headers) {
      cells << header;
   }
   rows.forEach([&](const Row& row) {
      const std::size_t before = cells.size();
      toCells(row, cells);
      VOK_ASSERT(cells.size() - before == columns, "renderTable: a row with the wrong number of cells");
   });
   std::vector<std::size_t> width(columns, 0);
   for (std::size_t i = 0; i < cells.size(); ++i) {
      width[i % columns] = std::max(width[i % columns], cells[i].size());
   }
   constexpr std::size_t kBlock = std::size_t{1} << 16;
   std::string block;
   block.reserve(kBlock + 1024);
   for (std::size_t first = 0; first < cells.size(); first += columns) {
      block += "    ";
      for (std::size_t column = 0; column < columns; ++column) {
         const std::string_view cell = cells[first + column];
         block += cell;
         if (column + 1 < columns) {
            block.append(width[column] - cell.size() + 2, ' ');
         }
      }
      block += '\n';
      if (block.size() >= kBlock) {
         out.write(block.data(), static_cast<std::streamsize>(block.size()));
         block.clear();
      }
   }
   out.write(block.data(), static_cast<std::streamsize>(block.size()));
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
