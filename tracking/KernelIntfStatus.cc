#include "tracking/KernelIntfStatus.h"

#include <cstdlib>

#include "tracking/ConnectedRouteTrace.h"

namespace Routing::ConnectedRoute {

const Vok::TraceHandle& connectedRouteTrace() {
   static const Vok::TraceHandle handle("ConnectedRoute");
   return handle;
}

KernelIntfStatus::KernelIntfStatus(
      L3::VrfName vrfName, Vok::Ptr<const Interface::DeviceIntfStatusDir> kernelIntfStatusDir)
      : vrfName_(std::move(vrfName)),
        kernelIntfStatusDir_(std::move(kernelIntfStatusDir)),
        ignoreKernelInterfaceState_(std::getenv("CONNECTEDROUTE_INTFENTRY_WITHOUT_KERNEL_INTF") !=
                                    nullptr) {}

Vok::Ptr<KernelIntfStatus> kernelIntfStatusFactory(
      L3::VrfName vrfName, Vok::Ptr<const Interface::DeviceIntfStatusDir> kernelIntfStatusDir) {
   return Vok::make<KernelIntfStatus>(std::move(vrfName), std::move(kernelIntfStatusDir));
}

bool KernelIntfStatus::kernelIntfPresent(const Ovel::IntfId& intfId) const {
   if (kernelIntfStatusDir_ &&
       kernelIntfStatusDir_->intfStatusAndDeviceName(intfId) !=
             Interface::IntfStatusAndDeviceName()) {
      return true;
   }
   if (ignoreKernelInterfaceState_) {
      return true;
   }
   VOK_TRACE(connectedRouteTrace(), 9, vrfName_.str(),
             "Kernel device not present yet: " << intfId);
   return false;
}

}  // namespace Routing::ConnectedRoute
