#include "app/read/TableFollower.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/plim/RowDatabase.h"
#include "platform/rib/IpRibRouteOrqTable.h"
#include "platform/rib/TablePaths.h"

namespace App {

namespace Rib = Routing::Rib;

std::string_view toString(FollowEvent::Kind kind) {
   switch (kind) {
      case FollowEvent::Kind::snapshot:
         return "snapshot";
      case FollowEvent::Kind::route:
         return "route";
      case FollowEvent::Kind::added:
         return "added";
      case FollowEvent::Kind::changed:
         return "changed";
      case FollowEvent::Kind::removed:
         return "removed";
      case FollowEvent::Kind::cleared:
         return "cleared";
      case FollowEvent::Kind::resync:
         return "resync";
   }
   return "unknown";
}

namespace {

FollowEvent::Kind eventOf(Plim::ChangeKind what) {
   switch (what) {
      case Plim::ChangeKind::added:
         return FollowEvent::Kind::added;
      case Plim::ChangeKind::changed:
         return FollowEvent::Kind::changed;
      case Plim::ChangeKind::removed:
         return FollowEvent::Kind::removed;
      case Plim::ChangeKind::cleared:
         break;
   }
   return FollowEvent::Kind::cleared;
}

template <class T>
T decode(std::string_view bytes) {
   T value{};
   std::memcpy(&value, bytes.data(), sizeof value);  // the log's bytes are not aligned for T
   return value;
}

}  // namespace

TableFollower::TableFollower(const std::string& dir, FollowFilter filter)
      : dir_(dir), reader_(dir), filter_(filter) {
   readVrfs();
   inotify_ = Linux::Fd(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
   if (inotify_.fd < 0) {
      throw Plim::DatabaseError(dir_ + ": cannot watch the table directory: " + std::strerror(errno));
   }
   watch();
}

TableFollower::~TableFollower() = default;

// Watches the file the writer rewrites after each commit; until a writer
// has created it, the directory, for its creation.
void TableFollower::watch() {
   const std::string turns = dir_ + "/" + Plim::RowDatabase::kTurnsFile;
   watch_ = ::inotify_add_watch(inotify_.fd, turns.c_str(), IN_MODIFY);
   watchingFile_ = watch_ >= 0;
   if (!watchingFile_) {
      watch_ = ::inotify_add_watch(inotify_.fd, dir_.c_str(), IN_CREATE);
   }
   if (watch_ < 0) {
      throw Plim::DatabaseError(dir_ + ": cannot watch the table directory: " + std::strerror(errno));
   }
}

bool TableFollower::wanted(std::optional<std::uint32_t> vrfId, int family) const {
   if (filter_.family != 0 && filter_.family != family) {
      return false;
   }
   if (!filter_.vrf || !vrfId) {
      return true;
   }
   return wantedVrf_ == vrfId;
}

// The VRFs' names, and which one the filter means now (by name, it may be
// another identifier than before).
void TableFollower::readVrfs() {
   vrfs_ = reader_.vrfs();
   wantedVrf_ = filter_.vrf ? vrfNamed(vrfs_, *filter_.vrf) : std::nullopt;
}

void TableFollower::snapshot(const Plim::Feed& feed, const Report& report) {
   readVrfs();
   namesLookedUp_.clear();
   std::vector<FollowEvent> rows;
   for (const auto& [id, vrf] : vrfs_) {
      for (int family : {4, 6}) {
         if (!wanted(id, family)) {
            continue;
         }
         for (const Rib::Route& route : reader_.routes(id, family)) {
            rows.push_back(FollowEvent{FollowEvent::Kind::route, feed.seq, id, family, route, 0, {}});
         }
      }
   }
   report(FollowEvent{FollowEvent::Kind::snapshot, feed.seq, {}, filter_.family, {}, rows.size(), {}});
   for (const FollowEvent& row : rows) {
      report(row);
   }
   writer_ = feed.writer;
   next_ = feed.seq + 1;
}

void TableFollower::resync(const Plim::Feed& feed, const std::string& why, const Report& report) {
   report(FollowEvent{FollowEvent::Kind::resync, feed.seq, {}, 0, {}, 0, why});
   snapshot(feed, report);
}

void TableFollower::start(const Report& report) {
   const Plim::Feed feed = reader_.feed();
   if (!filter_.from) {
      snapshot(feed, report);
      return;
   }
   writer_ = feed.writer;
   next_ = *filter_.from;
   if (next_ < feed.logStart && next_ <= feed.seq) {
      resync(feed,
             "turn " + std::to_string(next_) + " is no longer in the log, which begins at turn " +
                   std::to_string(feed.logStart),
             report);
   }
}

void TableFollower::reportChange(const Plim::LoggedChange& change, const std::string& path,
                                 const Report& report) {
   const bool query = path == Rib::kRouteQuery4Path || path == Rib::kRouteQuery6Path;
   const std::optional<Rib::VrfTablePath> table = query ? std::nullopt : Rib::parseVrfTablePath(path);
   if (!(query ? change.kind == "routeQuery" : table && table->routes && change.kind == "route")) {
      return;  // vias and via sets: not followed
   }
   FollowEvent event{eventOf(change.what), change.seq, {}, 0, {}, 0, {}};
   event.family = query ? (path == Rib::kRouteQuery4Path ? 4 : 6) : table->family;
   const std::size_t keySize = query ? sizeof(Rib::OrqKey) : sizeof(Ovel::IpGenPrefix);
   const std::size_t rowSize = query ? sizeof(Rib::IpRibRouteOrq) : sizeof(Rib::Route);
   if (change.what != Plim::ChangeKind::cleared &&
       (change.key.size() != keySize || (!change.row.empty() && change.row.size() != rowSize))) {
      throw Plim::DatabaseError(dir_ + ": cannot read the change log: a change of turn " +
                                std::to_string(change.seq) + " has rows of another size");
   }
   if (query) {
      if (change.what != Plim::ChangeKind::cleared) {
         const auto key = decode<Rib::OrqKey>(change.key);
         event.vrfId = key.vrfId.value();
         event.route.prefix = key.prefix;
      }
      if (!change.row.empty()) {
         event.route = decode<Rib::IpRibRouteOrq>(change.row).route();
      }
   } else {
      event.vrfId = table->vrfId;
      if (change.what != Plim::ChangeKind::cleared) {
         event.route.prefix = decode<Ovel::IpGenPrefix>(change.key);
      }
      if (!change.row.empty()) {
         event.route = decode<Rib::Route>(change.row);
      }
   }
   if (event.vrfId && !vrfs_.contains(*event.vrfId) && namesLookedUp_.insert(*event.vrfId).second) {
      readVrfs();  // a VRF that came after the snapshot: its name, once
   }
   if (wanted(event.vrfId, event.family)) {
      report(event);
   }
}

void TableFollower::catchUp(const Report& report) {
   reader_.refresh();
   const Plim::Feed feed = reader_.feed();
   if (feed.writer != writer_ && (writer_ != 0 || next_ < feed.logStart)) {
      resync(feed, "another writer took over the tables (the agent restarted)", report);
      return;
   }
   writer_ = feed.writer;
   if (next_ > feed.seq) {
      return;
   }
   if (next_ < feed.logStart) {
      resync(feed,
             "fell behind: turn " + std::to_string(next_) +
                   " is no longer in the log, which begins at turn " + std::to_string(feed.logStart),
             report);
      return;
   }
   reader_.forEachChange(next_, feed.seq, [&](const Plim::LoggedChange& change, const std::string& path) {
      reportChange(change, path, report);
   });
   next_ = feed.seq + 1;
}

namespace {

// Thrown out of a long batch (a snapshot of a million routes) when the
// follower is asked to stop: it answers within a few thousand events.
struct Stopped {};

bool readable(int fd) {
   pollfd look{fd, POLLIN, 0};
   return ::poll(&look, 1, 0) > 0 && look.revents != 0;
}

}  // namespace

void TableFollower::run(const Report& report, int stopFd, const std::function<void()>& batchDone) {
   std::size_t sinceLook = 0;
   const Report reportOrStop = [&](const FollowEvent& event) {
      report(event);
      if (++sinceLook == 4096) {
         sinceLook = 0;
         if (readable(stopFd)) {
            throw Stopped{};
         }
      }
   };
   try {
      follow(reportOrStop, stopFd, batchDone);
   } catch (const Stopped&) {
   }
}

void TableFollower::follow(const Report& report, int stopFd, const std::function<void()>& batchDone) {
   auto done = [&] {
      if (batchDone) {
         batchDone();
      }
   };
   start(report);
   catchUp(report);
   done();
   pollfd fds[2] = {{inotify_.fd, POLLIN, 0}, {stopFd, POLLIN, 0}};
   for (;;) {
      reader_.release();  // asleep, it holds no snapshot for the writer to keep
      // Woken by the writer; and every second, in case a wake was lost.
      if (::poll(fds, 2, 1000) < 0) {
         if (errno == EINTR) {
            continue;
         }
         throw Plim::DatabaseError(dir_ + ": cannot wait for the writer: " + std::strerror(errno));
      }
      if (fds[1].revents != 0) {
         return;
      }
      alignas(inotify_event) char events[4096];
      while (::read(inotify_.fd, events, sizeof events) > 0) {
      }
      if (!watchingFile_) {
         ::inotify_rm_watch(inotify_.fd, watch_);
         watch();
      }
      catchUp(report);
      done();
   }
}

}  // namespace App
