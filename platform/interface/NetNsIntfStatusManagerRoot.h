// Per-namespace interface status managers. Once intfStatusManagerIs() is
// called for a namespace, its manager keeps the given DeviceIntfStatusDir
// filled with the interfaces whose kernel device is present in that
// namespace (from the namespace's KernelNetInfo::Status, translated through
// AllIntfStatusDir and, with namespace filtering, AllIntfStatusLocalDir),
// until intfStatusManagerDel(). Updates are applied synchronously.
#pragma once

#include <map>
#include <memory>

#include "platform/interface/DeviceIntfStatusDir.h"
#include "platform/interface/IntfDirectories.h"
#include "platform/kni/KernelNetInfoStatus.h"

namespace Interface {

class NetNsIntfStatusManagerRoot final : public Vok::Entity {
 public:
   NetNsIntfStatusManagerRoot(Vok::Ptr<const AllIntfStatusDir> allIntfStatusDir,
                              Vok::Ptr<const AllIntfStatusLocalDir> allIntfStatusLocalDir,
                              bool filterByNetNs);
   ~NetNsIntfStatusManagerRoot() override;

   // Starts the namespace's manager. A namespace already managed for
   // another directory is a wiring fault (Vok::ReinstantiationError).
   void intfStatusManagerIs(Vok::Ptr<DeviceIntfStatusDir> kernelIntfStatusDir,
                            Vok::Ptr<const KernelNetInfo::Status> kniStatus,
                            const Ovel::NamespaceName& netNs);
   void intfStatusManagerDel(Ovel::NamespaceName netNs);
   std::size_t intfStatusManagerCount() const noexcept { return managers_.size(); }
   bool filterByNetNs() const noexcept { return filterByNetNs_; }
   void hasNotificationActiveIs(bool active);

 private:
   class Manager;

   Vok::Ptr<const AllIntfStatusDir> allIntfStatusDir_;
   Vok::Ptr<const AllIntfStatusLocalDir> allIntfStatusLocalDir_;
   bool filterByNetNs_;
   std::map<Ovel::NamespaceName, std::unique_ptr<Manager>> managers_;
};

}  // namespace Interface
