#include "ops/level/ImgInvert.h"

#include <gtest/gtest.h>

#include "ops/level/LevelTestImages.h"

using leveltest::Make;

namespace {

class ImgInvertTest : public leveltest::BothPaths {};

TEST_P(ImgInvertTest, MirrorsWithinTheLevelWindow) {
  for (int w : {1, 3, 5, 17}) {
    // Samples below, inside and above the window 100..300.
    auto src = Make(w, 2, 3, 100, 300, [](int x, int, int p) { return 40 + 30 * x + p; });
    COrbImage dst(*src), inPlace(*src);
    static_cast<CImgInvert&>(dst).Do(src.get(), nullptr, 0);
    static_cast<CImgInvert&>(inPlace).Do(&inPlace, nullptr, 0);
    // min + max − v = 400 − v; the float mapping rounds at a few ulps of up to 530 (≈ 6e-5 each).
    for (int p = 0; p < 3; ++p)
      for (int x = 0; x < w; ++x) EXPECT_NEAR(dst.GetPixelGrayRaw(x, 1, p), 360.0f - 30 * x - p, 3e-4) << x;
    EXPECT_TRUE(leveltest::BitEqual(inPlace, dst));
  }
}

TEST_P(ImgInvertTest, InvertTwiceReturnsTheImage) {
  auto src = leveltest::Noise(17, 5, 3, 900, 5000);
  COrbImage dst(*src);
  static_cast<CImgInvert&>(dst).Do(&dst, nullptr, 0);
  static_cast<CImgInvert&>(dst).Do(&dst, nullptr, 0);
  // Two float mappings of values up to ~6000: each rounds at a few ulps (ulp 4.9e-4).
  for (int p = 0; p < 3; ++p)
    for (int y = 0; y < 5; ++y)
      for (int x = 0; x < 17; ++x) EXPECT_NEAR(dst.GetPixelGrayRaw(x, y, p), src->GetPixelGrayRaw(x, y, p), 5e-3);
}

INSTANTIATE_TEST_SUITE_P(Paths, ImgInvertTest, ::testing::Values(0, -1));

TEST(ImgInvert, ScalarAndVectorAgreeOnUnalignedRowsAndZeroRangeIsCopied) {
  auto src = leveltest::Noise(1027, 3, 3, -50, 70000);
  CRect rect(3, 1, 1024, 3);
  EXPECT_TRUE(leveltest::PathsAgree(
      *src, [&](COrbImage& dst) { static_cast<CImgInvert&>(dst).Do(src.get(), &rect, 0); }));

  auto flat = Make(3, 2, 1, 10, 10, [](int x, int, int) { return x; });
  COrbImage dst(*flat);
  static_cast<CImgInvert&>(dst).Do(flat.get(), nullptr, 1);
  EXPECT_TRUE(leveltest::BitEqual(dst, *flat));
}

}  // namespace
