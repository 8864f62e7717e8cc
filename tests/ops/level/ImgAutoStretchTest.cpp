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

TEST(ImgAutoStretch, EverySampleFollowsTheDoubleFormulaOnEveryWidthInPlaceOrNot) {
  // Rows of 45 (whole vectors and a tail) with NaN and infinities, from another image and in
  // place: each sample float((v − offset)·(M/spread)·gain + float(base)) in double.
  auto src = leveltest::NoiseWithSpecials(3, -50, 3000);
  double gain[3] = {1.3, 0.7, 2.1}, offset[3] = {12.5, -3, 100.25}, spread[3] = {33, 57, 41}, base[3] = {0.1, 7.3, -2};
  const auto want = [&](int x, int y, int p) {
    const double v = src->GetPixelGrayRaw(x, y, p);
    return static_cast<float>((v - offset[p]) * (57.0 / spread[p]) * gain[p] + double(static_cast<float>(base[p])));
  };
  tagRECT all{0, 0, 45, 4};
  leveltest::ForEveryRowVariant([&](int wide, int stream) {
    COrbImage apart(*src), inPlace(*src);
    static_cast<CImgAutoStretch&>(apart).DoStretch(src.get(), gain, offset, spread, base, &all);
    static_cast<CImgAutoStretch&>(inPlace).DoStretch(&inPlace, gain, offset, spread, base, &all);
    EXPECT_EQ(leveltest::Mismatches(apart, want), 0) << "wide " << wide << " stream " << stream;
    EXPECT_EQ(leveltest::Mismatches(inPlace, want), 0) << "wide " << wide << " stream " << stream;
  });
}

}  // namespace
