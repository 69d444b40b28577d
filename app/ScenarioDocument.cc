#include "app/ScenarioDocument.h"

#include <algorithm>
#include <cstdio>

namespace App {

using nlohmann::json;

json DocumentReader::read(const std::string& text) {
   DocumentReader reader;
   json::sax_parse(text, &reader, json::input_format_t::json, /*strict=*/true,
                   /*ignore_comments=*/true);
   return std::move(reader.root_);
}

json* DocumentReader::place(json&& value) {
   if (stack_.empty()) {
      root_ = std::move(value);
      return &root_;
   }
   Frame& frame = stack_.back();
   if (frame.container->is_array()) {
      ++frame.index;
      auto& elements = frame.container->get_ref<json::array_t&>();
      elements.push_back(std::move(value));
      return &elements.back();
   }
   json& member = (*frame.container)[frame.key];
   member = std::move(value);
   return &member;
}

bool DocumentReader::string(std::string& text) {
   // Placed first, so that an error names the array element it is.
   const json* placed = place(json(std::move(text)));
   checkText(placed->get_ref<const std::string&>(), "string");
   return true;
}

bool DocumentReader::binary(std::vector<std::uint8_t>& bytes) {
   place(json::binary(std::move(bytes)));
   return true;
}

bool DocumentReader::start_object(std::size_t) {
   json* object = place(json::object());
   stack_.push_back(Frame{object, {}, 0});
   return true;
}

bool DocumentReader::start_array(std::size_t) {
   json* array = place(json::array());
   stack_.push_back(Frame{array, {}, 0});
   return true;
}

bool DocumentReader::end_object() {
   stack_.pop_back();
   return true;
}

bool DocumentReader::end_array() {
   stack_.pop_back();
   return true;
}

bool DocumentReader::key(std::string& key) {
   Frame& frame = stack_.back();
   frame.key.clear();  // a key is reported where its object stands
   checkText(key, "key");
   if (frame.container->contains(key)) {
      throw DocumentError(where() + "duplicate key '" + key.substr(0, 40) + "'");
   }
   frame.key = key;
   return true;
}

namespace {

// The control character starting at text[i], as a code point, or 0: C0
// controls and DEL, C1 controls (U+0080 to U+009F) and the bidirectional
// formatting characters that reorder what a terminal shows (U+200E, U+200F,
// U+202A to U+202E, U+2066 to U+2069). The parser has checked the UTF-8.
unsigned controlAt(const std::string& text, std::size_t i) {
   const auto byte = [&](std::size_t k) {
      return k < text.size() ? static_cast<unsigned char>(text[k]) : 0u;
   };
   const unsigned c = byte(i);
   if (c < 0x20 || c == 0x7f) {
      return c == 0 ? 0x100 : c;  // NUL reported apart from "none"
   }
   if (c == 0xC2 && byte(i + 1) >= 0x80 && byte(i + 1) <= 0x9F) {
      return byte(i + 1);
   }
   if (c == 0xE2) {
      const unsigned code = 0x2000 + ((byte(i + 1) & 0x3F) << 6) + (byte(i + 2) & 0x3F);
      if (code == 0x200E || code == 0x200F || (code >= 0x202A && code <= 0x202E) ||
          (code >= 0x2066 && code <= 0x2069)) {
         return code;
      }
   }
   return 0;
}

}  // namespace

void DocumentReader::checkText(const std::string& text, const char* what) const {
   for (std::size_t i = 0; i < text.size(); ++i) {
      if (const unsigned code = controlAt(text, i)) {
         char name[8];
         std::snprintf(name, sizeof(name), "U+%04X", code == 0x100 ? 0 : code);
         throw DocumentError(where() + std::string(what) + " '" +
                             text.substr(0, std::min<std::size_t>(i, 40)) +
                             "...' holds the control character " + name +
                             " (names, labels and texts are printed as they are)");
      }
   }
}

// "step 3 (ipv4), field 'secondaries'" for a place inside the steps list,
// "field 'description'" at the top.
std::string DocumentReader::where() const {
   std::string out;
   for (std::size_t i = 0; i < stack_.size(); ++i) {
      const Frame& frame = stack_[i];
      if (i == 1 && frame.container->is_array() && stack_[0].key == "steps") {
         out = "step " + std::to_string(frame.index);
         if (i + 1 < stack_.size() && !stack_[i + 1].key.empty()) {
            out += " (" + stack_[i + 1].key + ")";
            ++i;
         }
         continue;
      }
      if (frame.container->is_object() && !frame.key.empty()) {
         out += (out.empty() ? "" : ", ") + std::string("field '") + frame.key.substr(0, 40) + "'";
      }
   }
   return out.empty() ? "" : out + ": ";
}

}  // namespace App
