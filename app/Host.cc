#include "app/Host.h"

#include <algorithm>
#include <cstdlib>

#include "platform/agent/FeatureToggle.h"
#include "platform/rib/TablePaths.h"

namespace App {

using namespace Routing::ConnectedRoute;
namespace Rib = Routing::Rib;
namespace Fib = Routing::Fib;

// Virtual time starts at 1 s: a readiness mark at time 0.0 would read as
// "not ready yet".
Host::Host(Vok::Seconds stepPerReading, std::shared_ptr<Plim::RowDatabase> tables)
      : time_(std::make_unique<Vok::ManualTimeSource>(1.0, stepPerReading)),
        virtualTime_(static_cast<Vok::ManualTimeSource*>(time_.get())),
        shared_(tables) {
   tablesIs(std::move(tables));
}

Host::Host(RealTime, std::shared_ptr<Plim::RowDatabase> tables)
      : time_(std::make_unique<Vok::MonotonicTimeSource>()), shared_(tables) {
   tablesIs(std::move(tables));
}

void Host::tablesIs(std::shared_ptr<Plim::RowDatabase> tables) {
   tables_ = tables;
   if (tables) {
      publisher_ = std::make_unique<TablePublisher>(tables, shared_);
      am_.turnEndHandlerIs([this, tables] {
         publisher_->publish(root_.get(), clockTime());
         tables->commit();
         turnEnded();
      });
      am_.turnEnded();
   } else {
      am_.turnEndHandlerIs([this] { turnEnded(); });
   }
   Vok::activityManagerIs(&am_);
}

void Host::turnEnded() {
   ++turns_;
   lastTurnAt_ = std::chrono::system_clock::now();
}

Vok::Seconds Host::clockTime() const { return virtualTime_ ? virtualTime_->peek() : time_->now(); }

Vok::ManualTimeSource& Host::virtualTime() const {
   if (!virtualTime_) {
      throw ScenarioError("an agent on real time cannot move time");
   }
   return *virtualTime_;
}

std::optional<Vok::Seconds> Host::secondsToNextClock() {
   if (am_.armedCount() == 0) {
      return std::nullopt;
   }
   return std::max(0.0, am_.nextDue() - am_.now());
}

std::vector<std::string> Host::readyVrfs() const {
   std::vector<std::string> ready;
   shared_.protoVrfStatusDir->forEachName([&](const std::string& name) {
      if (shared_.protoVrfStatusDir->entityAs<Rib::ProtoVrfStatus>(name)->ready()) {
         ready.push_back(name);
      }
   });
   return ready;
}

bool Host::drained() const {
   if (!root_) {
      return true;
   }
   for (const auto& [name, container] : root_->containerSm()) {
      if (container->intfBacklogSm() && container->intfBacklogSm()->pendingCount() > 0) {
         return false;
      }
   }
   return true;
}

Host::Totals Host::totals() const {
   Totals totals;
   if (!root_) {
      return totals;
   }
   for (const auto& [name, container] : root_->containerSm()) {
      ++totals.vrfs;
      for (const auto& table : {container->route4Config(), container->route6Config()}) {
         totals.routes += table ? table->routeCount() : 0;
      }
      if (container->intfBacklogSm()) {
         totals.backlog += container->intfBacklogSm()->pendingCount();
      }
   }
   return totals;
}

Host::~Host() {
   am_.turnEndHandlerIs(nullptr);
   root_ = nullptr;
   Vok::activityManagerIs(nullptr);
}

void Host::apply(const Step& step, DumpWriter& writer) {
   if (const auto* dump = std::get_if<DumpStep>(&step.action)) {
      this->dump(dump->label, writer);
      return;
   }
   try {
      std::visit(
            [this](const auto& action) {
               if constexpr (!std::is_same_v<std::decay_t<decltype(action)>, DumpStep>) {
                  apply(action);
               }
            },
            step.action);
   } catch (...) {
      endTurn();
      throw;
   }
   endTurn();  // a step is one turn: one notification from outside
}

void Host::endTurn() {
   if (batchDepth_ == 0) {
      am_.turnEnded();
   }
}

void Host::batch(const std::function<void()>& steps) {
   ++batchDepth_;
   try {
      steps();
   } catch (...) {
      --batchDepth_;
      endTurn();
      throw;
   }
   --batchDepth_;
   endTurn();
}

void Host::apply(const VrfIdMapStep& s) {
   auto& wrapper = *shared_.nameToIdMapWrapper;
   switch (s.op) {
      case VrfIdMapStep::Op::set:
         if (!wrapper.nameToIdMap()) {
            wrapper.nameToIdMapIs(Vok::make<Vrf::VrfIdMap::NameToIdMap>());
         }
         for (const auto& [name, id] : s.entries) {
            wrapper.nameToIdMap()->vrfNameToIdIs(name, id);
         }
         break;
      case VrfIdMapStep::Op::remove:
         if (wrapper.nameToIdMap()) {
            for (const auto& name : s.names) {
               wrapper.nameToIdMap()->vrfNameToIdDel(name);
            }
         }
         break;
      case VrfIdMapStep::Op::replace: {
         auto map = Vok::make<Vrf::VrfIdMap::NameToIdMap>();
         for (const auto& [name, id] : s.entries) {
            map->vrfNameToIdIs(name, id);
         }
         wrapper.nameToIdMapIs(map);
         break;
      }
      case VrfIdMapStep::Op::clear:
         wrapper.nameToIdMapIs(nullptr);
         break;
   }
}

void Host::apply(const VrfLocalStep& s) {
   if (s.remove) {
      shared_.allVrfStatusLocal->vrfDel(s.vrf);
      return;
   }
   auto local = shared_.allVrfStatusLocal->vrfIs(s.vrf);
   if (s.netns) {
      local->netNsNameIs(*s.netns);  // before the state, which may build the container
   }
   if (s.state) {
      local->stateIs(*s.state);
   }
}

void Host::apply(const KernelStep& s) {
   auto kernel = shared_.kernelNamespace(s.netns);
   for (const auto& device : s.up) {
      kernel->deviceIs(device, Interface::KernelIntfState::up);
   }
   for (const auto& device : s.down) {
      kernel->deviceDel(device);
   }
}

void Host::apply(const InterfaceStep& s) {
   if (s.remove) {
      shared_.allIntfStatusDir->entryDel(s.intf);
      shared_.allIntfStatusLocalDir->entryDel(s.intf);
      return;
   }
   if (s.device) {
      shared_.allIntfStatusDir->entryIs(s.intf, *s.device);
   }
   if (s.netns) {
      shared_.allIntfStatusLocalDir->entryIs(s.intf, *s.netns);
   }
}

void Host::apply(const Ipv4Step& s) {
   if (s.remove) {
      if (auto vrf = shared_.ipStatus->vrfIpIntfStatus(s.vrf)) {
         vrf->ipIntfStatusDel(s.intf);
      }
      return;
   }
   auto status = shared_.ipStatus->vrfIpIntfStatusIs(s.vrf)->ipIntfStatusIs(s.intf);
   for (const auto& addr : s.removeSecondaries) {
      status->activeSecondaryWithMaskDel(addr);
   }
   for (const auto& [addr, active] : s.secondaries) {
      status->activeSecondaryWithMaskIs(addr, active);
   }
   if (s.active) {
      status->activeAddrWithMaskIs(*s.active);
   }
   if (s.directedBroadcast) {
      status->directedBroadcastEnabledIs(*s.directedBroadcast);
   }
   for (const auto& prefix : s.removePeers) {
      status->peerPrefixDel(prefix);
   }
   for (const auto& prefix : s.peers) {
      status->peerPrefixIs(prefix);
   }
}

void Host::apply(const Ipv6Step& s) {
   if (s.remove) {
      if (auto vrf = shared_.ip6Status->vrfIp6IntfStatus(s.vrf)) {
         vrf->ip6IntfStatusDel(s.intf);
      }
      return;
   }
   auto status = shared_.ip6Status->vrfIp6IntfStatusIs(s.vrf)->ip6IntfStatusIs(s.intf);
   for (const auto& addr : s.add) {
      status->addrIs(addr, Ip6::AddressInfo{Ip6::AddressInfo::Source::manual,
                                            Ip6::AddressInfo::DadState::valid});
   }
   for (const auto& addr : s.makeDefault) {
      status->addrIs(addr, Ip6::AddressInfo());
   }
   for (const auto& addr : s.removeAddrs) {
      status->addrDel(addr);
   }
   for (const auto& prefix : s.removePeers) {
      status->peerPrefixDel(prefix);
   }
   for (const auto& prefix : s.peers) {
      status->peerPrefixIs(prefix);
   }
}

void Host::apply(const CollectionStep& s) {
   if (s.family == 4) {
      s.present ? void(shared_.ipStatus->vrfIpIntfStatusIs(s.vrf))
                : shared_.ipStatus->vrfIpIntfStatusDel(s.vrf);
   } else {
      s.present ? void(shared_.ip6Status->vrfIp6IntfStatusIs(s.vrf))
                : shared_.ip6Status->vrfIp6IntfStatusDel(s.vrf);
   }
}

void Host::apply(const RibAwaitsStep& s) {
   for (const auto& name : s.add) {
      shared_.allVrfRibReady->vrfRibReadyIs(name);
   }
   for (const auto& name : s.remove) {
      shared_.allVrfRibReady->vrfRibReadyDel(name);
   }
}

void Host::apply(const StartStep& s) {
   ivo_ = Vok::make<IvoState>(s.mode);
   root_ = Vok::make<RootSm>(shared_.entityManager, shared_.viaSetConfig, shared_.ipStatus,
                             shared_.ip6Status, shared_.nameToIdMapWrapper,
                             shared_.allVrfStatusLocal, shared_.allIntfStatusDir,
                             shared_.allIntfStatusLocalDir, shared_.route4OrmoConfig,
                             shared_.route6OrmoConfig, shared_.allVrfRibReady,
                             shared_.protoVrfStatusDir, ivo_);
}

void Host::apply(const StopStep&) {
   root_ = nullptr;
   ivo_ = nullptr;
}

void Host::apply(const VerificationStep& s) { ivo_->startReadyVerificationIs(s.value); }

void Host::apply(const ToggleStep& s) { Agent::FeatureToggle::enabledIs(s.name, s.enabled); }

void Host::apply(const EnvStep& s) {
   for (const auto& [name, value] : s.values) {
      if (value) {
         ::setenv(name.c_str(), value->c_str(), 1);
      } else {
         ::unsetenv(name.c_str());
      }
   }
}

void Host::apply(const AdvanceStep& s) { am_.advanceBy(virtualTime(), s.seconds); }

void Host::apply(const RunStep& s) {
   am_.runUntilIdle(virtualTime(), virtualTime().peek() + s.limit);
}

void Host::apply(const StaleStep& s) {
   auto mountFor = [&](const std::string& path, std::string_view type) {
      auto mount = shared_.entityManager->mount(path, type, {}, Kordb::MountMode::write);
      mount->unmount();
      return mount->entity();
   };
   for (auto [prefixes, path] : {std::pair{&s.ipv4Routes, ContainerSm::rib4Path(s.vrfId)},
                                 std::pair{&s.ipv6Routes, ContainerSm::rib6Path(s.vrfId)}}) {
      if (prefixes->empty()) {
         continue;
      }
      auto table = Vok::Ptr<Rib::RouteConfig>(
            dynamic_cast<Rib::RouteConfig*>(mountFor(path, Rib::kRouteConfigType).get()));
      for (const auto& prefix : *prefixes) {
         table->routeAdd(Rib::connectedRoute(Ovel::IpGenPrefix::parse(prefix), Rib::ViaSetKey(),
                                             Fib::RouteType::attachedSubnet));
      }
   }
   for (auto [path, transport] : {std::pair{ContainerSm::via4Path(s.vrfId), 1},
                                  std::pair{ContainerSm::via6Path(s.vrfId), 2}}) {
      if (s.vias.empty()) {
         continue;
      }
      auto table = Vok::Ptr<Rib::Ip::ViaConfig>(
            dynamic_cast<Rib::Ip::ViaConfig*>(mountFor(path, Rib::kViaConfigType).get()));
      table->transportIs(static_cast<std::uint8_t>(transport));
      table->vrfIdIs(s.vrfId);
      for (const auto& intf : s.vias) {
         table->viaIs(Rib::attachedVia(table->newViaKey(), intf));
      }
   }
   for (std::size_t i = 0; i < s.viaSets; ++i) {
      Rib::Plim::ViaSet set;
      set.key = shared_.viaSetConfig->newViaSetKey();
      set.viaCount = 1;
      shared_.viaSetConfig->viaSetIs(set);
   }
   for (const auto& name : s.protoVrfStatus) {
      auto entity = shared_.protoVrfStatusDir->entityIs<Rib::ProtoVrfStatus>(
            name.str(), Rib::kProtoVrfStatusType);
      entity->readyTimeIs(clockTime());
      entity->readyIs(true);
   }
}

}  // namespace App
