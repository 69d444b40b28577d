// Reading rtnetlink messages from bytes: well-formed ones give their
// records, and a message that is truncated, oversized in an attribute's
// length, or carries an attribute of the wrong size is malformed, never
// read past its end. Unknown attributes are passed over.
#include "platform/linux/RtnlMessages.h"

#include <gtest/gtest.h>
#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/netconf.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <vector>

namespace {

// A message built in its own buffer, with room to spare so that a length
// that lies can be read past without leaving the buffer (the reader must
// not, which the sanitizer build would catch beyond it anyway).
class Built {
 public:
   explicit Built(std::uint16_t type) : bytes_(MNL_SOCKET_BUFFER_SIZE) {
      header_ = mnl_nlmsg_put_header(bytes_.data());
      header_->nlmsg_type = type;
   }
   nlmsghdr* header() { return header_; }
   template <class Body>
   Body* body() {
      return static_cast<Body*>(mnl_nlmsg_put_extra_header(header_, sizeof(Body)));
   }

 private:
   std::vector<char> bytes_;
   nlmsghdr* header_;
};

constexpr std::uint8_t kLocal[4] = {10, 9, 0, 1};
constexpr std::uint8_t kPeer[4] = {10, 9, 0, 2};

// An IPv4 address 10.9.0.1 peer 10.9.0.2/30 on link 7, then `change`.
Linux::Message address(const std::function<void(Built&)>& change = {}) {
   Built message(RTM_NEWADDR);
   auto* body = message.body<ifaddrmsg>();
   body->ifa_family = AF_INET;
   body->ifa_prefixlen = 30;
   body->ifa_index = 7;
   mnl_attr_put(message.header(), IFA_ADDRESS, sizeof kPeer, kPeer);
   mnl_attr_put(message.header(), IFA_LOCAL, sizeof kLocal, kLocal);
   mnl_attr_put_u32(message.header(), IFA_FLAGS, IFA_F_PERMANENT | IFA_F_NOPREFIXROUTE);
   if (change) {
      change(message);
   }
   return Linux::readMessage(message.header());
}

Linux::Message link(const std::function<void(Built&)>& change = {}) {
   Built message(RTM_NEWLINK);
   auto* body = message.body<ifinfomsg>();
   body->ifi_family = AF_UNSPEC;
   body->ifi_index = 3;
   body->ifi_flags = IFF_UP;
   mnl_attr_put_strz(message.header(), IFLA_IFNAME, "eth3");
   if (change) {
      change(message);
   }
   return Linux::readMessage(message.header());
}

Linux::Message netconf(std::int32_t ifindex, const std::function<void(Built&)>& change = {}) {
   Built message(RTM_NEWNETCONF);
   message.body<netconfmsg>()->ncm_family = AF_INET;
   mnl_attr_put_u32(message.header(), NETCONFA_IFINDEX, std::uint32_t(ifindex));
   mnl_attr_put_u32(message.header(), NETCONFA_BC_FORWARDING, 1);
   if (change) {
      change(message);
   }
   return Linux::readMessage(message.header());
}

// An IPv4 setting of link 3 whose other attributes `put` writes.
Linux::Message netconfWith(const std::function<void(nlmsghdr*)>& put) {
   Built message(RTM_NEWNETCONF);
   message.body<netconfmsg>()->ncm_family = AF_INET;
   mnl_attr_put_u32(message.header(), NETCONFA_IFINDEX, 3);
   put(message.header());
   return Linux::readMessage(message.header());
}

// The last attribute put, to be made to lie about itself.
nlattr* lastAttribute(Built& message, std::size_t size) {
   return reinterpret_cast<nlattr*>(static_cast<char*>(mnl_nlmsg_get_payload_tail(message.header())) -
                                    MNL_ALIGN(MNL_ATTR_HDRLEN + size));
}

TEST(RtnlMessages, WellFormedMessagesGiveTheirRecords) {
   const auto addr = std::get<Linux::AddrRecord>(address());
   EXPECT_EQ(addr.family, AF_INET);
   EXPECT_EQ(addr.ifindex, 7);
   EXPECT_EQ(addr.prefixLen, 30);
   EXPECT_EQ(addr.addr[3], 1) << "the local address, not the peer's";
   ASSERT_TRUE(addr.peer) << "IFA_ADDRESS differs from IFA_LOCAL: a point-to-point address";
   EXPECT_EQ((*addr.peer)[3], 2);
   EXPECT_EQ(addr.flags, unsigned(IFA_F_PERMANENT | IFA_F_NOPREFIXROUTE)) << "IFA_FLAGS, all 32 bits";

   const auto withUnknown = address([](Built& m) {
      const std::uint8_t future[6] = {1, 2, 3, 4, 5, 6};
      mnl_attr_put(m.header(), IFA_MAX + 5, sizeof future, future);
   });
   EXPECT_TRUE(std::holds_alternative<Linux::AddrRecord>(withUnknown));

   // An ordinary address: IPv4 sends IFA_ADDRESS equal to IFA_LOCAL, IPv6
   // IFA_ADDRESS alone.
   const auto ordinary = std::get<Linux::AddrRecord>(address([](Built& m) {
      nlattr* peer = static_cast<nlattr*>(mnl_nlmsg_get_payload_offset(m.header(), sizeof(ifaddrmsg)));
      std::memcpy(mnl_attr_get_payload(peer), kLocal, sizeof kLocal);
   }));
   EXPECT_FALSE(ordinary.peer);
   Built v6(RTM_NEWADDR);
   auto* body6 = v6.body<ifaddrmsg>();
   body6->ifa_family = AF_INET6;
   body6->ifa_prefixlen = 64;
   const std::uint8_t own6[16] = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
   mnl_attr_put(v6.header(), IFA_ADDRESS, sizeof own6, own6);
   const auto alone = std::get<Linux::AddrRecord>(Linux::readMessage(v6.header()));
   EXPECT_EQ(alone.addr[15], 1);
   EXPECT_FALSE(alone.peer);

   const auto up = std::get<Linux::LinkRecord>(link());
   EXPECT_EQ(up.name, "eth3");
   EXPECT_TRUE(up.up);
   EXPECT_EQ(up.ifindex, 3);

   const auto setting = std::get<Linux::NetconfRecord>(netconf(3));
   EXPECT_EQ(setting.ifindex, 3);
   EXPECT_TRUE(setting.bcForwarding);
   EXPECT_EQ(std::get<Linux::NetconfRecord>(netconf(NETCONFA_IFINDEX_ALL)).ifindex, NETCONFA_IFINDEX_ALL);

   Built done(NLMSG_DONE);
   EXPECT_TRUE(std::holds_alternative<Linux::PartDone>(Linux::readMessage(done.header())));
   Built error(NLMSG_ERROR);
   error.body<nlmsgerr>()->error = -EBUSY;
   EXPECT_EQ(std::get<Linux::ErrorReply>(Linux::readMessage(error.header())).error, -EBUSY);
}

TEST(RtnlMessages, MessagesOfNoInterestAreUnread) {
   const std::pair<const char*, Linux::Message> rows[] = {
         {"an address of another family",
          address([](Built& m) {
             static_cast<ifaddrmsg*>(mnl_nlmsg_get_payload(m.header()))->ifa_family = AF_PACKET;
          })},
         {"a bridge's view of a port",
          link([](Built& m) {
             static_cast<ifinfomsg*>(mnl_nlmsg_get_payload(m.header()))->ifi_family = AF_BRIDGE;
          })},
         {"the setting for links yet to come", netconf(NETCONFA_IFINDEX_DEFAULT)},
         {"another setting changed",
          netconfWith([](nlmsghdr* h) { mnl_attr_put_u32(h, NETCONFA_FORWARDING, 1); })},
         {"a route", [] {
             Built m(RTM_NEWROUTE);
             m.body<rtmsg>();
             return Linux::readMessage(m.header());
          }()},
   };
   for (const auto& [what, read] : rows) {
      EXPECT_TRUE(std::holds_alternative<Linux::Unread>(read)) << what;
   }
}

TEST(RtnlMessages, MalformedMessagesAreNeverReadPastTheirEnd) {
   const std::pair<const char*, Linux::Message> rows[] = {
         {"an address body cut short",
          address([](Built& m) { m.header()->nlmsg_len = MNL_NLMSG_HDRLEN + 4; })},
         {"a local address of 3 bytes", [] {
             Built m(RTM_NEWADDR);
             m.body<ifaddrmsg>()->ifa_family = AF_INET;
             mnl_attr_put(m.header(), IFA_LOCAL, 3, kLocal);
             return Linux::readMessage(m.header());
          }()},
         {"an IPv6 address of 4 bytes", [] {
             Built m(RTM_NEWADDR);
             m.body<ifaddrmsg>()->ifa_family = AF_INET6;
             mnl_attr_put(m.header(), IFA_ADDRESS, 4, kLocal);
             return Linux::readMessage(m.header());
          }()},
         {"flags of 2 bytes", [] {
             Built m(RTM_NEWADDR);
             m.body<ifaddrmsg>()->ifa_family = AF_INET;
             mnl_attr_put(m.header(), IFA_LOCAL, 4, kLocal);
             mnl_attr_put_u16(m.header(), IFA_FLAGS, 1);
             return Linux::readMessage(m.header());
          }()},
         {"an attribute longer than the message",
          address([](Built& m) { lastAttribute(m, 4)->nla_len = 200; })},
         {"an attribute shorter than its own header",
          address([](Built& m) { lastAttribute(m, 4)->nla_len = 2; })},
         {"no address at all", [] {
             Built m(RTM_NEWADDR);
             m.body<ifaddrmsg>()->ifa_family = AF_INET;
             return Linux::readMessage(m.header());
          }()},
         {"a prefix length of 33",
          address([](Built& m) {
             static_cast<ifaddrmsg*>(mnl_nlmsg_get_payload(m.header()))->ifa_prefixlen = 33;
          })},
         {"a link body cut short", link([](Built& m) { m.header()->nlmsg_len = MNL_NLMSG_HDRLEN + 8; })},
         {"a link name without its terminating zero", [] {
             Built m(RTM_NEWLINK);
             m.body<ifinfomsg>()->ifi_family = AF_UNSPEC;
             mnl_attr_put(m.header(), IFLA_IFNAME, 4, "eth3");
             return Linux::readMessage(m.header());
          }()},
         {"a link name longer than a link's", [] {
             Built m(RTM_NEWLINK);
             m.body<ifinfomsg>()->ifi_family = AF_UNSPEC;
             mnl_attr_put_strz(m.header(), IFLA_IFNAME, "a-name-of-twenty-bytes");
             return Linux::readMessage(m.header());
          }()},
         {"a broadcast setting of 1 byte",
          netconfWith([](nlmsghdr* h) { mnl_attr_put_u8(h, NETCONFA_BC_FORWARDING, 1); })},
         {"an error cut short", [] {
             Built m(NLMSG_ERROR);
             m.header()->nlmsg_len = MNL_NLMSG_HDRLEN + 2;
             return Linux::readMessage(m.header());
          }()},
   };
   for (const auto& [what, read] : rows) {
      EXPECT_TRUE(std::holds_alternative<Linux::Malformed>(read)) << what;
   }
}

// A socket read holds messages one after another; a length that is too
// short for its header, or runs past the read (lengths from 2 GiB up read
// as negative to libmnl's own check), ends the walk.
TEST(RtnlMessages, AReadIsWalkedMessageByMessageUpToTheFirstBadLength) {
   std::vector<nlmsghdr> buffer(64);
   auto* bytes = reinterpret_cast<char*>(buffer.data());
   std::size_t size = 0;
   auto put = [&](std::uint32_t length) {
      auto* header = reinterpret_cast<nlmsghdr*>(bytes + size);
      header->nlmsg_type = NLMSG_DONE;
      header->nlmsg_len = length;
      size += length < sizeof(nlmsghdr) || length > 64 ? sizeof(nlmsghdr) : NLMSG_ALIGN(length);
   };
   const std::pair<const char*, std::uint32_t> badLengths[] = {
         {"shorter than a header", 8},
         {"past the read", 400},
         {"2 GiB and more", 0xFFFFFFFFu},
   };
   for (const auto& [what, length] : badLengths) {
      size = 0;
      put(sizeof(nlmsghdr));
      put(sizeof(nlmsghdr) + 4);
      put(length);
      put(sizeof(nlmsghdr));  // never reached
      int visited = 0;
      Linux::forEachMessage(bytes, size, [&](const nlmsghdr*) { ++visited; });
      EXPECT_EQ(visited, 2) << what;
   }
}

}  // namespace
