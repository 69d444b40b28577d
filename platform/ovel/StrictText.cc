// Canonical decimal checks and the whitespace rule for the strict text forms;
// hand-written because strtoul accepts signs, blanks and leading zeros.

#include "platform/ovel/StrictText.h"

#include <limits>

namespace Ovel {

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool isSpace(char c) {
   return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

}  // namespace

const char* decimalFault(std::string_view text) {
   if (text.empty()) {
      return "is empty";
   }
   for (char c : text) {
      if (!isDigit(c)) {
         return "is not a decimal number";
      }
   }
   if (text.size() > 1 && text.front() == '0') {
      return "has a leading zero";
   }
   return nullptr;
}

uint64_t decimalValue(std::string_view text) {
   constexpr uint64_t max = std::numeric_limits<uint64_t>::max();
   uint64_t value = 0;
   for (char c : text) {
      auto digit = static_cast<uint64_t>(c - '0');
      if (value > (max - digit) / 10) {
         return max;
      }
      value = value * 10 + digit;
   }
   return value;
}

bool hasSurroundingSpace(std::string_view text) {
   return !text.empty() && (isSpace(text.front()) || isSpace(text.back()));
}

}  // namespace Ovel
