// IPv6 text through the C library, whose inet_ntop already writes the
// RFC 5952 form; the wrapper only adds the strictness inet_pton lacks.

#include "platform/ovel/Ip6Addr.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <ostream>

#include "platform/vok/Errors.h"

namespace Ovel {

bool Ip6Addr::isZero() const {
   return std::all_of(bytes_.begin(), bytes_.end(), [](uint8_t b) { return b == 0; });
}

bool Ip6Addr::isLinkLocal() const { return bytes_[0] == 0xfe && (bytes_[1] & 0xc0) == 0x80; }

static_assert(Ip6Addr::kMaxChars + 1 == INET6_ADDRSTRLEN);

char* Ip6Addr::toChars(char* out) const {
   // inet_ntop cannot fail for AF_INET6 with a buffer of INET6_ADDRSTRLEN;
   // it writes a NUL, which the caller's room does not include.
   char text[INET6_ADDRSTRLEN];
   inet_ntop(AF_INET6, bytes_.data(), text, sizeof(text));
   const std::size_t size = std::strlen(text);
   std::memcpy(out, text, size);
   return out + size;
}

std::string Ip6Addr::toString() const {
   char text[kMaxChars];
   return std::string(text, toChars(text));
}

Ip6Addr Ip6Addr::parse(std::string_view text) {
   // inet_pton stops at a NUL, so an embedded one would let trailing garbage
   // through; the longest valid spelling fits in INET6_ADDRSTRLEN - 1.
   if (text.find('\0') == std::string_view::npos && text.size() < INET6_ADDRSTRLEN) {
      Bytes bytes;
      if (inet_pton(AF_INET6, std::string(text).c_str(), bytes.data()) == 1) {
         return Ip6Addr(bytes);
      }
   }
   throw Vok::ParseError("bad IPv6 address '" + std::string(text) + "'");
}

std::ostream& operator<<(std::ostream& os, const Ip6Addr& addr) {
   return os << addr.toString();
}

}  // namespace Ovel
