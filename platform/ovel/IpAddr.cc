// Dotted-quad text for IPv4. Parsed by hand rather than with inet_pton so
// each rejection can say which octet was wrong and why.

#include "platform/ovel/IpAddr.h"

#include <cstring>
#include <ostream>
#include <vector>

#include "platform/ovel/StrictText.h"
#include "platform/vok/Errors.h"

namespace Ovel {

namespace {

// The decimal text of every octet, built once: dumps print millions of
// addresses, and a copy is cheaper than dividing each octet by ten twice.
struct OctetTexts {
   char text[256][4]{};  // the digits, then their count
   constexpr OctetTexts() {
      for (unsigned octet = 0; octet < 256; ++octet) {
         const int digits = octet >= 100 ? 3 : octet >= 10 ? 2 : 1;
         for (unsigned i = digits, rest = octet; i-- > 0; rest /= 10) {
            text[octet][i] = static_cast<char>('0' + rest % 10);
         }
         text[octet][3] = static_cast<char>(digits);
      }
   }
};

constexpr OctetTexts kOctetTexts;

}  // namespace

char* IpAddr::toChars(char* out) const {
   for (int shift = 24; shift >= 0; shift -= 8) {
      const char* octet = kOctetTexts.text[(value_ >> shift) & 0xff];
      std::memcpy(out, octet, 3);
      out += octet[3];
      if (shift != 0) {
         *out++ = '.';
      }
   }
   return out;
}

std::string IpAddr::toString() const {
   char text[kMaxChars];
   return std::string(text, toChars(text));
}

IpAddr IpAddr::parse(std::string_view text) {
   auto fail = [text](const std::string& why) {
      return Vok::ParseError("bad IPv4 address '" + std::string(text) + "': " + why);
   };
   std::vector<std::string_view> octets;
   for (size_t start = 0;;) {
      size_t dot = text.find('.', start);
      octets.push_back(text.substr(start, dot - start));
      if (dot == std::string_view::npos) {
         break;
      }
      start = dot + 1;
   }
   if (octets.size() != 4) {
      throw fail("expected 4 octets, found " + std::to_string(octets.size()));
   }
   uint32_t value = 0;
   for (std::string_view octet : octets) {
      if (const char* fault = decimalFault(octet)) {
         throw fail("octet '" + std::string(octet) + "' " + fault);
      }
      uint64_t byte = decimalValue(octet);
      if (byte > 255) {
         throw fail("octet " + std::string(octet) + " exceeds 255");
      }
      value = value << 8 | static_cast<uint32_t>(byte);
   }
   return IpAddr(value);
}

std::ostream& operator<<(std::ostream& os, const IpAddr& addr) {
   return os << addr.toString();
}

}  // namespace Ovel
