// The live agent's decisions about namespaces: which are served as VRFs,
// when one is read again, when one that failed is tried again, when the
// start-up verification is given and when everything is ready. It sees the
// host only through HostSeams.h and a clock, so that every decision can be
// tested with fakes; the event loop (LiveAgent.cc) hands it what happens.
//
// - Every file of the netns directory whose name a VRF can have is served:
//   a VRF of that name, fed by the namespace's sockets. A name no VRF can
//   have (`default`, too long) is reported once, until the file goes.
// - A namespace whose sockets cannot be opened (just made by `ip netns add`
//   and not yet mounted, a file left behind, a namespace that vanished
//   while entered) is tried again after 20 ms, then twice as long each
//   time, never longer than 30 s. After about a second of failures it is
//   reported, once, and no longer holds back the verification.
// - A served namespace whose sockets fail (a read, a dump request, its
//   registration with the event loop) loses its sockets, not its routes:
//   they are opened again on the same terms (the waits growing until a
//   dump is in again), and a fresh dump reconciles. One namespace's failure
//   never ends the agent.
// - A file deleted, or made anew under the same name (another identity),
//   ends its VRF: routes withdrawn, tables emptied.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <string>

#include "app/Host.h"
#include "app/live/HostSeams.h"
#include "app/live/NamespaceFeed.h"
#include "app/live/VrfIds.h"
#include "app/read/PublishedRows.h"
#include "platform/vok/Time.h"

namespace App {

class NamespaceService {
 public:
   struct Seams {
      NetnsDirectory& directory;
      SocketFactory& sockets;
      FdRegistry& fds;
      Vok::TimeSource& clock;
      std::ostream& log;
   };
   NamespaceService(Host& host, VrfIds& vrfIds, std::shared_ptr<Plim::RowDatabase> tables, Seams seams);
   ~NamespaceService();

   // Looks at the directory again: serves what is new, ends what went, and
   // tries again what is due. The default namespace is always served.
   void rescan();
   // A descriptor registered with `tag` is readable.
   void onReadable(void* tag);
   // After the turns of one pass of the event loop: the verification once
   // every namespace's first dump is in, and a line per VRF become ready.
   void afterTurns();
   // Every namespace's first dump in, every served VRF ready and drained.
   bool everythingReady() const;
   // Seconds until the next namespace is due to be tried again.
   std::optional<double> secondsToNextTry() const;
   // The kernel announces no change of bc_forwarding: reads every served
   // namespace's settings again.
   void refreshSettings();
   std::vector<NamespaceCounters> counters() const;

 private:
   struct Retry {
      int failures = 0;
      double nextTry = 0;
      bool reported = false;
   };
   struct Served {
      std::string netns;  // "" for the agent's own
      std::unique_ptr<NamespaceFeed> feed;
      std::unique_ptr<NamespaceSocket> socket;  // null while it is to be opened again
      FileIdentity identity{};
      // Failures in a row: kept until a dump is in again, so that sockets
      // that open but fail at once are tried less and less often.
      Retry retry;
      std::uint64_t malformedReported = 0;
      Linux::RtnlSocket::Counters countersBefore;  // of the sockets it had before
   };

   void publish(Action action);
   // The VRF a namespace is served as, or nothing (reported once) when no
   // VRF can have its name.
   std::optional<L3::VrfName> vrfFor(const std::string& netns);
   void serve(const std::string& netns);
   void unserve(const std::string& netns);
   // Opens the namespace's sockets and asks for a dump; false (the failure
   // counted in `retry`) if that fails.
   bool connect(Served& served, Retry& retry);
   bool reconnecting(const Served& served) const { return !served.socket; }
   void disconnect(Served& served);
   void failed(const std::string& netns, Retry& retry, const std::string& error);
   void reconnectDue();
   void pump(Served& served);
   void lostSockets(Served& served, const std::string& error);
   bool blockingVerification() const;
   void clearUnservedTables();
   NamespaceCounters countersOf(const Served& served) const;

   Host& host_;
   VrfIds& vrfIds_;
   std::shared_ptr<Plim::RowDatabase> tables_;
   Seams seams_;
   NullDumpWriter noWriter_;
   std::map<std::string, std::unique_ptr<Served>> served_;  // by namespace, "" the default one
   std::map<std::string, Retry> pending_;     // namespaces not yet opened
   std::set<std::string> badNames_;           // names no VRF can have: reported once
   std::set<std::string> announcedReady_;
   bool verified_ = false;
};

}  // namespace App
