#include "ops/level/ImgColorBalance.h"

#include <gtest/gtest.h>

#include "ops/level/LevelTestImages.h"

using leveltest::Make;

namespace {

class ImgColorBalanceTest : public leveltest::BothPaths {};

TEST_P(ImgColorBalanceTest, OffsetsUseTheRedPlanesRange) {
  for (int w : {1, 3, 5, 17}) {
    auto src = Make(w, 2, 3, 0, 510, [](int x, int, int p) { return x + 1000 * p; });
    src->SetLevel(1, 0, 255);  // green's own range must not matter
    src->SetLevel(2, 0, 1020);
    COrbImage dst(*src);
    static_cast<CImgColorBalance&>(dst).Do(10, 5, 0, src.get(), nullptr, 0);
    // Plane-0 range 510: one display step is 2 raw units on every plane.
    for (int x = 0; x < w; ++x) {
      EXPECT_EQ(dst.GetPixelGrayRaw(x, 1, 0), x + 20.0f);
      EXPECT_EQ(dst.GetPixelGrayRaw(x, 1, 1), x + 1010.0f);
      EXPECT_EQ(dst.GetPixelGrayRaw(x, 1, 2), x + 2000.0f);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Paths, ImgColorBalanceTest, ::testing::Values(0, -1));

TEST(ImgColorBalance, ScalarAndVectorAgreeOnUnalignedRowsAndGreyIsLeftAlone) {
  auto src = leveltest::Noise(1027, 2, 3, 900, 5000);
  CRect rect(1, 0, 1027, 2);
  EXPECT_TRUE(leveltest::PathsAgree(
      *src, [&](COrbImage& dst) { static_cast<CImgColorBalance&>(dst).Do(3.3, -7.1, 0.01, src.get(), &rect, 0); }));

  auto grey = Make(5, 2, 1, 0, 255, [](int x, int, int) { return x; });
  COrbImage dst(*grey);
  static_cast<CImgColorBalance&>(dst).Do(10, 10, 10, grey.get(), nullptr, 1);
  EXPECT_TRUE(leveltest::BitEqual(dst, *grey));
}

}  // namespace
