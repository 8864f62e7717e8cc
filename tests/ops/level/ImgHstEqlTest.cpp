#include "ops/level/ImgHstEql.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <numeric>
#include <vector>

#include "kernels/Vec4.h"

#include "ops/level/LevelTestImages.h"

using leveltest::Make;

namespace {

TEST(ImgHstEql, SkewedValuesSpreadByTheirRankConstantPlaneIsKeptMismatchIsRefused) {
  // 12 samples: eight at 0, then 1, 2, 4 and 256 (range 256, bins of width 1); plane 1 constant.
  const float v[12] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 2, 4, 256};
  auto src = Make(12, 1, 3, 0, 1, [&](int x, int, int p) { return p == 1 ? 5.0f : v[x]; });
  COrbImage dst(*src);
  EXPECT_EQ(static_cast<CImgHstEql&>(dst).Do(src.get()), 1);
  EXPECT_EQ(dst.GetLevelMin(0), 0.0);
  EXPECT_EQ(dst.GetLevelMax(0), 256.0);
  // First bin holds 8 of 12: the rest take 1/4, 2/4, 3/4, 4/4 of the window.
  const float expected[12] = {0, 0, 0, 0, 0, 0, 0, 0, 64, 128, 192, 256};
  for (int x = 0; x < 12; ++x) {
    EXPECT_FLOAT_EQ(dst.GetPixelGrayRaw(x, 0, 0), expected[x]) << x;
    EXPECT_FLOAT_EQ(dst.GetPixelGrayRaw(x, 0, 2), expected[x]) << x;
    EXPECT_EQ(dst.GetPixelGrayRaw(x, 0, 1), 5.0f) << x;
  }
  auto other = Make(2, 1, 3, 0, 1, [](int, int, int) { return 0; });
  EXPECT_EQ(static_cast<CImgHstEql&>(dst).Do(other.get()), 0);
  EXPECT_EQ(static_cast<CImgHstEql&>(dst).Do(nullptr), 0);
}

TEST(ImgHstEql, EverySampleTakesItsBinsCumulativeShareOnEveryWidth) {
  // Three planes of 301 x 7 with a NaN, samples at bin edges and the extremes, counted and
  // mapped on the four-wide and the eight-wide paths, in place and into another image:
  // every sample must be its bin's share of the cumulative count, worked out here sample by
  // sample. The third plane spans more than a float can hold.
  const int w = 301, h = 7;
  auto src = Make(w, h, 3, 0, 1, [](int x, int y, int p) {
    if (x == 5 && y == 2) return std::numeric_limits<double>::quiet_NaN();
    // Equal steps across 256 bins: most samples lie at a bin edge, where the order of the
    // bin's division and product decides the bin.
    const int step = (x * 13 + y * 7) % 257;
    return p == 2 ? -3e38 + 2e36 * step : 1000.0 + p + 0.1 * step;
  });
  COrbImage reference(*src);
  reference.CalcMinMax();
  double min[3], width[3];
  std::vector<long long> cumulative[3];  // each plane's count of samples in bins 0..k
  auto bin = [&](int p, float v) {
    const double k = (v - min[p]) / width[p] * 256.0;
    return k >= 257 ? 257 : k > 0.0 ? static_cast<int>(k) : 0;
  };
  for (int p = 0; p < 3; ++p) {
    min[p] = reference.GetMinPixel(p), width[p] = reference.GetMaxPixel(p) - min[p];
    cumulative[p].assign(CImgHstEql::kBins, 0);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) ++cumulative[p][bin(p, src->GetPixelGrayRaw(x, y, p))];
    std::partial_sum(cumulative[p].begin(), cumulative[p].end(), cumulative[p].begin());
  }
  auto expected = [&](int x, int y, int p) {
    const auto& c = cumulative[p];
    const double first = double(*std::find_if(c.begin(), c.end(), [](long long n) { return n > 0; }));
    const double t = 255.0 * (double(c[bin(p, src->GetPixelGrayRaw(x, y, p))]) - first) / (double(w) * h - first);
    return static_cast<float>(t / 255.0 * width[p] + min[p]);
  };
  for (int wide : {1, 0}) {
    qrn::simd::SetWideVectors(wide);
    COrbImage dst(*src), inPlace(*src);
    ASSERT_EQ(static_cast<CImgHstEql&>(dst).Do(src.get()), 1);
    ASSERT_EQ(static_cast<CImgHstEql&>(inPlace).Do(&inPlace), 1);
    EXPECT_EQ(leveltest::Mismatches(dst, expected), 0) << "wide " << wide;
    EXPECT_EQ(leveltest::Mismatches(inPlace, expected), 0) << "in place, wide " << wide;
  }
  qrn::simd::SetWideVectors(1);
}

}  // namespace
