// Whether an interface's kernel device exists in its VRF's network
// namespace. With CONNECTEDROUTE_INTFENTRY_WITHOUT_KERNEL_INTF in the
// environment (any value) when the oracle is built, every interface counts
// as present.
#pragma once

#include "platform/interface/DeviceIntfStatusDir.h"
#include "platform/l3/VrfName.h"
#include "platform/vok/Entity.h"

namespace Routing::ConnectedRoute {

class KernelIntfStatus final : public Vok::Entity {
 public:
   KernelIntfStatus(L3::VrfName vrfName,
                    Vok::Ptr<const Interface::DeviceIntfStatusDir> kernelIntfStatusDir);

   const L3::VrfName& vrfName() const noexcept { return vrfName_; }
   const Vok::Ptr<const Interface::DeviceIntfStatusDir>& kernelIntfStatusDir() const noexcept {
      return kernelIntfStatusDir_;
   }
   bool ignoreKernelInterfaceState() const noexcept { return ignoreKernelInterfaceState_; }
   bool kernelIntfPresent(const Ovel::IntfId& intfId) const;

 private:
   L3::VrfName vrfName_;
   Vok::Ptr<const Interface::DeviceIntfStatusDir> kernelIntfStatusDir_;
   bool ignoreKernelInterfaceState_ = false;
};

Vok::Ptr<KernelIntfStatus> kernelIntfStatusFactory(
      L3::VrfName vrfName, Vok::Ptr<const Interface::DeviceIntfStatusDir> kernelIntfStatusDir);

}  // namespace Routing::ConnectedRoute
