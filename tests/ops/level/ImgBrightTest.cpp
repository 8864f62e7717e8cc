#include "ops/level/ImgBright.h"

#include <gtest/gtest.h>

#include <cmath>

#include "ops/level/LevelTestImages.h"

using leveltest::Make;

namespace {

class ImgBrightTest : public leveltest::BothPaths {};

// Level window 100..610: range 510, so t = (v − 100)/2 and every step below is exact in float.
TEST_P(ImgBrightTest, HandWorkedValuesAroundPivot) {
  for (int w : {1, 3, 5, 17}) {
    // t = 0, 50, 100, 150, 200 along the line.
    auto src = Make(w, 2, 1, 100, 610, [](int x, int, int) { return 100 + 100 * (x % 5); });
    COrbImage dst(*src);
    float brightness[3] = {10, 0, 0}, contrast[3] = {128, 0, 0};
    static_cast<CImgBright&>(dst).Do(brightness, contrast, 100.0, src.get(), nullptr, 0);
    // Pivot 100, contrast 128 moves t half its distance away from 100, then +10:
    // t 0 -> -50+10+0 = -40 -> raw 20; 50 -> -25+10+50 = 35 -> 170; 100 -> 110 -> 320;
    // 150 -> 25+10+150 = 185 -> 470; 200 -> 260 -> 620.
    const float expected[5] = {20, 170, 320, 470, 620};
    for (int y = 0; y < 2; ++y)
      for (int x = 0; x < w; ++x) EXPECT_EQ(dst.GetPixelGrayRaw(x, y, 0), expected[x % 5]) << "w " << w << " x " << x;
  }
}

TEST_P(ImgBrightTest, FullNegativeContrastFlattensToPivot) {
  auto src = Make(17, 3, 3, 100, 610, [](int x, int y, int p) { return 37 * x + 11 * y + 200 * p; });
  COrbImage dst(*src);
  float brightness[3] = {0, 0, 0}, contrast[3] = {-256, -256, -256};
  static_cast<CImgBright&>(dst).Do(brightness, contrast, 60.0, src.get(), nullptr, 0);
  // Pivot 60 on the 0..255 scale is raw 100 + 2·60 = 220 on every plane; the products of the
  // float mapping carry a few ulps of the raw magnitude (≈ 1e-4 at 1000).
  for (int p = 0; p < 3; ++p)
    for (int x = 0; x < 17; ++x) EXPECT_NEAR(dst.GetPixelGrayRaw(x, 1, p), 220.0f, 1e-3) << p << " " << x;
}

TEST_P(ImgBrightTest, ZeroBrightnessAndContrastCopiesPlaneBitForBit) {
  auto src = leveltest::Noise(5, 4, 3, -3.7, 1234.5);
  src->SetPixelGrayRaw(0, 0, -0.0f, 1);
  src->SetPixelGrayRaw(1, 0, 1e-38f, 1);
  auto dst = Make(5, 4, 3, -3.7, 1234.5, [](int, int, int) { return 0; });
  float brightness[3] = {5, 0, 0}, contrast[3] = {0, 0, 3};
  static_cast<CImgBright&>(*dst).Do(brightness, contrast, 128.0, src.get(), nullptr, 0);
  for (int y = 0; y < 4; ++y)
    EXPECT_EQ(0, std::memcmp(dst->GetImageAdr(0, y, 1), src->GetImageAdr(0, y, 1), 5 * sizeof(float)));
  EXPECT_NE(dst->GetPixelGrayRaw(2, 2, 0), src->GetPixelGrayRaw(2, 2, 0));
}

TEST_P(ImgBrightTest, OnlyTheClippedRectangleIsWritten) {
  auto src = Make(6, 5, 1, 0, 255, [](int, int, int) { return 100; });
  auto dst = Make(6, 5, 1, 0, 255, [](int, int, int) { return -1; });
  CRect rect(4, 3, 99, 99);  // clipped to columns 4..5, lines 3..4
  float brightness[3] = {7, 0, 0}, contrast[3] = {0, 0, 0};
  static_cast<CImgBright&>(*dst).Do(brightness, contrast, 0.0, src.get(), &rect, 0);
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 6; ++x) EXPECT_EQ(dst->GetPixelGrayRaw(x, y, 0), x >= 4 && y >= 3 ? 107.0f : -1.0f);
}

INSTANTIATE_TEST_SUITE_P(Paths, ImgBrightTest, ::testing::Values(0, -1));

TEST(ImgBright, ScalarAndVectorAgreeOnUnalignedRows) {
  auto src = leveltest::Noise(1027, 3, 3, 900, 5000);
  CRect rect(1, 0, 1026, 3);  // odd start and a tail on every line
  float brightness[3] = {12.5f, -3, 0.1f}, contrast[3] = {40, -100, 300};
  EXPECT_TRUE(leveltest::PathsAgree(*src, [&](COrbImage& dst) {
    static_cast<CImgBright&>(dst).Do(brightness, contrast, 33.3, src.get(), &rect, 0);
  }));
}

TEST(ImgBright, BadInputWritesNothing) {
  auto src = Make(3, 3, 1, 0, 255, [](int, int, int) { return 5; });
  auto other = Make(4, 3, 1, 0, 255, [](int, int, int) { return 5; });
  COrbImage dst(*src);
  float brightness[3] = {1, 1, 1}, contrast[3] = {1, 1, 1};
  CRect empty(2, 2, 1, 1);
  static_cast<CImgBright&>(dst).Do(brightness, contrast, 0, nullptr, nullptr, 1);
  static_cast<CImgBright&>(dst).Do(brightness, contrast, 0, other.get(), nullptr, 1);
  static_cast<CImgBright&>(dst).Do(brightness, contrast, 0, src.get(), &empty, 1);
  dst.SetLevel(0, 5, 5);  // range 0: no 0..255 scale, plane copied
  static_cast<CImgBright&>(dst).Do(brightness, contrast, 0, src.get(), nullptr, 1);
  EXPECT_TRUE(leveltest::BitEqual(dst, *src));
}

}  // namespace
