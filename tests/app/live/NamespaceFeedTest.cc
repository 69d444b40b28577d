// A namespace feed against a simulated kernel: random link and address
// changes as the kernel announces them (promotion of secondaries,
// point-to-point, noprefixroute and flag changes included), lost messages
// followed by a dump. After every announced change, the
// platform state built from what the feed published must be exactly what
// the kernel's state implies, and the feed must never publish a change
// that is no change (the engine counts them).
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_addr.h>
#include <linux/netconf.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <cstring>
#include <map>
#include <optional>
#include <random>
#include <set>

#include "app/live/NamespaceFeed.h"

namespace {

using App::Action;

// The platform's view, built only from published steps.
struct Platform {
   struct V4 {
      Ovel::IpAddrWithMask active;
      std::set<Ovel::IpAddrWithMask> secondaries, peers;
      bool bc = false;
      friend bool operator==(const V4&, const V4&) = default;
   };
   struct V6 {
      std::set<Ovel::Ip6AddrWithMask> addrs, peers;
      friend bool operator==(const V6&, const V6&) = default;
   };
   std::map<Ovel::IntfId, std::string> interfaces;  // -> device
   std::set<std::string> devices;
   std::map<Ovel::IntfId, V4> v4;
   std::map<Ovel::IntfId, V6> v6;

   template <class T>
   static void change(std::set<T>& set, const std::vector<T>& add, const std::vector<T>& remove) {
      for (const auto& a : remove) {
         ASSERT_TRUE(set.erase(a)) << "an absent " << a << " removed";
      }
      for (const auto& a : add) {
         ASSERT_TRUE(set.insert(a).second) << a << " added twice";
      }
   }

   void apply(const Action& action) {
      std::visit([this](const auto& s) { apply(s); }, action);
   }
   void apply(const App::InterfaceStep& s) {
      if (s.remove) {
         ASSERT_TRUE(interfaces.erase(s.intf)) << "removed twice: " << s.intf;
      } else {
         ASSERT_FALSE(interfaces.contains(s.intf)) << "published twice: " << s.intf;
         interfaces[s.intf] = *s.device;
      }
   }
   void apply(const App::KernelStep& s) {
      for (const auto& d : s.up) {
         ASSERT_TRUE(devices.insert(d).second) << "device up twice: " << d;
      }
      for (const auto& d : s.down) {
         ASSERT_TRUE(devices.erase(d)) << "device down twice: " << d;
      }
   }
   void apply(const App::Ipv4Step& s) {
      ASSERT_TRUE(interfaces.contains(s.intf)) << "addresses of an unknown interface";
      if (s.remove) {
         ASSERT_TRUE(v4.erase(s.intf));
         return;
      }
      V4& status = v4[s.intf];
      for (const auto& a : s.removeSecondaries) {
         ASSERT_TRUE(status.secondaries.erase(a)) << "an absent secondary removed";
      }
      for (const auto& [a, active] : s.secondaries) {
         ASSERT_TRUE(active) << "an inactive secondary";
         ASSERT_TRUE(status.secondaries.insert(a).second) << "a secondary added twice";
      }
      if (s.active) {
         ASSERT_NE(*s.active, status.active) << "the same active address again";
         status.active = *s.active;
      }
      if (s.directedBroadcast) {
         status.bc = *s.directedBroadcast;
      }
      change(status.peers, s.peers, s.removePeers);
   }
   void apply(const App::Ipv6Step& s) {
      ASSERT_TRUE(interfaces.contains(s.intf));
      if (s.remove) {
         ASSERT_TRUE(v6.erase(s.intf));
         return;
      }
      V6& status = v6[s.intf];
      change(status.addrs, s.add, s.removeAddrs);
      change(status.peers, s.peers, s.removePeers);
   }
   template <class Other>
   void apply(const Other&) {}
};

// A kernel of one namespace with five links; link 1 is the loopback.
struct Kernel {
   struct Addr4 {
      std::uint32_t addr;
      int len;
      bool secondary;
      std::uint32_t peer = 0;  // point to point, if not 0
      bool noPrefixRoute = false;
      // IFA_ADDRESS, which with the length tells subnets apart.
      std::uint32_t address() const { return peer ? peer : addr; }
      bool same(const Addr4& o) const { return addr == o.addr && len == o.len && peer == o.peer; }
   };
   struct Addr6 {  // 2001:db8::x/64
      bool usable = false;
      std::uint32_t peer = 0;  // 2001:db8:1::peer, if not 0
      bool noPrefixRoute = false;
   };
   struct Link {
      std::string name;
      bool up = false;
      std::vector<Addr4> v4;
      std::map<std::uint32_t, Addr6> v6;  // by x
      bool bc = false;
   };
   std::map<int, Link> links;
   // net.ipv4.conf.all.bc_forwarding: directed broadcast needs it and the link's.
   bool allBc = false;

   static Linux::LinkRecord linkRecord(int ifindex, const Link& l, bool removed = false) {
      return Linux::LinkRecord{ifindex, l.name, l.up, ifindex == 1, removed};
   }
   static Linux::AddrRecord v4Record(int ifindex, const Addr4& a, bool removed) {
      Linux::AddrRecord r;
      r.family = AF_INET;
      r.ifindex = ifindex;
      const std::uint32_t be = htonl(a.addr);
      std::memcpy(r.addr.data(), &be, 4);
      r.prefixLen = a.len;
      r.flags = (a.secondary ? IFA_F_SECONDARY : 0) | (a.noPrefixRoute ? IFA_F_NOPREFIXROUTE : 0);
      if (a.peer) {
         const std::uint32_t peer = htonl(a.peer);
         r.peer.emplace();
         std::memcpy(r.peer->data(), &peer, 4);
      }
      r.removed = removed;
      return r;
   }
   static Linux::AddrRecord v6Record(int ifindex, std::uint32_t x, const Addr6& a, bool removed) {
      Linux::AddrRecord r;
      r.family = AF_INET6;
      r.ifindex = ifindex;
      r.addr = {0x20, 0x01, 0x0d, 0xb8};
      r.addr[15] = std::uint8_t(x);
      r.prefixLen = 64;
      r.flags = (a.usable ? IFA_F_PERMANENT : IFA_F_TENTATIVE) |
                (a.noPrefixRoute ? IFA_F_NOPREFIXROUTE : 0);
      if (a.peer) {
         r.peer = std::array<std::uint8_t, 16>{0x20, 0x01, 0x0d, 0xb8, 0, 1};
         (*r.peer)[15] = std::uint8_t(a.peer);
      }
      r.removed = removed;
      return r;
   }
   // The kernel makes an address a secondary when a primary has the same
   // length and IFA_ADDRESS in the same subnet.
   static bool sameSubnet(const Addr4& a, const Addr4& b) {
      const std::uint32_t mask = a.len == 0 ? 0 : ~0u << (32 - a.len);
      return a.len == b.len && (a.address() & mask) == (b.address() & mask);
   }
};

Ovel::IpAddrWithMask v4(std::uint32_t addr, int len) {
   return Ovel::IpAddrWithMask(Ovel::IpAddr(addr), std::uint8_t(len));
}

// What a kernel address gives the engine, as the kernel routes each kind:
// its own address, or a host route alone; and a point-to-point peer's subnet.
Ovel::IpAddrWithMask engineAddr(const Kernel::Addr4& a) {
   const std::uint32_t mask = a.len == 0 ? 0 : ~0u << (32 - a.len);
   const bool zeroNetwork = ((a.addr & mask) >> 24) == 0;
   return a.peer || a.noPrefixRoute || zeroNetwork ? v4(a.addr, 32) : v4(a.addr, a.len);
}

std::optional<Ovel::IpAddrWithMask> peerPrefix(const Kernel::Addr4& a) {
   const std::uint32_t mask = a.len == 0 ? 0 : ~0u << (32 - a.len);
   if (!a.peer || a.noPrefixRoute || ((a.peer & mask) >> 24) == 0) {
      return std::nullopt;
   }
   return v4(a.peer & mask, a.len);
}

Ovel::Ip6AddrWithMask v6(std::uint8_t group, std::uint32_t x, int len) {
   Ovel::Ip6Addr::Bytes b{0x20, 0x01, 0x0d, 0xb8, 0, group};
   b[15] = std::uint8_t(x);
   return Ovel::Ip6AddrWithMask(Ovel::Ip6Addr(b), std::uint8_t(len));
}

// One IPv4 address of link `l` added, changed or deleted, as the kernel
// does it (an address it would refuse with EEXIST changes nothing).
template <class Tell>
void changeAddr4(Kernel::Link& l, int ifindex, std::mt19937& random, const Tell& tell) {
   Kernel::Addr4 a{std::uint32_t(0x0A000000u | (random() % 3) << 8 | (1 + random() % 4)), 24, false};
   if (random() % 4 == 0) {  // point to point
      // Sometimes an address of the link's own.
      a.peer = std::uint32_t(0x0A000000u | (random() % 5) << 8 | (random() % 4));
      if (a.peer == a.addr) {
         a.peer = 0;  // IFA_ADDRESS equal to IFA_LOCAL: an ordinary address
      }
      a.len = random() % 2 == 0 ? 32 : 30;
   } else {
      a.len = std::array{24, 24, 32, 4}[random() % 4];  // /4: a subnet in 0.0.0.0/8
   }
   a.noPrefixRoute = random() % 5 == 0;
   auto at = std::find_if(l.v4.begin(), l.v4.end(), [&](const auto& b) { return b.same(a); });
   const bool refused = std::any_of(l.v4.begin(), l.v4.end(), [&](const auto& b) {
      return !b.same(a) && b.addr == a.addr && Kernel::sameSubnet(a, b);  // EEXIST
   });
   if (refused) {
      return;
   }
   if (at == l.v4.end()) {
      a.secondary = std::any_of(l.v4.begin(), l.v4.end(), [&](const auto& b) {
         return !b.secondary && Kernel::sameSubnet(a, b);
      });
      auto pos = a.secondary ? l.v4.end()
                             : std::find_if(l.v4.begin(), l.v4.end(),
                                            [](const auto& b) { return b.secondary; });
      l.v4.insert(pos, a);
      tell(Kernel::v4Record(ifindex, a, false));
   } else if (random() % 3 == 0) {  // `ip addr change`: the flag turned
      at->noPrefixRoute = !at->noPrefixRoute;
      tell(Kernel::v4Record(ifindex, *at, false));
   } else {
      const Kernel::Addr4 gone = *at;
      l.v4.erase(at);
      tell(Kernel::v4Record(ifindex, gone, true));
      if (!gone.secondary) {  // promote_secondaries: the first one of the subnet
         auto promoted = std::find_if(l.v4.begin(), l.v4.end(), [&](const auto& b) {
            return b.secondary && Kernel::sameSubnet(b, gone);
         });
         if (promoted != l.v4.end()) {
            Kernel::Addr4 p = *promoted;
            l.v4.erase(promoted);
            p.secondary = false;
            l.v4.insert(std::find_if(l.v4.begin(), l.v4.end(), [](const auto& b) { return b.secondary; }), p);
            tell(Kernel::v4Record(ifindex, p, false));
         }
      }
   }
}

// One IPv6 address added tentative, its DAD done, its flag changed, or
// deleted.
template <class Tell>
void changeAddr6(Kernel::Link& l, int ifindex, std::mt19937& random, const Tell& tell) {
   const std::uint32_t x = 1 + random() % 4;
   auto at = l.v6.find(x);
   if (at == l.v6.end()) {
      Kernel::Addr6 a{false, random() % 3 == 0 ? 1 + std::uint32_t(random() % 3) : 0u,
                      random() % 4 == 0};
      l.v6[x] = a;
      tell(Kernel::v6Record(ifindex, x, a, false));
   } else if (!at->second.usable && random() % 2 == 0) {
      at->second.usable = true;
      tell(Kernel::v6Record(ifindex, x, at->second, false));
   } else if (random() % 3 == 0) {
      at->second.noPrefixRoute = !at->second.noPrefixRoute;
      tell(Kernel::v6Record(ifindex, x, at->second, false));
   } else {
      tell(Kernel::v6Record(ifindex, x, at->second, true));
      l.v6.erase(at);
   }
}

// What the kernel's state implies, derived here independently.
Platform expectedOf(const Kernel& kernel) {
   Platform expected;
   for (const auto& [i, l] : kernel.links) {
      if (i == 1) {
         continue;  // the loopback is no routed interface
      }
      const Ovel::IntfId intf("ns:" + l.name);
      expected.interfaces[intf] = l.name;
      if (l.up) {
         expected.devices.insert(l.name);
      }
      if (!l.v4.empty()) {
         Platform::V4& s = expected.v4[intf];
         s.bc = l.bc && kernel.allBc;
         s.active = engineAddr(l.v4.front());  // the primaries come first
         for (const auto& a : l.v4) {
            if (engineAddr(a) != s.active) {
               s.secondaries.insert(engineAddr(a));
            }
         }
         // A /32 peer that is an own address of the link gives way to it.
         for (const auto& a : l.v4) {
            const auto peer = peerPrefix(a);
            const bool own = peer && peer->len() == 32 &&
                             std::any_of(l.v4.begin(), l.v4.end(), [&](const auto& b) {
                                return engineAddr(b).addr() == peer->addr();
                             });
            if (peer && !own) {
               s.peers.insert(*peer);
            }
         }
      }
      for (const auto& [x, a] : l.v6) {
         if (a.usable) {
            Platform::V6& s = expected.v6[intf];
            s.addrs.insert(v6(0, x, a.noPrefixRoute ? 128 : 64));
            if (a.peer) {
               s.peers.insert(v6(1, a.peer, 128));
            }
         }
      }
   }
   return expected;
}

void expectSame(const Platform& platform, const Platform& expected, int step) {
   ASSERT_EQ(platform.interfaces, expected.interfaces) << "step " << step;
   ASSERT_EQ(platform.devices, expected.devices) << "step " << step;
   ASSERT_EQ(platform.v4.size(), expected.v4.size()) << "step " << step;
   for (const auto& [intf, s] : expected.v4) {
      const auto& p = platform.v4.at(intf);
      ASSERT_EQ(p.active, s.active) << intf << " step " << step;
      ASSERT_EQ(p.secondaries, s.secondaries) << intf << " step " << step;
      ASSERT_EQ(p.peers, s.peers) << intf << " step " << step;
      ASSERT_EQ(p.bc, s.bc) << intf << " step " << step;
   }
   ASSERT_EQ(platform.v6.size(), expected.v6.size()) << "step " << step;
   for (const auto& [intf, s] : expected.v6) {
      ASSERT_EQ(platform.v6.at(intf).addrs, s.addrs) << intf << " step " << step;
      ASSERT_EQ(platform.v6.at(intf).peers, s.peers) << intf << " step " << step;
   }
}

TEST(NamespaceFeedTest, PublishedStateFollowsTheKernelThroughRandomChangesAndLostMessages) {
   for (unsigned seed = 1; seed <= 40; ++seed) {
      SCOPED_TRACE("seed " + std::to_string(seed));
      std::mt19937 random(seed);
      Platform platform;
      App::NamespaceFeed feed("ns", L3::VrfName("ns"), Vrf::VrfIdMap::VrfId(3),
                              [&](Action a) { platform.apply(a); });
      Kernel kernel;
      bool lost = false;  // messages were dropped since the last dump
      auto tell = [&](auto record) {
         if (lost) {
            return;
         }
         if constexpr (std::is_same_v<decltype(record), Linux::LinkRecord>) {
            feed.onLink(record);
         } else {
            feed.onAddr(record);
         }
      };
      auto dump = [&] {
         feed.dumpStarted();
         for (const auto& [i, l] : kernel.links) {
            feed.onLink(Kernel::linkRecord(i, l));
         }
         for (const auto& [i, l] : kernel.links) {
            for (const auto& a : l.v4) {
               feed.onAddr(Kernel::v4Record(i, a, false));
            }
            for (const auto& [x, a] : l.v6) {
               feed.onAddr(Kernel::v6Record(i, x, a, false));
            }
            feed.onNetconf(Linux::NetconfRecord{i, l.bc});
         }
         feed.onNetconf(Linux::NetconfRecord{NETCONFA_IFINDEX_ALL, kernel.allBc});
         feed.onDumpDone();
         lost = false;
      };
      kernel.links[1] = Kernel::Link{"lo", true, {{0x7f000001, 8, false}}, {}, false};
      dump();
      int nextName = 0;
      for (int step = 0; step < 400; ++step) {
         const int ifindex = 1 + int(random() % 5);
         auto found = kernel.links.find(ifindex);
         const unsigned what = random() % 100;
         if (found == kernel.links.end()) {
            Kernel::Link l{"e" + std::to_string(nextName++), random() % 2 == 0, {}, {}, false};
            kernel.links[ifindex] = l;
            tell(Kernel::linkRecord(ifindex, l));
         } else if (Kernel::Link& l = found->second; what < 5 && ifindex != 1) {
            tell(Kernel::linkRecord(ifindex, l, true));
            kernel.links.erase(found);
         } else if (what < 15) {
            l.up = !l.up;
            tell(Kernel::linkRecord(ifindex, l));
         } else if (what < 18 && ifindex != 1) {
            l.name = "e" + std::to_string(nextName++);
            tell(Kernel::linkRecord(ifindex, l));
         } else if (what < 55) {
            changeAddr4(l, ifindex, random, tell);
         } else if (what < 80) {
            changeAddr6(l, ifindex, random, tell);
         } else if (what < 86) {
            l.bc = !l.bc;
            if (!lost) {
               feed.onNetconf(Linux::NetconfRecord{ifindex, l.bc});
            }
         } else if (what < 88) {
            kernel.allBc = !kernel.allBc;
            if (!lost) {
               feed.onNetconf(Linux::NetconfRecord{NETCONFA_IFINDEX_ALL, kernel.allBc});
            }
         } else if (what < 92) {
            lost = true;  // the kernel drops messages from now on...
            feed.onOverflow();
         } else if (lost || what < 94) {
            ASSERT_TRUE(feed.wantsDump() || !lost);
            dump();  // ...until the namespace is read again
         }
         if (lost) {
            continue;
         }
         ASSERT_NO_FATAL_FAILURE(expectSame(platform, expectedOf(kernel), step));
      }
   }
}

}  // namespace
