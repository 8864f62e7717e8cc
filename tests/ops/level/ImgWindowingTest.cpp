#include "ops/level/ImgWindowing.h"

#include <gtest/gtest.h>

#include <cmath>

#include "kernels/Vec4.h"
#include "ops/level/LevelTestImages.h"

using leveltest::Make;

namespace {

TEST(ImgWindowing, OtherTypesCopyAndBadRadiusZeroes) {
  auto src = Make(3, 3, 1, 0, 1, [](int x, int y, int) { return x + 3 * y + 1; });
  COrbImage flat(*src), zero(*src);
  EXPECT_EQ(static_cast<CImgWindowing&>(flat).Do(1, 0.5, src.get(), 1), 1);
  EXPECT_TRUE(leveltest::BitEqual(flat, *src));
  EXPECT_EQ(static_cast<CImgWindowing&>(zero).Do(0, -1.0, src.get(), 0), 1);
  for (int x = 0; x < 3; ++x) EXPECT_EQ(zero.GetPixelGrayRaw(x, 1, 0), 0.0f);
  // A radius so small that π/radius overflows still keeps the centre, and only it.
  auto wide = Make(40, 3, 1, 0, 1, [](int x, int, int) { return x + 1; });
  COrbImage dot(*wide);
  static_cast<CImgWindowing&>(dot).Do(0, 1e-320, wide.get(), 0);
  for (int x = 0; x < 40; ++x) EXPECT_EQ(dot.GetPixelGrayRaw(x, 1, 0), x == 20 ? 21.0f : 0.0f) << x;
}

TEST(ImgWindowing, EverySampleIsItsOwnWeightTimesTheSource) {
  // Rows and columns share weights with their mirrors about the centre; every sample must
  // still be exactly the source times its own weight, for odd and even sizes, a radius
  // beyond the corners and one inside, in place and into another image, on every vector path.
  struct Size {
    int w, h;
  };
  for (Size size : {Size{9, 7}, Size{10, 8}, Size{1, 1}, Size{37, 2}, Size{301, 202}}) {
    // Samples of every magnitude and sign, so that products land anywhere between floats.
    auto src = Make(size.w, size.h, 3, 0, 1,
                    [](int x, int y, int p) { return std::sin(x * 12.9898 + y * 78.233 + p) * 43758.5453 / (1 + x % 7); });
    const int cx = size.w / 2, cy = size.h / 2;
    for (double radius : {3.3, 40.0, 150.0, 180.5}) {
      for (int path : {2, 1, 0}) {  // eight-wide with fused steps, eight-wide, four-wide
        qrn::simd::SetWideVectors(path > 0);
        qrn::simd::SetFusedMultiplyAdd(path == 2);
        COrbImage dst(*src), inPlace(*src);
        EXPECT_EQ(static_cast<CImgWindowing&>(dst).Do(0, radius, src.get(), 0), 1);
        static_cast<CImgWindowing&>(inPlace).Do(0, radius, &inPlace, 0);
        auto expected = [&](int x, int y, int p) {
          const double dx = x - cx, dy = y - cy, r = std::sqrt(dx * dx + dy * dy);
          const double weight = r < radius ? 0.5 * std::cos(M_PI * r / radius) + 0.5 : 0.0;
          return static_cast<float>(src->GetPixelGrayRaw(x, y, p) * weight);
        };
        EXPECT_EQ(leveltest::Mismatches(dst, expected), 0) << size.w << "x" << size.h << " radius " << radius
                                                            << " path " << path;
        EXPECT_EQ(leveltest::Mismatches(inPlace, expected), 0) << size.w << "x" << size.h << " in place";
      }
    }
  }
  qrn::simd::SetWideVectors(1);
  qrn::simd::SetFusedMultiplyAdd(1);
}

}  // namespace
