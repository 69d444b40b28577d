// IPv6 status of interfaces as the IPv6 agent publishes it: per VRF
// (Ip6::Status::vrfIp6IntfStatus), per interface
// (VrfIp6IntfStatus::ip6IntfStatus), the addresses with their address
// information, and the peer prefixes. An address whose information equals
// the default record is not in use. Mutators notify per key, and only on
// change.
//
// A peer prefix is the far end of a point-to-point address (`ip -6 addr add
// 2001:db8::1 peer 2001:db8::2/128`, always a /128): on the link, though no
// address of the interface is it. The local address is listed as an address
// of its own.
#pragma once

#include <cstdint>
#include <map>
#include <set>

#include "platform/l3/VrfName.h"
#include "platform/ovel/IntfId.h"
#include "platform/ovel/Ip6AddrWithMask.h"
#include "platform/vok/EntityCollection.h"
#include "platform/vok/HashMap.h"
#include "platform/vok/Notifier.h"

namespace Ip6 {

// How an address was configured and where duplicate detection stands.
struct AddressInfo {
   enum class Source : std::uint8_t { none = 0, manual = 1, autoconfig = 2, dhcp = 3 };
   enum class DadState : std::uint8_t { none = 0, tentative = 1, valid = 2, duplicate = 3 };
   Source source = Source::none;
   DadState dadState = DadState::none;
   friend bool operator==(const AddressInfo&, const AddressInfo&) = default;
};

class IntfStatusNotifiee : public Vok::ReactorBase {
 public:
   virtual void onAddr(const Ovel::Ip6AddrWithMask& /*addr*/) {}
   virtual void onPeerPrefix(const Ovel::Ip6AddrWithMask& /*prefix*/) {}
};

class IntfStatus final : public Vok::Notifier<IntfStatusNotifiee> {
 public:
   using Addresses = Vok::HashMap<Ovel::Ip6AddrWithMask, AddressInfo>;
   using PeerPrefixes = std::set<Ovel::Ip6AddrWithMask>;

   explicit IntfStatus(Ovel::IntfId intfId) : intfId_(intfId) {}

   const Ovel::IntfId& intfId() const noexcept { return intfId_; }
   const Addresses& addr() const noexcept { return addrs_; }
   // The address's information; an absent address reads as the default.
   AddressInfo addr(const Ovel::Ip6AddrWithMask& addr) const;
   void addrIs(const Ovel::Ip6AddrWithMask& addr, const AddressInfo& info);
   void addrDel(Ovel::Ip6AddrWithMask addr);

   const PeerPrefixes& peerPrefix() const noexcept { return peerPrefixes_; }
   bool peerPrefix(const Ovel::Ip6AddrWithMask& prefix) const { return peerPrefixes_.contains(prefix); }
   void peerPrefixIs(const Ovel::Ip6AddrWithMask& prefix);
   void peerPrefixDel(Ovel::Ip6AddrWithMask prefix);

 private:
   Ovel::IntfId intfId_;
   Addresses addrs_;
   PeerPrefixes peerPrefixes_;
};

class VrfIp6IntfStatusNotifiee : public Vok::ReactorBase {
 public:
   virtual void onIp6IntfStatus(const Ovel::IntfId& /*intfId*/) {}
};

class VrfIp6IntfStatus final : public Vok::Notifier<VrfIp6IntfStatusNotifiee> {
 public:
   using Collection = Vok::HashMap<Ovel::IntfId, Vok::Ptr<IntfStatus>>;

   explicit VrfIp6IntfStatus(L3::VrfName vrfName) : vrfName_(std::move(vrfName)) {}

   const L3::VrfName& vrfName() const noexcept { return vrfName_; }
   const Collection& ip6IntfStatus() const noexcept { return statuses_.map(); }
   Vok::Ptr<IntfStatus> ip6IntfStatus(const Ovel::IntfId& intfId) const;
   Vok::Ptr<IntfStatus> ip6IntfStatusIs(const Ovel::IntfId& intfId);
   void ip6IntfStatusIs(const Vok::Ptr<IntfStatus>& status);
   void ip6IntfStatusDel(Ovel::IntfId intfId);

 private:
   L3::VrfName vrfName_;
   Vok::EntityCollection<Collection> statuses_;
};

class StatusNotifiee : public Vok::ReactorBase {
 public:
   virtual void onVrfIp6IntfStatus(const L3::VrfName& /*vrfName*/) {}
};

class Status final : public Vok::Notifier<StatusNotifiee> {
 public:
   using Collection = std::map<L3::VrfName, Vok::Ptr<VrfIp6IntfStatus>>;

   const Collection& vrfIp6IntfStatus() const noexcept { return vrfs_.map(); }
   Vok::Ptr<VrfIp6IntfStatus> vrfIp6IntfStatus(const L3::VrfName& vrfName) const;
   Vok::Ptr<VrfIp6IntfStatus> vrfIp6IntfStatusIs(const L3::VrfName& vrfName);
   void vrfIp6IntfStatusIs(const Vok::Ptr<VrfIp6IntfStatus>& status);
   void vrfIp6IntfStatusDel(L3::VrfName vrfName);

 private:
   Vok::EntityCollection<Collection> vrfs_;
};

}  // namespace Ip6
