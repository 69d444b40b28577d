// One rtnetlink socket in one network namespace, with libmnl: the kernel's
// links, addresses and IPv4 device settings, first as a dump, then as
// events, parsed straight into plain records for a listener. It keeps no
// cache of its own: the listener's tables are the only copy.
//
//   Linux::RtnlSocket socket("/run/netns/blue", listener);   // or "" for this one
//   socket.dump();                 // links, IPv4, IPv6 addresses, netconf
//   poll(socket.fd()) ... socket.receive();
//
// Dumps and events travel on two sockets of the namespace: a flood of
// events can then never stall a dump (the kernel continues a dump only when
// its queue has room, and events would keep it full). Events that arrive
// while a dump runs are held back and delivered after it, in their order:
// each is newer than what the dump may have missed, so the state after them
// is the kernel's. A receive buffer too small for a flood makes the kernel
// drop events (ENOBUFS): the listener hears onOverflow() and should dump
// again and reconcile. A dump the kernel reports interrupted (the tables
// changed under it) is repeated.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "platform/linux/RtnlMessages.h"

struct mnl_socket;
struct nlmsghdr;

namespace Linux {

// Owns a libmnl socket: closed with it.
struct MnlClose {
   void operator()(mnl_socket* socket) const noexcept;
};
using MnlSocket = std::unique_ptr<mnl_socket, MnlClose>;

class RtnlListener {
 public:
   virtual ~RtnlListener() = default;
   virtual void onLink(const LinkRecord& link) = 0;
   virtual void onAddr(const AddrRecord& addr) = 0;
   virtual void onNetconf(const NetconfRecord& netconf) = 0;
   // Every part of a dump() has arrived.
   virtual void onDumpDone() = 0;
   // Messages were lost: the listener's state may be stale.
   virtual void onOverflow() = 0;
};

// The namespace cannot be entered or the socket not opened.
class NetlinkError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

class RtnlSocket {
 public:
   // `netnsPath`: a namespace file (e.g. /run/netns/blue), or empty for the
   // process's own namespace. `receiveBuffer`: bytes the kernel may queue
   // before it drops messages.
   static constexpr int kDefaultReceiveBuffer = 64 << 20;
   RtnlSocket(const std::string& netnsPath, RtnlListener& listener,
              int receiveBuffer = kDefaultReceiveBuffer);
   RtnlSocket(const RtnlSocket&) = delete;
   RtnlSocket& operator=(const RtnlSocket&) = delete;

   // The namespace file entered (device and inode), zero for the process's
   // own: which namespace the sockets are in, whatever the path names now.
   std::pair<dev_t, ino_t> netnsIdentity() const noexcept { return netnsIdentity_; }
   // Both descriptors to wait on.
   int eventFd() const;
   int dumpFd() const;
   // Asks for everything again: links, IPv4 and IPv6 addresses, IPv4
   // netconf, one after the other; onDumpDone() when the last is in.
   void dump();
   bool dumping() const noexcept { return next_ < parts_.size() || waiting_; }
   // Reads the IPv4 settings again (netconf), unless a dump runs: the
   // kernel announces no change of bc_forwarding, so it can only be read.
   // The records come as events would; onDumpDone() is not called.
   void refreshSettings();
   // Reads and dispatches the messages waiting on the socket, at most
   // `maxReads` socket reads of them (a flood is taken in bounded bites, so
   // that clocks still run between them); true if more may be waiting.
   bool receive(int maxReads = 64);
   // Messages that failed their checks (RtnlMessages.h), skipped so far.
   std::uint64_t malformedCount() const noexcept { return malformed_; }
   // What the socket has done so far, for metrics.
   struct Counters {
      std::uint64_t messages = 0;    // read from the kernel, dumps' and events'
      std::uint64_t eventsLost = 0;  // times the kernel dropped events (ENOBUFS)
      std::uint64_t dumps = 0;       // full dumps asked for, the first included
   };
   const Counters& counters() const noexcept { return counters_; }

 private:
   using Record = std::variant<LinkRecord, AddrRecord, NetconfRecord>;

   bool read(mnl_socket* socket, int maxReads, bool dump);
   void requestNextPart();
   void dispatch(const nlmsghdr* message, bool dump);
   void deliver(const Record& record);
   // Events wait while a dump runs; a dump's own records go straight on.
   template <class R>
   void hand(const R& record, bool dump) {
      if (!dump && dumping()) {
         heldBack_.emplace_back(std::in_place_type<R>, record);
      } else {
         deliver(Record(std::in_place_type<R>, record));
      }
   }

   RtnlListener& listener_;
   std::pair<dev_t, ino_t> netnsIdentity_{};
   MnlSocket events_;
   MnlSocket dumps_;
   std::vector<Record> heldBack_;  // events that came during a dump
   std::vector<char> buffer_;
   std::vector<std::pair<int, int>> parts_;  // (message type, family) of the dump
   std::size_t next_ = 0;
   bool settingsOnly_ = false;  // the dump running is refreshSettings()'s
   bool waiting_ = false;     // a part's answer is still arriving
   bool interrupted_ = false; // the kernel flagged the dump as inconsistent, or a part failed
   std::uint64_t malformed_ = 0;
   Counters counters_;
   std::uint32_t seq_ = 0;
};

}  // namespace Linux
