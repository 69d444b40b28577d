// Reading connroute's table directories from another program: the routes,
// vias and via sets the agent writes, its VRFs' state, the candidates of a
// prefix, and the routes' changes as the agent commits them.
//
//   connroute::Tables tables("/dev/shm/connroute");     // one snapshot
//   for (const connroute::Vrf& vrf : tables.vrfs())
//      for (const connroute::Route& r : tables.routes(vrf.id, 4)) ...
//   tables.refresh();                                   // the latest turn
//
// Link with `pkg-config --cflags --libs connroute-reader`. Reading needs
// write access to the directory's lock.mdb (LMDB registers its readers
// there): run as the user the agent runs as. Every call may throw
// connroute::Error.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace connroute {

// A missing, foreign or unreadable directory, an unknown VRF, a malformed
// prefix: the message says which.
class Error : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

struct Vrf {
   std::uint32_t id = 0;
   std::string name;    // "" when it was never named
   bool served = false; // the running agent serves it; otherwise rows an earlier run left
   // "yes", "no", or "-" when there is no such record.
   std::string v4Ready = "-", v6Ready = "-", protocolReady = "-";
   std::uint64_t backlog = 0;      // entries still to drain
   std::uint64_t drainSlices = 0;  // so far
   double longestSliceSeconds = 0;
};

struct Route {
   std::string prefix;  // "10.1.0.0/24", "2001:db8::/64"
   unsigned type = 0;   // the route type's number, as `connroute show` prints it
   std::uint32_t viaSet = 0, protocol = 0, metric = 0, preference = 0, fecIndex = 0, flags = 0;
};

struct Via {
   std::string key, nexthop, intf;
   std::uint32_t flags = 0, kind = 0;
};

struct ViaSet {
   std::uint32_t key = 0;
   unsigned kind = 0;
   std::string via;
   std::uint32_t protocol = 0, vias = 0;
};

struct Candidate {
   std::string intf, address;
   unsigned type = 0;
   std::uint32_t viaSet = 0;
};

// A prefix's candidate interfaces in the installer's order: the first one
// owns the prefix.
struct Candidates {
   std::string installedOwner;  // "-" when no route is installed
   std::vector<Candidate> candidates;
};

// One consistent view of a directory, whatever the agent writes meanwhile.
class Tables {
 public:
   explicit Tables(const std::string& dir);
   ~Tables();
   Tables(Tables&&) noexcept;
   Tables& operator=(Tables&&) noexcept;

   // Moves the view to the latest committed turn.
   void refresh();
   // The turn the view shows (0: none committed).
   std::uint64_t turn() const;

   std::vector<Vrf> vrfs() const;
   // `family` is 4 or 6; sorted by prefix.
   std::vector<Route> routes(std::uint32_t vrfId, int family) const;
   std::vector<Via> vias(std::uint32_t vrfId, int family) const;
   std::vector<ViaSet> viaSets() const;
   // Nothing when the agent published none for the prefix.
   std::optional<Candidates> candidates(std::uint32_t vrfId, const std::string& prefix) const;

 private:
   struct Impl;
   std::unique_ptr<Impl> impl_;
};

// A route change, in the order the agent committed them.
struct Change {
   enum class Kind {
      snapshot,  // `count` routes follow, as of `turn`
      route,     // one route of the snapshot
      added,
      changed,
      removed,   // `route.prefix` only
      cleared,   // every route of `vrfId` (of every VRF if empty) and `family`
      resync,    // `why`: the follower fell behind or the agent restarted; a snapshot follows
   };
   Kind kind = Kind::snapshot;
   std::uint64_t turn = 0;
   std::optional<std::uint32_t> vrfId;
   int family = 0;
   Route route;
   std::size_t count = 0;
   std::string why;
};

const char* toString(Change::Kind kind);

struct FollowOptions {
   std::optional<std::string> vrf;      // a VRF's name or identifier; every VRF if empty
   int family = 0;                      // 4 or 6; both if 0
   std::optional<std::uint64_t> from;   // start with this turn's changes, not a snapshot
};

// Reports the routes, then every change as the agent commits it, until
// `stopFd` becomes readable (an eventfd, a signalfd, a pipe): it sleeps
// between turns. `batchDone`, if given, after each batch of changes.
void follow(const std::string& dir, const FollowOptions& options,
            const std::function<void(const Change&)>& onChange, int stopFd,
            const std::function<void()>& batchDone = {});

}  // namespace connroute
