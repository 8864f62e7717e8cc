#include "core/RunningFloatSum.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "core/CoreTest.h"

namespace {

using coretest::SameBits;

float PlainSum(float start, const std::vector<float>& v) {
  float s = start;
  for (float x : v) s += x;
  return s;
}

// Adds v in rows of `width` to a sum started at `start` by adding `start` first; compares with
// the plain loop on both vector widths and returns the blocks that went the fast way on the
// wide one.
int ExpectPlainSum(float start, const std::vector<float>& v, int width, const char* what) {
  int fast = 0;
  coretest::OnEveryWidth([&](int wide) {
    CRunningFloatSum sum;
    sum.Add(&start, 1);
    for (std::size_t i = 0; i < v.size(); i += width)
      sum.Add(v.data() + i, static_cast<int>(std::min<std::size_t>(width, v.size() - i)));
    EXPECT_TRUE(SameBits(sum.Value(), PlainSum(start, v)))
        << what << ": " << sum.Value() << " against " << PlainSum(start, v) << ", wide " << wide;
    if (wide) fast = sum.FastBlocks();
  });
  return fast;
}

TEST(CRunningFloatSum, ImagePlanesSumAsThePlainLoopMostlyByBlocksHoweverSummarised) {
  // A sky of counts with fractions and stars, a normalised frame, integer counts (with a tie
  // in about one sample in u) and mixed signs. Added row by row, the sum soon dwarfs the
  // samples, so nearly every block after the first rows goes at once (rows of 1000 never
  // fill a block: all the plain way). Then the blocks summarised out of order from the sum as
  // it stood some blocks before (as threads that run ahead of the sum do), or from no sum at
  // all, and applied in order: again the plain loop's sum, the summaries mostly used as they are.
  constexpr int kBlock = CRunningFloatSum::kBlock, width = 4096, rows = 300, kBlocks = width * rows / kBlock;
  std::mt19937 rng(9);
  std::uniform_real_distribution<float> sky(900.0f, 1100.0f), unit(0.0f, 1.0f), mixed(-3000.0f, 2000.0f);
  std::vector<float> counts(std::size_t(width) * rows), normalised(counts.size()), integers(counts.size()),
      signs(counts.size());
  for (std::size_t i = 0; i < counts.size(); ++i) {
    counts[i] = i % 997 == 0 ? 60000.0f : sky(rng);
    normalised[i] = unit(rng);
    integers[i] = std::floor(sky(rng));
    signs[i] = mixed(rng);
  }
  const float nan = std::numeric_limits<float>::quiet_NaN();
  for (const std::vector<float>* v : {&counts, &normalised, &integers, &signs}) {
    const bool mostlyFast = v != &signs;
    const int fast = ExpectPlainSum(0.0f, *v, width, "rows");
    EXPECT_TRUE(!mostlyFast || fast > kBlocks * 9 / 10) << fast << " fast blocks";
    ExpectPlainSum(0.0f, *v, 1000, "rows of 1000");
    for (int lag : {1, 3, 40}) {
      coretest::OnEveryWidth([&](int wide) {
        CRunningFloatSum sum;
        std::vector<float> history;  // the sum before each block
        for (int b = 0; b < kBlocks; ++b) {
          history.push_back(sum.Value());
          const float guess = b == 7 ? nan : b < lag ? 0.0f : history[b - lag];
          const float* block = v->data() + std::size_t(b) * kBlock;
          sum.Apply(CRunningFloatSum::Summarise(block, guess), block);
        }
        EXPECT_TRUE(SameBits(sum.Value(), PlainSum(0.0f, *v))) << "lag " << lag << " wide " << wide;
        EXPECT_TRUE(!mostlyFast || sum.FastBlocks() > kBlocks * 9 / 10) << sum.FastBlocks() << ", lag " << lag;
      });
    }
  }
}

TEST(CRunningFloatSum, TiesRangeEdgesSignsAndSpecialsMatchThePlainLoop) {
  // Above 2^33 the spacing is 1024: samples of 512 and 1536 are exact ties, broken to even.
  std::vector<float> ties(4096, 1000.0f);
  for (std::size_t i = 0; i < ties.size(); i += 7) ties[i] = (i / 7) % 2 ? 512.0f : 1536.0f;
  EXPECT_EQ(ExpectPlainSum(0x1p33f + 0x1p24f, ties, 4096, "ties"), 4);
  // Just below a power of two, so the sum crosses it inside a block; and just above one,
  // falling through it with negative samples.
  std::vector<float> up(8192, 700.0f), down(8192, -700.0f);
  ExpectPlainSum(0x1p34f - 1e6f, up, 4096, "crossing up");
  ExpectPlainSum(0x1p34f + 1e6f, down, 4096, "crossing down");
  // Negative sums, mixed signs, samples large against the sum, and tiny ones.
  std::mt19937 rng(4);
  std::uniform_real_distribution<float> mixed(-3000.0f, 2000.0f), tiny(-1e-30f, 1e-30f);
  std::vector<float> m(8192), t(8192), big(8192);
  for (std::size_t i = 0; i < m.size(); ++i) {
    m[i] = mixed(rng);
    t[i] = tiny(rng);
    big[i] = i % 100 == 0 ? 3e9f : 1.0f;
  }
  EXPECT_GT(ExpectPlainSum(-1e9f, m, 4096, "negative sum, mixed samples"), 0);
  ExpectPlainSum(1e6f, t, 4096, "tiny samples");
  ExpectPlainSum(1e10f, big, 4096, "samples large against the sum");
  ExpectPlainSum(1e-40f, t, 4096, "subnormal start");
  const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
  for (float special : {nan, inf, -inf}) {
    std::vector<float> v(4096, 1000.0f);
    v[1500] = special;
    ExpectPlainSum(1e9f, v, 4096, "special sample");
  }
}

TEST(CRunningFloatSum, SummaryWithExtremesIsTheSummaryAndTheInOrderExtremes) {
  // Blocks of integer counts with signed zeros as the extreme (the first one met stays), a NaN,
  // an infinity and a sample too large to be stepped (the block is then added one by one,
  // but its extremes still count), for a sum in range (1e9) and one out of it (0). The
  // summary must be the four-wide one field by field; the extremes those of `if (v < min)`
  // and `if (v > max)` from +∞ and −∞.
  constexpr int kBlock = CRunningFloatSum::kBlock;
  const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
  std::mt19937 rng(17);
  std::uniform_int_distribution<int> counts(900, 1100);
  std::vector<float> sky(kBlock);
  for (float& v : sky) v = float(counts(rng));
  const auto with = [&](std::vector<std::pair<int, float>> changes, float sign = 1.0f) {
    std::vector<float> v = sky;
    for (float& x : v) x *= sign;
    for (const auto& [i, x] : changes) v[i] = x;
    return v;
  };
  const std::vector<float> blocks[] = {
      sky,
      // The first zero met lies in a later vector lane than another zero.
      with({{10, 0.0f}, {20, -0.0f}, {1000, -0.0f}}),
      with({{5, -0.0f}, {6, 0.0f}}),
      with({{45, 0.0f}, {50, -0.0f}}, -1.0f),
      // The extremes share their lane with a NaN that comes last in it.
      with({{16, 5.0f}, {32, 5000.0f}, {1008, nan}}),
      with({{3, inf}}),
      with({{900, -3e9f}}),
      std::vector<float>(kBlock, -0.0f),
  };
  for (const std::vector<float>& v : blocks)
    for (float guess : {1e9f, 0.0f}) {
      float wantMin = inf, wantMax = -inf;
      for (float x : v) {
        if (x < wantMin) wantMin = x;
        if (x > wantMax) wantMax = x;
      }
      qrn::simd::SetWideVectors(0);
      const CRunningFloatSum::BlockSummary want = CRunningFloatSum::Summarise(v.data(), guess);
      coretest::OnEveryWidth([&](int wide) {
        float min = 0.0f, max = 0.0f;
        const CRunningFloatSum::BlockSummary got = CRunningFloatSum::Summarise(v.data(), guess, min, max);
        const std::string where = "block " + std::to_string(&v - blocks) + ", guess " + std::to_string(guess) +
                                  ", wide " + std::to_string(wide);
        EXPECT_TRUE(SameBits(min, wantMin) && SameBits(max, wantMax)) << where << ": " << min << ", " << max;
        EXPECT_EQ(got.spacing, want.spacing) << where;
        EXPECT_EQ(got.usable, want.usable) << where;
        if (!want.usable) return;
        EXPECT_EQ(got.absSteps, want.absSteps) << where;
        EXPECT_EQ(got.ties, want.ties) << where;
        EXPECT_EQ(got.move[0], want.move[0]) << where;
        EXPECT_EQ(got.move[1], want.move[1]) << where;
      });
    }
}

}  // namespace
