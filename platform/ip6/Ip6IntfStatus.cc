#include "platform/ip6/Ip6IntfStatus.h"


namespace Ip6 {

AddressInfo IntfStatus::addr(const Ovel::Ip6AddrWithMask& addr) const {
   const AddressInfo* info = addrs_.lookup(addr);
   return info ? *info : AddressInfo();
}

void IntfStatus::addrIs(const Ovel::Ip6AddrWithMask& addr, const AddressInfo& info) {
   auto [stored, inserted] = addrs_.tryEmplace(addr, info);
   if (!inserted) {
      if (*stored == info) {
         return;
      }
      *stored = info;
   }
   notify([&](IntfStatusNotifiee& n) { n.onAddr(addr); });
}

void IntfStatus::addrDel(Ovel::Ip6AddrWithMask addr) {
   if (addrs_.erase(addr)) {
      notify([&](IntfStatusNotifiee& n) { n.onAddr(addr); });
   }
}

void IntfStatus::peerPrefixIs(const Ovel::Ip6AddrWithMask& prefix) {
   if (peerPrefixes_.insert(prefix).second) {
      notify([&](IntfStatusNotifiee& n) { n.onPeerPrefix(prefix); });
   }
}

void IntfStatus::peerPrefixDel(Ovel::Ip6AddrWithMask prefix) {
   if (peerPrefixes_.erase(prefix)) {
      notify([&](IntfStatusNotifiee& n) { n.onPeerPrefix(prefix); });
   }
}

Vok::Ptr<IntfStatus> VrfIp6IntfStatus::ip6IntfStatus(const Ovel::IntfId& intfId) const {
   return statuses_.get(intfId);
}

Vok::Ptr<IntfStatus> VrfIp6IntfStatus::ip6IntfStatusIs(const Ovel::IntfId& intfId) {
   if (auto existing = ip6IntfStatus(intfId)) {
      return existing;
   }
   auto status = Vok::make<IntfStatus>(intfId);
   ip6IntfStatusIs(status);
   return status;
}

void VrfIp6IntfStatus::ip6IntfStatusIs(const Vok::Ptr<IntfStatus>& status) {
   const Ovel::IntfId intfId = status ? status->intfId() : Ovel::IntfId();
   if (statuses_.put(intfId, status, "ip6IntfStatus", "Ip6::VrfIp6IntfStatus::ip6IntfStatus")) {
      notify([&](VrfIp6IntfStatusNotifiee& n) { n.onIp6IntfStatus(intfId); });
   }
}

void VrfIp6IntfStatus::ip6IntfStatusDel(Ovel::IntfId intfId) {
   if (statuses_.del(intfId)) {
      notify([&](VrfIp6IntfStatusNotifiee& n) { n.onIp6IntfStatus(intfId); });
   }
}

Vok::Ptr<VrfIp6IntfStatus> Status::vrfIp6IntfStatus(const L3::VrfName& vrfName) const {
   return vrfs_.get(vrfName);
}

Vok::Ptr<VrfIp6IntfStatus> Status::vrfIp6IntfStatusIs(const L3::VrfName& vrfName) {
   if (auto existing = vrfIp6IntfStatus(vrfName)) {
      return existing;
   }
   auto status = Vok::make<VrfIp6IntfStatus>(vrfName);
   vrfIp6IntfStatusIs(status);
   return status;
}

void Status::vrfIp6IntfStatusIs(const Vok::Ptr<VrfIp6IntfStatus>& status) {
   const L3::VrfName vrfName = status ? status->vrfName() : L3::VrfName();
   if (vrfs_.put(vrfName, status, "vrfIp6IntfStatus", "Ip6::Status::vrfIp6IntfStatus")) {
      notify([&](StatusNotifiee& n) { n.onVrfIp6IntfStatus(vrfName); });
   }
}

void Status::vrfIp6IntfStatusDel(L3::VrfName vrfName) {
   if (vrfs_.del(vrfName)) {
      notify([&](StatusNotifiee& n) { n.onVrfIp6IntfStatus(vrfName); });
   }
}

}  // namespace Ip6
