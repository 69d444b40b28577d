// Checks shared by the value-type tests: text round trips, rejected texts
// with the reason the error must give, and byte identity of equal keys,
// which the runtime relies on when it hashes keys by their bytes.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>
#include <string_view>

#include "platform/vok/Errors.h"

namespace ValueTextChecks {

// parse(text) prints back as text, through toString() and operator<<, and
// the printed text parses back to an equal value.
template <typename T>
void expectRoundTrip(std::string_view text) {
   SCOPED_TRACE("text '" + std::string(text) + "'");
   T value = T::parse(text);
   EXPECT_EQ(value.toString(), text);
   std::ostringstream os;
   os << value;
   EXPECT_EQ(os.str(), text);
   EXPECT_EQ(T::parse(value.toString()), value);
}

// parse(text) throws Vok::ParseError whose message contains reason.
template <typename Parse>
void expectParseError(Parse parse, std::string_view text, std::string_view reason) {
   SCOPED_TRACE("text '" + std::string(text) + "'");
   try {
      parse(text);
      ADD_FAILURE() << "parse accepted the text";
   } catch (const Vok::ParseError& error) {
      EXPECT_THAT(error.what(), testing::HasSubstr(std::string(reason)));
   }
}

template <typename T>
void expectParseError(std::string_view text, std::string_view reason) {
   expectParseError([](std::string_view t) { return T::parse(t); }, text, reason);
}

template <typename T>
bool sameBytes(const T& a, const T& b) {
   return std::memcmp(&a, &b, sizeof(T)) == 0;
}

}  // namespace ValueTextChecks
