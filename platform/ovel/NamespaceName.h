// The name of a network namespace, checked against the size the rest of the
// system reserves for it. A plain string wrapper: namespace names are few and
// never sit in hot keys, so they need no fixed-size layout.
#pragma once

#include <compare>
#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Ovel {

class NamespaceName {
 public:
   static constexpr size_t maxBytes = 150;

   NamespaceName() = default;
   // Throws std::range_error for more than 150 bytes.
   explicit NamespaceName(std::string name);
   // The namespace processes start in, "default".
   static NamespaceName defaultNamespace();

   const std::string& str() const { return name_; }

   std::string toString() const { return name_; }
   // The text is the name; refuses over-long names and surrounding
   // whitespace. Throws Vok::ParseError.
   static NamespaceName parse(std::string_view text);

   auto operator<=>(const NamespaceName&) const = default;

 private:
   std::string name_;
};

std::ostream& operator<<(std::ostream& os, const NamespaceName& name);

}  // namespace Ovel
