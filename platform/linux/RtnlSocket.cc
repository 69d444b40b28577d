#include "platform/linux/RtnlSocket.h"

#include <fcntl.h>
#include <libmnl/libmnl.h>
#include <linux/netconf.h>
#include <linux/rtnetlink.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "platform/linux/Fd.h"

namespace Linux {

namespace {

std::string errnoText(const std::string& what) { return what + ": " + std::strerror(errno); }

struct Opened {
   MnlSocket events, dumps;
   std::pair<dev_t, ino_t> identity{};
};

// Opens the sockets inside the namespace from a helper thread: a socket
// belongs to the namespace it was created in, and only that thread leaves
// the process's own namespace.
Opened openIn(const std::string& netnsPath) {
   Opened opened;
   std::string error;
   std::thread opener([&] {
      if (!netnsPath.empty()) {
         const Fd ns{::open(netnsPath.c_str(), O_RDONLY | O_CLOEXEC)};
         struct stat st {};
         if (ns.fd < 0 || ::fstat(ns.fd, &st) != 0) {
            error = errnoText("cannot open the namespace " + netnsPath);
            return;
         }
         opened.identity = {st.st_dev, st.st_ino};
         if (::setns(ns.fd, CLONE_NEWNET) != 0) {
            error = errnoText("cannot enter the namespace " + netnsPath);
            return;
         }
      }
      opened.events.reset(mnl_socket_open2(NETLINK_ROUTE, SOCK_NONBLOCK | SOCK_CLOEXEC));
      opened.dumps.reset(mnl_socket_open2(NETLINK_ROUTE, SOCK_NONBLOCK | SOCK_CLOEXEC));
      if (!opened.events || !opened.dumps) {
         error = errnoText("cannot open an rtnetlink socket");
      }
   });
   opener.join();
   if (!opened.events || !opened.dumps) {
      throw NetlinkError(error);
   }
   return opened;
}

}  // namespace

void MnlClose::operator()(mnl_socket* socket) const noexcept { mnl_socket_close(socket); }

RtnlSocket::RtnlSocket(const std::string& netnsPath, RtnlListener& listener, int receiveBuffer)
      : listener_(listener), buffer_(MNL_SOCKET_BUFFER_SIZE * 16) {
   Opened opened = openIn(netnsPath);
   events_ = std::move(opened.events);
   dumps_ = std::move(opened.dumps);
   netnsIdentity_ = opened.identity;
   const int fd = mnl_socket_get_fd(events_.get());
   // Forcing the size past the system's limit needs CAP_NET_ADMIN; without
   // it the largest allowed size is the next best.
   if (::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &receiveBuffer, sizeof receiveBuffer) != 0 &&
       ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer) != 0) {
      throw NetlinkError(errnoText("cannot size the receive buffer"));
   }
   const unsigned groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR;
   if (mnl_socket_bind(events_.get(), groups, MNL_SOCKET_AUTOPID) < 0 ||
       mnl_socket_bind(dumps_.get(), 0, MNL_SOCKET_AUTOPID) < 0) {
      throw NetlinkError(errnoText("cannot bind the rtnetlink sockets"));
   }
   const int netconf = RTNLGRP_IPV4_NETCONF;
   if (mnl_socket_setsockopt(events_.get(), NETLINK_ADD_MEMBERSHIP, const_cast<int*>(&netconf),
                             sizeof netconf) < 0) {
      throw NetlinkError(errnoText("cannot listen to IPv4 device settings"));
   }
}

int RtnlSocket::eventFd() const { return mnl_socket_get_fd(events_.get()); }

int RtnlSocket::dumpFd() const { return mnl_socket_get_fd(dumps_.get()); }

void RtnlSocket::dump() {
   ++counters_.dumps;
   parts_ = {{RTM_GETLINK, AF_UNSPEC}, {RTM_GETADDR, AF_INET}, {RTM_GETADDR, AF_INET6},
             {RTM_GETNETCONF, AF_INET}};
   next_ = 0;
   interrupted_ = false;
   settingsOnly_ = false;
   heldBack_.clear();  // all older than what this dump will read
   if (!waiting_) {
      requestNextPart();
   }
}

void RtnlSocket::refreshSettings() {
   if (dumping()) {
      return;
   }
   parts_ = {{RTM_GETNETCONF, AF_INET}};
   next_ = 0;
   interrupted_ = false;
   settingsOnly_ = true;
   requestNextPart();
}

void RtnlSocket::requestNextPart() {
   if (next_ == parts_.size() && settingsOnly_) {
      // Nothing to reconcile: what was read came as events do, and an
      // inconsistent read is corrected by the next one.
      waiting_ = false;
      settingsOnly_ = false;
      std::vector<Record> held;
      held.swap(heldBack_);
      for (const Record& record : held) {
         deliver(record);
      }
      return;
   }
   if (next_ == parts_.size()) {
      waiting_ = false;
      if (interrupted_) {
         // The kernel's tables changed during it, or events were lost while
         // it ran: not a state to publish. The listener reads again.
         interrupted_ = false;
         heldBack_.clear();
         listener_.onOverflow();
         return;
      }
      listener_.onDumpDone();
      std::vector<Record> held;
      held.swap(heldBack_);
      for (const Record& record : held) {
         deliver(record);
      }
      return;
   }
   const auto [type, family] = parts_[next_++];
   char request[MNL_SOCKET_BUFFER_SIZE];
   nlmsghdr* header = mnl_nlmsg_put_header(request);
   header->nlmsg_type = static_cast<std::uint16_t>(type);
   header->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
   header->nlmsg_seq = ++seq_;
   if (type == RTM_GETNETCONF) {
      auto* body = static_cast<netconfmsg*>(mnl_nlmsg_put_extra_header(header, sizeof(netconfmsg)));
      body->ncm_family = static_cast<std::uint8_t>(family);
   } else {
      auto* body = static_cast<rtgenmsg*>(mnl_nlmsg_put_extra_header(header, sizeof(rtgenmsg)));
      body->rtgen_family = static_cast<std::uint8_t>(family);
   }
   if (mnl_socket_sendto(dumps_.get(), header, header->nlmsg_len) < 0) {
      throw NetlinkError(errnoText("cannot ask the kernel for a dump"));
   }
   waiting_ = true;
}

bool RtnlSocket::receive(int maxReads) {
   const bool moreDumped = read(dumps_.get(), maxReads, true);
   const bool moreEvents = read(events_.get(), maxReads, false);
   return moreDumped || moreEvents;
}

bool RtnlSocket::read(mnl_socket* socket, int maxReads, bool dump) {
   for (int reads = 0; reads < maxReads; ++reads) {
      const ssize_t n = mnl_socket_recvfrom(socket, buffer_.data(), buffer_.size());
      if (n < 0) {
         if (errno == EAGAIN || errno == EWOULDBLOCK) {
            return false;
         }
         if (errno == EINTR) {
            continue;
         }
         if (errno == ENOBUFS) {
            // Events were dropped: those held back no longer tell the whole
            // story, and a dump running now ends unpublished.
            ++counters_.eventsLost;
            heldBack_.clear();
            interrupted_ = dumping();
            listener_.onOverflow();
            continue;
         }
         throw NetlinkError(errnoText("cannot read an rtnetlink socket"));
      }
      forEachMessage(buffer_.data(), static_cast<std::size_t>(n),
                     [&](const nlmsghdr* message) { dispatch(message, dump); });
   }
   return true;
}

void RtnlSocket::deliver(const Record& record) {
   std::visit(
         [this](const auto& r) {
            using T = std::decay_t<decltype(r)>;
            if constexpr (std::is_same_v<T, LinkRecord>) {
               listener_.onLink(r);
            } else if constexpr (std::is_same_v<T, AddrRecord>) {
               listener_.onAddr(r);
            } else {
               listener_.onNetconf(r);
            }
         },
         record);
}

void RtnlSocket::dispatch(const nlmsghdr* message, bool dump) {
   ++counters_.messages;
   if (message->nlmsg_flags & NLM_F_DUMP_INTR) {
      interrupted_ = true;
   }
   const bool answersPart = dump && waiting_ && message->nlmsg_seq == seq_;
   const Message read = readMessage(message);
   if (std::holds_alternative<Malformed>(read)) {
      ++malformed_;
   } else if (std::holds_alternative<PartDone>(read)) {
      if (answersPart) {
         requestNextPart();
      }
   } else if (const auto* error = std::get_if<ErrorReply>(&read)) {
      if (answersPart) {
         // A part the kernel cannot dump (netconf on an old kernel) has
         // nothing to read; any other failure fails the dump, which is then
         // read again.
         interrupted_ = interrupted_ || (error->error != 0 && error->error != -EOPNOTSUPP);
         requestNextPart();
      }
   } else if (const auto* link = std::get_if<LinkRecord>(&read)) {
      hand(*link, dump);
   } else if (const auto* addr = std::get_if<AddrRecord>(&read)) {
      hand(*addr, dump);
   } else if (const auto* netconf = std::get_if<NetconfRecord>(&read)) {
      hand(*netconf, dump);
   }
}

}  // namespace Linux
