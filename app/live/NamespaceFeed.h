// One network namespace of a Linux host as one VRF's inputs: what the
// platform's interface, IP and kernel agents would publish for it, derived
// from the kernel's links and addresses and handed on as steps.
//
// How the kernel maps onto the engine's inputs (docs/live.md):
// - a link is an interface (IntfId "<ifname>" in the default namespace,
//   "<namespace>:<ifname>" in the others) whose kernel device is the link
//   itself; it is present while administratively up, as the kernel keeps
//   its subnet routes only then; loopback links are not routed interfaces;
// - IPv4: the first primary address is the active address; further
//   primaries and the kernel's secondaries are active secondaries;
//   directed broadcast follows the link's bc_forwarding setting;
// - IPv6: every address of global scope once duplicate address detection
//   is over (not tentative, not failed); link-local addresses are not;
// - each address in its engine form (EngineAddress.h): noprefixroute and
//   point-to-point addresses as the kernel routes them.
//
// Nothing is published while a dump is in: a dump replaces the namespace's
// state (mark and sweep), and only the differences are published when it
// ends, so routes that did not change are not touched.
#pragma once

#include <functional>
#include <list>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "app/Scenario.h"
#include "app/live/EngineAddress.h"
#include "platform/linux/RtnlSocket.h"

namespace App {

class NamespaceFeed final : public Linux::RtnlListener {
 public:
   using Publish = std::function<void(Action)>;

   // `netns` is the namespace's name, empty for the default namespace.
   NamespaceFeed(std::string netns, L3::VrfName vrf, Vrf::VrfIdMap::VrfId vrfId, Publish publish);

   // The first dump has been applied.
   bool synced() const noexcept { return synced_; }
   // A dump is wanted (at the start, after lost messages).
   bool wantsDump() const noexcept { return wantsDump_; }
   void dumpStarted();
   // Withdraws every interface: the namespace is gone.
   void withdrawAll();
   const L3::VrfName& vrf() const noexcept { return vrf_; }
   Vrf::VrfIdMap::VrfId vrfId() const noexcept { return vrfId_; }

   void onLink(const Linux::LinkRecord& link) override;
   void onAddr(const Linux::AddrRecord& addr) override;
   void onNetconf(const Linux::NetconfRecord& netconf) override;
   void onDumpDone() override;
   void onOverflow() override;

 private:
   // Engine addresses and peer prefixes, each counted by the kernel
   // addresses that give it: two kernel addresses can give one (10.1.0.1/24
   // noprefixroute and 10.1.0.1/32).
   template <class T>
   struct Counted {
      std::map<T, int> counts;
      bool contains(const T& value) const { return counts.contains(value); }
      void add(const T& value) { ++counts[value]; }
      void remove(const T& value) {
         if (auto it = counts.find(value); it != counts.end() && --it->second == 0) {
            counts.erase(it);
         }
      }
      void change(const T& value, bool added) { added ? add(value) : remove(value); }
   };
   struct V4Addr {
      KernelAddress4 kernel;
      EngineAddress4 engine;
      bool secondary;
      int scope = 0;
   };
   struct V4Place {
      EngineAddress4 engine;
      bool secondary;
      int scope;
      std::list<KernelAddress4>::iterator at;
   };
   // What the kernel says about a link, and what was last published for it.
   // Addresses that changed since the last publication are marked, so that
   // publishing costs as much as the change, not as the link's addresses:
   // a flood of thousands of addresses on one link stays linear.
   struct Link {
      int ifindex = 0;
      std::string name;
      bool up = false;
      bool loopback = false;
      bool seen = true;  // in the current dump
      // IPv4 in the kernel's order: primaries, then secondaries.
      std::list<KernelAddress4> primaries, kernelSecondaries;
      std::map<KernelAddress4, V4Place> v4Index;
      Counted<Ovel::IpAddrWithMask> engine4, peers4;
      std::map<Ovel::Ip6AddrWithMask, EngineAddress6> v6;  // the usable ones, by kernel address
      Counted<Ovel::Ip6AddrWithMask> engine6, peers6;
      bool bcForwarding = false;
      std::set<Ovel::IpAddrWithMask> changed4, changedPeers4;
      std::set<Ovel::Ip6AddrWithMask> changed6, changedPeers6;
      bool allChanged = true;  // compare everything at the next publication

      Ovel::IntfId intf;  // published under this id, if not empty
      std::string device;
      bool devicePresent = false;
      bool hasV4 = false, hasV6 = false;
      Ovel::IpAddrWithMask active;
      std::set<Ovel::IpAddrWithMask> secondaries, publishedPeers4;
      std::set<Ovel::Ip6AddrWithMask> published6, publishedPeers6;
      bool publishedBc = false;

      Ovel::IpAddrWithMask desiredActive() const {
         return primaries.empty() ? Ovel::IpAddrWithMask() : v4Index.at(primaries.front()).engine.addr;
      }
      void addV4(const V4Addr& a);
      void delV4(const KernelAddress4& addr);
      // Counts (or uncounts) what one kernel address gives the engine, and
      // marks what may differ now: the address, its peer prefix, and a
      // full-length peer prefix equal to its host.
      void count(const EngineAddress4& engine, bool added);
      void count(const EngineAddress6& engine, bool added);
      void addV6(const Ovel::Ip6AddrWithMask& kernel, const EngineAddress6& engine);
      void delV6(const Ovel::Ip6AddrWithMask& kernel);
      void clearAddresses();
   };

   Ovel::IntfId intfIdFor(const Link& link) const;
   Link& linkAt(int ifindex);
   void sync(Link& link);
   void syncV4(Link& link);
   void syncV4Peers(Link& link, Ipv4Step& step);
   void syncV6(Link& link);
   void withdraw(Link& link);
   bool publishing() const noexcept { return !dumping_; }

   std::string netns_;
   Ovel::NamespaceName netnsName_;
   L3::VrfName vrf_;
   Vrf::VrfIdMap::VrfId vrfId_;
   Publish publish_;
   std::map<int, Link> links_;  // by ifindex
   bool synced_ = false;
   bool allBcForwarding_ = false;  // net.ipv4.conf.all.bc_forwarding
   bool dumping_ = false;
   bool wantsDump_ = true;
};

}  // namespace App
