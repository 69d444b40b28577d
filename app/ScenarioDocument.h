// Checks a scenario document while it is parsed, for what a JSON parser
// lets through but a scenario must not hold: a key given twice in one
// object (the parser would keep the last and silently drop the others, a
// whole step list included) and control characters in any key or string
// (names, labels and the description are printed, and a newline in a label
// could forge a dump header).
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <unordered_set>
#include <vector>

#include <nlohmann/json.hpp>

namespace App {

// What the checker found, with where: "step 3: duplicate key 'active'".
class DocumentError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// A SAX handler: the check is one linear pass of its own before the
// document is built (a parser callback would make building quadratic in the
// number of steps).
class DocumentChecker {
 public:
   // Throws DocumentError at the first problem. Syntax errors are left to
   // the parser that builds the document, which reports them better.
   static void check(const std::string& text);

   bool null() { return value(); }
   bool boolean(bool) { return value(); }
   bool number_integer(std::int64_t) { return value(); }
   bool number_unsigned(std::uint64_t) { return value(); }
   bool number_float(double, const std::string&) { return value(); }
   bool string(std::string& text);
   bool binary(std::vector<std::uint8_t>&) { return value(); }
   bool start_object(std::size_t);
   bool key(std::string& key);
   bool end_object();
   bool start_array(std::size_t);
   bool end_array();
   bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) {
      return false;
   }

 private:
   struct Frame {
      bool object;
      std::unordered_set<std::string> keys;  // an object's keys so far
      std::string key;                // the key being read
      std::size_t index = 0;          // an array's current element, 1-based
   };

   bool value();
   void checkText(const std::string& text, const char* what) const;
   std::string where() const;

   std::vector<Frame> stack_;
};

}  // namespace App
