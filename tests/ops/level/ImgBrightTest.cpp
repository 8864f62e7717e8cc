#include "ops/level/ImgBright.h"

#include <gtest/gtest.h>

#include "ops/level/LevelTestImages.h"

using leveltest::Make;

namespace {

class ImgBrightTest : public leveltest::BothPaths {};

// Level window 100..610: range 510, so t = (v − 100)/2 and every step below is exact in float.
TEST_P(ImgBrightTest, HandWorkedValuesAroundPivotOnEachPlane) {
  for (int w : {1, 3, 5, 17}) {
    // t = 0, 50, 100, 150, 200 along the line.
    auto src = Make(w, 2, 3, 100, 610, [](int x, int, int) { return 100 + 100 * (x % 5); });
    COrbImage dst(*src);
    float brightness[3] = {10, 0, -20}, contrast[3] = {128, -256, 0};
    static_cast<CImgBright&>(dst).Do(brightness, contrast, 100.0, src.get(), nullptr, 0);
    // Plane 0: pivot 100, contrast 128 moves t half its distance away from 100, then +10:
    // t 0 -> -50+10+0 = -40 -> raw 20; 50 -> -25+10+50 = 35 -> 170; 100 -> 110 -> 320;
    // 150 -> 25+10+150 = 185 -> 470; 200 -> 260 -> 620.
    // Plane 1: contrast −256 flattens onto the pivot, raw 100 + 2·100 = 300.
    // Plane 2: brightness −20 alone lowers every raw sample by 40.
    const float expected[5] = {20, 170, 320, 470, 620};
    for (int y = 0; y < 2; ++y)
      for (int x = 0; x < w; ++x) {
        EXPECT_EQ(dst.GetPixelGrayRaw(x, y, 0), expected[x % 5]) << "w " << w << " x " << x;
        EXPECT_EQ(dst.GetPixelGrayRaw(x, y, 1), 300.0f) << "w " << w << " x " << x;
        EXPECT_EQ(dst.GetPixelGrayRaw(x, y, 2), 60.0f + 100 * (x % 5)) << "w " << w << " x " << x;
      }
  }
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

TEST(ImgBright, NeutralPlanesAreCopiedOnlyTheRectangleIsWrittenAndBadInputWritesNothing) {
  auto src = leveltest::Noise(5, 4, 3, -3.7, 1234.5);
  src->SetPixelGrayRaw(1, 1, -0.0f, 1);
  src->SetPixelGrayRaw(2, 1, 1e-38f, 1);
  auto dst = Make(5, 4, 3, -3.7, 1234.5, [](int, int, int) { return -1; });
  CRect rect(1, 1, 99, 99);  // clipped to columns 1..4, lines 1..3
  float brightness[3] = {5, 0, 0}, contrast[3] = {0, 0, 3};
  static_cast<CImgBright&>(*dst).Do(brightness, contrast, 128.0, src.get(), &rect, 0);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 5; ++x) {
      // Plane 1 has nothing to do: its samples (−0 and a denormal among them) keep their bits.
      const float got = dst->GetPixelGrayRaw(x, y, 1), want = x && y ? src->GetPixelGrayRaw(x, y, 1) : -1.0f;
      EXPECT_EQ(std::memcmp(&got, &want, sizeof got), 0) << x << "," << y;
      EXPECT_EQ(dst->GetPixelGrayRaw(x, y, 0) == -1.0f, !(x && y)) << x << "," << y;
    }
  EXPECT_NE(dst->GetPixelGrayRaw(2, 2, 0), src->GetPixelGrayRaw(2, 2, 0));

  auto other = Make(4, 4, 3, 0, 255, [](int, int, int) { return 5; });
  COrbImage same(*src);
  CRect empty(2, 2, 1, 1);
  static_cast<CImgBright&>(same).Do(brightness, contrast, 0, nullptr, nullptr, 1);
  static_cast<CImgBright&>(same).Do(brightness, contrast, 0, other.get(), nullptr, 1);
  static_cast<CImgBright&>(same).Do(brightness, contrast, 0, src.get(), &empty, 1);
  for (int p = 0; p < 3; ++p) same.SetLevel(p, 5, 5);  // range 0: no 0..255 scale, planes copied
  static_cast<CImgBright&>(same).Do(brightness, contrast, 0, src.get(), nullptr, 1);
  EXPECT_TRUE(leveltest::BitEqual(same, *src));
}

}  // namespace
