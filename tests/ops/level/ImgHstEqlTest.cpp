#include "ops/level/ImgHstEql.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "kernels/Vec4.h"

#include "ops/level/LevelTestImages.h"

using leveltest::Make;

namespace {

TEST(ImgHstEql, SkewedValuesSpreadByTheirRank) {
  // 12 samples: eight at 0, then 1, 2, 4 and 256 (range 256, bins of width 1).
  const float v[12] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 2, 4, 256};
  auto src = Make(12, 1, 1, 0, 1, [&](int x, int, int) { return v[x]; });
  COrbImage dst(*src);
  EXPECT_EQ(static_cast<CImgHstEql&>(dst).Do(src.get()), 1);
  EXPECT_EQ(dst.GetLevelMin(0), 0.0);
  EXPECT_EQ(dst.GetLevelMax(0), 256.0);
  // First bin holds 8 of 12: the rest take 1/4, 2/4, 3/4, 4/4 of the window.
  const float expected[12] = {0, 0, 0, 0, 0, 0, 0, 0, 64, 128, 192, 256};
  for (int x = 0; x < 12; ++x) EXPECT_FLOAT_EQ(dst.GetPixelGrayRaw(x, 0, 0), expected[x]) << x;
}

TEST(ImgHstEql, ConstantPlaneIsKeptAndMismatchIsRefused) {
  auto src = Make(3, 3, 3, 0, 1, [](int x, int, int p) { return p == 1 ? 5.0 : x; });
  COrbImage dst(*src);
  EXPECT_EQ(static_cast<CImgHstEql&>(dst).Do(src.get()), 1);
  for (int x = 0; x < 3; ++x) EXPECT_EQ(dst.GetPixelGrayRaw(x, 2, 1), 5.0f);
  auto other = Make(2, 3, 3, 0, 1, [](int, int, int) { return 0; });
  EXPECT_EQ(static_cast<CImgHstEql&>(dst).Do(other.get()), 0);
  EXPECT_EQ(static_cast<CImgHstEql&>(dst).Do(nullptr), 0);
}

TEST(ImgHstEql, EverySampleTakesItsBinsCumulativeShareOnBothWidths) {
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
  for (int wide : {1, 0}) {
    qrn::simd::SetWideVectors(wide);
    COrbImage dst(*src), inPlace(*src);
    ASSERT_EQ(static_cast<CImgHstEql&>(dst).Do(src.get()), 1);
    ASSERT_EQ(static_cast<CImgHstEql&>(inPlace).Do(&inPlace), 1);
    for (int p = 0; p < 3; ++p) {
      const double min = reference.GetMinPixel(p), width = reference.GetMaxPixel(p) - min;
      auto bin = [&](float v) {
        const double k = (v - min) / width * 256.0;
        return k >= 257 ? 257 : k > 0.0 ? static_cast<int>(k) : 0;
      };
      std::vector<long long> count(CImgHstEql::kBins, 0);
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) ++count[bin(src->GetPixelGrayRaw(x, y, p))];
      long long first = 0;
      for (long long c : count)
        if (c > 0) {
          first = c;
          break;
        }
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
          long long cumulative = 0;
          for (int k = 0; k <= bin(src->GetPixelGrayRaw(x, y, p)); ++k) cumulative += count[k];
          const double t = 255.0 * (double(cumulative) - double(first)) / (double(w) * h - double(first));
          const float expected = static_cast<float>(t / 255.0 * width + min);
          ASSERT_EQ(dst.GetPixelGrayRaw(x, y, p), expected) << x << "," << y << " plane " << p << " wide " << wide;
          ASSERT_EQ(inPlace.GetPixelGrayRaw(x, y, p), expected) << "in place";
        }
    }
  }
  qrn::simd::SetWideVectors(1);
}

}  // namespace
