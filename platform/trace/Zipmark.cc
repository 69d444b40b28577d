#include "platform/trace/Zipmark.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include "platform/trace/EnvironmentSetting.h"
#include "platform/trace/ZipmarkFormat.h"

namespace Zipmark {

namespace {

std::uint32_t parseLevelMask(std::string_view levels) {
   std::uint32_t mask = 0;
   while (!levels.empty()) {
      std::string_view part = levels.substr(0, levels.find(','));
      levels.remove_prefix(std::min(levels.size(), part.size() + 1));
      std::size_t dash = part.find('-');
      std::string_view lo = part.substr(0, dash);
      std::string_view hi = dash == std::string_view::npos ? lo : part.substr(dash + 1);
      if (lo.size() != 1 || hi.size() != 1 || lo[0] < '0' || hi[0] > '9' || hi[0] < lo[0]) {
         throw std::invalid_argument("bad fast-trace levels '" + std::string(part) +
                                     "': expected levels 0-9 like 1 or 0-9");
      }
      for (int l = lo[0] - '0'; l <= hi[0] - '0'; ++l) {
         mask |= 1u << l;
      }
   }
   return mask;
}

class Recorder {
 public:
   static Recorder& instance() {
      static Recorder recorder;
      return recorder;
   }

   void initialize(const Config& config) {
      if (config.threadMode != 0) {
         throw std::invalid_argument("fast trace supports thread mode 0 only");
      }
      if (config.maxSizeLog2 < 12 || config.maxSizeLog2 > 40) {
         throw std::invalid_argument("fast-trace size 2^" + std::to_string(config.maxSizeLog2) +
                                     " out of range 2^12..2^40");
      }
      close();
      config_ = config;
      fileName_ = config.nameFormat;
      if (auto pos = fileName_.find("%d"); pos != std::string::npos) {
         fileName_.replace(pos, 2, std::to_string(::getpid()));
      }
      configured_ = true;
   }

   const std::string& fileName() const { return fileName_; }
   void levelsIs(std::string_view levels) { mask_ = parseLevelMask(levels); }
   const std::string& environmentError() const noexcept { return environmentError_; }
   bool enabled(int level) const noexcept {
      return configured_ && level >= config_.minLevel && ((mask_ >> level) & 1u);
   }

   void record(int level, std::string_view method, std::initializer_list<Field> fields) {
      std::string payload;
      payload.push_back(static_cast<char>(level));
      payload.push_back(static_cast<char>(fields.size()));
      appendShortText(payload, method);
      for (const Field& f : fields) {
         appendShortText(payload, f.label);
         payload.push_back(static_cast<char>(f.kind));
         appendValue(payload, f);
      }
      write(payload);
   }

   void flush() {
      if (file_) {
         std::fflush(file_);
      }
   }

 private:
   Recorder()
         : mask_(Vok::settingFromEnvironment("CONNROUTE_FASTTRACE", parseLevelMask, std::uint32_t{0},
                                             environmentError_)) {}
   ~Recorder() { close(); }

   static void appendShortText(std::string& out, std::string_view text) {
      text = text.substr(0, 255);
      out.push_back(static_cast<char>(text.size()));
      out.append(text);
   }

   static void appendValue(std::string& out, const Field& f) {
      switch (f.kind) {
         case Kind::text: {
            std::string_view v = f.textValue.substr(0, 0xFFFF);
            out.push_back(static_cast<char>(v.size() & 0xFF));
            out.push_back(static_cast<char>(v.size() >> 8));
            out.append(v);
            break;
         }
         case Kind::integer:
            for (int i = 0; i < 8; ++i) {
               out.push_back(static_cast<char>(static_cast<std::uint64_t>(f.integerValue) >> (8 * i)));
            }
            break;
         case Kind::boolean:
            out.push_back(static_cast<char>(f.integerValue != 0));
            break;
         case Kind::am4:
            out.append(reinterpret_cast<const char*>(f.address.data()), 4);
            out.push_back(static_cast<char>(f.length));
            break;
         case Kind::am6:
            out.append(reinterpret_cast<const char*>(f.address.data()), 16);
            out.push_back(static_cast<char>(f.length));
            break;
      }
   }

   void write(const std::string& payload) {
      if (payload.size() > 0xFFFF) {
         return;  // cannot happen with the bounded fields above
      }
      if (file_ && written_ + payload.size() + 2 > (std::uint64_t{1} << config_.maxSizeLog2)) {
         close();
         std::rename(fileName_.c_str(), (fileName_ + ".old").c_str());
      }
      if (!file_ && !open()) {
         return;
      }
      unsigned char header[2] = {static_cast<unsigned char>(payload.size() & 0xFF),
                                 static_cast<unsigned char>(payload.size() >> 8)};
      std::fwrite(header, 1, 2, file_);
      std::fwrite(payload.data(), 1, payload.size(), file_);
      written_ += payload.size() + 2;
   }

   bool open() {
      file_ = std::fopen(fileName_.c_str(), "wb");
      if (!file_) {
         // Tracing must never stop the agent: give up on this file quietly.
         configured_ = false;
         return false;
      }
      std::fwrite(kMagic.data(), 1, kMagic.size(), file_);
      written_ = kMagic.size();
      return true;
   }

   void close() {
      if (file_) {
         std::fclose(file_);
         file_ = nullptr;
      }
   }

   Config config_;
   std::string fileName_;
   bool configured_ = false;
   std::string environmentError_;  // why CONNROUTE_FASTTRACE was not applied
   std::uint32_t mask_ = 0;
   std::FILE* file_ = nullptr;
   std::uint64_t written_ = 0;
};

}  // namespace

Field am4(std::string_view label, std::uint32_t address, std::uint8_t length) {
   Field f{label, Kind::am4, {}};
   for (int i = 0; i < 4; ++i) {
      f.address[i] = static_cast<std::uint8_t>(address >> (24 - 8 * i));
   }
   f.length = length;
   return f;
}

Field am6(std::string_view label, const std::array<std::uint8_t, 16>& address,
          std::uint8_t length) {
   Field f{label, Kind::am6, {}};
   f.address = address;
   f.length = length;
   return f;
}

void initialize(const Config& config) { Recorder::instance().initialize(config); }
const std::string& fileName() { return Recorder::instance().fileName(); }
void levelsIs(std::string_view levels) { Recorder::instance().levelsIs(levels); }
const std::string& environmentError() { return Recorder::instance().environmentError(); }
bool enabled(int level) noexcept { return Recorder::instance().enabled(level); }
void record(int level, std::string_view method, std::initializer_list<Field> fields) {
   Recorder::instance().record(level, method, fields);
}
void flush() { Recorder::instance().flush(); }

}  // namespace Zipmark
