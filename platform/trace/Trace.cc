#include "platform/trace/Trace.h"

#include "platform/trace/EnvironmentSetting.h"

#include <cstdlib>
#include <iostream>
#include <mutex>
#include <stdexcept>
#include <vector>

namespace Vok {

namespace {

struct Rule {
   std::string name;  // "*" matches every handle
   std::uint32_t mask;
};

std::uint32_t parseLevels(std::string_view levels, std::string_view item) {
   std::uint32_t mask = 0;
   auto bad = [&] {
      return std::invalid_argument("bad trace levels in '" + std::string(item) +
                                   "': expected levels 0-9 like 0-9, 8 or 0,7-9");
   };
   while (!levels.empty()) {
      std::string_view part = levels.substr(0, levels.find(','));
      levels.remove_prefix(std::min(levels.size(), part.size() + 1));
      std::size_t dash = part.find('-');
      std::string_view lo = part.substr(0, dash);
      std::string_view hi = dash == std::string_view::npos ? lo : part.substr(dash + 1);
      if (lo.size() != 1 || hi.size() != 1 || lo[0] < '0' || lo[0] > '9' || hi[0] < '0' ||
          hi[0] > '9' || hi[0] < lo[0]) {
         throw bad();
      }
      for (int l = lo[0] - '0'; l <= hi[0] - '0'; ++l) {
         mask |= 1u << l;
      }
   }
   if (mask == 0) {
      throw bad();
   }
   return mask;
}

std::vector<Rule> parseConfig(std::string_view config) {
   std::vector<Rule> rules;
   while (!config.empty()) {
      std::string_view item = config.substr(0, config.find(','));
      // A comma may also separate levels ("A/0,7"): a piece without a name
      // that starts with a digit belongs to the previous rule.
      config.remove_prefix(std::min(config.size(), item.size() + 1));
      if (item.empty()) {
         continue;
      }
      if (!rules.empty() && item[0] >= '0' && item[0] <= '9') {
         rules.back().mask |= parseLevels(item, item);
         continue;
      }
      std::size_t slash = item.find('/');
      std::string_view name = item.substr(0, slash);
      if (name.empty()) {
         throw std::invalid_argument("trace rule '" + std::string(item) + "' has no handle name");
      }
      std::uint32_t mask =
            slash == std::string_view::npos ? 0x3FFu : parseLevels(item.substr(slash + 1), item);
      rules.push_back({std::string(name), mask});
   }
   return rules;
}

}  // namespace

class TraceRegistry {
 public:
   static TraceRegistry& instance() {
      static TraceRegistry registry;
      return registry;
   }

   void add(TraceHandle& handle) {
      handles_.push_back(&handle);
      handle.mask_ = maskFor(handle.name_);
   }
   void remove(TraceHandle& handle) { std::erase(handles_, &handle); }

   void configIs(std::string_view config) {
      rules_ = parseConfig(config);
      for (TraceHandle* h : handles_) {
         h->mask_ = maskFor(h->name_);
      }
   }

   void emit(const TraceLine& line) {
      if (sink_) {
         sink_(line);
      } else {
         std::cerr << line.text << '\n';
      }
   }
   void sinkIs(std::function<void(const TraceLine&)> sink) { sink_ = std::move(sink); }
   const std::string& environmentError() const noexcept { return environmentError_; }

 private:
   TraceRegistry()
         : rules_(settingFromEnvironment("CONNROUTE_TRACE", parseConfig, std::vector<Rule>(),
                                         environmentError_)) {}

   std::uint32_t maskFor(const std::string& name) const {
      std::uint32_t mask = 0;
      for (const Rule& rule : rules_) {
         if (rule.name == "*" || rule.name == name) {
            mask |= rule.mask;
         }
      }
      return mask;
   }

   std::vector<TraceHandle*> handles_;
   std::string environmentError_;  // why CONNROUTE_TRACE was not applied
   std::vector<Rule> rules_;
   std::function<void(const TraceLine&)> sink_;
};

TraceHandle::TraceHandle(std::string name) : name_(std::move(name)) {
   TraceRegistry::instance().add(*this);
}

TraceHandle::~TraceHandle() { TraceRegistry::instance().remove(*this); }

void TraceHandle::write(int level, const char* prettyFunction, int line, std::string_view object,
                        std::string_view message) const {
   std::string text = qualifiedFunctionName(prettyFunction);
   text += ':';
   text += std::to_string(line);
   text += " [";
   text += object;
   text += "] ";
   text += message;
   TraceRegistry::instance().emit(TraceLine{name_, level, std::move(text)});
}

void traceConfigIs(std::string_view config) { TraceRegistry::instance().configIs(config); }

const std::string& traceEnvironmentError() { return TraceRegistry::instance().environmentError(); }

void traceSinkIs(std::function<void(const TraceLine&)> sink) {
   TraceRegistry::instance().sinkIs(std::move(sink));
}

std::string qualifiedFunctionName(std::string_view pretty) {
   // The parameter list opens at the first '(' outside template arguments
   // that is not part of "operator()".
   int depth = 0;
   std::size_t open = std::string_view::npos;
   for (std::size_t i = 0; i < pretty.size(); ++i) {
      char c = pretty[i];
      if (c == '<') {
         ++depth;
      } else if (c == '>') {
         --depth;
      } else if (c == '(' && depth == 0) {
         if (pretty.substr(0, i).ends_with("operator")) {
            ++i;  // skip "()" of operator()
            continue;
         }
         open = i;
         break;
      }
   }
   std::string_view head = pretty.substr(0, open);
   depth = 0;
   std::size_t start = 0;
   for (std::size_t i = head.size(); i-- > 0;) {
      char c = head[i];
      if (c == '>') {
         ++depth;
      } else if (c == '<') {
         --depth;
      } else if (c == ' ' && depth == 0) {
         start = i + 1;
         break;
      }
   }
   // Template parameter lists ("Watcher<Family>::") say nothing to a reader.
   std::string name;
   depth = 0;
   for (char c : head.substr(start)) {
      if (c == '<') {
         ++depth;
      } else if (c == '>') {
         --depth;
      } else if (depth == 0) {
         name += c;
      }
   }
   return name;
}

}  // namespace Vok
