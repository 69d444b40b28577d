// A trace setting read from the environment once, when its facility is first
// used. A bad value must not stop whoever traces first: the setting keeps its
// default and the error is kept for the program to report as itself.
#pragma once

#include <cstdlib>
#include <stdexcept>
#include <string>

namespace Vok {

template <class T, class Parse>
T settingFromEnvironment(const char* variable, Parse parse, T fallback, std::string& error) {
   const char* value = std::getenv(variable);
   if (!value) {
      return fallback;
   }
   try {
      return parse(value);
   } catch (const std::invalid_argument& e) {
      error = e.what();
      return fallback;
   }
}

}  // namespace Vok
