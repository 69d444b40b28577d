// The IP agent's local view of each VRF: whether it is active, and the
// network namespace its interfaces live in. Collection `vrf` of
// Ip::AllVrfStatusLocal, keyed by VRF name.
#pragma once

#include <map>

#include "platform/l3/VrfName.h"
#include "platform/ovel/NamespaceName.h"
#include "platform/vok/Notifier.h"

namespace Ip {

enum class VrfState : std::uint8_t { inactive = 0, active = 1, deleting = 2 };

class VrfStatusLocalNotifiee : public Vok::ReactorBase {
 public:
   virtual void onState() {}
   virtual void onNetNsName() {}
};

class VrfStatusLocal final : public Vok::Notifier<VrfStatusLocalNotifiee> {
 public:
   explicit VrfStatusLocal(L3::VrfName vrfName) : vrfName_(std::move(vrfName)) {}

   const L3::VrfName& vrfName() const noexcept { return vrfName_; }
   VrfState state() const noexcept { return state_; }
   void stateIs(VrfState state) {
      if (state != state_) {
         state_ = state;
         notify([](VrfStatusLocalNotifiee& n) { n.onState(); });
      }
   }
   const Ovel::NamespaceName& netNsName() const noexcept { return netNsName_; }
   void netNsNameIs(const Ovel::NamespaceName& name) {
      if (name != netNsName_) {
         netNsName_ = name;
         notify([](VrfStatusLocalNotifiee& n) { n.onNetNsName(); });
      }
   }

 private:
   L3::VrfName vrfName_;
   VrfState state_ = VrfState::inactive;
   Ovel::NamespaceName netNsName_;
};

class AllVrfStatusLocalNotifiee : public Vok::ReactorBase {
 public:
   virtual void onVrf(const L3::VrfName& /*vrfName*/) {}
};

class AllVrfStatusLocal final : public Vok::Notifier<AllVrfStatusLocalNotifiee> {
 public:
   using Collection = std::map<L3::VrfName, Vok::Ptr<VrfStatusLocal>>;

   const Collection& vrf() const noexcept { return vrfs_; }
   Vok::Ptr<VrfStatusLocal> vrf(const L3::VrfName& vrfName) const {
      auto it = vrfs_.find(vrfName);
      return it == vrfs_.end() ? nullptr : it->second;
   }
   Vok::Ptr<VrfStatusLocal> vrfIs(const L3::VrfName& vrfName) {
      if (auto existing = vrf(vrfName)) {
         return existing;
      }
      auto status = Vok::make<VrfStatusLocal>(vrfName);
      vrfs_.emplace(vrfName, status);
      notify([&](AllVrfStatusLocalNotifiee& n) { n.onVrf(vrfName); });
      return status;
   }
   void vrfDel(L3::VrfName vrfName) {
      if (vrfs_.erase(vrfName)) {
         notify([&](AllVrfStatusLocalNotifiee& n) { n.onVrf(vrfName); });
      }
   }

 private:
   Collection vrfs_;
};

}  // namespace Ip
