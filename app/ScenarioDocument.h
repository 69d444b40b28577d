// Reads a scenario document in one pass, checking it for what a JSON
// parser lets through but a scenario must not hold: a key given twice in
// one object (the parser would keep the last and silently drop the others,
// a whole step list included) and control characters in any key or string
// (names, labels and the description are printed, and a newline in a label
// could forge a dump header).
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace App {

// What the checker found, with where: "step 3: duplicate key 'active'".
class DocumentError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// Not JSON at all: a syntax error, or a number out of range. The text is
// the parser's own, with the offset it stopped at.
class JsonSyntaxError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// A SAX handler that builds the document while it checks it: one lexing
// pass, and no parser callback (which would make building quadratic in the
// number of steps).
class DocumentReader {
 public:
   // Throws DocumentError or JsonSyntaxError at the first problem, in
   // document order.
   static nlohmann::json read(const std::string& text);

   bool null() { return value(nullptr); }
   bool boolean(bool flag) { return value(flag); }
   bool number_integer(std::int64_t number) { return value(number); }
   bool number_unsigned(std::uint64_t number) { return value(number); }
   bool number_float(double number, const std::string&) { return value(number); }
   bool string(std::string& text);
   bool binary(std::vector<std::uint8_t>& bytes);
   bool start_object(std::size_t);
   bool key(std::string& key);
   bool end_object();
   bool start_array(std::size_t);
   bool end_array();
   bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception& e) {
      throw JsonSyntaxError(e.what());
   }

 private:
   struct Frame {
      nlohmann::json* container;
      std::string key;        // an object's key being read
      std::size_t index = 0;  // an array's current element, 1-based
   };

   // Places a value where the document stands: the root, the next element
   // of an array, or the member whose key was just read.
   nlohmann::json* place(nlohmann::json&& value);
   template <class Value>
   bool value(Value&& v) {
      place(nlohmann::json(std::forward<Value>(v)));
      return true;
   }
   void checkText(const std::string& text, const char* what) const;
   std::string where() const;

   nlohmann::json root_;
   std::vector<Frame> stack_;
};

}  // namespace App
