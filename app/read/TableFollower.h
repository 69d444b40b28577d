// Follows a table directory's routes from another process than the agent
// writing it: the routes as of one turn, then every later change in the
// order the turns committed, as events. It sleeps until a turn commits (an
// inotify watch on the file the writer rewrites after each commit), and
// starts again from a fresh snapshot, saying why, when the log no longer
// holds the turns it has not read or another writer has taken over.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "app/read/TableReader.h"
#include "platform/linux/Fd.h"

namespace App {

struct FollowEvent {
   enum class Kind {
      snapshot,  // `count` routes follow, as of turn `seq`
      route,     // one route of the snapshot
      added,
      changed,
      removed,   // `route.prefix` only
      cleared,   // every route of the VRF and family; every VRF's if `vrfId` is empty
      resync,    // `why`; a snapshot follows
   };
   Kind kind;
   std::uint64_t seq = 0;
   std::optional<std::uint32_t> vrfId;
   int family = 0;
   Routing::Rib::Route route;
   std::size_t count = 0;
   std::string why;
};

std::string_view toString(FollowEvent::Kind kind);

struct FollowFilter {
   // A VRF's name or identifier, every VRF if empty. By name, the VRF is
   // whichever has that name now, across writers.
   std::optional<std::string> vrf;
   int family = 0;                      // 4 or 6; both if 0
   // Start with the changes of this turn instead of a snapshot.
   std::optional<std::uint64_t> from;
};

class TableFollower {
 public:
   using Report = std::function<void(const FollowEvent&)>;

   // Throws Plim::DatabaseError for a missing or foreign directory.
   TableFollower(const std::string& dir, FollowFilter filter);
   ~TableFollower();
   TableFollower(const TableFollower&) = delete;
   TableFollower& operator=(const TableFollower&) = delete;

   // Reports until `stopFd` becomes readable; `batchDone` after each
   // batch of events (a snapshot, a wake's changes), e.g. to flush output.
   void run(const Report& report, int stopFd, const std::function<void()>& batchDone = {});

   // The VRFs of the latest snapshot, for naming events' VRFs.
   const std::map<std::uint32_t, TableReader::Vrf>& vrfs() const { return vrfs_; }

 private:
   void follow(const Report& report, int stopFd, const std::function<void()>& batchDone);
   void watch();
   void readVrfs();
   void start(const Report& report);
   void catchUp(const Report& report);
   void snapshot(const Plim::Feed& feed, const Report& report);
   void resync(const Plim::Feed& feed, const std::string& why, const Report& report);
   void reportChange(const Plim::LoggedChange& change, const std::string& path, const Report& report);
   bool wanted(std::optional<std::uint32_t> vrfId, int family) const;

   std::string dir_;
   TableReader reader_;
   FollowFilter filter_;
   std::map<std::uint32_t, TableReader::Vrf> vrfs_;
   std::optional<std::uint32_t> wantedVrf_;  // the filter's VRF among vrfs_
   std::set<std::uint32_t> namesLookedUp_;  // VRFs vrfs_ was read again for, since the snapshot
   std::uint64_t writer_ = 0;
   std::uint64_t next_ = 1;  // the next turn whose changes to report
   Linux::Fd inotify_;
   int watch_ = -1;          // on the turns file, or on the directory until it exists
   bool watchingFile_ = false;
};

}  // namespace App
