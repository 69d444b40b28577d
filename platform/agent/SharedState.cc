#include "platform/agent/SharedState.h"
#include "platform/rib/TablePaths.h"

namespace Agent {

SharedState::SharedState(std::shared_ptr<Plim::RowDatabase> rowDatabase) {
   if (rowDatabase) {
      entityManager->rowDatabaseIs(std::move(rowDatabase));
      // Without a database the query tables are the process's own; with one
      // they are found by path like every other table.
      auto mountQuery = [&](const std::string& path) {
         auto mount = entityManager->mount(path, Routing::Rib::kRouteQueryType, {},
                                           Kordb::MountMode::write);
         return std::pair{mount, mount->entityAs<Routing::Rib::IpRibRouteOrqTable>()};
      };
      std::tie(route4OrmoMount, route4OrmoConfig) = mountQuery(kRouteQuery4Path);
      std::tie(route6OrmoMount, route6OrmoConfig) = mountQuery(kRouteQuery6Path);
   }
   viaSetMount = entityManager->mount(Routing::Rib::kViaSetPath, Routing::Rib::kViaSetConfigType,
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
