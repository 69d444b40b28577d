// Construction check, subnet masking and "addr/len" text for IPv6
// interface addresses.

#include "platform/ovel/Ip6AddrWithMask.h"

#include <ostream>

#include "platform/ovel/MaskLength.h"

namespace Ovel {

Ip6AddrWithMask::Ip6AddrWithMask(Ip6Addr addr, uint8_t len) : addr_(addr), len_(len) {
   checkMaskLength(len, AddressFamily::ipv6);
}

Ip6Addr Ip6AddrWithMask::subnet() const {
   Ip6Addr::Bytes bytes = addr_.bytes();
   clearHostBits(bytes, len_);
   return Ip6Addr(bytes);
}

std::string Ip6AddrWithMask::toString() const {
   return addr_.toString() + "/" + std::to_string(len_);
}

Ip6AddrWithMask Ip6AddrWithMask::parse(std::string_view text) {
   MaskedText parts = splitMaskedText(text, AddressFamily::ipv6);
   return Ip6AddrWithMask(Ip6Addr::parse(parts.addr), parts.len);
}

std::ostream& operator<<(std::ostream& os, const Ip6AddrWithMask& addr) {
   return os << addr.toString();
}

}  // namespace Ovel
