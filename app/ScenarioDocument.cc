#include "app/ScenarioDocument.h"

#include <algorithm>
#include <cstdio>

namespace App {

using nlohmann::json;

void DocumentChecker::check(const std::string& text) {
   DocumentChecker checker;
   json::sax_parse(text, &checker, json::input_format_t::json, /*strict=*/true,
                   /*ignore_comments=*/true);
}

bool DocumentChecker::value() {
   if (!stack_.empty() && !stack_.back().object) {
      ++stack_.back().index;
   }
   return true;
}

bool DocumentChecker::string(std::string& text) {
   value();
   checkText(text, "string");
   return true;
}

bool DocumentChecker::start_object(std::size_t) {
   value();
   stack_.push_back(Frame{true, {}, {}, 0});
   return true;
}

bool DocumentChecker::start_array(std::size_t) {
   value();
   stack_.push_back(Frame{false, {}, {}, 0});
   return true;
}

bool DocumentChecker::end_object() {
   stack_.pop_back();
   return true;
}

bool DocumentChecker::end_array() {
   stack_.pop_back();
   return true;
}

bool DocumentChecker::key(std::string& key) {
   Frame& frame = stack_.back();
   frame.key.clear();  // a key is reported where its object stands
   checkText(key, "key");
   if (!frame.keys.insert(key).second) {
      throw DocumentError(where() + "duplicate key '" + key.substr(0, 40) + "'");
   }
   frame.key = key;
   return true;
}

void DocumentChecker::checkText(const std::string& text, const char* what) const {
   for (std::size_t i = 0; i < text.size(); ++i) {
      const auto c = static_cast<unsigned char>(text[i]);
      if (c < 0x20 || c == 0x7f) {
         char code[8];
         std::snprintf(code, sizeof(code), "U+%04X", c);
         throw DocumentError(where() + std::string(what) + " '" +
                             text.substr(0, std::min<std::size_t>(i, 40)) +
                             "...' holds the control character " + code +
                             " (names, labels and texts are printed as they are)");
      }
   }
}

// "step 3 (ipv4), field 'secondaries'" for a place inside the steps list,
// "field 'description'" at the top.
std::string DocumentChecker::where() const {
   std::string out;
   for (std::size_t i = 0; i < stack_.size(); ++i) {
      const Frame& frame = stack_[i];
      if (i == 1 && !frame.object && stack_[0].key == "steps") {
         out = "step " + std::to_string(frame.index);
         if (i + 1 < stack_.size() && !stack_[i + 1].key.empty()) {
            out += " (" + stack_[i + 1].key + ")";
            ++i;
         }
         continue;
      }
      if (frame.object && !frame.key.empty()) {
         out += (out.empty() ? "" : ", ") + std::string("field '") + frame.key.substr(0, 40) + "'";
      }
   }
   return out.empty() ? "" : out + ": ";
}

}  // namespace App
