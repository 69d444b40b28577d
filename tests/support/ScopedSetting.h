// Test helpers that set an environment variable or a feature toggle for one
// scope and restore the previous state after it.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

#include "platform/agent/FeatureToggle.h"

namespace Testing {

class ScopedEnv {
 public:
   ScopedEnv(std::string name, std::optional<std::string> value) : name_(std::move(name)) {
      if (const char* old = std::getenv(name_.c_str())) {
         old_ = old;
      }
      apply(value);
   }
   ~ScopedEnv() { apply(old_); }
   ScopedEnv(const ScopedEnv&) = delete;
   ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
   void apply(const std::optional<std::string>& value) {
      if (value) {
         ::setenv(name_.c_str(), value->c_str(), 1);
      } else {
         ::unsetenv(name_.c_str());
      }
   }
   std::string name_;
   std::optional<std::string> old_;
};

class ScopedToggle {
 public:
   ScopedToggle(const std::string& name, bool enabled)
         : toggle_(Agent::FeatureToggle::handle(name)), old_(toggle_.enabled()) {
      toggle_.enabledIs(enabled);
   }
   ~ScopedToggle() { toggle_.enabledIs(old_); }
   ScopedToggle(const ScopedToggle&) = delete;
   ScopedToggle& operator=(const ScopedToggle&) = delete;

 private:
   Agent::FeatureToggle& toggle_;
   bool old_;
};

}  // namespace Testing
