#include "platform/trace/ZipmarkDecoder.h"

#include <arpa/inet.h>

#include <cstdint>
#include <stdexcept>
#include <string>

#include "platform/trace/Zipmark.h"
#include "platform/trace/ZipmarkFormat.h"

namespace Zipmark {

namespace {

class Reader {
 public:
   Reader(std::string_view data, std::size_t offset) : data_(data), pos_(offset) {}

   bool done() const { return pos_ >= data_.size(); }
   std::size_t position() const { return pos_; }
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
   Reader r(data, kMagic.size());
   while (!r.done()) {
      std::size_t start = r.position();
      std::size_t length = r.byte();
      length |= std::size_t{r.byte()} << 8;
      Reader rec(r.bytes(length), 0);
      int level = rec.byte();
      int count = rec.byte();
      out << level << ' ' << rec.bytes(rec.byte()) << ' ';
      for (int i = 0; i < count; ++i) {
         out << rec.bytes(rec.byte());
         switch (static_cast<Kind>(rec.byte())) {
            case Kind::text: {
               std::size_t n = rec.byte();
               n |= std::size_t{rec.byte()} << 8;
               out << rec.bytes(n);
               break;
            }
            case Kind::integer: {
               std::uint64_t v = 0;
               for (int b = 0; b < 8; ++b) {
                  v |= std::uint64_t{rec.byte()} << (8 * b);
               }
               out << static_cast<std::int64_t>(v);
               break;
            }
            case Kind::boolean:
               out << (rec.byte() ? "true" : "false");
               break;
            case Kind::am4: {
               std::string_view raw = rec.bytes(4);
               out << formatAddress(AF_INET, raw, rec.byte());
               break;
            }
            case Kind::am6: {
               std::string_view raw = rec.bytes(16);
               out << formatAddress(AF_INET6, raw, rec.byte());
               break;
            }
            default:
               throw std::runtime_error("unknown field kind in record at byte " +
                                        std::to_string(start));
         }
      }
      out << '\n';
   }
}

}  // namespace Zipmark
