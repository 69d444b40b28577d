// bytesLess orders objects exactly as memcmp orders their bytes, for
// sizes with and without a tail shorter than a word.
#include "platform/vok/SameBytes.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <random>

namespace {

template <std::size_t N>
void checkAgainstMemcmp(unsigned seed) {
   using Bytes = std::array<unsigned char, N>;
   std::mt19937 random(seed);
   for (int i = 0; i < 20000; ++i) {
      Bytes a, b;
      for (auto& byte : a) {
         byte = static_cast<unsigned char>(random() % 4 * 85);  // few values: many equal prefixes
      }
      b = a;
      if (random() % 4 != 0) {
         b[random() % N] = static_cast<unsigned char>(random());
      }
      const int expected = std::memcmp(a.data(), b.data(), N);
      ASSERT_EQ(Vok::bytesLess(a, b), expected < 0) << "size " << N << " case " << i;
      ASSERT_EQ(Vok::bytesLess(b, a), expected > 0) << "size " << N << " case " << i;
   }
}

TEST(SameBytes, OrdersAsMemcmpDoes) {
   checkAgainstMemcmp<1>(1);
   checkAgainstMemcmp<8>(2);
   checkAgainstMemcmp<13>(3);
   checkAgainstMemcmp<20>(4);  // an IpGenPrefix
   checkAgainstMemcmp<32>(5);
}

}  // namespace
