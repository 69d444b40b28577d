#include "platform/ip/IpIntfStatus.h"


namespace Ip {

void IpIntfStatus::activeAddrWithMaskIs(const Ovel::IpAddrWithMask& addr) {
   if (addr == activeAddr_) {
      return;
   }
   activeAddr_ = addr;
   notify([](IpIntfStatusNotifiee& n) { n.onActiveAddrWithMask(); });
}

std::optional<bool> IpIntfStatus::activeSecondaryWithMask(const Ovel::IpAddrWithMask& addr) const {
   auto it = secondaries_.find(addr);
   return it == secondaries_.end() ? std::nullopt : std::optional<bool>(it->second);
}

void IpIntfStatus::activeSecondaryWithMaskIs(const Ovel::IpAddrWithMask& addr, bool active) {
   auto [it, inserted] = secondaries_.try_emplace(addr, active);
   if (!inserted) {
      if (it->second == active) {
         return;
      }
      it->second = active;
   }
   notify([&](IpIntfStatusNotifiee& n) { n.onActiveSecondaryWithMask(addr); });
}

void IpIntfStatus::activeSecondaryWithMaskDel(Ovel::IpAddrWithMask addr) {
   if (secondaries_.erase(addr)) {
      notify([&](IpIntfStatusNotifiee& n) { n.onActiveSecondaryWithMask(addr); });
   }
}

void IpIntfStatus::directedBroadcastEnabledIs(bool enabled) {
   if (enabled == directedBroadcast_) {
      return;
   }
   directedBroadcast_ = enabled;
   notify([](IpIntfStatusNotifiee& n) { n.onDirectedBroadcastEnabled(); });
}

void IpIntfStatus::peerPrefixIs(const Ovel::IpAddrWithMask& prefix) {
   if (peerPrefixes_.insert(prefix).second) {
      notify([&](IpIntfStatusNotifiee& n) { n.onPeerPrefix(prefix); });
   }
}

void IpIntfStatus::peerPrefixDel(Ovel::IpAddrWithMask prefix) {
   if (peerPrefixes_.erase(prefix)) {
      notify([&](IpIntfStatusNotifiee& n) { n.onPeerPrefix(prefix); });
   }
}

Vok::Ptr<IpIntfStatus> VrfIpIntfStatus::ipIntfStatus(const Ovel::IntfId& intfId) const {
   return statuses_.get(intfId);
}

Vok::Ptr<IpIntfStatus> VrfIpIntfStatus::ipIntfStatusIs(const Ovel::IntfId& intfId) {
   if (auto existing = ipIntfStatus(intfId)) {
      return existing;
   }
   auto status = Vok::make<IpIntfStatus>(intfId);
   ipIntfStatusIs(status);
   return status;
}

void VrfIpIntfStatus::ipIntfStatusIs(const Vok::Ptr<IpIntfStatus>& status) {
   const Ovel::IntfId intfId = status ? status->intfId() : Ovel::IntfId();
   if (statuses_.put(intfId, status, "ipIntfStatus", "Ip::VrfIpIntfStatus::ipIntfStatus")) {
      notify([&](VrfIpIntfStatusNotifiee& n) { n.onIpIntfStatus(intfId); });
   }
}

void VrfIpIntfStatus::ipIntfStatusDel(Ovel::IntfId intfId) {
   if (statuses_.del(intfId)) {
      notify([&](VrfIpIntfStatusNotifiee& n) { n.onIpIntfStatus(intfId); });
   }
}

Vok::Ptr<VrfIpIntfStatus> Status::vrfIpIntfStatus(const L3::VrfName& vrfName) const {
   return vrfs_.get(vrfName);
}

Vok::Ptr<VrfIpIntfStatus> Status::vrfIpIntfStatusIs(const L3::VrfName& vrfName) {
   if (auto existing = vrfIpIntfStatus(vrfName)) {
      return existing;
   }
   auto status = Vok::make<VrfIpIntfStatus>(vrfName);
   vrfIpIntfStatusIs(status);
   return status;
}

void Status::vrfIpIntfStatusIs(const Vok::Ptr<VrfIpIntfStatus>& status) {
   const L3::VrfName vrfName = status ? status->vrfName() : L3::VrfName();
   if (vrfs_.put(vrfName, status, "vrfIpIntfStatus", "Ip::Status::vrfIpIntfStatus")) {
      notify([&](StatusNotifiee& n) { n.onVrfIpIntfStatus(vrfName); });
   }
}

void Status::vrfIpIntfStatusDel(L3::VrfName vrfName) {
   if (vrfs_.del(vrfName)) {
      notify([&](StatusNotifiee& n) { n.onVrfIpIntfStatus(vrfName); });
   }
}

}  // namespace Ip
