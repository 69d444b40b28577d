// Reading a file the user names: only a regular file, and only up to a
// bound, so that a device (/dev/zero), a FIFO or a runaway file is refused
// with a clear message instead of being read without end.
#pragma once

#include <cstddef>
#include <string>

namespace App {

// Throws ScenarioError ("PATH: ...") when the file is missing, unreadable,
// not a regular file or larger than `limit` bytes.
std::string readInputFile(const std::string& path, std::size_t limit);

}  // namespace App
