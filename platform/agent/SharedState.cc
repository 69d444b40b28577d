#include "platform/agent/SharedState.h"

namespace Agent {

SharedState::SharedState() {
   viaSetMount = entityManager->mount("routing/rib/viaSetConfig", "Routing::Rib::ViaSetConfig",
                                      {{{"viaSet", 4096}}}, Kordb::MountMode::write);
   viaSetConfig = viaSetMount->entityAs<Routing::Rib::ViaSetConfig>();
}

Vok::Ptr<KernelNetInfo::Status> SharedState::kernelNamespace(const Ovel::NamespaceName& netNs) {
   auto mount = entityManager->mount("kni/ns/" + netNs.str() + "/status", "KernelNetInfo::Status",
                                     {}, Kordb::MountMode::write);
   auto status = mount->entityAs<KernelNetInfo::Status>();
   mount->unmount();  // the contents stay; the kernel model writes when it likes
   return status;
}

}  // namespace Agent
