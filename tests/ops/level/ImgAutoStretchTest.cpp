#include "ops/level/ImgAutoStretch.h"

#include <gtest/gtest.h>

#include "ops/level/LevelTestImages.h"

using leveltest::Make;

namespace {

TEST(ImgAutoStretch, PlanesReachTheLargestSpread) {
  auto src = Make(4, 3, 3, 0, 1, [](int, int, int p) { return 10 + p; });
  auto dst = Make(4, 3, 3, 0, 1, [](int, int, int) { return -1; });
  double gain[3] = {1, 2, 0.5}, offset[3] = {0, 1, 2}, spread[3] = {10, 40, 20}, base[3] = {100, 0, 0.1};
  tagRECT rect{1, 1, 9, 3};  // right edge beyond the image: only what lies inside is written
  static_cast<CImgAutoStretch&>(*dst).DoStretch(src.get(), gain, offset, spread, base, &rect);
  // M = 40: red (10 − 0)·4·1 + 100 = 140; green (11 − 1)·1·2 = 20; blue (12 − 2)·2·0.5 + 0.1f.
  EXPECT_EQ(dst->GetPixelGrayRaw(3, 2, 0), 140.0f);
  EXPECT_EQ(dst->GetPixelGrayRaw(3, 2, 1), 20.0f);
  EXPECT_EQ(dst->GetPixelGrayRaw(3, 2, 2), static_cast<float>(10.0 + static_cast<float>(0.1)));
  EXPECT_EQ(dst->GetPixelGrayRaw(0, 2, 0), -1.0f);  // left of the rectangle
  EXPECT_EQ(dst->GetPixelGrayRaw(3, 0, 0), -1.0f);  // above it
  static_cast<CImgAutoStretch&>(*dst).DoStretch(src.get(), gain, offset, spread, base, nullptr);
  EXPECT_EQ(dst->GetPixelGrayRaw(0, 0, 0), -1.0f);
}

}  // namespace
