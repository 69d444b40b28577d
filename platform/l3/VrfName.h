// The configured name of a VRF, checked against the size the rest of the
// system reserves for it. The empty name stands for "no VRF given"; mapping
// names to numeric ids is left to Vrf::VrfIdMap so the name stays the stable,
// operator-facing identity.
#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace L3 {

class VrfName {
 public:
   static constexpr size_t maxBytes = 100;
   // The VRF every switch has, whose routes live in the host's own namespace.
   static constexpr std::string_view kDefault = "default";

   VrfName() = default;
   // Throws std::range_error for more than 100 bytes.
   explicit VrfName(std::string name);

   const std::string& str() const { return name_; }
   bool empty() const { return name_.empty(); }
   bool isDefault() const { return name_ == kDefault; }

   std::string toString() const { return name_; }
   // The text is the name; refuses over-long names and surrounding
   // whitespace. Throws Vok::ParseError.
   static VrfName parse(std::string_view text);

   auto operator<=>(const VrfName&) const = default;

 private:
   std::string name_;
};

std::ostream& operator<<(std::ostream& os, const VrfName& name);

}  // namespace L3

template <>
struct std::hash<L3::VrfName> {
   size_t operator()(const L3::VrfName& name) const noexcept {
      return std::hash<std::string>{}(name.str());
   }
};
