// How the runtime's hash maps hash and order their keys.
//
// Iteration order of a HashMap is the order of (placedHash(hash), tieBreak)
// over the keys present, so it must depend on the key's value alone. Records that define
// their own hash() are hashed with it; other keys must have a unique object
// representation (equal values, identical bytes) and are hashed over those
// bytes. tieBreak is a total order over the bytes, never the key's operator<,
// which some records deliberately define as a partial relation.
#pragma once

#include <compare>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

namespace Vok {

// A fast multiplicative hash over a byte range, folded to 32 bits.
inline std::uint32_t hashBytes(const void* data, std::size_t size) noexcept {
   constexpr std::uint64_t kMul = 0x9E3779B97F4A7C15ull;
   const auto* bytes = static_cast<const unsigned char*>(data);
   std::uint64_t h = size * kMul;
   while (size >= 8) {
      std::uint64_t word;
      std::memcpy(&word, bytes, 8);
      h = (h ^ word) * kMul;
      h ^= h >> 29;
      bytes += 8;
      size -= 8;
   }
   if (size > 0) {
      std::uint64_t word = 0;
      std::memcpy(&word, bytes, size);
      h = (h ^ word) * kMul;
   }
   h ^= h >> 32;
   h *= kMul;
   return static_cast<std::uint32_t>(h >> 32);
}

// The hash a map places and orders a key by: the key's own hash, except
// that the largest value marks a free slot in a table, so a key hashing to
// it counts as the value below. Still a function of the key alone.
constexpr std::uint32_t placedHash(std::uint32_t hash) noexcept {
   return hash == 0xFFFFFFFFu ? 0xFFFFFFFEu : hash;
}

template <class K>
concept HasOwnHash = requires(const K& k) {
   { k.hash() } -> std::convertible_to<std::uint32_t>;
};

template <class K>
struct KeyTraits {
   static_assert(std::has_unique_object_representations_v<K>,
                 "hash map keys need identical bytes for equal values");

   static std::uint32_t hash(const K& key) noexcept {
      if constexpr (HasOwnHash<K>) {
         return static_cast<std::uint32_t>(key.hash());
      } else {
         return hashBytes(&key, sizeof(K));
      }
   }
   static std::strong_ordering tieBreak(const K& a, const K& b) noexcept {
      return std::memcmp(&a, &b, sizeof(K)) <=> 0;
   }
};

// Keys that are strings in disguise (names) specialise through this base.
template <class K>
struct StringKeyTraits {
   static std::uint32_t hash(const K& key) noexcept {
      const std::string& s = key.str();
      return hashBytes(s.data(), s.size());
   }
   static std::strong_ordering tieBreak(const K& a, const K& b) noexcept {
      return a.str().compare(b.str()) <=> 0;
   }
};

template <>
struct KeyTraits<std::string> {
   static std::uint32_t hash(const std::string& s) noexcept { return hashBytes(s.data(), s.size()); }
   static std::strong_ordering tieBreak(const std::string& a, const std::string& b) noexcept {
      return a.compare(b) <=> 0;
   }
};

}  // namespace Vok
