#include "core/RowSum.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "core/CoreTest.h"

namespace {

using coretest::SameBits;

double InOrder(const std::vector<float>& v, bool squares) {
  double s = 0.0;
  for (float x : v) s += static_cast<double>(squares ? x * x : x);
  return s;
}

// Every row summed both ways, apart and in one read, on both vector widths equals the left-to-right sum bit for bit.
void ExpectInOrder(const std::vector<float>& row, const char* what) {
  const int n = static_cast<int>(row.size());
  const double sum = InOrder(row, false), squares = InOrder(row, true);
  coretest::OnEveryWidth([&](int wide) {
    EXPECT_TRUE(SameBits(CRowSum::Sum(row.data(), n), sum)) << what << ", wide " << wide;
    EXPECT_TRUE(SameBits(CRowSum::SumOfSquares(row.data(), n), squares)) << what << ", wide " << wide;
    double s = 0.0, q = 0.0;
    CRowSum::SumAndSumOfSquares(row.data(), n, s, q);
    EXPECT_TRUE(SameBits(s, sum) && SameBits(q, squares)) << what << ", one read, wide " << wide;
  });
}

TEST(CRowSum, ImageRowsAndRowsWhoseOrderMattersMatchTheLeftToRightSum) {
  std::mt19937 rng(3);
  std::uniform_real_distribution<float> counts(100.0f, 65535.0f), unit(0.0f, 1.0f), sky(-20.0f, 20.0f);
  for (int n : {1, 3, 4, 7, 4096, 4099}) {
    std::vector<float> adu(n), normalised(n), background(n), integers(n);
    for (int i = 0; i < n; ++i) {
      adu[i] = counts(rng);
      normalised[i] = unit(rng);
      background[i] = sky(rng);
      integers[i] = std::floor(counts(rng));
    }
    ExpectInOrder(adu, "counts");
    ExpectInOrder(normalised, "normalised");
    ExpectInOrder(background, "background around zero");
    ExpectInOrder(integers, "integer counts");
  }
  // 2^53 followed by ones: in order every 1 is lost to rounding, while lane sums would keep
  // them. Then a huge range of magnitudes, and terms that are not finite or not normal.
  std::vector<float> big(64, 1.0f);
  big[0] = 0x1p53f;
  ExpectInOrder(big, "2^53 and ones");
  // A modest range whose total just passes 2^53 units of the smallest term: the later partial
  // sums round, so this row too must go in order.
  std::vector<float> edge(17, 0x1p28f + 32.0f);
  edge[0] = 1.0f + 0x1p-23f;
  edge[9] = 3.0f + 0x1p-22f;
  ExpectInOrder(edge, "just past 2^53 units");
  std::vector<float> range;
  for (int i = 0; i < 61; ++i) range.push_back(std::ldexp(1.0f + i / 64.0f, (i * 7) % 90 - 45));
  ExpectInOrder(range, "wide range");
  const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
  ExpectInOrder({1, 2, nan, 4, 5, 6, 7, 8, 9}, "NaN");
  ExpectInOrder({1, 2, 3, 4, inf, 6, -inf, 8, 9}, "infinities");
  ExpectInOrder({1, 2, 3, 4, 1e-41f, 6, 7, 8, 9}, "subnormal");
  ExpectInOrder({1, 2, 3, 4, 3e20f, 6, 7, 8, 9}, "square overflows");
  ExpectInOrder({0.0f, -0.0f, -0.0f, 0.0f, 5.0f, -5.0f, 0.0f, -0.0f}, "zeros and cancellation");
}

// The interleaved sum's stated association, one lane at a time.
double InterleavedReference(const std::vector<float>& v) {
  double lane[16] = {};
  for (std::size_t x = 0; x < v.size(); ++x) lane[x % 16] += v[x];
  double t[4];
  for (int j = 0; j < 4; ++j) t[j] = (lane[j] + lane[j + 4]) + (lane[j + 8] + lane[j + 12]);
  return (t[0] + t[1]) + (t[2] + t[3]);
}

TEST(CRowSum, InterleavedSumKeepsItsAssociationOnEveryWidth) {
  // Rows on which the order of addition shows: ones behind 2^53 are lost in one lane and kept
  // in another, and a wide range of magnitudes rounds differently under every association.
  std::mt19937 rng(11);
  std::uniform_int_distribution<int> exponent(-40, 40);
  for (int n : {1, 15, 16, 17, 31, 64, 4099}) {
    std::vector<float> big(n, 1.0f), range(n);
    big[0] = 0x1p53f;
    if (n > 5) big[5] = -0x1p40f;
    for (float& r : range) r = std::ldexp(1.0f + float(rng() % 1000) / 1000.0f, exponent(rng)) * (rng() % 2 ? 1 : -1);
    coretest::OnEveryWidth([&](int wide) {
      EXPECT_TRUE(SameBits(CRowSum::Interleaved(big.data(), n), InterleavedReference(big))) << n << ", wide " << wide;
      EXPECT_TRUE(SameBits(CRowSum::Interleaved(range.data(), n), InterleavedReference(range)))
          << n << ", wide " << wide;
    });
  }
}

}  // namespace
