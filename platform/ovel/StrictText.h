// Shared rules of the strict text forms. Every value type has exactly one
// spelling per value, so that text written by toString() and text typed by an
// operator compare equal; leading zeros, signs and blanks are faults here
// instead of tolerated variants.
#pragma once

#include <cstdint>
#include <string_view>

namespace Ovel {

// Why `text` is not a canonical unsigned decimal ("is empty", "has a leading
// zero", "is not a decimal number"), or nullptr when it is one.
const char* decimalFault(std::string_view text);

// Value of a text decimalFault() accepted. Saturates at UINT64_MAX so that an
// absurdly long number still fails the caller's range check instead of
// wrapping back into range.
uint64_t decimalValue(std::string_view text);

// Whether a name starts or ends with whitespace: such a name would survive a
// config round trip only by accident, so the name parsers refuse it.
bool hasSurroundingSpace(std::string_view text);

}  // namespace Ovel
