#include "platform/linux/RtnlMessages.h"

#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/netconf.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cstring>
#include <optional>

namespace Linux {

namespace {

// The attributes of one message after its fixed body, by type. Types the
// reader does not know are passed over; an attribute that does not fit in
// what is left of the message makes the whole message malformed.
template <std::size_t MaxType>
class Attributes {
 public:
   // Null when the body does not fit or an attribute overruns the message.
   static std::optional<Attributes> of(const nlmsghdr* message, std::size_t bodySize) {
      if (mnl_nlmsg_get_payload_len(message) < bodySize) {
         return std::nullopt;
      }
      Attributes attributes;
      const char* tail = static_cast<const char*>(mnl_nlmsg_get_payload_tail(message));
      const auto* attr = static_cast<const nlattr*>(mnl_nlmsg_get_payload_offset(message, bodySize));
      for (; mnl_attr_ok(attr, static_cast<int>(tail - reinterpret_cast<const char*>(attr)));
           attr = mnl_attr_next(attr)) {
         const std::uint16_t type = mnl_attr_get_type(attr);
         if (type <= MaxType) {
            attributes.at_[type] = attr;
         }
      }
      // What the loop stopped short of is alignment padding, or an
      // attribute whose length runs past the message.
      if (tail - reinterpret_cast<const char*>(attr) >= static_cast<long>(sizeof(nlattr))) {
         return std::nullopt;
      }
      return attributes;
   }

   const nlattr* operator[](std::uint16_t type) const { return at_[type]; }
   // The attribute if present and of `type`'s shape; null if absent.
   // `bad` is set when present but misshapen.
   const nlattr* checked(std::uint16_t type, mnl_attr_data_type shape, bool& bad,
                         std::size_t size = 0) const {
      const nlattr* attr = at_[type];
      if (!attr) {
         return nullptr;
      }
      const int rc = size ? mnl_attr_validate2(attr, shape, size) : mnl_attr_validate(attr, shape);
      if (rc < 0) {
         bad = true;
         return nullptr;
      }
      return attr;
   }

 private:
   std::array<const nlattr*, MaxType + 1> at_{};
};

Message readLink(const nlmsghdr* message) {
   const auto attributes = Attributes<IFLA_MAX>::of(message, sizeof(ifinfomsg));
   if (!attributes) {
      return Malformed{};
   }
   const auto* body = static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(message));
   if (body->ifi_family != AF_UNSPEC) {
      return Unread{};  // a bridge's view of a port (AF_BRIDGE), not the link coming or going
   }
   bool bad = false;
   const nlattr* name = attributes->checked(IFLA_IFNAME, MNL_TYPE_NUL_STRING, bad);
   if (bad || (name && std::strlen(mnl_attr_get_str(name)) >= IFNAMSIZ)) {
      return Malformed{};
   }
   LinkRecord link;
   link.ifindex = body->ifi_index;
   link.up = body->ifi_flags & IFF_UP;
   link.loopback = body->ifi_flags & IFF_LOOPBACK;
   link.removed = message->nlmsg_type == RTM_DELLINK;
   if (name) {
      link.name = mnl_attr_get_str(name);
   }
   return link;
}

Message readAddr(const nlmsghdr* message) {
   const auto attributes = Attributes<IFA_MAX>::of(message, sizeof(ifaddrmsg));
   if (!attributes) {
      return Malformed{};
   }
   const auto* body = static_cast<const ifaddrmsg*>(mnl_nlmsg_get_payload(message));
   const std::size_t size = body->ifa_family == AF_INET ? 4 : body->ifa_family == AF_INET6 ? 16 : 0;
   if (size == 0) {
      return Unread{};
   }
   bool bad = false;
   const nlattr* flags = attributes->checked(IFA_FLAGS, MNL_TYPE_U32, bad);
   // The own address is IFA_LOCAL where there is one; on a point-to-point
   // link IFA_ADDRESS is then the peer's (IPv4 sends both, equal, for an
   // ordinary address; IPv6 sends IFA_ADDRESS alone).
   const nlattr* local = attributes->checked(IFA_LOCAL, MNL_TYPE_BINARY, bad, size);
   const nlattr* address = attributes->checked(IFA_ADDRESS, MNL_TYPE_BINARY, bad, size);
   const nlattr* own = local ? local : address;
   if (bad || !own || body->ifa_prefixlen > size * 8) {
      return Malformed{};
   }
   AddrRecord addr;
   addr.family = body->ifa_family;
   addr.ifindex = int(body->ifa_index);
   addr.prefixLen = body->ifa_prefixlen;
   addr.flags = flags ? mnl_attr_get_u32(flags) : body->ifa_flags;
   addr.scope = body->ifa_scope;
   addr.removed = message->nlmsg_type == RTM_DELADDR;
   std::memcpy(addr.addr.data(), mnl_attr_get_payload(own), size);
   if (local && address && std::memcmp(mnl_attr_get_payload(address), addr.addr.data(), size) != 0) {
      addr.peer.emplace();
      std::memcpy(addr.peer->data(), mnl_attr_get_payload(address), size);
   }
   return addr;
}

Message readNetconf(const nlmsghdr* message) {
   // netconfmsg is padded to 4 bytes in the message.
   const auto attributes = Attributes<NETCONFA_MAX>::of(message, NLMSG_ALIGN(sizeof(netconfmsg)));
   if (!attributes) {
      return Malformed{};
   }
   const auto* body = static_cast<const netconfmsg*>(mnl_nlmsg_get_payload(message));
   if (body->ncm_family != AF_INET) {
      return Unread{};
   }
   bool bad = false;
   const nlattr* index = attributes->checked(NETCONFA_IFINDEX, MNL_TYPE_U32, bad);
   const nlattr* bc = attributes->checked(NETCONFA_BC_FORWARDING, MNL_TYPE_U32, bad);
   if (bad) {
      return Malformed{};
   }
   if (!index || !bc) {
      return Unread{};  // another setting changed
   }
   const int ifindex = static_cast<int>(mnl_attr_get_u32(index));
   if (ifindex <= 0 && ifindex != NETCONFA_IFINDEX_ALL) {
      return Unread{};  // "default", for links yet to come
   }
   return NetconfRecord{ifindex, mnl_attr_get_u32(bc) != 0};
}

Message readError(const nlmsghdr* message) {
   if (mnl_nlmsg_get_payload_len(message) < sizeof(nlmsgerr)) {
      return Malformed{};
   }
   const auto* body = static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(message));
   return ErrorReply{body->error};
}

}  // namespace

Message readMessage(const nlmsghdr* message) {
   switch (message->nlmsg_type) {
      case NLMSG_DONE:
         return PartDone{};
      case NLMSG_ERROR:
         return readError(message);
      case RTM_NEWLINK:
      case RTM_DELLINK:
         return readLink(message);
      case RTM_NEWADDR:
      case RTM_DELADDR:
         return readAddr(message);
      case RTM_NEWNETCONF:
         return readNetconf(message);
      default:
         return Unread{};
   }
}

}  // namespace Linux
