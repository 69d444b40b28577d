// What one kernel address gives the engine: an address of the interface,
// and for a point-to-point address the peer prefix it reaches. The kernel's
// rules (its own routes for each kind) are followed here, so that the
// engine's routes match them:
//
//   10.1.0.1/24                       address 10.1.0.1/24
//   10.1.0.1/24 noprefixroute         address 10.1.0.1/32: no subnet is attached
//   10.12.1.1/4 (network in 0/8)      address 10.12.1.1/32: the kernel routes no such subnet
//   10.9.0.1 peer 10.9.1.0/30         address 10.9.0.1/32, peer prefix 10.9.1.0/30
//   2001:db8::1/64 noprefixroute      address 2001:db8::1/128
//   2001:db8::1/64 peer 2001:db8:2::1 address 2001:db8::1/64, peer prefix 2001:db8:2::1/128
//
// The prefix length of an IPv4 point-to-point address is the peer's, that
// of an IPv6 one the own address's (the peer is always a /128).
#pragma once

#include <compare>
#include <optional>

#include "platform/linux/RtnlMessages.h"
#include "platform/ovel/Ip6AddrWithMask.h"
#include "platform/ovel/IpAddrWithMask.h"

namespace App {

struct EngineAddress4 {
   Ovel::IpAddrWithMask addr;
   std::optional<Ovel::IpAddrWithMask> peer;  // its subnet, host bits cleared
   friend bool operator==(const EngineAddress4&, const EngineAddress4&) = default;
};

struct EngineAddress6 {
   Ovel::Ip6AddrWithMask addr;
   std::optional<Ovel::Ip6AddrWithMask> peer;
   friend bool operator==(const EngineAddress6&, const EngineAddress6&) = default;
};

// An IPv4 address as the kernel tells them apart: its own address with the
// prefix length, and IFA_ADDRESS (the peer's, or the own one again).
struct KernelAddress4 {
   Ovel::IpAddrWithMask local;
   Ovel::IpAddr address;
   auto operator<=>(const KernelAddress4&) const = default;
};

KernelAddress4 kernelAddress4(const Linux::AddrRecord& record);
EngineAddress4 engineAddress4(const KernelAddress4& kernel, std::uint32_t flags);

// `record` must be of an address the engine is to see (usable).
Ovel::Ip6AddrWithMask kernelAddress6(const Linux::AddrRecord& record);
EngineAddress6 engineAddress6(const Linux::AddrRecord& record);

}  // namespace App
