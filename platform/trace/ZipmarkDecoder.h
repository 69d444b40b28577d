// Prints a fast-trace file as text, one record per line:
//   "L method label value label value..." (labels carry their own spacing).
#pragma once

#include <istream>
#include <ostream>

namespace Zipmark {

// Decodes the whole stream; throws std::runtime_error naming the byte offset
// when the file is not a fast-trace file or a record is cut short.
void decode(std::istream& in, std::ostream& out);

}  // namespace Zipmark
