#include "platform/trace/ZipmarkDecoder.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "platform/trace/Zipmark.h"
#include "platform/trace/ZipmarkFormat.h"

namespace Zipmark {

namespace {

// Reads bytes [offset, end) of the file; every position it reports is
// counted from the file's start.
class Reader {
 public:
   Reader(std::string_view data, std::size_t offset, std::size_t end)
         : data_(data.substr(0, end)), pos_(offset) {}

   bool done() const { return pos_ >= data_.size(); }
   std::size_t position() const { return pos_; }
   std::size_t left() const { return data_.size() - pos_; }
   std::uint8_t byte() {
      need(1);
      return static_cast<std::uint8_t>(data_[pos_++]);
   }
   std::string_view bytes(std::size_t n) {
      need(n);
      std::string_view v(data_.data() + pos_, n);
      pos_ += n;
      return v;
   }

 private:
   void need(std::size_t n) const {
      if (data_.size() - pos_ < n) {
         throw std::runtime_error("fast-trace record cut short at byte " + std::to_string(pos_));
      }
   }
   std::string_view data_;
   std::size_t pos_;
};

std::string formatAddress(int family, std::string_view raw, std::uint8_t length) {
   char text[INET6_ADDRSTRLEN] = {};
   ::inet_ntop(family, raw.data(), text, sizeof(text));
   return std::string(text) + "/" + std::to_string(length);
}

}  // namespace

void decode(std::istream& in, std::ostream& out) {
   std::string data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
   if (data.compare(0, kMagic.size(), kMagic) != 0) {
      throw std::runtime_error("not a fast-trace file: bad magic at byte 0");
   }
   Reader r(data, kMagic.size(), data.size());
   std::string line;
   while (!r.done()) {
      const std::size_t start = r.position();
      std::size_t length = r.byte();
      length |= std::size_t{r.byte()} << 8;
      const std::size_t body = r.position();
      r.bytes(length);
      Reader rec(data, body, body + length);
      line.clear();
      line += std::to_string(rec.byte());
      const int count = rec.byte();
      line += ' ';
      line += rec.bytes(rec.byte());
      for (int i = 0; i < count; ++i) {
         // Fields are one space apart, whatever spacing their labels carry.
         std::string_view label = rec.bytes(rec.byte());
         label.remove_prefix(std::min(label.find_first_not_of(' '), label.size()));
         line += ' ';
         line += label;
         const std::size_t fieldAt = rec.position();
         switch (static_cast<Kind>(rec.byte())) {
            case Kind::text: {
               std::size_t n = rec.byte();
               n |= std::size_t{rec.byte()} << 8;
               line += rec.bytes(n);
               break;
            }
            case Kind::integer: {
               std::uint64_t v = 0;
               for (int b = 0; b < 8; ++b) {
                  v |= std::uint64_t{rec.byte()} << (8 * b);
               }
               line += std::to_string(static_cast<std::int64_t>(v));
               break;
            }
            case Kind::boolean:
               line += rec.byte() ? "true" : "false";
               break;
            case Kind::am4: {
               std::string_view raw = rec.bytes(4);
               line += formatAddress(AF_INET, raw, rec.byte());
               break;
            }
            case Kind::am6: {
               std::string_view raw = rec.bytes(16);
               line += formatAddress(AF_INET6, raw, rec.byte());
               break;
            }
            default:
               throw std::runtime_error("unknown field kind at byte " + std::to_string(fieldAt) +
                                        " in the record at byte " + std::to_string(start));
         }
      }
      if (!rec.done()) {
         throw std::runtime_error(std::to_string(rec.left()) + " bytes of junk after the fields of " +
                                  "the record at byte " + std::to_string(start) + ", from byte " +
                                  std::to_string(rec.position()));
      }
      line += '\n';
      out << line;
   }
}

}  // namespace Zipmark
