#include "platform/interface/NetNsIntfStatusManagerRoot.h"

#include "platform/trace/Trace.h"

namespace Interface {

class NetNsIntfStatusManagerRoot::Manager {
 public:
   Manager(NetNsIntfStatusManagerRoot& root, Vok::Ptr<DeviceIntfStatusDir> dir,
           Vok::Ptr<const KernelNetInfo::Status> kni, Ovel::NamespaceName netNs)
         : root_(root),
           dir_(std::move(dir)),
           netNs_(std::move(netNs)),
           kniReactor_(std::move(kni), *this),
           namesReactor_(root.allIntfStatusDir_, *this),
           localReactor_(root.allIntfStatusLocalDir_, *this) {
      for (const auto& [device, state] : kniReactor_.notifier()->devices()) {
         handleDevice(device);
      }
   }

   const Vok::Ptr<DeviceIntfStatusDir>& dir() const noexcept { return dir_; }
   std::size_t users() const noexcept { return users_; }
   void usersInc() noexcept { ++users_; }
   void usersDec() noexcept { --users_; }

   void hasNotificationActiveIs(bool active) {
      kniReactor_.hasNotificationActiveIs(active);
      namesReactor_.hasNotificationActiveIs(active);
      localReactor_.hasNotificationActiveIs(active);
   }

 private:
   // Interfaces whose device is `device`: those named to it, and the
   // interface of that very name unless it is named to another device.
   void handleDevice(const std::string& device) {
      for (const auto& [intfId, name] : root_.allIntfStatusDir_->entries()) {
         if (name == device) {
            handleIntf(intfId);
         }
      }
      Ovel::IntfId sameName;
      try {
         sameName = Ovel::IntfId(device);
      } catch (const std::exception&) {
         return;  // not a name an interface can have
      }
      if (!root_.allIntfStatusDir_->entry(sameName)) {
         handleIntf(sameName);
      }
   }

   void handleIntf(const Ovel::IntfId& intfId) {
      const std::string device = root_.allIntfStatusDir_->deviceName(intfId);
      const KernelIntfState* state = kniReactor_.notifier()->device(device);
      const bool admitted =
            !root_.filterByNetNs_ || root_.allIntfStatusLocalDir_->admits(intfId, netNs_);
      if (state && admitted) {
         dir_->intfStatusAndDeviceNameIs(intfId, IntfStatusAndDeviceName{*state, device});
      } else {
         dir_->intfStatusAndDeviceNameDel(intfId);
      }
   }

   class KniReactor final : public Vok::Reactor<KernelNetInfo::Status> {
    public:
      KniReactor(Vok::Ptr<const KernelNetInfo::Status> kni, Manager& m)
            : Vok::Reactor<KernelNetInfo::Status>(std::move(kni)), m_(m) {}
      void onDevice(const std::string& device) override { m_.handleDevice(device); }

    private:
      Manager& m_;
   };

   template <class Dir>
   class DirReactor final : public Vok::Reactor<Dir> {
    public:
      DirReactor(Vok::Ptr<const Dir> dir, Manager& m) : Vok::Reactor<Dir>(std::move(dir)), m_(m) {}
      void onIntf(const Ovel::IntfId& intfId) override { m_.handleIntf(intfId); }

    private:
      Manager& m_;
   };

   NetNsIntfStatusManagerRoot& root_;
   Vok::Ptr<DeviceIntfStatusDir> dir_;
   std::size_t users_ = 1;
   Ovel::NamespaceName netNs_;
   KniReactor kniReactor_;
   DirReactor<AllIntfStatusDir> namesReactor_;
   DirReactor<AllIntfStatusLocalDir> localReactor_;
};

NetNsIntfStatusManagerRoot::NetNsIntfStatusManagerRoot(
      Vok::Ptr<const AllIntfStatusDir> allIntfStatusDir,
      Vok::Ptr<const AllIntfStatusLocalDir> allIntfStatusLocalDir, bool filterByNetNs)
      : allIntfStatusDir_(Vok::ValidPtr<const AllIntfStatusDir>(allIntfStatusDir.get())),
        allIntfStatusLocalDir_(
              Vok::ValidPtr<const AllIntfStatusLocalDir>(allIntfStatusLocalDir.get())),
        filterByNetNs_(filterByNetNs) {}

NetNsIntfStatusManagerRoot::~NetNsIntfStatusManagerRoot() = default;

Vok::Ptr<DeviceIntfStatusDir> NetNsIntfStatusManagerRoot::intfStatusManagerIs(
      Vok::Ptr<DeviceIntfStatusDir> kernelIntfStatusDir,
      Vok::Ptr<const KernelNetInfo::Status> kniStatus, const Ovel::NamespaceName& netNs) {
   Vok::ValidPtr<DeviceIntfStatusDir> dir(kernelIntfStatusDir);
   Vok::ValidPtr<const KernelNetInfo::Status> kni(kniStatus.get());
   if (auto it = managers_.find(netNs); it != managers_.end()) {
      it->second->usersInc();
      return it->second->dir();
   }
   managers_.emplace(netNs, std::make_unique<Manager>(*this, dir, kni, netNs));
   return kernelIntfStatusDir;
}

void NetNsIntfStatusManagerRoot::intfStatusManagerDel(Ovel::NamespaceName netNs) {
   auto it = managers_.find(netNs);
   if (it == managers_.end()) {
      return;
   }
   it->second->usersDec();
   if (it->second->users() == 0) {
      managers_.erase(it);
   }
}

std::size_t NetNsIntfStatusManagerRoot::intfStatusManagerUsers(
      const Ovel::NamespaceName& netNs) const {
   auto it = managers_.find(netNs);
   return it == managers_.end() ? 0 : it->second->users();
}

void NetNsIntfStatusManagerRoot::hasNotificationActiveIs(bool active) {
   for (auto& [netNs, manager] : managers_) {
      manager->hasNotificationActiveIs(active);
   }
}

}  // namespace Interface
