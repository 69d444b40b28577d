#include "platform/kni/KernelNetInfoStatus.h"

#include "platform/kordb/EntityManager.h"

namespace KernelNetInfo {

namespace {

struct SharedStatus : Plim::Backing {
   Vok::Ptr<Status> status = Vok::make<Status>();
};

const bool registered = Kordb::registerMountableType("KernelNetInfo::Status", {}, &Status::mount);

}  // namespace

Vok::Ptr<Vok::Entity> Status::mount(std::shared_ptr<Plim::Backing>& backing, bool) {
   if (!backing) {
      backing = std::make_shared<SharedStatus>();
   }
   return static_cast<SharedStatus&>(*backing).status;
}

Status::~Status() { (void)registered; }

}  // namespace KernelNetInfo
