// Named, process-wide feature toggles, default off.
//
// A component takes a toggle's handle once (cheap to read on every call
// afterwards). Toggles are switched on by CONNROUTE_TOGGLES, a comma-separated
// list of names read when the first handle is taken, or by enabledIs().
//
//   static const Agent::FeatureToggle& scale = Agent::FeatureToggle::handle("VrfScaleToggle");
//   if (scale.enabled()) { ... }
#pragma once

#include <string>
#include <string_view>

namespace Agent {

class FeatureToggle {
 public:
   static FeatureToggle& handle(std::string_view name);
   static void enabledIs(std::string_view name, bool enabled) { handle(name).enabledIs(enabled); }

   const std::string& name() const noexcept { return name_; }
   bool enabled() const noexcept { return enabled_; }
   void enabledIs(bool enabled) noexcept { enabled_ = enabled; }

   explicit FeatureToggle(std::string name, bool enabled) : name_(std::move(name)), enabled_(enabled) {}
   FeatureToggle(const FeatureToggle&) = delete;
   FeatureToggle& operator=(const FeatureToggle&) = delete;

 private:
   std::string name_;
   bool enabled_;
};

}  // namespace Agent
