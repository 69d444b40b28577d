// The kernel interfaces of one network namespace, as the platform's
// per-namespace interface status manager keeps them: one record per
// interface whose kernel device exists. A default record means no device.
#pragma once

#include <cstdint>
#include <string>

#include "platform/ovel/IntfId.h"
#include "platform/vok/HashMap.h"
#include "platform/vok/Notifier.h"

namespace Interface {

enum class KernelIntfState : std::uint8_t { unknown = 0, down = 1, up = 2 };

struct IntfStatusAndDeviceName {
   KernelIntfState kernelIntfStatus = KernelIntfState::unknown;
   std::string deviceName;
   friend bool operator==(const IntfStatusAndDeviceName&, const IntfStatusAndDeviceName&) = default;
};

class DeviceIntfStatusDirNotifiee : public Vok::ReactorBase {
 public:
   virtual void onIntfStatusAndDeviceName(const Ovel::IntfId& /*intfId*/) {}
};

class DeviceIntfStatusDir final : public Vok::Notifier<DeviceIntfStatusDirNotifiee> {
 public:
   using Collection = Vok::HashMap<Ovel::IntfId, IntfStatusAndDeviceName>;

   const Collection& intfStatusAndDeviceName() const noexcept { return devices_; }
   // The interface's record; an absent interface reads as the default.
   IntfStatusAndDeviceName intfStatusAndDeviceName(const Ovel::IntfId& intfId) const {
      const IntfStatusAndDeviceName* found = devices_.lookup(intfId);
      return found ? *found : IntfStatusAndDeviceName();
   }
   void intfStatusAndDeviceNameIs(const Ovel::IntfId& intfId, const IntfStatusAndDeviceName& record) {
      auto [stored, inserted] = devices_.tryEmplace(intfId, record);
      if (!inserted) {
         if (*stored == record) {
            return;
         }
         *stored = record;
      }
      notify([&](DeviceIntfStatusDirNotifiee& n) { n.onIntfStatusAndDeviceName(intfId); });
   }
   void intfStatusAndDeviceNameDel(Ovel::IntfId intfId) {
      if (devices_.erase(intfId)) {
         notify([&](DeviceIntfStatusDirNotifiee& n) { n.onIntfStatusAndDeviceName(intfId); });
      }
   }

 private:
   Collection devices_;
};

}  // namespace Interface
