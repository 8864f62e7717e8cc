#include "core/RunningDoubleSum.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "common/SumTestPlanes.h"
#include "kernels/Vec4.h"

namespace {

bool SameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b)); }

// The plain loop after `start` (added as it is, also before squares).
double PlainSum(float start, const std::vector<float>& v, bool squares) {
  double s = start;
  for (float x : v) {
    const double t = x;
    s += squares ? t * t : t;
  }
  return s;
}

// Sums v (in rows of `width`) and its squares after `start`, on both vector widths, against
// the plain loops; returns the blocks that went the fast way, over both sums, on the wide one.
int ExpectPlainSums(float start, const std::vector<float>& v, int width, const char* what) {
  int fast = 0;
  for (int wide : {1, 0}) {
    qrn::simd::SetWideVectors(wide);
    CRunningDoubleSum sum, squares;
    sum.Add(&start, 1);
    squares.Add(&start, 1);
    for (std::size_t i = 0; i < v.size(); i += width) {
      const int n = static_cast<int>(std::min<std::size_t>(width, v.size() - i));
      sum.Add(v.data() + i, n);
      squares.AddSquares(v.data() + i, n);
    }
    EXPECT_TRUE(SameBits(sum.Value(), PlainSum(start, v, false))) << what << ", wide " << wide;
    EXPECT_TRUE(SameBits(squares.Value(), PlainSum(start, v, true))) << what << " squared, wide " << wide;
    if (wide) fast = sum.FastBlocks() + squares.FastBlocks();
  }
  qrn::simd::SetWideVectors(1);
  return fast;
}

TEST(CRunningDoubleSum, PlanesSumAsThePlainLoopsAndMostlyByBlocks) {
  // Counts with fractions and stars, a normalised frame and integer counts: after the first
  // rows the sums dwarf their terms and nearly every block is added at once.
  const int width = 4096;
  const qrntest::SumPlanes planes = qrntest::MakeSumPlanes(width, 200, 3);
  const auto& counts = planes.counts;
  const auto& normalised = planes.normalised;
  const auto& integers = planes.integers;
  const int blocks = static_cast<int>(counts.size() / 1024);
  EXPECT_GT(ExpectPlainSums(0.0f, counts, width, "counts"), 2 * blocks * 9 / 10);
  EXPECT_GT(ExpectPlainSums(0.0f, normalised, width, "normalised"), 2 * blocks * 9 / 10);
  EXPECT_GT(ExpectPlainSums(0.0f, integers, width, "integer counts"), 2 * blocks * 9 / 10);
  EXPECT_EQ(ExpectPlainSums(0.0f, counts, 1000, "rows of 1000"), 0);  // blocks never fill
}

TEST(CRunningDoubleSum, TiesRangeEdgesSignsAndSpecialsMatchThePlainLoops) {
  // From 2^60 on the spacing is 256: odd multiples of 128 are exact ties, broken to even.
  std::vector<float> ties(8192, 1000.0f);
  for (std::size_t i = 0; i < ties.size(); i += 3) ties[i] = (i / 3) % 2 ? 128.0f : 384.0f;
  EXPECT_GT(ExpectPlainSums(0x1p60f, ties, 4096, "ties"), 0);
  // Sums that cross a power of two inside a block, upwards and downwards.
  std::vector<float> up(8192, 700.0f), down(8192, -700.0f);
  ExpectPlainSums(0x1p34f - 1e6f, up, 4096, "crossing up");
  ExpectPlainSums(0x1p34f + 1e6f, down, 4096, "crossing down");
  std::mt19937 rng(8);
  std::uniform_real_distribution<float> mixed(-3000.0f, 2000.0f), tiny(-1e-30f, 1e-30f);
  std::vector<float> m(8192), t(8192), big(8192);
  for (std::size_t i = 0; i < m.size(); ++i) {
    m[i] = mixed(rng);
    t[i] = tiny(rng);
    big[i] = i % 100 == 0 ? 3e18f : 1.0f;
  }
  EXPECT_GT(ExpectPlainSums(-1e12f, m, 4096, "negative sum, mixed terms"), 0);
  ExpectPlainSums(1e6f, t, 4096, "tiny terms");
  ExpectPlainSums(1e10f, big, 4096, "terms large against the sum");
  ExpectPlainSums(1e-40f, t, 4096, "subnormal start");
  const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
  for (float special : {nan, inf, -inf, 3e38f}) {
    std::vector<float> v(4096, 1000.0f);
    v[1500] = special;
    ExpectPlainSums(1e9f, v, 4096, "special term");
  }
}

}  // namespace
