// The RIB's side of readiness: the set of VRFs whose protocols it awaits
// (AllVrfRibReady::vrfRibReady), and the per-protocol, per-VRF status entity
// (ProtoVrfStatus) in which a protocol marks a VRF ready.
#pragma once

#include <set>
#include <string>

#include "platform/l3/VrfName.h"
#include "platform/vok/Notifier.h"

namespace Routing::Rib {

class AllVrfRibReadyNotifiee : public Vok::ReactorBase {
 public:
   virtual void onVrfRibReady(const L3::VrfName& /*vrfName*/) {}
};

class AllVrfRibReady final : public Vok::Notifier<AllVrfRibReadyNotifiee> {
 public:
   const std::set<L3::VrfName>& vrfRibReady() const noexcept { return vrfs_; }
   bool vrfRibReady(const L3::VrfName& vrfName) const { return vrfs_.contains(vrfName); }
   void vrfRibReadyIs(const L3::VrfName& vrfName) {
      if (vrfs_.insert(vrfName).second) {
         notify([&](AllVrfRibReadyNotifiee& n) { n.onVrfRibReady(vrfName); });
      }
   }
   void vrfRibReadyDel(L3::VrfName vrfName) {
      if (vrfs_.erase(vrfName)) {
         notify([&](AllVrfRibReadyNotifiee& n) { n.onVrfRibReady(vrfName); });
      }
   }

 private:
   std::set<L3::VrfName> vrfs_;
};

class ProtoVrfStatusNotifiee : public Vok::ReactorBase {
 public:
   virtual void onReady() {}
   virtual void onReadyTime() {}
};

class ProtoVrfStatus final : public Vok::Notifier<ProtoVrfStatusNotifiee> {
 public:
   explicit ProtoVrfStatus(std::string name) : name_(std::move(name)) {}
   // Out of line: it anchors the type's registration, so directories can
   // create the entity by type name in any program that uses it.
   ~ProtoVrfStatus() override;

   const std::string& name() const noexcept { return name_; }
   bool ready() const noexcept { return ready_; }
   void readyIs(bool ready) {
      if (ready != ready_) {
         ready_ = ready;
         notify([](ProtoVrfStatusNotifiee& n) { n.onReady(); });
      }
   }
   // Seconds of the runtime's clock; 0.0 while not yet ready.
   double readyTime() const noexcept { return readyTime_; }
   void readyTimeIs(double time) {
      if (time != readyTime_) {
         readyTime_ = time;
         notify([](ProtoVrfStatusNotifiee& n) { n.onReadyTime(); });
      }
   }

 private:
   std::string name_;
   bool ready_ = false;
   double readyTime_ = 0.0;
};

}  // namespace Routing::Rib
