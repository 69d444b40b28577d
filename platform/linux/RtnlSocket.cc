#include "platform/linux/RtnlSocket.h"

#include <fcntl.h>
#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/netconf.h>
#include <linux/rtnetlink.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

namespace Linux {

namespace {

std::string errnoText(const std::string& what) { return what + ": " + std::strerror(errno); }

// Opens the sockets inside the namespace from a helper thread: a socket
// belongs to the namespace it was created in, and only that thread leaves
// the process's own namespace.
std::pair<mnl_socket*, mnl_socket*> openIn(const std::string& netnsPath) {
   mnl_socket* events = nullptr;
   mnl_socket* dumps = nullptr;
   std::string error;
   std::thread opener([&] {
      if (!netnsPath.empty()) {
         const int ns = ::open(netnsPath.c_str(), O_RDONLY | O_CLOEXEC);
         if (ns < 0) {
            error = errnoText("cannot open the namespace " + netnsPath);
            return;
         }
         const int entered = ::setns(ns, CLONE_NEWNET);
         ::close(ns);
         if (entered != 0) {
            error = errnoText("cannot enter the namespace " + netnsPath);
            return;
         }
      }
      events = mnl_socket_open2(NETLINK_ROUTE, SOCK_NONBLOCK | SOCK_CLOEXEC);
      dumps = mnl_socket_open2(NETLINK_ROUTE, SOCK_NONBLOCK | SOCK_CLOEXEC);
      if (!events || !dumps) {
         error = errnoText("cannot open an rtnetlink socket");
      }
   });
   opener.join();
   if (!events || !dumps) {
      for (mnl_socket* socket : {events, dumps}) {
         if (socket) {
            mnl_socket_close(socket);
         }
      }
      throw NetlinkError(error);
   }
   return {events, dumps};
}

}  // namespace

RtnlSocket::RtnlSocket(const std::string& netnsPath, RtnlListener& listener, int receiveBuffer)
      : listener_(listener), buffer_(MNL_SOCKET_BUFFER_SIZE * 16) {
   std::tie(events_, dumps_) = openIn(netnsPath);
   const int fd = mnl_socket_get_fd(events_);
   // Forcing the size past the system's limit needs CAP_NET_ADMIN; without
   // it the largest allowed size is the next best.
   if (::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &receiveBuffer, sizeof receiveBuffer) != 0) {
      ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
   }
   const unsigned groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR;
   if (mnl_socket_bind(events_, groups, MNL_SOCKET_AUTOPID) < 0 ||
       mnl_socket_bind(dumps_, 0, MNL_SOCKET_AUTOPID) < 0) {
      const std::string error = errnoText("cannot bind the rtnetlink sockets");
      mnl_socket_close(events_);
      mnl_socket_close(dumps_);
      throw NetlinkError(error);
   }
   const int netconf = RTNLGRP_IPV4_NETCONF;
   if (mnl_socket_setsockopt(events_, NETLINK_ADD_MEMBERSHIP, const_cast<int*>(&netconf),
                             sizeof netconf) < 0) {
      const std::string error = errnoText("cannot listen to IPv4 device settings");
      mnl_socket_close(events_);
      mnl_socket_close(dumps_);
      throw NetlinkError(error);
   }
}

RtnlSocket::~RtnlSocket() {
   mnl_socket_close(events_);
   mnl_socket_close(dumps_);
}

int RtnlSocket::eventFd() const { return mnl_socket_get_fd(events_); }

int RtnlSocket::dumpFd() const { return mnl_socket_get_fd(dumps_); }

void RtnlSocket::dump() {
   parts_ = {{RTM_GETLINK, AF_UNSPEC}, {RTM_GETADDR, AF_INET}, {RTM_GETADDR, AF_INET6},
             {RTM_GETNETCONF, AF_INET}};
   next_ = 0;
   interrupted_ = false;
   heldBack_.clear();  // all older than what this dump will read
   if (!waiting_) {
      requestNextPart();
   }
}

void RtnlSocket::requestNextPart() {
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
   if (mnl_socket_sendto(dumps_, header, header->nlmsg_len) < 0) {
      throw NetlinkError(errnoText("cannot ask the kernel for a dump"));
   }
   waiting_ = true;
}

bool RtnlSocket::receive(int maxReads) {
   const bool moreDumped = read(dumps_, maxReads, true);
   const bool moreEvents = read(events_, maxReads, false);
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
            heldBack_.clear();
            interrupted_ = dumping();
            listener_.onOverflow();
            continue;
         }
         throw NetlinkError(errnoText("cannot read an rtnetlink socket"));
      }
      int left = static_cast<int>(n);
      for (auto* message = reinterpret_cast<const nlmsghdr*>(buffer_.data());
           mnl_nlmsg_ok(message, left); message = mnl_nlmsg_next(message, &left)) {
         dispatch(message, dump);
      }
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

namespace {

struct Attributes {
   std::array<const nlattr*, 64> at{};
};

int collect(const nlattr* attr, void* data) {
   auto& attributes = *static_cast<Attributes*>(data);
   const int type = mnl_attr_get_type(attr);
   if (type >= 0 && type < int(attributes.at.size())) {
      attributes.at[std::size_t(type)] = attr;
   }
   return MNL_CB_OK;
}

}  // namespace

void RtnlSocket::dispatch(const nlmsghdr* message, bool dump) {
   if (message->nlmsg_flags & NLM_F_DUMP_INTR) {
      interrupted_ = true;
   }
   // Events wait while a dump runs; a dump's own records go straight on.
   auto hand = [&](const Record& record) {
      if (!dump && dumping()) {
         heldBack_.push_back(record);
      } else {
         deliver(record);
      }
   };
   switch (message->nlmsg_type) {
      case NLMSG_DONE:
      case NLMSG_ERROR:
         // The end of a part (an error answers a part the kernel cannot
         // dump, e.g. netconf on an old kernel: nothing to read there).
         if (dump && waiting_ && message->nlmsg_seq == seq_) {
            requestNextPart();
         }
         return;
      case RTM_NEWLINK:
      case RTM_DELLINK: {
         const auto* body = static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(message));
         if (body->ifi_family != AF_UNSPEC) {
            return;  // a bridge's view of a port (AF_BRIDGE), not the link coming or going
         }
         Attributes attributes;
         mnl_attr_parse(message, sizeof(*body), collect, &attributes);
         LinkRecord link;
         link.ifindex = body->ifi_index;
         link.up = body->ifi_flags & IFF_UP;
         link.loopback = body->ifi_flags & IFF_LOOPBACK;
         link.removed = message->nlmsg_type == RTM_DELLINK;
         if (const nlattr* name = attributes.at[IFLA_IFNAME]) {
            link.name = mnl_attr_get_str(name);
         }
         hand(link);
         return;
      }
      case RTM_NEWADDR:
      case RTM_DELADDR: {
         const auto* body = static_cast<const ifaddrmsg*>(mnl_nlmsg_get_payload(message));
         Attributes attributes;
         mnl_attr_parse(message, sizeof(*body), collect, &attributes);
         AddrRecord addr;
         addr.family = body->ifa_family;
         addr.ifindex = int(body->ifa_index);
         addr.prefixLen = body->ifa_prefixlen;
         addr.flags = body->ifa_flags;
         addr.scope = body->ifa_scope;
         addr.removed = message->nlmsg_type == RTM_DELADDR;
         if (const nlattr* flags = attributes.at[IFA_FLAGS]) {
            addr.flags = mnl_attr_get_u32(flags);
         }
         // IPv4's own address is IFA_LOCAL (IFA_ADDRESS is the peer's on a
         // point-to-point link); IPv6 has IFA_ADDRESS only.
         const nlattr* value = attributes.at[IFA_LOCAL] ? attributes.at[IFA_LOCAL] : attributes.at[IFA_ADDRESS];
         const std::size_t size = addr.family == AF_INET ? 4 : addr.family == AF_INET6 ? 16 : 0;
         if (!value || size == 0 || mnl_attr_get_payload_len(value) != size) {
            return;
         }
         std::memcpy(addr.addr.data(), mnl_attr_get_payload(value), size);
         hand(addr);
         return;
      }
      case RTM_NEWNETCONF: {
         const auto* body = static_cast<const netconfmsg*>(mnl_nlmsg_get_payload(message));
         if (body->ncm_family != AF_INET) {
            return;
         }
         Attributes attributes;
         // netconfmsg is padded to 4 bytes in the message.
         mnl_attr_parse(message, NLMSG_ALIGN(sizeof(*body)), collect, &attributes);
         const nlattr* index = attributes.at[NETCONFA_IFINDEX];
         const nlattr* bc = attributes.at[NETCONFA_BC_FORWARDING];
         if (!index || !bc) {
            return;
         }
         const int ifindex = static_cast<int>(mnl_attr_get_u32(index));
         if (ifindex > 0) {  // not "all" or "default"
            hand(NetconfRecord{ifindex, mnl_attr_get_u32(bc) != 0});
         }
         return;
      }
      default:
         return;
   }
}

}  // namespace Linux
