#include "app/live/NamespaceFeed.h"

#include <linux/if_addr.h>
#include <linux/netconf.h>
#include <linux/rtnetlink.h>
#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

namespace App {

namespace {

// An address of global or site scope (the deprecated fec0::/10 still gets
// its routes from the kernel) whose duplicate address detection is over,
// or optimistic: the kernel installs an address's local route only then.
bool usable6(const Linux::AddrRecord& addr) {
   const bool linkLocal = kernelAddress6(addr).addr().isLinkLocal();
   const bool routedScope = addr.scope == RT_SCOPE_UNIVERSE || addr.scope == RT_SCOPE_SITE;
   const bool tentative = (addr.flags & IFA_F_TENTATIVE) && !(addr.flags & IFA_F_OPTIMISTIC);
   return !linkLocal && routedScope && !tentative && !(addr.flags & IFA_F_DADFAILED);
}

// `published` becomes what `wanted` says, restricted to `candidates`
// (every prefix that may differ); what changes goes to `add` and `remove`.
template <class Prefix, class Wanted>
void syncPrefixes(const std::set<Prefix>& candidates, const Wanted& wanted, std::set<Prefix>& published,
                  std::vector<Prefix>& add, std::vector<Prefix>& remove) {
   for (const Prefix& p : candidates) {
      if (wanted(p)) {
         if (published.insert(p).second) {
            add.push_back(p);
         }
      } else if (published.erase(p)) {
         remove.push_back(p);
      }
   }
}

// A peer prefix of full length that is an own address of the link (at
// another length, as the equal one the engine settles itself): the kernel's
// local route wins over its attached one, and the RIB holds one route per
// prefix, so the peer's gives way.
template <class Prefix>
bool ownHost(const std::map<Prefix, int>& engineAddresses, const Prefix& peer, int fullLength) {
   if (peer.len() != fullLength) {
      return false;
   }
   const auto at = engineAddresses.lower_bound(Prefix(peer.addr(), 0));
   return at != engineAddresses.end() && at->first.addr() == peer.addr();
}

// Every prefix that may differ between what is wanted and what was
// published: all of them, or those marked changed.
template <class Prefix>
std::set<Prefix> prefixCandidates(bool everything, const std::set<Prefix>& changed,
                                  const std::set<Prefix>& published,
                                  const std::map<Prefix, int>& wanted) {
   if (!everything) {
      return changed;
   }
   std::set<Prefix> all = published;
   for (const auto& [p, count] : wanted) {
      all.insert(p);
   }
   return all;
}

}  // namespace

NamespaceFeed::NamespaceFeed(std::string netns, L3::VrfName vrf, Vrf::VrfIdMap::VrfId vrfId,
                             Publish publish)
      : netns_(std::move(netns)),
        netnsName_(netns_.empty() ? Ovel::NamespaceName::defaultNamespace() : Ovel::NamespaceName(netns_)),
        vrf_(std::move(vrf)),
        vrfId_(vrfId),
        publish_(std::move(publish)) {}

NamespaceFeed::Link& NamespaceFeed::linkAt(int ifindex) {
   Link& link = links_[ifindex];
   link.ifindex = ifindex;
   return link;
}

Ovel::IntfId NamespaceFeed::intfIdFor(const Link& link) const {
   try {
      return Ovel::IntfId(netns_.empty() ? link.name : netns_ + ":" + link.name);
   } catch (const std::exception&) {
      // Too long or with characters an interface id cannot hold. Neither a
      // link nor a namespace name contains '/', so this id is nobody else's.
      return Ovel::IntfId("/" + std::to_string(vrfId_.value()) + "/" + std::to_string(link.ifindex));
   }
}

void NamespaceFeed::dumpStarted() {
   dumping_ = true;
   wantsDump_ = false;
   for (auto& [ifindex, link] : links_) {
      link.seen = false;
      link.clearAddresses();
   }
}

void NamespaceFeed::onDumpDone() {
   dumping_ = false;
   for (auto it = links_.begin(); it != links_.end();) {
      if (!it->second.seen) {
         withdraw(it->second);
         it = links_.erase(it);
      } else {
         sync(it->second);
         ++it;
      }
   }
   synced_ = true;
}

void NamespaceFeed::onOverflow() { wantsDump_ = true; }

void NamespaceFeed::onLink(const Linux::LinkRecord& record) {
   auto found = links_.find(record.ifindex);
   if (record.removed) {
      if (found == links_.end()) {
         return;
      }
      if (publishing()) {
         withdraw(found->second);
         links_.erase(found);
      } else {
         found->second.seen = false;  // swept when the dump ends, unless it comes back
         found->second.clearAddresses();
      }
      return;
   }
   Link& link = linkAt(record.ifindex);
   link.name = record.name;
   link.up = record.up;
   link.loopback = record.loopback;
   link.seen = true;
   if (publishing()) {
      sync(link);
   }
}

void NamespaceFeed::onAddr(const Linux::AddrRecord& record) {
   Link& link = linkAt(record.ifindex);  // an address may come before its link
   if (record.family == AF_INET) {
      const KernelAddress4 kernel = kernelAddress4(record);
      if (record.removed) {
         link.delV4(kernel);
      } else {
         link.addV4(V4Addr{kernel, engineAddress4(kernel, record.flags),
                           (record.flags & IFA_F_SECONDARY) != 0, record.scope});
      }
   } else if (record.family == AF_INET6) {
      if (record.removed || !usable6(record)) {
         link.delV6(kernelAddress6(record));
      } else {
         link.addV6(kernelAddress6(record), engineAddress6(record));
      }
   } else {
      return;
   }
   if (publishing()) {
      sync(link);
   }
}

// The kernel forwards a directed broadcast only when bc_forwarding is on
// for the link and for "all" alike.
void NamespaceFeed::onNetconf(const Linux::NetconfRecord& netconf) {
   if (netconf.ifindex == NETCONFA_IFINDEX_ALL) {
      if (allBcForwarding_ == netconf.bcForwarding) {
         return;
      }
      allBcForwarding_ = netconf.bcForwarding;
      if (publishing()) {
         for (auto& [ifindex, link] : links_) {
            sync(link);
         }
      }
      return;
   }
   Link& link = linkAt(netconf.ifindex);
   if (link.bcForwarding == netconf.bcForwarding) {
      return;  // read again every second: most reads change nothing
   }
   link.bcForwarding = netconf.bcForwarding;
   if (publishing()) {
      sync(link);
   }
}

void NamespaceFeed::withdrawAll() {
   for (auto& [ifindex, link] : links_) {
      withdraw(link);
   }
   links_.clear();
}

void NamespaceFeed::withdraw(Link& link) {
   if (link.hasV4) {
      publish_(Ipv4Step{vrf_, link.intf, true, {}, {}, {}, {}, {}, {}});
   }
   if (link.hasV6) {
      publish_(Ipv6Step{vrf_, link.intf, true, {}, {}, {}, {}, {}});
   }
   if (link.devicePresent) {
      publish_(KernelStep{netnsName_, {}, {link.device}});
   }
   if (!link.intf.empty()) {
      publish_(InterfaceStep{link.intf, true, {}, {}});
   }
   link.intf = Ovel::IntfId();
   link.device.clear();
   link.devicePresent = link.hasV4 = link.hasV6 = link.publishedBc = false;
   link.active = Ovel::IpAddrWithMask();
   link.secondaries.clear();
   link.publishedPeers4.clear();
   link.published6.clear();
   link.publishedPeers6.clear();
   link.allChanged = true;  // everything is to publish again
}

void NamespaceFeed::sync(Link& link) {
   const Ovel::IntfId intf =
         link.name.empty() || link.loopback ? Ovel::IntfId() : intfIdFor(link);
   if (link.intf != intf || (!link.intf.empty() && link.device != link.name)) {
      withdraw(link);  // renamed, or no longer an interface of ours
   }
   if (intf.empty()) {
      return;
   }
   if (link.intf.empty()) {
      publish_(InterfaceStep{intf, false, link.name, netnsName_});
      link.intf = intf;
      link.device = link.name;
   }
   if (link.up != link.devicePresent) {
      publish_(link.up ? KernelStep{netnsName_, {link.device}, {}}
                       : KernelStep{netnsName_, {}, {link.device}});
      link.devicePresent = link.up;
   }

   syncV4(link);
   syncV6(link);
   link.changed4.clear();
   link.changedPeers4.clear();
   link.changed6.clear();
   link.changedPeers6.clear();
   link.allChanged = false;
}

void NamespaceFeed::syncV4(Link& link) {
   if (link.v4Index.empty()) {
      if (link.hasV4) {
         publish_(Ipv4Step{vrf_, link.intf, true, {}, {}, {}, {}, {}, {}});
         link.hasV4 = link.publishedBc = false;
         link.active = Ovel::IpAddrWithMask();
         link.secondaries.clear();
         link.publishedPeers4.clear();
      }
      return;
   }
   // The addresses whose role may differ from the published one: those that
   // changed, and the active address before and after.
   const Ovel::IpAddrWithMask active = link.desiredActive();
   std::set<Ovel::IpAddrWithMask> candidates;
   if (link.allChanged || !link.hasV4) {
      candidates = link.secondaries;
      for (const auto& [a, count] : link.engine4.counts) {
         candidates.insert(a);
      }
   } else {
      candidates = link.changed4;
      candidates.insert(link.active);
      candidates.insert(active);
   }
   Ipv4Step step{vrf_, link.intf, false, {}, {}, {}, {}, {}, {}};
   for (const Ovel::IpAddrWithMask& a : candidates) {
      const bool wanted = link.engine4.contains(a) && a != active;
      const bool published = link.secondaries.contains(a);
      if (wanted && !published) {
         step.secondaries.emplace(a, true);
         link.secondaries.insert(a);
      } else if (!wanted && published) {
         step.removeSecondaries.push_back(a);
         link.secondaries.erase(a);
      }
   }
   if (active != link.active) {
      step.active = active;
   }
   const bool directedBroadcast = link.bcForwarding && allBcForwarding_;
   if (!link.hasV4 || directedBroadcast != link.publishedBc) {
      step.directedBroadcast = directedBroadcast;
   }
   syncV4Peers(link, step);
   if (!link.hasV4 || step.active || step.directedBroadcast || !step.secondaries.empty() ||
       !step.removeSecondaries.empty() || !step.peers.empty() || !step.removePeers.empty()) {
      publish_(step);
   }
   link.hasV4 = true;
   link.active = active;
   link.publishedBc = directedBroadcast;
}

void NamespaceFeed::syncV4Peers(Link& link, Ipv4Step& step) {
   const auto candidates = prefixCandidates(link.allChanged || !link.hasV4, link.changedPeers4,
                                            link.publishedPeers4, link.peers4.counts);
   const auto wanted = [&](const Ovel::IpAddrWithMask& p) {
      return link.peers4.contains(p) && !ownHost(link.engine4.counts, p, 32);
   };
   syncPrefixes(candidates, wanted, link.publishedPeers4, step.peers, step.removePeers);
}

void NamespaceFeed::syncV6(Link& link) {
   if (link.v6.empty()) {
      if (link.hasV6) {
         publish_(Ipv6Step{vrf_, link.intf, true, {}, {}, {}, {}, {}});
         link.hasV6 = false;
         link.published6.clear();
         link.publishedPeers6.clear();
      }
      return;
   }
   const bool everything = link.allChanged || !link.hasV6;
   Ipv6Step step{vrf_, link.intf, false, {}, {}, {}, {}, {}};
   syncPrefixes(prefixCandidates(everything, link.changed6, link.published6, link.engine6.counts),
                [&](const auto& a) { return link.engine6.contains(a); }, link.published6, step.add,
                step.removeAddrs);
   syncPrefixes(prefixCandidates(everything, link.changedPeers6, link.publishedPeers6,
                                 link.peers6.counts),
                [&](const auto& p) { return link.peers6.contains(p) && !ownHost(link.engine6.counts, p, 128); },
                link.publishedPeers6, step.peers, step.removePeers);
   if (!link.hasV6 || !step.add.empty() || !step.removeAddrs.empty() || !step.peers.empty() ||
       !step.removePeers.empty()) {
      publish_(step);
   }
   link.hasV6 = true;
}

}  // namespace App
