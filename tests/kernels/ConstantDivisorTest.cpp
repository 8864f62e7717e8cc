// Division by a constant through fused multiply-adds, against the division itself.
#include "kernels/ConstantDivisor.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace {

#if QRN_HAVE_WIDE_TARGET
// Loads and stores by intrinsics: an unoptimised build does not inline Vec4d::Load, and a
// 32-byte vector returned from baseline code would not reach this AVX function intact.
__attribute__((target("avx2,fma"))) void DivideAll(const CConstantDivisor& divisor, const std::vector<double>& a,
                                                   std::vector<double>& q) {
  q.resize(a.size());
  for (std::size_t i = 0; i + 4 <= a.size(); i += 4) {
    Vec4d lanes, quotient;
    lanes.v = _mm256_loadu_pd(a.data() + i);
    divisor.Divide(lanes, quotient);
    _mm256_storeu_pd(q.data() + i, quotient.v);
  }
}
#endif

std::uint64_t Bits(double v) {
  std::uint64_t b;
  std::memcpy(&b, &v, sizeof b);
  return b;
}

// How many of the dividends (a multiple of four) divide to other bits than a / b does.
int Mismatches(double b, const std::vector<double>& a) {
#if QRN_HAVE_WIDE_TARGET
  std::vector<double> q;
  DivideAll(CConstantDivisor(b), a, q);
  int wrong = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    const bool same = Bits(q[i]) == Bits(a[i] / b);
    if (!same && wrong < 3) ADD_FAILURE() << std::hexfloat << a[i] << " / " << b << ": " << q[i] << ", not " << a[i] / b;
    wrong += !same;
  }
  return wrong;
#else
  (void)b;
  (void)a;
  return 0;
#endif
}

bool CanRun() { return qrn::simd::FusedMultiplyAdd(); }

TEST(ConstantDivisor, QuotientsNextToARoundingMidpointRoundAsTheDivisionDoes) {
  if (!CanRun()) GTEST_SKIP() << "no fused multiply-add here";
  // a = B·M rounded to 53 bits, M odd with 54 bits: a / B then lies just beside the midpoint
  // M between two doubles, the hardest case for any shortcut. Divisors include significands
  // of all ones and of one past a power of two, and both signs.
  std::mt19937_64 rng(7);
  int wrong = 0;
  for (int divisorIndex = 0; divisorIndex < 64; ++divisorIndex) {
    std::uint64_t B = (rng() >> 11) | (std::uint64_t(1) << 52);
    if (divisorIndex % 8 == 1) B = (std::uint64_t(1) << 53) - 1 - divisorIndex / 8;
    if (divisorIndex % 8 == 2) B = (std::uint64_t(1) << 52) + 1 + divisorIndex / 8;
    const int divisorExponent = static_cast<int>(rng() % 500) - 250;
    const double b = std::ldexp(double(B), divisorExponent - 52) * (divisorIndex % 2 ? -1.0 : 1.0);
    ASSERT_TRUE(CConstantDivisor::Takes(b));
    std::vector<double> a;
    for (int i = 0; i < 4096; ++i) {
      const std::uint64_t M = (rng() >> 10) | (std::uint64_t(1) << 53) | 1;
      const unsigned __int128 product = static_cast<unsigned __int128>(B) * M;
      const int bits = 128 - (product >> 64 ? __builtin_clzll(std::uint64_t(product >> 64))
                                            : 64 + __builtin_clzll(std::uint64_t(product)));
      const int shift = bits - 53;
      const std::uint64_t A = std::uint64_t(product >> shift) + std::uint64_t((product >> (shift - 1)) & 1) +
                              static_cast<int>(rng() % 3) - 1;
      const int dividendExponent = static_cast<int>(rng() % 800) - 400;
      a.push_back(std::ldexp(double(A), dividendExponent) * (rng() % 2 ? -1.0 : 1.0));
    }
    wrong += Mismatches(b, a);
  }
  EXPECT_EQ(wrong, 0);
}

TEST(ConstantDivisor, RandomDividendsAcrossTheRange) {
  if (!CanRun()) GTEST_SKIP() << "no fused multiply-add here";
  std::mt19937_64 rng(11);
  std::uniform_real_distribution<double> exponent(-450.0, 450.0), significand(1.0, 2.0);
  for (double b : {3.0, -7.25, 0.1, std::ldexp(1.0, -300), -std::ldexp(1.3, 299), 1.0, -1.0}) {
    std::vector<double> a;
    for (int i = 0; i < 20000; ++i) a.push_back(std::ldexp(significand(rng), int(exponent(rng))) * (i % 3 ? 1 : -1));
    EXPECT_EQ(Mismatches(b, a), 0) << "divisor " << b;
  }
}

TEST(ConstantDivisor, ZerosInfinitiesAndNaNKeepTheDivisionsSignsAndPayloads) {
  if (!CanRun()) GTEST_SKIP() << "no fused multiply-add here";
  const double inf = std::numeric_limits<double>::infinity();
  double payloadNaN;
  const std::uint64_t nanBits = 0xfff8000000012345ull;  // a negative quiet NaN with a payload
  std::memcpy(&payloadNaN, &nanBits, sizeof payloadNaN);
  const std::vector<double> a = {0.0, -0.0, inf, -inf, std::numeric_limits<double>::quiet_NaN(), payloadNaN, 1.5, -0.0};
  for (double b : {2.0, -2.0, 0.3, -0.3}) EXPECT_EQ(Mismatches(b, a), 0) << "divisor " << b;
}

TEST(ConstantDivisor, RangeChecks) {
  for (double b : {std::ldexp(1.0, 300), -std::ldexp(1.0, -300)}) EXPECT_TRUE(CConstantDivisor::Takes(b)) << b;
  for (double b : {std::ldexp(1.0, 301), std::ldexp(1.0, -301), 0.0, std::numeric_limits<double>::quiet_NaN(),
                   std::numeric_limits<double>::infinity()})
    EXPECT_FALSE(CConstantDivisor::Takes(b)) << b;
  for (double s : {0.0, -7.5}) EXPECT_TRUE(CConstantDivisor::TakesScaledFloatDifferences(s)) << s;
  for (double s : {std::ldexp(1.0, 310), std::numeric_limits<double>::denorm_min()})
    EXPECT_FALSE(CConstantDivisor::TakesScaledFloatDifferences(s)) << s;
}

}  // namespace
