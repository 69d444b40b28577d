// Reading the text form of a value record: fixed pieces that must match
// exactly, and fields whose text runs up to the next fixed piece and is read
// by the field type's own parser. A field's failure is raised again with the
// attribute's name attached, and nothing is built from a text that fails.
#pragma once

#include <string>
#include <string_view>

#include "platform/vok/Errors.h"

namespace Routing::ConnectedRoute {

class RecordText {
 public:
   RecordText(std::string_view text, std::string_view typeName)
         : text_(text), rest_(text), typeName_(typeName) {}

   void expect(std::string_view piece) {
      if (!rest_.starts_with(piece)) {
         throw Vok::ParseError("bad " + std::string(typeName_) + " text '" + std::string(text_) +
                               "': expected \"" + std::string(piece) + "\" at offset " +
                               std::to_string(text_.size() - rest_.size()));
      }
      rest_.remove_prefix(piece.size());
   }

   // Reads the field that ends where `next` (the following fixed piece)
   // begins, with `parse`, and consumes both.
   template <class Parse>
   auto field(std::string_view attribute, std::string_view next, Parse parse) {
      std::size_t end = rest_.find(next);
      if (end == std::string_view::npos) {
         throw Vok::ParseError("bad " + std::string(typeName_) + " text '" + std::string(text_) +
                                     "': missing \"" + std::string(next) + "\"",
                               std::string(attribute));
      }
      std::string_view fieldText = rest_.substr(0, end);
      try {
         auto value = parse(fieldText);
         rest_.remove_prefix(end);
         expect(next);
         return value;
      } catch (const Vok::ParseError& e) {
         throw Vok::ParseError(e.what(), std::string(attribute));
      }
   }

   void expectEnd() const {
      if (!rest_.empty()) {
         throw Vok::ParseError("bad " + std::string(typeName_) + " text '" + std::string(text_) +
                               "': unexpected trailing text");
      }
   }

 private:
   std::string_view text_;
   std::string_view rest_;
   std::string_view typeName_;
};

}  // namespace Routing::ConnectedRoute
