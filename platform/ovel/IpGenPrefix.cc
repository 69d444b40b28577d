// Host-bit clearing construction, family-checked accessors, text and the
// table order of the generic prefix.

#include "platform/ovel/IpGenPrefix.h"

#include <charconv>
#include <ostream>

#include "platform/ovel/GenBytes.h"
#include "platform/ovel/IpGenAddrWithMask.h"
#include "platform/ovel/MaskLength.h"
#include "platform/vok/Assert.h"
#include "platform/vok/Errors.h"

namespace Ovel {

IpGenPrefix::IpGenPrefix(IpAddr addr, uint8_t len)
      : af_(AddressFamily::ipv4), len_(len), bytes_(toGenBytes(addr)) {
   checkMaskLength(len, af_);
   clearHostBits(bytes_, len);
}

IpGenPrefix::IpGenPrefix(Ip6Addr addr, uint8_t len)
      : af_(AddressFamily::ipv6), len_(len), bytes_(addr.bytes()) {
   checkMaskLength(len, af_);
   clearHostBits(bytes_, len);
}

IpAddr IpGenPrefix::v4Addr() const {
   VOK_ASSERT(af_ == AddressFamily::ipv4, "IpGenPrefix::v4Addr on a prefix that is not IPv4");
   return v4FromGenBytes(bytes_);
}

Ip6Addr IpGenPrefix::v6Addr() const {
   VOK_ASSERT(af_ == AddressFamily::ipv6, "IpGenPrefix::v6Addr on a prefix that is not IPv6");
   return Ip6Addr(bytes_);
}

IpGenAddr IpGenPrefix::addr() const {
   switch (af_) {
      case AddressFamily::ipv4:
         return IpGenAddr(v4Addr());
      case AddressFamily::ipv6:
         return IpGenAddr(v6Addr());
      case AddressFamily::unknown:
         break;
   }
   return IpGenAddr();
}

char* IpGenPrefix::toChars(char* out) const {
   out = addr().toChars(out);
   if (isEmpty()) {
      return out;  // "none"
   }
   *out++ = '/';
   return std::to_chars(out, out + 3, len_).ptr;
}

std::string IpGenPrefix::toString() const {
   char text[kMaxChars];
   return std::string(text, toChars(text));
}

IpGenPrefix IpGenPrefix::parse(std::string_view text) {
   IpGenAddrWithMask parsed = IpGenAddrWithMask::parse(text);
   IpGenPrefix prefix = parsed.prefix();
   if (prefix.addr() != parsed.addr()) {
      throw Vok::ParseError("host bits set in '" + std::string(text) + "'");
   }
   return prefix;
}

std::strong_ordering IpGenPrefix::operator<=>(const IpGenPrefix& other) const {
   if (auto byFamily = af_ <=> other.af_; byFamily != 0) {
      return byFamily;
   }
   if (auto byAddr = bytes_ <=> other.bytes_; byAddr != 0) {
      return byAddr;
   }
   return len_ <=> other.len_;
}

std::ostream& operator<<(std::ostream& os, const IpGenPrefix& prefix) {
   return os << prefix.toString();
}

}  // namespace Ovel
