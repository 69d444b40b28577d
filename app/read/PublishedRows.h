// The rows the agent publishes next to the RIB's tables (TablePublisher)
// and `connroute show` reads back: keys as bytes, values as tab-separated
// text, one record per line.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ovel/IpGenAddrWithMask.h"
#include "platform/ovel/IpGenPrefix.h"

namespace App {

// Names of the published databases and the layout of their values
// (tab-separated text, read back by `connroute show`).
inline constexpr std::string_view kVrfStatusKind = "vrfStatus";    // key: VRF id (big-endian)
// A database per VRF, numbered by its identifier; key: the prefix's place
// (platform/plim/RowPlace.h), then the prefix.
inline constexpr std::string_view kCandidatesKind = "candidates";
inline constexpr std::string_view kAgentKind = "agent";            // key: "agent"
// The name each VRF identifier is served under: kept when the agent stops
// (and across runs), so that the rows it leaves keep a name; removed with a
// VRF that goes while the agent runs.
inline constexpr std::string_view kVrfNameKind = "vrfName";        // key: VRF id (big-endian)
// The live agent's counters of each namespace it reads (NamespaceCounters).
inline constexpr std::string_view kNetnsKind = "netns";            // key: the namespace's name

// Big-endian, so that a VRF's rows sit together in key order.
std::string vrfKey(std::uint32_t vrfId);
// A VRF's candidates sit in their prefixes' places, the order a drain
// publishes them in.
std::string candidateKey(const Ovel::IpGenPrefix& prefix);
// The prefix of a candidate key; throws std::invalid_argument for another
// key, or one whose place is not its prefix's.
Ovel::IpGenPrefix candidatePrefix(std::string_view key);

// One candidate interface of a prefix, in the candidate set's order: the
// first one is the owner the installer takes.
struct CandidateRow {
   std::string intf;
   std::string address;
   unsigned type = 0;
   std::uint32_t viaSet = 0;
};

struct Candidates {
   std::string installedOwner;  // "-": none installed
   std::vector<CandidateRow> rows;
};

// Writes a prefix's published candidates value: the installed owner, then
// one line per candidate in the set's order. The buffer is kept from one
// value to the next, so a turn that publishes many prefixes allocates once.
class CandidatesValue {
 public:
   // Starts a value with the installed owner ("-": none).
   void start(std::string_view installedOwner);
   void add(std::string_view intf, const Ovel::IpGenAddrWithMask& address, unsigned type,
            std::uint32_t viaSet);
   std::string_view bytes() const noexcept { return value_; }

 private:
   std::string value_;
};

// Throws std::invalid_argument for a malformed value.
Candidates parseCandidates(std::string_view value);

struct VrfStatusRow {
   std::string name;
   std::string v4Ready = "-", v6Ready = "-";  // "yes", "no", "-": no readiness record
   std::string protoReady = "-";              // the protocol's status entity
   double protoReadyTime = 0;
   std::uint64_t backlog = 0;  // entries the drain still has to process
   std::uint64_t drains = 0;   // drain slices so far
   double longestSlice = 0;    // seconds
   friend bool operator==(const VrfStatusRow&, const VrfStatusRow&) = default;
};

std::string vrfStatusValue(const VrfStatusRow& row);
VrfStatusRow parseVrfStatus(std::string_view value);

// What the live agent read from one namespace's rtnetlink sockets.
struct NamespaceCounters {
   std::string netns;  // "default" for the agent's own namespace
   std::uint64_t messages = 0;    // kernel messages read
   std::uint64_t eventsLost = 0;  // times the kernel dropped events (ENOBUFS)
   std::uint64_t resyncs = 0;     // the namespace read again after a loss
   friend bool operator==(const NamespaceCounters&, const NamespaceCounters&) = default;
};

std::string namespaceCountersValue(const NamespaceCounters& counters);
// Throws std::invalid_argument for a malformed value.
NamespaceCounters parseNamespaceCounters(std::string_view netns, std::string_view value);

}  // namespace App
