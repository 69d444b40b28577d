// Aligned text tables: a table long enough to be formatted in two halves at
// once reads exactly as one formatted in a single pass, and a failure on the
// helper thread reaches the caller.
#include "app/TextTable.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

namespace App {
namespace {

struct Item {
   std::uint64_t key;
   std::string name;
};

// Names of varying widths, the widest far from the middle, so that both
// halves' widths count.
std::vector<Item> items(std::size_t count) {
   std::vector<Item> out;
   for (std::size_t i = 0; i < count; ++i) {
      out.push_back(Item{i * 7919, std::string(1 + (i * 31) % 17 + (i == count - 3 ? 40 : 0), 'a' + i % 26)});
   }
   return out;
}

void cellsOf(const Item& item, Cells& cells) { cells << item.key << item.name; }

std::string render(const Section<Item>& section) {
   std::ostringstream out;
   renderTable(out, {"key", "name"}, section, cellsOf);
   return out.str();
}

// The same rows without a range walk: formatted in one pass.
Section<Item> walkOnly(const std::vector<Item>& rows) {
   Section<Item> section = sectionOver(rows, [](const Item& i) -> const Item& { return i; });
   section.forRange = nullptr;
   return section;
}

TEST(TextTable, HalvesFormattedAtOnceReadAsOnePass) {
   for (std::size_t count : {std::size_t{0}, std::size_t{5}, kParallelRows - 1, kParallelRows,
                             kParallelRows + 1, 3 * kParallelRows + 7}) {
      SCOPED_TRACE(count);
      const std::vector<Item> rows = items(count);
      const std::string parallel = render(sectionOver(rows, [](const Item& i) -> const Item& { return i; }));
      EXPECT_EQ(parallel, render(walkOnly(rows)));
      EXPECT_EQ(std::count(parallel.begin(), parallel.end(), '\n'), std::ptrdiff_t(count + 1));
   }
}

TEST(TextTable, AFailureWhileFormattingTheSecondHalfReachesTheCaller) {
   const std::vector<Item> rows = items(2 * kParallelRows);
   const auto failing = sectionOver(rows, [&rows](const Item& i) -> const Item& {
      if (&i == &rows.back()) {
         throw std::runtime_error("row failed");
      }
      return i;
   });
   std::ostringstream out;
   EXPECT_THROW(renderTable(out, {"key", "name"}, failing, cellsOf), std::runtime_error);
}

}  // namespace
}  // namespace App
