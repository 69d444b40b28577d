// What the engine wrote, at one moment: per VRF its route rows with their
// owners and its vias, the query-table rows, the shared via sets, the
// protocol VRF status entities and the readiness flags.
//
// A dump is handed to a DumpWriter section by section, and each section's
// rows one at a time, in sorted order, straight from the tables: a dump of
// millions of routes never holds a copy of the tables. The JSON writer
// writes each row as it comes; the text writer holds the text of one table
// at a time (about 130 bytes a route row with its cell offsets), as the
// column widths need every cell.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <type_traits>
#include <vector>

namespace App {

struct RouteRow {
   std::string prefix;
   unsigned type;
   std::uint32_t viaSet;
   std::string owner;
   std::uint32_t protocol, metric, preference, fecIndex, flags;
};

struct ViaRow {
   std::string key, nexthop, intf;
   std::uint32_t flags, kind;
};

struct QueryRow {
   std::uint32_t vrfId;
   RouteRow route;
};

struct ViaSetRow {
   std::uint32_t key;
   unsigned kind;
   std::string via;
   std::uint32_t protocol, vias;
};

struct ProtoRow {
   std::string vrf;
   bool ready;
   double readyTime;
};

// The rows of one section: how many, and a walk over them in order. A
// section over a list can also walk any range of it alone (`forRange`), so
// that a large table can be formatted in parts at once.
template <class Row>
struct Section {
   using Visit = std::function<void(const Row&)>;
   std::size_t count = 0;
   std::function<void(const Visit&)> forEach;
   std::function<void(std::size_t first, std::size_t last, const Visit&)> forRange;
};

// The section of `items`, each converted to its row as it is visited; it
// refers to `items`, which must outlive it.
template <class Item, class Convert>
Section<std::decay_t<std::invoke_result_t<Convert, const Item&>>> sectionOver(
      const std::vector<Item>& items, Convert convert) {
   using Row = std::decay_t<std::invoke_result_t<Convert, const Item&>>;
   Section<Row> section;
   section.count = items.size();
   section.forRange = [&items, convert](std::size_t first, std::size_t last,
                                        const typename Section<Row>::Visit& visit) {
      for (std::size_t i = first; i < last; ++i) {
         visit(convert(items[i]));
      }
   };
   section.forEach = [forRange = section.forRange, count = items.size()](
                           const typename Section<Row>::Visit& visit) { forRange(0, count, visit); };
   return section;
}

struct DumpHeader {
   std::string label;
   double time;
   bool running;
};

struct VrfHeader {
   std::string name;  // empty: no VRF of the map has this identifier
   std::uint32_t id;
   std::optional<bool> v4Ready, v6Ready;  // nothing: no readiness record
};

class DumpWriter {
 public:
   virtual ~DumpWriter() = default;
   virtual void scenarioBegin(const std::string& name, const std::string& description) = 0;
   virtual void dumpBegin(const DumpHeader& header) = 0;
   virtual void vrf(const VrfHeader& header, const Section<RouteRow>& routes4,
                    const Section<RouteRow>& routes6, const Section<ViaRow>& vias4,
                    const Section<ViaRow>& vias6) = 0;
   virtual void queryRows(const Section<QueryRow>& rows) = 0;
   virtual void viaSets(const Section<ViaSetRow>& rows) = 0;
   virtual void protoVrfStatus(const Section<ProtoRow>& rows) = 0;
   virtual void dumpEnd() = 0;
   virtual void scenarioEnd() = 0;
};

// Writes nothing: for plays whose output nobody reads (`check`, the live
// agent's own steps).
class NullDumpWriter final : public DumpWriter {
 public:
   void scenarioBegin(const std::string&, const std::string&) override {}
   void dumpBegin(const DumpHeader&) override {}
   void vrf(const VrfHeader&, const Section<RouteRow>&, const Section<RouteRow>&,
            const Section<ViaRow>&, const Section<ViaRow>&) override {}
   void queryRows(const Section<QueryRow>&) override {}
   void viaSets(const Section<ViaSetRow>&) override {}
   void protoVrfStatus(const Section<ProtoRow>&) override {}
   void dumpEnd() override {}
   void scenarioEnd() override {}
};

// Aligned text tables, one block per dump, after a "# description" line.
std::unique_ptr<DumpWriter> textDumpWriter(std::ostream& out);
// One JSON document: {"scenario": name, "description": text, "dumps": [ ... ]}.
std::unique_ptr<DumpWriter> jsonDumpWriter(std::ostream& out);

}  // namespace App
