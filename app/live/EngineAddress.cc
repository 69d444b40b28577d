#include "app/live/EngineAddress.h"

#include <arpa/inet.h>
#include <linux/if_addr.h>

#include <algorithm>
#include <cstring>

namespace App {

namespace {

Ovel::IpAddr ipv4Of(const std::array<std::uint8_t, 16>& bytes) {
   std::uint32_t be = 0;
   std::memcpy(&be, bytes.data(), 4);
   return Ovel::IpAddr(ntohl(be));
}

Ovel::Ip6Addr ipv6Of(const std::array<std::uint8_t, 16>& bytes) {
   Ovel::Ip6Addr::Bytes copy;
   std::copy(bytes.begin(), bytes.end(), copy.begin());
   return Ovel::Ip6Addr(copy);
}

// The kernel makes no subnet or broadcast route for a subnet whose network
// lies in 0.0.0.0/8 (`10.12.1.1/4`, any `/0`).
bool inZeroNetwork(const Ovel::IpAddrWithMask& addr) { return (addr.subnet().value() >> 24) == 0; }

}  // namespace

KernelAddress4 kernelAddress4(const Linux::AddrRecord& record) {
   const Ovel::IpAddr local = ipv4Of(record.addr);
   return KernelAddress4{Ovel::IpAddrWithMask(local, std::uint8_t(record.prefixLen)),
                         record.peer ? ipv4Of(*record.peer) : local};
}

EngineAddress4 engineAddress4(const KernelAddress4& kernel, std::uint32_t flags) {
   const Ovel::IpAddrWithMask host(kernel.local.addr(), 32);
   const bool noPrefixRoute = (flags & IFA_F_NOPREFIXROUTE) != 0;
   if (kernel.address != kernel.local.addr()) {
      // Point to point: the subnet on the link is the peer's.
      const Ovel::IpAddrWithMask peer(kernel.address, kernel.local.len());
      if (noPrefixRoute || inZeroNetwork(peer)) {
         return EngineAddress4{host, std::nullopt};
      }
      return EngineAddress4{host, Ovel::IpAddrWithMask(peer.subnet(), peer.len())};
   }
   // As a /32, the address gives the engine its one receive route and no
   // subnet, as the kernel routes it.
   if (noPrefixRoute || inZeroNetwork(kernel.local)) {
      return EngineAddress4{host, std::nullopt};
   }
   return EngineAddress4{kernel.local, std::nullopt};
}

Ovel::Ip6AddrWithMask kernelAddress6(const Linux::AddrRecord& record) {
   return Ovel::Ip6AddrWithMask(ipv6Of(record.addr), std::uint8_t(record.prefixLen));
}

EngineAddress6 engineAddress6(const Linux::AddrRecord& record) {
   const Ovel::Ip6AddrWithMask kernel = kernelAddress6(record);
   EngineAddress6 engine{kernel, std::nullopt};
   if (record.flags & IFA_F_NOPREFIXROUTE) {
      engine.addr = Ovel::Ip6AddrWithMask(kernel.addr(), 128);
   }
   if (record.peer) {
      // The kernel routes the peer as a /128 (noprefixroute or not), unless
      // it is unspecified; link-local destinations are never the engine's.
      const Ovel::Ip6Addr peer = ipv6Of(*record.peer);
      if (!peer.isZero() && !peer.isLinkLocal()) {
         engine.peer = Ovel::Ip6AddrWithMask(peer, 128);
      }
   }
   return engine;
}

}  // namespace App
