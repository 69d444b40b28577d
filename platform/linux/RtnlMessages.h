// Reading one rtnetlink message. Each kind has its own reader, which checks
// the body's length and the type and size of every attribute it reads before
// reading it: a message that fails a check is malformed, and nothing past
// its end is ever read. The socket counts malformed messages and skips them.
#pragma once

#include <linux/netlink.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>

namespace Linux {

struct LinkRecord {
   int ifindex = 0;
   std::string name;
   bool up = false;  // administratively (IFF_UP)
   bool loopback = false;
   bool removed = false;
};

struct AddrRecord {
   int family = 0;  // AF_INET or AF_INET6
   int ifindex = 0;
   std::array<std::uint8_t, 16> addr{};  // the own (local) address
   // The peer's address of a point-to-point address (IFA_ADDRESS beside a
   // different IFA_LOCAL). The prefix length is the peer's for IPv4, the
   // own address's for IPv6.
   std::optional<std::array<std::uint8_t, 16>> peer;
   int prefixLen = 0;
   std::uint32_t flags = 0;  // IFA_F_*
   int scope = 0;
   bool removed = false;
};

struct NetconfRecord {
   int ifindex = 0;  // a link's, or NETCONFA_IFINDEX_ALL for the namespace's "all"
   bool bcForwarding = false;
};

// Well formed, but nothing the agent reads: another family, a bridge's view
// of a port, the "all" and "default" settings, another message type.
struct Unread {};
// A message that failed a check.
struct Malformed {};
// The end of a dump part (NLMSG_DONE).
struct PartDone {};
// NLMSG_ERROR: the kernel's answer to a request, 0 for an acknowledgement
// or a negative errno.
struct ErrorReply {
   int error = 0;
};

using Message = std::variant<Unread, Malformed, PartDone, ErrorReply, LinkRecord, AddrRecord, NetconfRecord>;

// `message` must be whole: its header's length within what was received,
// as forEachMessage ensures.
Message readMessage(const nlmsghdr* message);

// Calls `visit` with each whole message of a socket read, `size` bytes at
// `data` (aligned as a message): it stops at the first whose length is too
// short for its header or runs past the read, lengths of 2 GiB and more
// included, which libmnl's own check takes for negative.
template <class Visit>
void forEachMessage(const void* data, std::size_t size, Visit&& visit) {
   const auto* at = static_cast<const char*>(data);
   const char* end = at + size;
   while (static_cast<std::size_t>(end - at) >= sizeof(nlmsghdr)) {
      const auto* message = reinterpret_cast<const nlmsghdr*>(at);
      if (message->nlmsg_len < sizeof(nlmsghdr) || message->nlmsg_len > static_cast<std::size_t>(end - at)) {
         return;
      }
      visit(message);
      at += std::min<std::size_t>(NLMSG_ALIGN(message->nlmsg_len), static_cast<std::size_t>(end - at));
   }
}

}  // namespace Linux
