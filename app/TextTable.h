// Aligned text tables, as the dumps and `connroute show` print them: each
// column padded to its widest cell, rows indented by four spaces.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <exception>
#include <ostream>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
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

// Runs `aside` on a helper thread while `here` runs on this one, or both
// here if no thread can be started; an exception of either is rethrown once
// both are done.
template <class Aside, class Here>
void inParallel(Aside aside, Here here) {
   std::exception_ptr asideError;
   std::thread helper;
   try {
      helper = std::thread([&] {
         try {
            aside();
         } catch (...) {
            asideError = std::current_exception();
         }
      });
   } catch (const std::system_error&) {
      aside();
   }
   try {
      here();
   } catch (...) {
      if (helper.joinable()) {
         helper.join();
      }
      throw;
   }
   if (helper.joinable()) {
      helper.join();
   }
   if (asideError) {
      std::rethrow_exception(asideError);
   }
}

// The lines of `cells` (whole rows of `width.size()` cells), each column
// padded to its width; handed to `flush` in blocks of about 64 KB.
template <class Flush>
void tableLines(const Cells& cells, const std::vector<std::size_t>& width, Flush flush) {
   const std::size_t columns = width.size();
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
         flush(block);
         block.clear();
      }
   }
   flush(block);
}

// Tables at least this long are formatted in two halves at once, the second
// on a helper thread: formatting is most of a dump's time, and a play
// leaves the second core idle.
inline constexpr std::size_t kParallelRows = 20'000;

// Columns padded to their widest cell. Every cell is formatted once, while
// the widths are measured; the lines are then written in large blocks.
template <class Row, class ToCells>
void renderTable(std::ostream& out, const std::vector<std::string_view>& headers,
                 const Section<Row>& rows, ToCells toCells) {
   const std::size_t columns = headers.size();
   Cells head, first, second;
   for (std::string_view header : headers) {
      head << header;
   }
   auto into = [&](Cells& cells) {
      return [&cells, &toCells, columns](const Row& row) {
         const std::size_t before = cells.size();
         toCells(row, cells);
         VOK_ASSERT(cells.size() - before == columns, "renderTable: a row with the wrong number of cells");
      };
   };
   const bool halves = rows.forRange && rows.count >= kParallelRows;
   const std::size_t middle = rows.count / 2;
   if (halves) {
      inParallel([&] { rows.forRange(middle, rows.count, into(second)); },
                 [&] { rows.forRange(0, middle, into(first)); });
   } else {
      rows.forEach(into(first));
   }
   std::vector<std::size_t> width(columns, 0);
   for (const Cells* cells : {&head, &first, &second}) {
      for (std::size_t i = 0; i < cells->size(); ++i) {
         width[i % columns] = std::max(width[i % columns], (*cells)[i].size());
      }
   }
   auto write = [&out](const std::string& block) {
      out.write(block.data(), static_cast<std::streamsize>(block.size()));
   };
   tableLines(head, width, write);
   if (!halves) {
      tableLines(first, width, write);
      return;
   }
   // The helper lays out the second half's lines while this thread writes
   // the first's.
   std::string secondText;
   inParallel([&] { tableLines(second, width, [&](const std::string& block) { secondText += block; }); },
              [&] { tableLines(first, width, write); });
   write(secondText);
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
