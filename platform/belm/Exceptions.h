// Errors of the shared-memory table library. They travel up through the
// notification that caused the write; nothing in the engine retries.
#pragma once

#include <stdexcept>
#include <string>

namespace Belm {

// A write, removal or clean-up on a table mounted read-only.
class NoPermissionException : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// The table found its own contents inconsistent.
class CorruptionDetectedException : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

}  // namespace Belm
