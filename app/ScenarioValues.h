// Reading one scenario step: a field reader that refuses fields nobody
// reads, and the parsers of the values steps are made of. Each parser
// throws an exception whose text says what is wrong; the reader adds where.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "app/Scenario.h"

namespace App::ScenarioValues {

using nlohmann::json;

// Reads one step's value, recording the fields it used so that a field
// nobody reads (a typo) is an error rather than silently ignored.
class Reader {
 public:
   Reader(const json& value, std::string where) : value_(value), where_(std::move(where)) {}

   [[noreturn]] void fail(const std::string& what) const { throw ScenarioError(where_ + what); }

   const json& object() const {
      if (!value_.is_object()) {
         fail("expected an object, got " + std::string(value_.type_name()));
      }
      return value_;
   }
   bool has(const std::string& field) const { return object().contains(field); }
   const json& field(const std::string& name) {
      used_.insert(name);
      if (!has(name)) {
         fail("missing field '" + name + "'");
      }
      return value_.at(name);
   }
   template <class Parse>
   auto get(const std::string& name, Parse parse) {
      const json& v = field(name);
      try {
         return parse(v);
      } catch (const ScenarioError&) {
         throw;
      } catch (const std::exception& e) {
         fail("field '" + name + "': " + e.what());
      }
   }
   template <class Parse>
   auto maybe(const std::string& name, Parse parse) -> std::optional<decltype(parse(json()))> {
      if (!has(name)) {
         return std::nullopt;
      }
      return get(name, parse);
   }
   void done() const {
      for (const auto& [key, v] : object().items()) {
         if (!used_.contains(key)) {
            fail("unknown field '" + key + "'");
         }
      }
   }

 private:
   const json& value_;
   std::string where_;
   std::set<std::string> used_;
};

inline std::string text(const json& v) {
   if (!v.is_string()) {
      throw std::invalid_argument("expected a string, got " + std::string(v.type_name()));
   }
   return v.get<std::string>();
}
inline bool boolean(const json& v) {
   if (!v.is_boolean()) {
      throw std::invalid_argument("expected true or false, got " + std::string(v.type_name()));
   }
   return v.get<bool>();
}
template <class Parse>
auto list(const json& v, Parse parse) {
   if (!v.is_array()) {
      throw std::invalid_argument("expected a list, got " + std::string(v.type_name()));
   }
   std::vector<decltype(parse(json()))> out;
   for (const json& item : v) {
      out.push_back(parse(item));
   }
   return out;
}

// A name: not empty and not padded with spaces, which would make two
// names that print alike.
inline std::string name(const json& v) {
   std::string t = text(v);
   if (t.empty()) {
      throw std::invalid_argument("empty name");
   }
   if (t.front() == ' ' || t.back() == ' ') {
      throw std::invalid_argument("name '" + t.substr(0, 40) + "' starts or ends with a space");
   }
   return t;
}
inline L3::VrfName vrfName(const json& v) { return L3::VrfName(name(v)); }
inline Ovel::IntfId intfId(const json& v) { return Ovel::IntfId::parse(name(v)); }
inline Ovel::NamespaceName netns(const json& v) { return Ovel::NamespaceName(name(v)); }
inline Ovel::IpAddrWithMask v4(const json& v) {
   const std::string t = text(v);
   return t == "none" ? Ovel::IpAddrWithMask() : Ovel::IpAddrWithMask::parse(t);
}
inline Ovel::Ip6AddrWithMask v6(const json& v) { return Ovel::Ip6AddrWithMask::parse(text(v)); }
// A peer prefix: a subnet, its host bits clear.
template <class AddrWithMask>
AddrWithMask peerPrefix(const json& v) {
   const std::string t = text(v);
   const AddrWithMask prefix = AddrWithMask::parse(t);
   if (prefix.addr() != prefix.subnet()) {
      throw std::invalid_argument("peer prefix '" + t + "' has host bits set");
   }
   return prefix;
}
inline std::string device(const json& v) {
   std::string t = text(v);
   if (t.empty() || t.size() > 15 || t.find_first_of(" /") != std::string::npos) {
      throw std::invalid_argument("bad device name '" + t + "' (1 to 15 characters, no space or /)");
   }
   return t;
}
inline Vrf::VrfIdMap::VrfId vrfId(const json& v) {
   if (v.is_string()) {
      return Vrf::VrfIdMap::VrfId::parse(v.get<std::string>());
   }
   if (!v.is_number_unsigned() || v.get<std::uint64_t>() > 0xFFFFFFFFull) {
      throw std::invalid_argument("expected a VRF identifier 0..4294967295 or \"invalid\"");
   }
   return Vrf::VrfIdMap::VrfId(static_cast<std::uint32_t>(v.get<std::uint64_t>()));
}
inline std::map<L3::VrfName, Vrf::VrfIdMap::VrfId> idMap(const json& v) {
   if (!v.is_object()) {
      throw std::invalid_argument("expected an object of VRF names to identifiers");
   }
   std::map<L3::VrfName, Vrf::VrfIdMap::VrfId> out;
   for (const auto& [key, id] : v.items()) {
      try {
         out.emplace(vrfName(json(key)), vrfId(id));
      } catch (const std::exception& e) {
         throw std::invalid_argument("VRF '" + key.substr(0, 40) + "': " + e.what());
      }
   }
   return out;
}
inline Vok::Seconds duration(const json& v) {
   if (v.is_number()) {
      return checkedDuration(v.get<double>());
   }
   return parseDuration(text(v));
}

}  // namespace App::ScenarioValues
