#include "app/read/PublishedRows.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "platform/plim/RowPlace.h"

namespace App {

namespace {

std::vector<std::string_view> split(std::string_view text, char separator) {
   std::vector<std::string_view> parts;
   for (std::size_t start = 0;;) {
      const std::size_t end = text.find(separator, start);
      parts.push_back(text.substr(start, end - start));
      if (end == std::string_view::npos) {
         return parts;
      }
      start = end + 1;
   }
}

void appendNumber(std::string& out, std::uint32_t value) {
   char digits[std::numeric_limits<std::uint32_t>::digits10 + 1];
   out.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
}

template <class T>
T number(std::string_view text) {
   T value{};
   auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
   if (error != std::errc() || end != text.data() + text.size()) {
      throw std::invalid_argument("malformed published number '" + std::string(text) + "'");
   }
   return value;
}

double seconds(std::string_view text) {
   const std::string copy(text);
   char* end = nullptr;
   const double value = std::strtod(copy.c_str(), &end);
   if (copy.empty() || *end != '\0') {
      throw std::invalid_argument("malformed published time '" + copy + "'");
   }
   return value;
}

std::string secondsText(double value) {
   char text[64];
   std::snprintf(text, sizeof(text), "%.6f", value);
   return text;
}

}  // namespace

std::string vrfKey(std::uint32_t vrfId) {
   const auto bytes = Plim::bigEndianBytes(vrfId);
   return {bytes.begin(), bytes.end()};
}

std::string candidateKey(const Ovel::IpGenPrefix& prefix) {
   const auto key = Plim::placedKey(prefix);
   return {key.begin(), key.end()};
}

Ovel::IpGenPrefix candidatePrefix(std::string_view key) {
   if (key.size() != 4 + sizeof(Ovel::IpGenPrefix)) {
      throw std::invalid_argument("malformed candidate key");
   }
   Ovel::IpGenPrefix prefix;
   std::memcpy(&prefix, key.data() + 4, sizeof prefix);
   if (key != candidateKey(prefix)) {
      throw std::invalid_argument("malformed candidate key");  // a row no lookup would find
   }
   return prefix;
}

void CandidatesValue::start(std::string_view installedOwner) { value_.assign(installedOwner); }

void CandidatesValue::add(std::string_view intf, const Ovel::IpGenAddrWithMask& address, unsigned type,
                          std::uint32_t viaSet) {
   value_ += '\n';
   value_ += intf;
   value_ += '\t';
   char text[Ovel::IpGenAddrWithMask::kMaxChars];
   value_.append(text, address.toChars(text));
   value_ += '\t';
   appendNumber(value_, type);
   value_ += '\t';
   appendNumber(value_, viaSet);
}

Candidates parseCandidates(std::string_view value) {
   const auto lines = split(value, '\n');
   Candidates candidates{std::string(lines.front()), {}};
   for (std::size_t i = 1; i < lines.size(); ++i) {
      const auto fields = split(lines[i], '\t');
      if (fields.size() != 4) {
         throw std::invalid_argument("malformed published candidate");
      }
      candidates.rows.push_back(CandidateRow{std::string(fields[0]), std::string(fields[1]),
                                             number<unsigned>(fields[2]),
                                             number<std::uint32_t>(fields[3])});
   }
   return candidates;
}

std::string vrfStatusValue(const VrfStatusRow& row) {
   return row.name + '\t' + row.v4Ready + '\t' + row.v6Ready + '\t' + row.protoReady + '\t' +
          secondsText(row.protoReadyTime) + '\t' + std::to_string(row.backlog) + '\t' +
          std::to_string(row.drains) + '\t' + secondsText(row.longestSlice);
}

VrfStatusRow parseVrfStatus(std::string_view value) {
   const auto fields = split(value, '\t');
   if (fields.size() != 8) {
      throw std::invalid_argument("malformed published VRF status");
   }
   return VrfStatusRow{std::string(fields[0]), std::string(fields[1]), std::string(fields[2]),
                       std::string(fields[3]), seconds(fields[4]), number<std::uint64_t>(fields[5]),
                       number<std::uint64_t>(fields[6]), seconds(fields[7])};
}

std::string namespaceCountersValue(const NamespaceCounters& counters) {
   return std::to_string(counters.messages) + '\t' + std::to_string(counters.eventsLost) + '\t' +
          std::to_string(counters.resyncs);
}

NamespaceCounters parseNamespaceCounters(std::string_view netns, std::string_view value) {
   const auto fields = split(value, '\t');
   if (fields.size() != 3) {
      throw std::invalid_argument("malformed published namespace counters");
   }
   return NamespaceCounters{std::string(netns), number<std::uint64_t>(fields[0]),
                            number<std::uint64_t>(fields[1]), number<std::uint64_t>(fields[2])};
}

}  // namespace App
