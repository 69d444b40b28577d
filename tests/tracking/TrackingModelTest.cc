// Random churn of everything a VRF's interfaces publish, checked after each
// drain against a reference that derives routes, owners, counts, vias and
// via sets from the current interface state alone.
//
// The generator stays within what the engine accepts (docs/hazards.md): a
// secondary is made inactive, or an IPv6 record default, only while the
// interface's machine exists, and is restored before anything could remove
// it again (its removal, a directed-broadcast change, the end of the
// machine); the record of a present IPv6 address is not changed for another
// non-default one (that counts the address again, and its keys are never
// released). It does produce what a Linux host does: addresses that are
// their own subnet's network or broadcast address, and an address that is
// at once the active address and a listed secondary (a promotion).
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>
#include <set>

#include "platform/vok/KeyTraits.h"
#include "tests/support/Seeds.h"
#include "tests/support/VrfHarness.h"

namespace Routing::ConnectedRoute {
namespace {

using Af = Ovel::AddressFamily;
using Fib::RouteType;

enum class Kind { vsk, rx, rxBcast, directed };

struct Expected {
   IntfIdAndAddr key;
   RouteType type;
   Kind kind;
};

bool ordersBefore(const IntfIdAndAddr& a, const IntfIdAndAddr& b) {
   const std::uint32_t ha = Vok::placedHash(a.hash()), hb = Vok::placedHash(b.hash());
   if (ha != hb) {
      return ha < hb;
   }
   return std::memcmp(&a, &b, sizeof(a)) < 0;
}

Rib::ViaSetKey keyOf(const IntfViaSetKey& keys, Kind kind) {
   switch (kind) {
      case Kind::vsk:
         return keys.viaSetKey();
      case Kind::rx:
         return keys.rxViaSetKey();
      case Kind::rxBcast:
         return keys.rxBcastViaSetKey();
      case Kind::directed:
         return keys.directedBcastViaSetKey();
   }
   return {};
}

// What the engine must have written, from the interface state alone.
class Reference {
 public:
   explicit Reference(Testing::VrfHarness& h) : h_(h) {
      auto v4 = h.ipStatus->vrfIpIntfStatus(h.vrfName);
      for (const auto& [intfId, status] : v4 ? v4->ipIntfStatus() : Ip::VrfIpIntfStatus::Collection()) {
         if (!h.kernel->kernelIntfPresent(intfId)) {
            continue;
         }
         addV4(intfId, status->activeAddrWithMask(), status->directedBroadcastEnabled());
         for (const auto& [addr, active] : status->activeSecondaryWithMask()) {
            if (active) {
               addV4(intfId, addr, status->directedBroadcastEnabled());
            }
         }
      }
      auto v6 = h.ip6Status->vrfIp6IntfStatus(h.vrfName);
      for (const auto& [intfId, status] : v6 ? v6->ip6IntfStatus() : Ip6::VrfIp6IntfStatus::Collection()) {
         if (!h.kernel->kernelIntfPresent(intfId)) {
            continue;
         }
         for (const auto& [addr, info] : status->addr()) {
            if (info != Ip6::AddressInfo() && !addr.addr().isZero() && !addr.addr().isLinkLocal()) {
               addV6(intfId, addr);
            }
         }
      }
   }

   void check() {
      std::map<std::pair<std::string, Af>, std::uint32_t> uses = addresses_;
      std::size_t routes[3] = {};
      for (const auto& [prefix, candidates] : candidates_) {
         SCOPED_TRACE(prefix.toString());
         const Expected* owner = nullptr;
         for (const Expected& c : candidates) {
            if (!owner || ordersBefore(c.key, owner->key)) {
               owner = &c;
            }
         }
         const Rib::Route* route = h_.route(prefix.toString());
         ASSERT_TRUE(route);
         EXPECT_EQ(route->routeType, owner->type);
         const IntfViaSetKey* keys = h_.keyStatus(prefix.af()).intfViaSetKey(owner->key.intfId());
         ASSERT_TRUE(keys);
         EXPECT_EQ(route->viaSetKey, keyOf(*keys, owner->kind));
         EXPECT_EQ(h_.sm->installedIntfId(prefix), owner->key.intfId());
         ++uses[{std::string(owner->key.intfId().name()), prefix.af()}];
         ++routes[static_cast<int>(prefix.af())];
      }
      EXPECT_EQ(h_.tables.route4->routeCount(), routes[1]);
      EXPECT_EQ(h_.tables.route6->routeCount(), routes[2]);
      EXPECT_TRUE(h_.store->backlog().empty());
      std::size_t viaSets = 0;
      for (Af af : {Af::ipv4, Af::ipv6}) {
         const auto& keyStatus = h_.keyStatus(af);
         std::size_t users = 0;
         keyStatus.forEachVskRefcount([&](const Ovel::IntfId& intfId, std::uint32_t count) {
            auto found = uses.find({std::string(intfId.name()), af});
            EXPECT_TRUE(found != uses.end() && found->second == count)
                  << intfId << " counts " << count;
         });
         for (const auto& [name, count] : uses) {
            if (name.second != af) {
               continue;
            }
            const Ovel::IntfId intfId(name.first);
            EXPECT_EQ(keyStatus.vskRefcountByIntfId(intfId), count) << intfId;
            const IntfViaSetKey* keys = keyStatus.intfViaSetKey(intfId);
            ASSERT_TRUE(keys) << intfId;
            const auto& viaTable = af == Af::ipv4 ? h_.tables.via4 : h_.tables.via6;
            ASSERT_TRUE(viaTable->via(keys->viaKey()));
            EXPECT_EQ(viaTable->via(keys->viaKey())->intfId, intfId);
            ++users;
         }
         EXPECT_EQ(keyStatus.intfViaSetKeyCount(), users);
         EXPECT_EQ((af == Af::ipv4 ? h_.tables.via4 : h_.tables.via6)->viaCount(), users);
         viaSets += users * (af == Af::ipv4 ? 4 : 2);
      }
      EXPECT_EQ(h_.tables.viaSets->viaSetCount(), viaSets);
   }

 private:
   void candidate(const Ovel::IpGenPrefix& prefix, const Ovel::IntfId& intfId,
                  const Ovel::IpGenAddrWithMask& addr, RouteType type, Kind kind) {
      if (prefix.len() == 0) {
         return;  // never stored
      }
      candidates_[prefix].push_back(Expected{IntfIdAndAddr(intfId, addr), type, kind});
   }

   void addV4(const Ovel::IntfId& intfId, const Ovel::IpAddrWithMask& a, bool directed) {
      if (a.addr().isZero()) {
         return;
      }
      ++addresses_[{std::string(intfId.name()), Af::ipv4}];
      const Ovel::IpGenAddrWithMask gen(a);
      if (a.len() <= 31) {
         candidate(Ovel::IpGenPrefix(a.subnet(), a.len()), intfId, gen, RouteType::attachedSubnet,
                   Kind::vsk);
      }
      candidate(Ovel::IpGenPrefix(a.addr(), 32), intfId, gen,
                a.len() <= 31 ? RouteType::hostOfSubnetAddress : RouteType::hostOfFullLengthAddress,
                Kind::rx);
      // An address that is its own network or broadcast address keeps its
      // host route for that /32.
      if (a.len() <= 30 && a.subnet() != a.addr()) {
         candidate(Ovel::IpGenPrefix(a.subnet(), 32), intfId, gen,
                   RouteType::networkOrBroadcastReceive, Kind::rxBcast);
      }
      if (a.len() <= 30 && a.broadcast() != a.addr()) {
         candidate(Ovel::IpGenPrefix(a.broadcast(), 32), intfId, gen,
                   directed ? RouteType::directedBroadcast : RouteType::networkOrBroadcastReceive,
                   directed ? Kind::directed : Kind::rxBcast);
      }
   }

   void addV6(const Ovel::IntfId& intfId, const Ovel::Ip6AddrWithMask& a) {
      ++addresses_[{std::string(intfId.name()), Af::ipv6}];
      const Ovel::IpGenAddrWithMask gen(a);
      if (a.len() <= 127) {
         candidate(Ovel::IpGenPrefix(a.subnet(), a.len()), intfId, gen, RouteType::attachedSubnet,
                   Kind::vsk);
      }
      candidate(Ovel::IpGenPrefix(a.addr(), 128), intfId, gen,
                a.len() <= 127 ? RouteType::hostOfSubnetAddress : RouteType::hostOfFullLengthAddress,
                Kind::rx);
   }

   Testing::VrfHarness& h_;
   std::map<Ovel::IpGenPrefix, std::vector<Expected>> candidates_;
   std::map<std::pair<std::string, Af>, std::uint32_t> addresses_;
};

// Publishes random interface state, as the IP agents and the kernel would.
class Publisher {
 public:
   Publisher(Testing::VrfHarness& h, unsigned seed) : h_(h), rng_(seed) {
      for (int i = 1; i <= 5; ++i) {
         names_.push_back("Ethernet" + std::to_string(i));
      }
      // Shared subnets, so that interfaces compete for prefixes; some
      // addresses are their subnet's network or broadcast address.
      for (const char* a : {"10.0.0.1/24", "10.0.0.2/24", "10.0.0.3/24", "10.0.1.1/24",
                            "10.0.1.2/25", "10.0.2.1/30", "10.0.2.2/30", "10.0.3.0/31",
                            "10.0.3.1/31", "10.0.4.4/32", "10.0.0.1/16", "10.9.9.9/0",
                            "10.0.0.0/24", "10.0.1.127/25", "10.0.2.3/30"}) {
         v4_.push_back(Ovel::IpAddrWithMask::parse(a));
      }
      for (const char* a : {"2001:db8::1/64", "2001:db8::2/64", "2001:db8:1::1/64",
                            "2001:db8:2::1/127", "2001:db8:3::3/128", "fe80::1/64"}) {
         v6_.push_back(Ovel::Ip6AddrWithMask::parse(a));
      }
   }

   void step() {
      const std::string& name = names_[rng_() % names_.size()];
      const Ovel::IntfId intfId(name);
      switch (rng_() % 14) {
         case 0:
            h_.advance(std::uniform_real_distribution<double>(0.0, 0.1)(rng_));
            break;
         case 1:
            if (auto s = status4(intfId, true)) {
               const auto a = pick4();
               // Also a promotion: an active secondary becoming the active address.
               if (auto listed = s->activeSecondaryWithMask(a); !listed || *listed) {
                  s->activeAddrWithMaskIs(rng_() % 6 ? a : Ovel::IpAddrWithMask());
               }
            }
            break;
         case 2:
            if (auto s = status4(intfId, true)) {
               const auto a = pick4();
               if (!s->activeSecondaryWithMask(a)) {  // the active address too
                  s->activeSecondaryWithMaskIs(a, true);
               }
            }
            break;
         case 3:
            if (auto s = status4(intfId); s && !s->activeSecondaryWithMask().empty()) {
               const auto a = std::next(s->activeSecondaryWithMask().begin(),
                                        long(rng_() % s->activeSecondaryWithMask().size()))
                                    ->first;
               if (!*s->activeSecondaryWithMask(a)) {
                  s->activeSecondaryWithMaskIs(a, true);
               } else if (rng_() % 2 && machine4(intfId)) {
                  s->activeSecondaryWithMaskIs(a, false);
               } else {
                  s->activeSecondaryWithMaskDel(a);
               }
            }
            break;
         case 4:
            if (auto s = status4(intfId)) {
               restore4(*s);
               s->directedBroadcastEnabledIs(!s->directedBroadcastEnabled());
            }
            break;
         case 5:
         case 6:
            if (auto s = status6(intfId, true)) {
               const auto a = pick6();
               const bool listed = s->addr().contains(a);
               if (listed && s->addr(a) == Ip6::AddressInfo()) {
                  s->addrIs(a, info());
               } else if (listed && rng_() % 3 == 0) {
                  s->addrDel(a);
               } else if (listed && rng_() % 2 && machine6(intfId)) {
                  s->addrIs(a, Ip6::AddressInfo());
               } else if (!listed) {
                  s->addrIs(a, info());
               }
            }
            break;
         case 7:
            if (h_.kernelDir->intfStatusAndDeviceName().contains(intfId) && rng_() % 3 == 0) {
               restoreIntf(intfId);
               h_.kernelDown(name);
            } else {
               h_.kernelUp(name);
            }
            break;
         case 8:
            if (auto vrf = h_.ipStatus->vrfIpIntfStatus(h_.vrfName)) {
               if (auto s = vrf->ipIntfStatus(intfId); s && rng_() % 3 == 0) {
                  restore4(*s);
                  vrf->ipIntfStatusDel(intfId);
               } else {
                  vrf->ipIntfStatusIs(intfId);
               }
            }
            break;
         case 9:
            if (auto vrf = h_.ip6Status->vrfIp6IntfStatus(h_.vrfName)) {
               if (auto s = vrf->ip6IntfStatus(intfId); s && rng_() % 3 == 0) {
                  restore6(*s);
                  vrf->ip6IntfStatusDel(intfId);
               } else {
                  vrf->ip6IntfStatusIs(intfId);
               }
            }
            break;
         case 10:
            toggleCollections(rng_() % 2 == 0);
            break;
         default:
            break;
      }
   }

   // Restores every interface, before the VRF and its machines go away.
   void settle() {
      for (const auto& name : names_) {
         restoreIntf(Ovel::IntfId(name));
      }
   }

 private:
   // The interface's status, created on configuration if the VRF has a
   // collection.
   Vok::Ptr<Ip::IpIntfStatus> status4(const Ovel::IntfId& intfId, bool create = false) {
      auto vrf = h_.ipStatus->vrfIpIntfStatus(h_.vrfName);
      if (!vrf) {
         return nullptr;
      }
      return create ? vrf->ipIntfStatusIs(intfId) : vrf->ipIntfStatus(intfId);
   }
   Vok::Ptr<Ip6::IntfStatus> status6(const Ovel::IntfId& intfId, bool create = false) {
      auto vrf = h_.ip6Status->vrfIp6IntfStatus(h_.vrfName);
      if (!vrf) {
         return nullptr;
      }
      return create ? vrf->ip6IntfStatusIs(intfId) : vrf->ip6IntfStatus(intfId);
   }
   bool machine4(const Ovel::IntfId& intfId) {
      return h_.v4->ipIntfStatusSm() && h_.v4->ipIntfStatusSm()->ipIntfSm(intfId);
   }
   bool machine6(const Ovel::IntfId& intfId) {
      return h_.v6->ip6IntfStatusSm() && h_.v6->ip6IntfStatusSm()->ip6IntfSm(intfId);
   }
   Ovel::IpAddrWithMask pick4() { return v4_[rng_() % v4_.size()]; }
   Ovel::Ip6AddrWithMask pick6() { return v6_[rng_() % v6_.size()]; }
   Ip6::AddressInfo info() {
      return Ip6::AddressInfo{static_cast<Ip6::AddressInfo::Source>(1 + rng_() % 3),
                              Ip6::AddressInfo::DadState::valid};
   }

   void restore4(Ip::IpIntfStatus& s) {
      std::vector<Ovel::IpAddrWithMask> inactive;
      for (const auto& [addr, active] : s.activeSecondaryWithMask()) {
         if (!active) {
            inactive.push_back(addr);
         }
      }
      for (const auto& addr : inactive) {
         s.activeSecondaryWithMaskIs(addr, true);
      }
   }
   void restore6(Ip6::IntfStatus& s) {
      std::vector<Ovel::Ip6AddrWithMask> defaults;
      for (const auto& [addr, record] : s.addr()) {
         if (record == Ip6::AddressInfo()) {
            defaults.push_back(addr);
         }
      }
      for (const auto& addr : defaults) {
         s.addrIs(addr, info());
      }
   }
   void restoreIntf(const Ovel::IntfId& intfId) {
      if (auto s = status4(intfId)) {
         restore4(*s);
      }
      if (auto s = status6(intfId)) {
         restore6(*s);
      }
   }

   // A present collection goes rarely; an absent one comes back at once.
   void toggleCollections(bool v4) {
      const bool remove = rng_() % 8 == 0;
      if (v4) {
         if (auto vrf = h_.ipStatus->vrfIpIntfStatus(h_.vrfName); vrf && !remove) {
            return;
         } else if (vrf) {
            for (const auto& [intfId, s] : vrf->ipIntfStatus()) {
               restore4(*s);
            }
            h_.ipStatus->vrfIpIntfStatusDel(h_.vrfName);
         } else {
            h_.ipStatus->vrfIpIntfStatusIs(h_.vrfName);
         }
         return;
      }
      if (auto vrf = h_.ip6Status->vrfIp6IntfStatus(h_.vrfName); vrf && !remove) {
         return;
      } else if (vrf) {
         for (const auto& [intfId, s] : vrf->ip6IntfStatus()) {
            restore6(*s);
         }
         h_.ip6Status->vrfIp6IntfStatusDel(h_.vrfName);
      } else {
         h_.ip6Status->vrfIp6IntfStatusIs(h_.vrfName);
      }
   }

   Testing::VrfHarness& h_;
   std::mt19937 rng_;
   std::vector<std::string> names_;
   std::vector<Ovel::IpAddrWithMask> v4_;
   std::vector<Ovel::Ip6AddrWithMask> v6_;
};

TEST(TrackingModel, TablesFollowTheInterfaceStateThroughRandomChurn) {
   const unsigned seeds = Testing::seedCount(300);
   constexpr int kSteps = 2000;
   constexpr int kCheckEvery = 250;
   std::size_t routesSeen = 0;
   for (unsigned seed = 1; seed <= seeds; ++seed) {
      SCOPED_TRACE("seed " + std::to_string(seed));
      // Half the seeds model slow processing, so drain slices end early.
      Testing::VrfHarness h(Agent::StartupMode::coldStart, seed % 2 ? 1e-6 : 2e-4);
      h.ipStatus->vrfIpIntfStatusIs(h.vrfName);
      h.ip6Status->vrfIp6IntfStatusIs(h.vrfName);
      Publisher publisher(h, seed);
      for (int step = 1; step <= kSteps; ++step) {
         publisher.step();
         if (step % kCheckEvery == 0) {
            SCOPED_TRACE("step " + std::to_string(step));
            h.drain();
            Reference(h).check();
            routesSeen += h.tables.route4->routeCount() + h.tables.route6->routeCount();
            EXPECT_TRUE(h.ready->v4ConnectedRoutesReady());
            EXPECT_TRUE(h.ready->v6ConnectedRoutesReady());
         }
      }
      publisher.settle();
      if (::testing::Test::HasFailure()) {
         break;
      }
   }
   // Guards the generator itself: the checks above must have seen routes.
   EXPECT_GT(routesSeen, seeds * 8 * 10u);
   std::printf("routes seen at checkpoints: %zu\n", routesSeen);
}

}  // namespace
}  // namespace Routing::ConnectedRoute
