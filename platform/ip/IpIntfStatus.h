// IPv4 status of interfaces as the IP agent publishes it: per VRF
// (Ip::Status::vrfIpIntfStatus), per interface (VrfIpIntfStatus::ipIntfStatus),
// the active address, the secondary addresses with whether each is active,
// the directed-broadcast setting, and the peer prefixes.
//
// A peer prefix is a subnet the interface reaches through a point-to-point
// peer (`ip addr add 10.9.0.1 peer 10.9.1.0/30`): it is on the link though
// no address of the interface need be in it. The local address is listed as
// an address of its own (a /32); the peer prefix gives the attached route and,
// up to /30, the network and broadcast routes.
//
// Every mutator notifies per attribute or per key, and only on change.
// Iterating the ordered collections by key (nextKey) stays well defined
// while entries come and go.
#pragma once

#include <map>
#include <optional>
#include <set>

#include "platform/l3/VrfName.h"
#include "platform/ovel/IntfId.h"
#include "platform/ovel/IpAddrWithMask.h"
#include "platform/vok/EntityCollection.h"
#include "platform/vok/HashMap.h"
#include "platform/vok/Notifier.h"

namespace Ip {

class IpIntfStatusNotifiee : public Vok::ReactorBase {
 public:
   virtual void onActiveAddrWithMask() {}
   virtual void onActiveSecondaryWithMask(const Ovel::IpAddrWithMask& /*addr*/) {}
   virtual void onDirectedBroadcastEnabled() {}
   virtual void onPeerPrefix(const Ovel::IpAddrWithMask& /*prefix*/) {}
};

class IpIntfStatus final : public Vok::Notifier<IpIntfStatusNotifiee> {
 public:
   using Secondaries = std::map<Ovel::IpAddrWithMask, bool>;
   using PeerPrefixes = std::set<Ovel::IpAddrWithMask>;

   explicit IpIntfStatus(Ovel::IntfId intfId) : intfId_(intfId) {}

   const Ovel::IntfId& intfId() const noexcept { return intfId_; }

   const Ovel::IpAddrWithMask& activeAddrWithMask() const noexcept { return activeAddr_; }
   void activeAddrWithMaskIs(const Ovel::IpAddrWithMask& addr);

   const Secondaries& activeSecondaryWithMask() const noexcept { return secondaries_; }
   // The secondary's flag, or nothing when the address is not listed.
   std::optional<bool> activeSecondaryWithMask(const Ovel::IpAddrWithMask& addr) const;
   void activeSecondaryWithMaskIs(const Ovel::IpAddrWithMask& addr, bool active);
   void activeSecondaryWithMaskDel(Ovel::IpAddrWithMask addr);

   bool directedBroadcastEnabled() const noexcept { return directedBroadcast_; }
   void directedBroadcastEnabledIs(bool enabled);

   const PeerPrefixes& peerPrefix() const noexcept { return peerPrefixes_; }
   bool peerPrefix(const Ovel::IpAddrWithMask& prefix) const { return peerPrefixes_.contains(prefix); }
   void peerPrefixIs(const Ovel::IpAddrWithMask& prefix);
   void peerPrefixDel(Ovel::IpAddrWithMask prefix);

 private:
   Ovel::IntfId intfId_;
   Ovel::IpAddrWithMask activeAddr_;
   Secondaries secondaries_;
   bool directedBroadcast_ = false;
   PeerPrefixes peerPrefixes_;
};

class VrfIpIntfStatusNotifiee : public Vok::ReactorBase {
 public:
   virtual void onIpIntfStatus(const Ovel::IntfId& /*intfId*/) {}
};

class VrfIpIntfStatus final : public Vok::Notifier<VrfIpIntfStatusNotifiee> {
 public:
   using Collection = Vok::HashMap<Ovel::IntfId, Vok::Ptr<IpIntfStatus>>;

   explicit VrfIpIntfStatus(L3::VrfName vrfName) : vrfName_(std::move(vrfName)) {}

   const L3::VrfName& vrfName() const noexcept { return vrfName_; }
   const Collection& ipIntfStatus() const noexcept { return statuses_.map(); }
   Vok::Ptr<IpIntfStatus> ipIntfStatus(const Ovel::IntfId& intfId) const;
   // The interface's status, created if absent.
   Vok::Ptr<IpIntfStatus> ipIntfStatusIs(const Ovel::IntfId& intfId);
   // Puts `status` in place of the interface's current one (a replacement).
   void ipIntfStatusIs(const Vok::Ptr<IpIntfStatus>& status);
   void ipIntfStatusDel(Ovel::IntfId intfId);

 private:
   L3::VrfName vrfName_;
   Vok::EntityCollection<Collection> statuses_;
};

class StatusNotifiee : public Vok::ReactorBase {
 public:
   virtual void onVrfIpIntfStatus(const L3::VrfName& /*vrfName*/) {}
};

class Status final : public Vok::Notifier<StatusNotifiee> {
 public:
   using Collection = std::map<L3::VrfName, Vok::Ptr<VrfIpIntfStatus>>;

   const Collection& vrfIpIntfStatus() const noexcept { return vrfs_.map(); }
   Vok::Ptr<VrfIpIntfStatus> vrfIpIntfStatus(const L3::VrfName& vrfName) const;
   Vok::Ptr<VrfIpIntfStatus> vrfIpIntfStatusIs(const L3::VrfName& vrfName);
   void vrfIpIntfStatusIs(const Vok::Ptr<VrfIpIntfStatus>& status);
   void vrfIpIntfStatusDel(L3::VrfName vrfName);

 private:
   Vok::EntityCollection<Collection> vrfs_;
};

}  // namespace Ip
