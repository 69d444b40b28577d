// One implementation of the mask-length rules, so that every type with a
// length reports a bad one with the same words.

#include "platform/ovel/MaskLength.h"

#include <algorithm>
#include <stdexcept>

#include "platform/ovel/StrictText.h"
#include "platform/vok/Errors.h"

namespace Ovel {

uint8_t maxMaskLength(AddressFamily af) { return af == AddressFamily::ipv6 ? 128 : 32; }

std::string maskLengthRangeText(std::string_view len, AddressFamily af) {
   const char* family = af == AddressFamily::ipv6 ? "IPv6" : "IPv4";
   return "mask length " + std::string(len) + " out of range for " + family;
}

void checkMaskLength(unsigned len, AddressFamily af) {
   if (len > maxMaskLength(af)) {
      throw std::range_error(maskLengthRangeText(std::to_string(len), af));
   }
}

MaskedText splitMaskedText(std::string_view text, AddressFamily af) {
   size_t slash = text.find('/');
   if (slash == std::string_view::npos) {
      throw Vok::ParseError("missing '/' and mask length in '" + std::string(text) + "'");
   }
   std::string_view len = text.substr(slash + 1);
   if (const char* fault = decimalFault(len)) {
      throw Vok::ParseError("mask length '" + std::string(len) + "' in '" +
                            std::string(text) + "' " + fault);
   }
   uint64_t value = decimalValue(len);
   if (value > maxMaskLength(af)) {
      throw Vok::ParseError(maskLengthRangeText(len, af));
   }
   return MaskedText{text.substr(0, slash), static_cast<uint8_t>(value)};
}

void clearHostBits(std::array<uint8_t, 16>& bytes, unsigned len) {
   // Every prefix built clears its bytes: the whole bytes past the length
   // in one fill, rather than a test per byte.
   std::size_t from = len / 8;
   if (from >= bytes.size()) {
      return;
   }
   if (const unsigned kept = len % 8; kept != 0) {
      bytes[from++] &= static_cast<uint8_t>(0xff << (8 - kept));
   }
   std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.end(), uint8_t{0});
}

}  // namespace Ovel
