// `connroute show follow`: a table directory's routes, then their changes
// as the writer commits them, a line each, until SIGINT or SIGTERM.
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "app/Player.h"
#include "app/RowJson.h"
#include "app/Show.h"
#include "app/TableRows.h"
#include "app/read/TableFollower.h"
#include "platform/belm/Exceptions.h"
#include "platform/linux/Fd.h"

namespace App {

namespace {

// SIGINT and SIGTERM as a descriptor the follower polls: it ends between
// two batches, never in the middle of a line.
class StopSignals {
 public:
   StopSignals() {
      sigemptyset(&signals_);
      sigaddset(&signals_, SIGINT);
      sigaddset(&signals_, SIGTERM);
      sigprocmask(SIG_BLOCK, &signals_, &previous_);
      fd_ = Linux::Fd(::signalfd(-1, &signals_, SFD_CLOEXEC | SFD_NONBLOCK));
      if (fd_.fd < 0) {
         const int error = errno;
         sigprocmask(SIG_SETMASK, &previous_, nullptr);
         throw std::runtime_error(std::string("cannot watch for signals: ") + std::strerror(error));
      }
   }
   ~StopSignals() {
      // The signal that stopped the follower is taken here: unblocked, it
      // would end the process before it says how it went.
      signalfd_siginfo info;
      while (::read(fd_.fd, &info, sizeof info) == sizeof info) {
      }
      fd_.close();
      sigprocmask(SIG_SETMASK, &previous_, nullptr);
   }
   StopSignals(const StopSignals&) = delete;
   StopSignals& operator=(const StopSignals&) = delete;
   int fd() const { return fd_.fd; }

 private:
   sigset_t signals_, previous_;
   Linux::Fd fd_;
};

class FollowPrinter {
 public:
   FollowPrinter(const TableFollower& follower, std::ostream& out, bool json)
         : follower_(follower), out_(out), json_(json) {}

   void operator()(const FollowEvent& event) {
      if (json_) {
         printJson(event);
      } else {
         printText(event);
      }
   }

 private:
   std::string vrfName(std::uint32_t id) const {
      auto vrf = follower_.vrfs().find(id);
      return vrf == follower_.vrfs().end() ? std::string() : vrf->second.name;
   }

   // Written directly, keys in order: a snapshot is a line per route, and
   // a follower that falls behind reads one after another.
   void printJson(const FollowEvent& event) {
      std::string line = "{";
      switch (event.kind) {
         case FollowEvent::Kind::snapshot:
            line += "\"event\":\"snapshot\",\"routes\":" + std::to_string(event.count);
            break;
         case FollowEvent::Kind::resync:
            line += "\"event\":\"resync\",\"why\":" + jsonStringText(event.why);
            break;
         default:
            line += "\"af\":" + std::to_string(event.family) + ",\"event\":\"" +
                    std::string(toString(event.kind)) + '"';
            if (event.kind == FollowEvent::Kind::removed) {
               line += ",\"prefix\":\"" + event.route.prefix.toString() + '"';
            } else if (event.kind != FollowEvent::Kind::cleared) {
               // Owners are published beside the log, not in it.
               line += ",\"route\":" + routeJsonTextOf(routeRow(event.route, "-"), WithOwner::no);
            }
      }
      line += ",\"seq\":" + std::to_string(event.seq);
      if (event.vrfId) {
         line += ",\"vrf\":{\"id\":" + std::to_string(*event.vrfId) + ",\"name\":";
         const std::string name = vrfName(*event.vrfId);
         line += (name.empty() ? std::string("null") : jsonStringText(name)) + '}';
      } else if (event.kind == FollowEvent::Kind::cleared) {
         line += ",\"vrf\":null";
      }
      out_ << line << "}\n";
   }

   void printText(const FollowEvent& event) {
      switch (event.kind) {
         case FollowEvent::Kind::snapshot:
            out_ << "snapshot at turn " << event.seq << ": " << event.count << " routes\n";
            return;
         case FollowEvent::Kind::resync:
            out_ << "resync at turn " << event.seq << ": " << event.why << '\n';
            return;
         default:
            break;
      }
      out_ << event.seq << ' ' << toString(event.kind) << " vrf ";
      if (!event.vrfId) {
         out_ << '*';
      } else {
         const std::string name = vrfName(*event.vrfId);
         out_ << (name.empty() ? "?" : name) << " (id " << *event.vrfId << ')';
      }
      out_ << " ipv" << event.family;
      if (event.kind == FollowEvent::Kind::cleared) {
         out_ << '\n';
         return;
      }
      const Routing::Rib::Route& r = event.route;
      out_ << ' ' << r.prefix.toString();
      if (event.kind != FollowEvent::Kind::removed) {
         out_ << " type " << static_cast<unsigned>(r.routeType) << " viaSet " << r.viaSetKey.value()
              << " protocol " << static_cast<unsigned>(r.routingProtocol) << " metric "
              << r.metricPref.metric << " preference " << r.metricPref.preference << " fecIndex "
              << r.fecIndex << " flags " << r.flags;
      }
      out_ << '\n';
   }

   const TableFollower& follower_;
   std::ostream& out_;
   bool json_;
};

}  // namespace

void follow(const ShowRequest& request, std::ostream& out) {
   StopSignals stop;
   std::optional<TableFollower> follower;
   try {
      follower.emplace(request.dir, FollowFilter{request.vrf, request.family, request.from});
      if (request.vrf) {
         requestedVrf(follower->vrfs(), request);  // one the directory knows
      }
   } catch (const Plim::DatabaseError& e) {
      throw ShowError(e.what());
   } catch (const Belm::CorruptionDetectedException& e) {
      throw ShowError(request.dir + ": " + e.what());
   }
   FollowPrinter print(*follower, out, request.json);
   try {
      follower->run(std::ref(print), stop.fd(), [&] {
         out.flush();
         if (!out) {
            throw OutputError(std::string("cannot write the output: ") + std::strerror(errno));
         }
      });
   } catch (const OutputError&) {
      throw;
   } catch (const Plim::DatabaseError& e) {
      throw ShowError(e.what());
   } catch (const std::exception& e) {
      // Corruption, or a published row this connroute cannot read.
      throw ShowError(request.dir + ": " + e.what());
   }
}

}  // namespace App
