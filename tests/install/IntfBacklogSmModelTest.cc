// Random candidate churn against an independent reference: after the drain,
// every table must hold exactly what the final candidate sets imply.
//
// The reference picks each prefix's owner as the candidate with the least
// (record hash, record bytes), which is the order the store's maps promise,
// computed here without them.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>
#include <set>

#include "install/IntfBacklogSm.h"
#include "platform/vok/KeyTraits.h"
#include "tests/support/InstallerHarness.h"
#include "tests/support/Seeds.h"

namespace Routing::ConnectedRoute {
namespace {

using Testing::addr;
using Testing::intf;

struct Candidate {
   IntfIdAndAddr key;
   ConnectedRouteProperty property;
};

bool ordersBefore(const IntfIdAndAddr& a, const IntfIdAndAddr& b) {
   const std::uint32_t ha = Vok::placedHash(a.hash()), hb = Vok::placedHash(b.hash());
   if (ha != hb) {
      return ha < hb;
   }
   return std::memcmp(&a, &b, sizeof(a)) < 0;
}

class Churn {
 public:
   explicit Churn(unsigned seed) : rng_(seed), h_(1e-5) {
      for (int i = 0; i < 6; ++i) {
         intfs_.push_back(intf("Ethernet" + std::to_string(i + 1)));
      }
      for (int p = 0; p < 12; ++p) {
         for (int host = 1; host <= 2; ++host) {
            addrs_.push_back(addr("10.0." + std::to_string(p) + "." + std::to_string(host) + "/24"));
         }
      }
      for (int p = 0; p < 5; ++p) {
         for (int host = 1; host <= 2; ++host) {
            addrs_.push_back(addr("2001:db8:" + std::to_string(p) + "::" + std::to_string(host) +
                                  "/64"));
         }
      }
   }

   void run(int steps) {
      for (int step = 0; step < steps; ++step) {
         switch (rng_() % 8) {
            case 0:
               h_.advance(std::uniform_real_distribution<double>(0.0, 0.15)(rng_));
               break;
            case 1:
            case 2:
            case 3:
               addOrChange();
               break;
            default:
               remove();
               break;
         }
      }
      h_.drain();
   }

   void check() {
      std::map<Ovel::IpGenPrefix, Candidate> owners;
      std::map<std::pair<Ovel::IntfId, Ovel::AddressFamily>, std::uint32_t> uses;
      for (const auto& [key, property] : candidates_) {
         const Ovel::IpGenPrefix p = key.addrWithMask().prefix();
         auto it = owners.find(p);
         if (it == owners.end() || ordersBefore(key, it->second.key)) {
            owners[p] = Candidate{key, property};
         }
         ++uses[{key.intfId(), p.af()}];
      }
      std::size_t v4Routes = 0;
      for (const auto& [p, owner] : owners) {
         SCOPED_TRACE(p.toString());
         const Rib::Route* r = h_.route(p.toString());
         ASSERT_TRUE(r);
         EXPECT_EQ(r->routeType, owner.property.routeType());
         EXPECT_EQ(r->viaSetKey, owner.property.viaSetKey());
         EXPECT_EQ(h_.sm->installedIntfId(p), owner.key.intfId());
         ++uses[{owner.key.intfId(), p.af()}];
         v4Routes += p.af() == Ovel::AddressFamily::ipv4;
      }
      EXPECT_EQ(h_.tables.route4->routeCount(), v4Routes);
      EXPECT_EQ(h_.tables.route6->routeCount(), owners.size() - v4Routes);
      EXPECT_EQ(h_.sm->installedIntfIdCount(), owners.size());
      EXPECT_TRUE(h_.store->backlog().empty());
      EXPECT_TRUE(h_.sm->backlog().empty());

      std::size_t expectedViaSets = 0;
      for (auto af : {Ovel::AddressFamily::ipv4, Ovel::AddressFamily::ipv6}) {
         const auto& keyStatus = h_.keyStatus(af);
         const auto& viaTable = af == Ovel::AddressFamily::ipv4 ? h_.tables.via4 : h_.tables.via6;
         std::size_t users = 0;
         for (const auto& i : intfs_) {
            SCOPED_TRACE(std::string(i.name()));
            auto found = uses.find({i, af});
            const std::uint32_t expected = found == uses.end() ? 0 : found->second;
            EXPECT_EQ(keyStatus.vskRefcountByIntfId(i), expected);
            const IntfViaSetKey* keys = keyStatus.intfViaSetKey(i);
            ASSERT_EQ(keys != nullptr, expected > 0);
            if (!keys) {
               continue;
            }
            ++users;
            const Rib::Via* via = viaTable->via(keys->viaKey());
            ASSERT_TRUE(via);
            EXPECT_EQ(via->intfId, i);
            for (auto key : {keys->viaSetKey(), keys->rxViaSetKey(), keys->rxBcastViaSetKey(),
                             keys->directedBcastViaSetKey()}) {
               if (!key.isEmpty()) {
                  ASSERT_TRUE(h_.tables.viaSets->viaSet(key));
                  EXPECT_EQ(h_.tables.viaSets->viaSet(key)->via.viaKey, keys->viaKey());
               }
            }
         }
         EXPECT_EQ(viaTable->viaCount(), users);
         expectedViaSets += users * (af == Ovel::AddressFamily::ipv4 ? 4 : 2);
      }
      EXPECT_EQ(h_.tables.viaSets->viaSetCount(), expectedViaSets);
   }

 private:
   void addOrChange() {
      const Ovel::IntfId i = intfs_[rng_() % intfs_.size()];
      const Ovel::IpGenAddrWithMask a = addrs_[rng_() % addrs_.size()];
      const IntfIdAndAddr key(i, a);
      static constexpr Fib::RouteType kTypes[] = {Fib::RouteType::attachedSubnet,
                                                  Fib::RouteType::hostOfSubnetAddress,
                                                  Fib::RouteType::networkOrBroadcastReceive};
      const Fib::RouteType type = kTypes[rng_() % 3];
      const IntfViaSetKey keys = h_.sm->findOrCreateViaSetKey(i, a.af());
      const Rib::ViaSetKey viaSetKey = rng_() % 2 ? keys.viaSetKey() : keys.rxViaSetKey();
      const bool fresh = !candidates_.contains(key);
      h_.store->addToIntfIdsByPrefix(i, a.prefix(), a, type, viaSetKey);
      candidates_[key] = ConnectedRouteProperty(type, viaSetKey);
      if (fresh) {
         h_.keyStatus(a.af()).incIntfVskRefcount(i);
      }
   }

   void remove() {
      if (candidates_.empty()) {
         return;
      }
      auto it = std::next(candidates_.begin(), static_cast<long>(rng_() % candidates_.size()));
      const IntfIdAndAddr key = it->first;
      candidates_.erase(it);
      const auto a = key.addrWithMask();
      h_.store->delFromIntfIdsByPrefix(key.intfId(), a.prefix(), a);
      h_.keyStatus(a.af()).decIntfVskRefcount(key.intfId());
      if (h_.keyStatus(a.af()).vskRefcountByIntfId(key.intfId()) == 0) {
         h_.sm->delViaSetKey(key.intfId(), a.af());
      }
   }

   struct KeyLess {
      bool operator()(const IntfIdAndAddr& a, const IntfIdAndAddr& b) const {
         return std::memcmp(&a, &b, sizeof(a)) < 0;
      }
   };

   std::mt19937 rng_;
   Testing::InstallerHarness h_;
   std::vector<Ovel::IntfId> intfs_;
   std::vector<Ovel::IpGenAddrWithMask> addrs_;
   std::map<IntfIdAndAddr, ConnectedRouteProperty, KeyLess> candidates_;
};

TEST(InstallerModel, TablesMatchTheReferenceAfterRandomChurn) {
   const unsigned seeds = Testing::seedCount(150);
   for (unsigned seed = 1; seed <= seeds; ++seed) {
      SCOPED_TRACE("seed " + std::to_string(seed));
      Churn churn(seed);
      churn.run(1500);
      churn.check();
      if (::testing::Test::HasFailure()) {
         break;
      }
   }
}

}  // namespace
}  // namespace Routing::ConnectedRoute
