// One agent process around the engine: the platform's shared state, virtual
// time and the activity manager, and the engine's root while the agent
// runs. Scenario steps are applied to it one by one.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "app/Dump.h"
#include "app/read/Metrics.h"
#include "app/Scenario.h"
#include "app/TablePublisher.h"
#include "lifecycle/RootSm.h"
#include "platform/agent/SharedState.h"

namespace App {

class Host {
 public:
   // With `tables`, the RIB's tables keep their rows there, and every step
   // and every clock firing is published to readers as one transaction.
   // Time is virtual: each reading advances it by `stepPerReading`.
   explicit Host(Vok::Seconds stepPerReading, std::shared_ptr<Plim::RowDatabase> tables = nullptr);
   // The same on the monotonic clock, for an agent on a real host: clocks
   // run when runDueClocks() finds them due; steps that move virtual time
   // (advance, run) are refused.
   struct RealTime {};
   Host(RealTime, std::shared_ptr<Plim::RowDatabase> tables);
   ~Host();
   Host(const Host&) = delete;
   Host& operator=(const Host&) = delete;

   // Applies one step; a dump step goes to `writer`.
   void apply(const Step& step, DumpWriter& writer);
   // Hands what the engine wrote, now, to `writer` (app/HostDump.cc).
   void dump(const std::string& label, DumpWriter& writer);

   // Applies the steps `steps` applies as one turn: what they wrote becomes
   // visible to readers together (e.g. every kernel message of one read).
   void batch(const std::function<void()>& steps);

   // Real time: seconds until the next clock is due (nothing if none is
   // armed), and running the clocks that are due.
   std::optional<Vok::Seconds> secondsToNextClock();
   void runDueClocks() { am_.runDue(); }
   // The VRFs the RIB marked ready, and whether every VRF served has
   // drained its backlog.
   std::vector<std::string> readyVrfs() const;
   bool drained() const;
   // Over every VRF the engine serves: how many, their routes (both
   // families), and the backlog entries still to drain.
   struct Totals {
      std::size_t vrfs = 0;
      std::size_t routes = 0;
      std::size_t backlog = 0;
   };
   Totals totals() const;
   // What the engine holds now, as metrics (app/HostMetrics.cc): turns are
   // those committed to the table directory, or without one those ended.
   Metrics metrics() const;

 private:
   void apply(const VrfIdMapStep& s);
   void apply(const VrfLocalStep& s);
   void apply(const KernelStep& s);
   void apply(const InterfaceStep& s);
   void apply(const Ipv4Step& s);
   void apply(const Ipv6Step& s);
   void apply(const CollectionStep& s);
   void apply(const RibAwaitsStep& s);
   void apply(const StartStep& s);
   void apply(const StopStep& s);
   void apply(const VerificationStep& s);
   void apply(const ToggleStep& s);
   void apply(const EnvStep& s);
   void apply(const AdvanceStep& s);
   void apply(const RunStep& s);
   void apply(const StaleStep& s);
   void tablesIs(std::shared_ptr<Plim::RowDatabase> tables);
   void endTurn();
   void turnEnded();

   class DumpWalk;

   // The time as the dumps and the published state show it.
   Vok::Seconds clockTime() const;
   Vok::ManualTimeSource& virtualTime() const;

   std::unique_ptr<Vok::TimeSource> time_;
   Vok::ManualTimeSource* virtualTime_ = nullptr;  // null on real time
   Vok::ActivityManager am_{*time_};
   Agent::SharedState shared_;
   Vok::Ptr<Routing::ConnectedRoute::IvoState> ivo_;
   Vok::Ptr<Routing::ConnectedRoute::RootSm> root_;
   std::shared_ptr<Plim::RowDatabase> tables_;
   std::unique_ptr<TablePublisher> publisher_;  // with a table directory only
   std::uint64_t turns_ = 0;
   std::chrono::system_clock::time_point lastTurnAt_;
   int batchDepth_ = 0;
};

}  // namespace App
