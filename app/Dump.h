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

// The rows of one section: how many, and a walk over them in order.
template <class Row>
struct Section {
   std::size_t count = 0;
   std::function<void(const std::function<void(const Row&)>&)> forEach;
};

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
