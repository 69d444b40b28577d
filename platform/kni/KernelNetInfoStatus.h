// The kernel's network devices of one namespace, as kernel-info publishes
// them at "kni/ns/<namespace>/status": device name to state. Every mount of
// one path is the same entity, so readers hear each change.
//
// In this program the in-process kernel model writes it; a feeder reading
// the real kernel (netlink) only has to write the same entity.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "platform/interface/DeviceIntfStatusDir.h"
#include "platform/plim/Table.h"
#include "platform/vok/Notifier.h"

namespace KernelNetInfo {

class StatusNotifiee : public Vok::ReactorBase {
 public:
   virtual void onDevice(const std::string& /*deviceName*/) {}
};

class Status final : public Vok::Notifier<StatusNotifiee> {
 public:
   using Devices = std::map<std::string, Interface::KernelIntfState>;

   const Devices& devices() const noexcept { return devices_; }
   const Interface::KernelIntfState* device(const std::string& name) const {
      auto it = devices_.find(name);
      return it == devices_.end() ? nullptr : &it->second;
   }
   void deviceIs(const std::string& name, Interface::KernelIntfState state) {
      auto [it, inserted] = devices_.try_emplace(name, state);
      if (!inserted) {
         if (it->second == state) {
            return;
         }
         it->second = state;
      }
      notify([&](StatusNotifiee& n) { n.onDevice(name); });
   }
   void deviceDel(std::string name) {
      if (devices_.erase(name)) {
         notify([&](StatusNotifiee& n) { n.onDevice(name); });
      }
   }

   // How the state database mounts it: one entity per path.
   static Vok::Ptr<Vok::Entity> mount(std::shared_ptr<Plim::Backing>& backing, bool writable);
   ~Status() override;

 private:
   Devices devices_;
};

}  // namespace KernelNetInfo
