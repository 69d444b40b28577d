// The example scenario built into the program, played by `connroute run`
// without a file (examples/two-vrfs.json).
#pragma once

#include <string>

namespace App {

const std::string& bundledScenario();

}  // namespace App
