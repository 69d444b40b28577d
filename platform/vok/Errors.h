// The runtime's exceptions: what a caller can catch when input or wiring is
// wrong, as opposed to the fatal assertions of Assert.h.
#pragma once

#include <stdexcept>
#include <string>

namespace Vok {

// A text did not parse as the requested type. attribute() names the field
// whose own parser failed, when the failure happened inside a record.
class ParseError : public std::invalid_argument {
 public:
   explicit ParseError(const std::string& what, std::string attribute = {})
         : std::invalid_argument(attribute.empty() ? what
                                                   : attribute + ": " + what),
           attribute_(std::move(attribute)) {}
   const std::string& attribute() const noexcept { return attribute_; }

 private:
   std::string attribute_;
};

// Raised when a caller asks for the generic hash of a type registered as not
// hashable.
class UnhashableTypeError : public std::logic_error {
 public:
   explicit UnhashableTypeError(const std::string& typeName)
         : std::logic_error("unhashable type: '" + typeName + "'") {}
};

// An owned child was requested again with a constructor argument that
// differs from the one it was built with: a wiring fault.
class ReinstantiationError : public std::logic_error {
 public:
   ReinstantiationError(const std::string& attribute, const std::string& newValue,
                        const std::string& oldValue)
         : std::logic_error(
                 "Reinstantiating the pointer interface where constructor "
                 "parameter attribute _" + attribute +
                 " has a different value of " + newValue +
                 " than the current value of " + oldValue) {}
};

// An object's address as traces and errors print it.
std::string pointerText(const void* object);

// The check behind every owned-child setter: the child that exists must have
// been built from this very argument.
inline void checkSameArgument(const std::string& attribute, const void* wanted,
                              const void* current) {
   if (wanted != current) {
      throw ReinstantiationError(attribute, pointerText(wanted), pointerText(current));
   }
}

// Text of the range error raised when a null entity is handed to a collection
// setter. The trailing double-quote is part of the runtime's historical text.
inline std::string nullMutatorParameterText(const std::string& attribute,
                                            const std::string& qualifiedAttribute) {
   return "null _" + attribute + " parameter to mutator for " + qualifiedAttribute +
          " not allowed\"";
}

}  // namespace Vok
