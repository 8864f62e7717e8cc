#include "ops/level/ImgHstEql.h"

#include <gtest/gtest.h>

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

}  // namespace
