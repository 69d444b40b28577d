#include "tests/support/VrfHarness.h"

#include <algorithm>

namespace Testing {

using namespace Routing::ConnectedRoute;

VrfHarness::VrfHarness(Agent::StartupMode mode, Vok::Seconds step)
      : InstallerHarness(step, "red") {
   kernel = kernelIntfStatusFactory(vrfName, kernelDir);
   ivo = Vok::make<IvoState>(mode);
   ready = Vok::make<VrfReadyStatus>(vrfName);
   v4 = Vok::make<VrfIpIntfStatusSm>(vrfName, ipStatus, store, sm, kernel, ivo, ready);
   v6 = Vok::make<VrfIp6IntfStatusSm>(vrfName, ip6Status, store, sm, kernel, ivo, ready);
}

VrfHarness::~VrfHarness() {
   v4 = nullptr;
   v6 = nullptr;
}

Vok::Ptr<Ip::IpIntfStatus> VrfHarness::ip4(std::string_view intfName) {
   return ipStatus->vrfIpIntfStatusIs(vrfName)->ipIntfStatusIs(intf(intfName));
}

Vok::Ptr<Ip6::IntfStatus> VrfHarness::ip6(std::string_view intfName) {
   return ip6Status->vrfIp6IntfStatusIs(vrfName)->ip6IntfStatusIs(intf(intfName));
}

void VrfHarness::kernelUp(std::string_view intfName) {
   kernelDir->intfStatusAndDeviceNameIs(
         intf(intfName), {Interface::KernelIntfState::up, std::string(intfName)});
}

void VrfHarness::kernelDown(std::string_view intfName) {
   kernelDir->intfStatusAndDeviceNameDel(intf(intfName));
}

std::vector<std::string> candidates(InstallerHarness& h, const Ovel::IntfId& intfId) {
   std::vector<std::string> lines;
   for (const auto& [prefix, set] : h.store->intfIdsByPrefixes()) {
      set.forEach([&](const IntfIdSet::Entry& entry) {
         if (entry.key.intfId() != intfId) {
            return;
         }
         const ConnectedRouteProperty& property = entry.property;
         const IntfViaSetKey* keys = h.keyStatus(prefix.af()).intfViaSetKey(intfId);
         const Routing::Rib::ViaSetKey vsk = property.viaSetKey();
         std::string kind = "other";
         if (keys && vsk == keys->viaSetKey()) {
            kind = "vsk";
         } else if (keys && vsk == keys->rxViaSetKey()) {
            kind = "rx";
         } else if (keys && vsk == keys->rxBcastViaSetKey()) {
            kind = "rxBcast";
         } else if (keys && vsk == keys->directedBcastViaSetKey()) {
            kind = "directed";
         }
         lines.push_back(prefix.toString() + " " + Routing::Fib::toString(property.routeType()) +
                         " " + kind);
      });
   }
   std::sort(lines.begin(), lines.end());
   return lines;
}

}  // namespace Testing
