// Cost of one change notification delivered synchronously to one and to ten
// reactors: the runtime's per-event overhead on every hot path.
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "platform/vok/Notifier.h"

namespace {

class CounterNotifiee : public Vok::ReactorBase {
 public:
   virtual void onValue() {}
};

class Counter final : public Vok::Notifier<CounterNotifiee> {
 public:
   void valueInc() {
      ++value_;
      notify([](CounterNotifiee& n) { n.onValue(); });
   }
   unsigned value() const { return value_; }

 private:
   unsigned value_ = 0;
};

class Listener final : public Vok::Reactor<Counter> {
 public:
   using Vok::Reactor<Counter>::Reactor;
   void onValue() override { ++seen; }
   unsigned seen = 0;
};

void BM_Notify(benchmark::State& state) {
   auto counter = Vok::make<Counter>();
   std::vector<std::unique_ptr<Listener>> listeners;
   for (int i = 0; i < state.range(0); ++i) {
      listeners.push_back(std::make_unique<Listener>(counter));
   }
   for (auto _ : state) {
      counter->valueInc();
   }
   benchmark::DoNotOptimize(listeners.front()->seen);
   state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_Notify)->Arg(1)->Arg(10);

}  // namespace
