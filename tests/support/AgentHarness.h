// The whole engine from its root on the platform's shared state, on virtual
// time, with helpers that play the other agents and the kernel.
#pragma once

#include <memory>

#include "lifecycle/RootSm.h"
#include "platform/agent/SharedState.h"

namespace Testing {

class AgentHarness {
 public:
   // With `tables`, the RIB's tables keep their rows in that table
   // directory, and every clock firing commits them.
   explicit AgentHarness(Agent::StartupMode mode = Agent::StartupMode::coldStart,
                         std::shared_ptr<Plim::RowDatabase> tables = nullptr);
   ~AgentHarness();

   void start();
   void stop() { root = nullptr; }
   void drain() { am.runUntilIdle(time, time.peek() + 3600.0); }

   Vok::Ptr<Vrf::VrfIdMap::NameToIdMap> map();  // the current map, created if none
   void vrfId(const std::string& vrf, std::uint32_t id);
   void vrfLocal(const std::string& vrf, Ip::VrfState state, const std::string& netNs);
   void device(const std::string& netNs, const std::string& intfName, bool present = true);
   Vok::Ptr<Ip::IpIntfStatus> ip4(const std::string& vrf, const std::string& intfName);
   // A read-only view of a table the engine wrote.
   Vok::Ptr<Routing::Rib::RouteConfig> routes4(std::uint32_t vrfId);

   Vok::ManualTimeSource time{0.0, 1e-6};
   Vok::ActivityManager am{time};
   Agent::SharedState shared;
   Vok::Ptr<Routing::ConnectedRoute::IvoState> ivo;
   Vok::Ptr<Routing::ConnectedRoute::RootSm> root;
};

}  // namespace Testing
