// Fast trace: compact binary records of labelled fields, appended to a file.
//
// Hot handlers leave a record of what they saw without formatting text; the
// decoder (ZipmarkDecoder.h, `connroute zmdecode FILE`) prints a file later.
// Recording is off unless CONNROUTE_FASTTRACE names levels in the trace
// syntax ("1", "0-9"), and the file is created on the first record, so an
// idle facility costs a branch per call site.
//
//   Zipmark::initialize({.nameFormat = "ConnectedRoute-%d.zm"});
//   ZIPMARK(1, "handleActiveAddress", Zipmark::text("vrf=", vrf),
//           Zipmark::am4(" addr=", addr.value(), len));
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace Zipmark {

enum class Kind : std::uint8_t { text = 1, integer = 2, boolean = 3, am4 = 4, am6 = 5 };

struct Field {
   std::string_view label;
   Kind kind;
   std::string_view textValue;
   std::int64_t integerValue = 0;
   std::array<std::uint8_t, 16> address{};
   std::uint8_t length = 0;
};

inline Field text(std::string_view label, std::string_view value) {
   return Field{label, Kind::text, value};
}
inline Field integer(std::string_view label, std::int64_t value) {
   return Field{label, Kind::integer, {}, value};
}
inline Field boolean(std::string_view label, bool value) {
   return Field{label, Kind::boolean, {}, value ? 1 : 0};
}
// An IPv4 address with mask (kind "AM4"); the address in host byte order.
Field am4(std::string_view label, std::uint32_t address, std::uint8_t length);
// An IPv6 address with mask (kind "AM6").
Field am6(std::string_view label, const std::array<std::uint8_t, 16>& address,
          std::uint8_t length);

struct Config {
   // File name; a "%d" in it is replaced by the process id.
   std::string nameFormat;
   // Records of a lower level are never written.
   int minLevel = 0;
   // The file is capped at 2^maxSizeLog2 bytes; past that it is moved to
   // "<name>.old" and a new one is started.
   int maxSizeLog2 = 24;
   // 0: one writer thread, no locking (the only mode this agent uses).
   int threadMode = 0;
};

// (Re)configures the facility; throws std::invalid_argument on a bad config.
void initialize(const Config& config);
// The file name records go to, with the placeholder filled in.
const std::string& fileName();
// Applies CONNROUTE_FASTTRACE-style levels ("1", "0-9"); empty disables.
void levelsIs(std::string_view levels);
// Why CONNROUTE_FASTTRACE was not applied (empty when it was, or is unset).
const std::string& environmentError();
bool enabled(int level) noexcept;
void record(int level, std::string_view method, std::initializer_list<Field> fields);
// Writes buffered records out.
void flush();

}  // namespace Zipmark

#define ZIPMARK(level, method, ...)                                            \
   do {                                                                        \
      if (::Zipmark::enabled(level)) [[unlikely]] {                            \
         ::Zipmark::record(level, method, {__VA_ARGS__});                      \
      }                                                                        \
   } while (false)
