// Per-namespace interface status managers. Once intfStatusManagerIs() is
// called for a namespace, its manager keeps a DeviceIntfStatusDir filled
// with the interfaces whose kernel device is present in that namespace (from
// the namespace's KernelNetInfo::Status, translated through AllIntfStatusDir
// and, with namespace filtering, AllIntfStatusLocalDir), until the last
// intfStatusManagerDel() of that namespace. Updates are applied
// synchronously.
//
// Several VRFs may live in one namespace: they share its manager and its
// directory, which the first of them supplies. Each intfStatusManagerIs()
// counts one user and each intfStatusManagerDel() releases one.
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

   // Starts the namespace's manager on `kernelIntfStatusDir`, or joins the
   // one that runs; returns the directory the namespace's manager fills.
   Vok::Ptr<DeviceIntfStatusDir> intfStatusManagerIs(
         Vok::Ptr<DeviceIntfStatusDir> kernelIntfStatusDir,
         Vok::Ptr<const KernelNetInfo::Status> kniStatus, const Ovel::NamespaceName& netNs);
   // Releases one user; the last stops the manager. An unmanaged namespace
   // is no error.
   void intfStatusManagerDel(Ovel::NamespaceName netNs);
   std::size_t intfStatusManagerCount() const noexcept { return managers_.size(); }
   std::size_t intfStatusManagerUsers(const Ovel::NamespaceName& netNs) const;
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
