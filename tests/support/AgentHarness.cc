#include "tests/support/AgentHarness.h"

namespace Testing {

using namespace Routing::ConnectedRoute;

AgentHarness::AgentHarness(Agent::StartupMode mode, std::shared_ptr<Plim::RowDatabase> tables)
      : shared(tables), ivo(Vok::make<IvoState>(mode)) {
   if (tables) {
      am.turnEndHandlerIs([tables] { tables->commit(); });
   }
   Vok::activityManagerIs(&am);
}

AgentHarness::~AgentHarness() {
   root = nullptr;
   Vok::activityManagerIs(nullptr);
}

void AgentHarness::start() {
   root = Vok::make<RootSm>(shared.entityManager, shared.viaSetConfig, shared.ipStatus,
                            shared.ip6Status, shared.nameToIdMapWrapper, shared.allVrfStatusLocal,
                            shared.allIntfStatusDir, shared.allIntfStatusLocalDir,
                            shared.route4OrmoConfig, shared.route6OrmoConfig, shared.allVrfRibReady,
                            shared.protoVrfStatusDir, ivo);
}

Vok::Ptr<Vrf::VrfIdMap::NameToIdMap> AgentHarness::map() {
   if (!shared.nameToIdMapWrapper->nameToIdMap()) {
      shared.nameToIdMapWrapper->nameToIdMapIs(Vok::make<Vrf::VrfIdMap::NameToIdMap>());
   }
   return shared.nameToIdMapWrapper->nameToIdMap();
}

void AgentHarness::vrfId(const std::string& vrf, std::uint32_t id) {
   map()->vrfNameToIdIs(L3::VrfName(vrf), Vrf::VrfIdMap::VrfId(id));
}

void AgentHarness::vrfLocal(const std::string& vrf, Ip::VrfState state, const std::string& netNs) {
   auto local = shared.allVrfStatusLocal->vrfIs(L3::VrfName(vrf));
   local->netNsNameIs(Ovel::NamespaceName(netNs));
   local->stateIs(state);
}

void AgentHarness::device(const std::string& netNs, const std::string& intfName, bool present) {
   auto kni = shared.kernelNamespace(Ovel::NamespaceName(netNs));
   if (present) {
      kni->deviceIs(intfName, Interface::KernelIntfState::up);
   } else {
      kni->deviceDel(intfName);
   }
}

Vok::Ptr<Ip::IpIntfStatus> AgentHarness::ip4(const std::string& vrf, const std::string& intfName) {
   return shared.ipStatus->vrfIpIntfStatusIs(L3::VrfName(vrf))->ipIntfStatusIs(Ovel::IntfId(intfName));
}

Vok::Ptr<Routing::Rib::RouteConfig> AgentHarness::routes4(std::uint32_t vrfId) {
   auto mount = shared.entityManager->mount(
         ContainerSm::rib4Path(Vrf::VrfIdMap::VrfId(vrfId)), "Routing::Rib::RouteConfig", {},
         Kordb::MountMode::readOnly);
   auto table = mount->entityAs<Routing::Rib::RouteConfig>();
   mount->unmount();
   return table;
}

}  // namespace Testing
