// One VRF wired as its container wires it (kernel directory and oracle,
// store, installer, both watchers, readiness record) over in-memory tables
// on virtual time, with helpers that publish interface state the way other
// agents do.
#pragma once

#include "readiness/ReadinessRecords.h"
#include "tests/support/InstallerHarness.h"
#include "tracking/VrfIp6IntfStatusSm.h"
#include "tracking/VrfIpIntfStatusSm.h"

namespace Testing {

class VrfHarness : public InstallerHarness {
 public:
   explicit VrfHarness(Agent::StartupMode mode = Agent::StartupMode::coldStart,
                       Vok::Seconds step = 1e-6);
   ~VrfHarness();

   // Publishing, as the IP agents and the kernel do.
   Vok::Ptr<Ip::IpIntfStatus> ip4(std::string_view intfName);
   Vok::Ptr<Ip6::IntfStatus> ip6(std::string_view intfName);
   void kernelUp(std::string_view intfName);
   void kernelDown(std::string_view intfName);

   const L3::VrfName vrfName{"red"};
   Vok::Ptr<Interface::DeviceIntfStatusDir> kernelDir =
         Vok::make<Interface::DeviceIntfStatusDir>();
   Vok::Ptr<Routing::ConnectedRoute::KernelIntfStatus> kernel;
   Vok::Ptr<Routing::ConnectedRoute::IvoState> ivo;
   Vok::Ptr<Routing::ConnectedRoute::VrfReadyStatus> ready;
   Vok::Ptr<Routing::ConnectedRoute::VrfIpIntfStatusSm> v4;
   Vok::Ptr<Routing::ConnectedRoute::VrfIp6IntfStatusSm> v6;
};

// Every candidate in the store as "prefix type kind" lines, sorted, where
// kind names the interface's key field the candidate uses (vsk, rx, rxBcast,
// directed) or "other".
std::vector<std::string> candidates(InstallerHarness& h, const Ovel::IntfId& intfId);

}  // namespace Testing
