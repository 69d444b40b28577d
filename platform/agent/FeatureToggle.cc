#include "platform/agent/FeatureToggle.h"

#include <cstdlib>
#include <map>
#include <memory>
#include <set>

namespace Agent {

namespace {

std::set<std::string, std::less<>> namesFromEnvironment() {
   std::set<std::string, std::less<>> names;
   const char* env = std::getenv("CONNROUTE_TOGGLES");
   std::string_view list = env ? env : "";
   while (!list.empty()) {
      std::string_view name = list.substr(0, list.find(','));
      list.remove_prefix(std::min(list.size(), name.size() + 1));
      if (!name.empty()) {
         names.emplace(name);
      }
   }
   return names;
}

}  // namespace

FeatureToggle& FeatureToggle::handle(std::string_view name) {
   static const auto fromEnvironment = namesFromEnvironment();
   static std::map<std::string, std::unique_ptr<FeatureToggle>, std::less<>> toggles;
   auto it = toggles.find(name);
   if (it == toggles.end()) {
      auto toggle = std::make_unique<FeatureToggle>(std::string(name),
                                                    fromEnvironment.contains(name));
      it = toggles.emplace(std::string(name), std::move(toggle)).first;
   }
   return *it->second;
}

}  // namespace Agent
