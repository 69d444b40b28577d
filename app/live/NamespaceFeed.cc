#include "app/live/NamespaceFeed.h"

#include <linux/if_addr.h>
#include <linux/rtnetlink.h>
#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

namespace App {

namespace {

template <class T>
std::vector<T> minus(const std::set<T>& a, const std::set<T>& b) {
   std::vector<T> out;
   std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(out));
   return out;
}

// A global address whose duplicate address detection is over: the kernel
// installs its local route only then.
bool usable6(const Linux::AddrRecord& addr) {
   const bool linkLocal = addr.addr[0] == 0xfe && (addr.addr[1] & 0xc0) == 0x80;
   return !linkLocal && addr.scope == RT_SCOPE_UNIVERSE &&
          !(addr.flags & (IFA_F_TENTATIVE | IFA_F_DADFAILED));
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
      link.v4.clear();
      link.v6.clear();
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
         found->second.v4.clear();
         found->second.v6.clear();
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
      std::uint32_t be = 0;
      std::memcpy(&be, record.addr.data(), 4);
      const Ovel::IpAddrWithMask addr(Ovel::IpAddr(ntohl(be)), std::uint8_t(record.prefixLen));
      auto same = [&](const V4Addr& a) { return a.addr == addr; };
      std::erase_if(link.v4, same);
      if (!record.removed) {
         // The kernel keeps primaries ahead of secondaries, each in the order
         // they came; a promoted secondary joins the primaries' end.
         const bool secondary = record.flags & IFA_F_SECONDARY;
         auto at = secondary ? link.v4.end()
                             : std::find_if(link.v4.begin(), link.v4.end(),
                                            [](const V4Addr& a) { return a.secondary; });
         link.v4.insert(at, V4Addr{addr, secondary});
      }
   } else if (record.family == AF_INET6) {
      Ovel::Ip6Addr::Bytes bytes;
      std::copy(record.addr.begin(), record.addr.end(), bytes.begin());
      const Ovel::Ip6AddrWithMask addr(Ovel::Ip6Addr(bytes), std::uint8_t(record.prefixLen));
      if (record.removed || !usable6(record)) {
         link.v6.erase(addr);
      } else {
         link.v6.insert(addr);
      }
   } else {
      return;
   }
   if (publishing()) {
      sync(link);
   }
}

void NamespaceFeed::onNetconf(const Linux::NetconfRecord& netconf) {
   Link& link = linkAt(netconf.ifindex);
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
      publish_(Ipv4Step{vrf_, link.intf, true, {}, {}, {}, {}});
   }
   if (link.hasV6) {
      publish_(Ipv6Step{vrf_, link.intf, true, {}, {}, {}});
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
   link.published6.clear();
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

   Ovel::IpAddrWithMask active;
   std::set<Ovel::IpAddrWithMask> secondaries;
   for (const V4Addr& a : link.v4) {
      if (!a.secondary && active.addr().isZero()) {
         active = a.addr;
      } else {
         secondaries.insert(a.addr);
      }
   }
   if (link.v4.empty()) {
      if (link.hasV4) {
         publish_(Ipv4Step{vrf_, link.intf, true, {}, {}, {}, {}});
         link.hasV4 = link.publishedBc = false;
         link.active = Ovel::IpAddrWithMask();
         link.secondaries.clear();
      }
   } else {
      Ipv4Step step{vrf_, link.intf, false, {}, {}, minus(link.secondaries, secondaries), {}};
      for (const auto& addr : minus(secondaries, link.secondaries)) {
         step.secondaries.emplace(addr, true);
      }
      if (active != link.active) {
         step.active = active;
      }
      if (!link.hasV4 || link.bcForwarding != link.publishedBc) {
         step.directedBroadcast = link.bcForwarding;
      }
      if (!link.hasV4 || step.active || step.directedBroadcast || !step.secondaries.empty() ||
          !step.removeSecondaries.empty()) {
         publish_(step);
      }
      link.hasV4 = true;
      link.active = active;
      link.secondaries = std::move(secondaries);
      link.publishedBc = link.bcForwarding;
   }

   if (link.v6.empty()) {
      if (link.hasV6) {
         publish_(Ipv6Step{vrf_, link.intf, true, {}, {}, {}});
         link.hasV6 = false;
         link.published6.clear();
      }
   } else {
      Ipv6Step step{vrf_, link.intf, false, minus(link.v6, link.published6),
                    minus(link.published6, link.v6), {}};
      if (!link.hasV6 || !step.add.empty() || !step.removeAddrs.empty()) {
         publish_(step);
      }
      link.hasV6 = true;
      link.published6 = link.v6;
   }
}

}  // namespace App
