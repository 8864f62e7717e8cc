// Sky-gradient removal with linear and parabolic profiles.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "ops/calibration/CalibrationTestImages.h"
#include "ops/calibration/ImgFlat.h"
#include "kernels/Vec4.h"

using calibtest::At;
using calibtest::Image;

namespace {

CImgFlat& Flat(std::unique_ptr<COrbImage>& image) { return static_cast<CImgFlat&>(*image); }

TEST(ImgFlat, TwoPointGradientAlongEachAxisADiagonalAndItsReference) {
  auto src = Image(5, 4, 1, [](int x, int y, int) { return 100.0 + x * y; });
  // Horizontal: unit vector (1, 0), reference (0 + 0)/2 = 0, so t = x.
  CPoint p1(0, 0), p2(9, 0);
  double slope = 2.0;
  auto target = Image(5, 4, 1, [](int, int, int) { return 0.0; });
  Flat(target).DoFlat(src.get(), &p1, &p2, &slope, nullptr, nullptr, 0, nullptr, 0);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 5; ++x) EXPECT_EQ(At(*target, x, y), 100.0f + x * y - 2.0f * x) << x << "," << y;

  // Upward along y (dy < 0, dx = 0): uy = −1, reference (6 + 1)/2 = 3, so t = −y − 3.
  CPoint q1(2, 6), q2(2, 1);
  Flat(target).DoFlat(src.get(), &q1, &q2, &slope, nullptr, nullptr, 0, nullptr, 0);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 5; ++x) EXPECT_EQ(At(*target, x, y), 100.0f + x * y + 2.0f * (y + 3)) << x << "," << y;
  EXPECT_EQ(target->GetLockCount() + src->GetLockCount(), 0);

  // A 3-4-5 triangle pointing backwards: (ux, uy) = (−0.6, −0.8); reference (9 + 5)/2 = 7.
  auto zero = Image(3, 3, 1, [](int, int, int) { return 0.0; });
  auto diagonal = Image(3, 3, 1, [](int, int, int) { return 0.0; });
  CPoint r1(4, 9), r2(1, 5);
  slope = 1.0;
  Flat(diagonal).DoFlat(zero.get(), &r1, &r2, &slope, nullptr, nullptr, 0, nullptr, 0);
  // v = −t = 0.6 x + 0.8 y + 7; 1e-5 covers the float store of values near 10.
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 3; ++x) EXPECT_NEAR(At(*diagonal, x, y), 0.6 * x + 0.8 * y + 7, 1e-5);

  // The reference keeps only the low 16 bits, signed: 50000 reads as 50000 − 65536.
  CPoint far1(0, 50000), far2(0, 50001);  // (100001)/2 = 50000; dy > 0 so t = y − c
  Flat(diagonal).DoFlat(zero.get(), &far1, &far2, &slope, nullptr, nullptr, 0, nullptr, 0);
  EXPECT_EQ(At(*diagonal, 0, 2), -(2.0f + 15536.0f));
}

TEST(ImgFlat, ProportionalModeScalesAboutTheBase) {
  // Horizontal gradient g = x · 10 about level 100; src minimum 20 and floor 50: base = −20.
  auto src = Image(3, 1, 1, {20, 130, 240});
  src->CalcMinMax();
  CPoint p1(0, 0), p2(1, 0);
  double slope = 10.0, level = 100.0, floor = 50.0;
  auto target = Image(3, 1, 1, {0, 0, 0});
  Flat(target).DoFlat(src.get(), &p1, &p2, &slope, &level, &floor, 1, nullptr, 0);
  // (L + base) / (g + L + base) · (v + base) − base = 80 / (g + 80) · (v − 20) + 20.
  EXPECT_NEAR(At(*target, 0, 0), 20.0, 1e-5);  // 1e-5: one float rounding of values near 100
  EXPECT_NEAR(At(*target, 1, 0), 80.0 / 90.0 * 110.0 + 20.0, 1e-5);
  EXPECT_NEAR(At(*target, 2, 0), 80.0 / 100.0 * 220.0 + 20.0, 1e-5);

  // A base of 0 becomes 1: minimum 0, floor 5 → −min(0, 5) = 0 → 1.
  auto zero = Image(3, 1, 1, {0, 9, 9});
  zero->CalcMinMax();
  floor = 5.0;
  Flat(target).DoFlat(zero.get(), &p1, &p2, &slope, &level, &floor, 1, nullptr, 0);
  EXPECT_NEAR(At(*target, 1, 0), 101.0 / 111.0 * 10.0 - 1.0, 1e-5);

  // Unknown modes write 0 over the region.
  Flat(target).DoFlat(src.get(), &p1, &p2, &slope, &level, &floor, 7, nullptr, 0);
  EXPECT_EQ(At(*target, 2, 0), 0.0f);
}

TEST(ImgFlat, PlaneFitGradientIsRemovedKeepingTheCentre) {
  const int w = 17, h = 5;
  const double cx = (w - 1) / 2.0, cy = (h - 1) / 2.0;
  double gx[3] = {0.5, -1.0, 2.0}, gy[3] = {1.5, 0.25, -3.0};
  auto src = Image(w, h, 3, [&](int x, int y, int p) { return 300.0 + 10 * p + gx[p] * (x - cx) + gy[p] * (y - cy); });
  auto target = Image(w, h, 3, [](int, int, int) { return 0.0; });
  static_cast<CImgFlat&>(*target).DoFlatPoint(src.get(), gx, gy, nullptr, nullptr, 0, nullptr, 0);
  auto flat = Image(w, h, 3, [](int, int, int p) { return 300.0 + 10 * p; });
  EXPECT_TRUE(qrntest::ImagesNear(*target, *flat, 1e-4));  // float inputs near 300: 6e-5 per rounding
}

TEST(ImgFlat, ParabolicGlowIsSubtractedInPlaceInsideTheRectangle) {
  const int w = 9, h = 7;
  CPoint centre[1] = {CPoint(4, 3)};
  double k = -0.5, level = 200.0;
  // Additive glow: src = 200 + k r² comes back to 200 in mode 0.
  auto dome = Image(w, h, 1, [&](int x, int y, int) { return 200.0 + k * ((x - 4) * (x - 4) + (y - 3) * (y - 3)); });
  dome->CalcMinMax();
  auto target = Image(w, h, 1, [](int, int, int) { return 0.0; });
  static_cast<CImgFlat&>(*target).DoParabolic(dome.get(), centre, &k, &level, nullptr, 0, nullptr, 0);
  auto flat = Image(w, h, 1, [](int, int, int) { return 200.0; });
  // Float samples near 200: one rounding is 1.5e-5.
  EXPECT_TRUE(qrntest::ImagesNear(*target, *flat, 1e-4));

  // Only the rectangle is written, in place when src is null.
  auto inPlace = Image(w, h, 1, [&](int x, int y, int) { return At(*dome, x, y); });
  CRect rect(0, 0, 2, 1);
  static_cast<CImgFlat&>(*inPlace).DoParabolic(nullptr, centre, &k, &level, nullptr, 0, &rect, 0);
  EXPECT_NEAR(At(*inPlace, 1, 0), 200.0, 1e-4);
  EXPECT_EQ(At(*inPlace, 2, 0), At(*dome, 2, 0));
}

TEST(ImgFlat, EveryRowPathGivesTheSameBits) {
  // Rows long enough for whole vectors and a tail; both profiles in both modes.
  const int w = 45, h = 6;
  auto src = Image(w, h, 3, [](int x, int y, int p) { return 500.0 + 37 * std::sin(x * 0.7 + y + p); });
  src->CalcMinMax();
  CPoint centre[3] = {CPoint(20, 3), CPoint(-4, 9), CPoint(44, 0)}, p1[3], p2[3];
  double k[3] = {-0.03, 0.02, 1e-3}, level[3] = {400, 450, 500}, floor[3] = {0, -10, 600};
  double slope[3] = {0.5, -2.0, 0.01};
  for (int i = 0; i < 3; ++i) p1[i] = CPoint(i, 0), p2[i] = CPoint(7, 3 + i);
  // Path 2 is the wide row with its streaming stores forced on.
  for (int mode : {0, 1}) {
    std::unique_ptr<COrbImage> parabolic[3], linear[3];
    for (int path : {2, 1, 0}) {
      qrn::simd::SetWideVectors(path > 0);
      qrn::simd::SetStreamStores(path == 2 ? 1 : -1);
      parabolic[path] = Image(w, h, 3, [](int, int, int) { return 0.0; });
      linear[path] = Image(w, h, 3, [](int, int, int) { return 0.0; });
      Flat(parabolic[path]).DoParabolic(src.get(), centre, k, level, floor, mode, nullptr, 0);
      Flat(linear[path]).DoFlat(src.get(), p1, p2, slope, level, floor, mode, nullptr, 0);
    }
    qrn::simd::SetWideVectors(1);
    qrn::simd::SetStreamStores(-1);
    for (int path : {1, 2}) {
      EXPECT_TRUE(qrntest::ImagesNear(*parabolic[0], *parabolic[path], 0.0)) << "mode " << mode << " path " << path;
      EXPECT_TRUE(qrntest::ImagesNear(*linear[0], *linear[path], 0.0)) << "mode " << mode << " path " << path;
    }
    EXPECT_FALSE(qrntest::ImagesNear(*parabolic[1], *src, 1e-3));
  }
}

TEST(ImgFlat, ProportionalParabolaMatchesItsFormulaForEveryCentre) {
  // Mode 1 shares one division between a column and its mirror about the centre when that
  // is exact (integer and half-integer centres). Every sample must still equal the formula
  // evaluated on its own: centres inside, near either edge of the rectangle, outside it on
  // both sides, half-integer and not mirrorable, on both vector widths and with the wide
  // rows' streaming stores forced on.
  const int w = 37, h = 9;
  auto src = Image(w, h, 1, [](int x, int y, int) { return 300.0 + 41 * std::sin(x * 1.3 + y * 0.4); });
  src->CalcMinMax();
  const double level = 250.0, floor = -20.0, k = -0.07;
  const double base = -std::min<double>(src->GetMinPixel(0), floor);
  const double centres[] = {10.0, 4.0, 29.0, -5.0, 60.0, 12.5, -3.5, 7.3};
  CRect rect(4, 1, 30, 8);
  for (int path : {2, 1, 0}) {
    const int wide = path > 0;
    qrn::simd::SetWideVectors(wide);
    qrn::simd::SetStreamStores(path == 2 ? 1 : -1);
    for (double cx : centres) {
      const double cy = 2.0;
      auto target = Image(w, h, 1, [](int, int, int) { return -1.0; });
      double cxs = cx, cys = cy, kk = k, lv = level, fl = floor;
      Flat(target).DoParabolicPoint(src.get(), &cxs, &cys, &kk, &lv, &fl, 1, &rect, 0);
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
          const bool inside = x >= 4 && x < 30 && y >= 1 && y < 8;
          const double g = k * ((x - cx) * (x - cx) + (y - cy) * (y - cy));
          const float expected =
              inside ? static_cast<float>((level + base) / (g + level + base) * (double(At(*src, x, y)) + base) - base)
                     : -1.0f;
          ASSERT_EQ(At(*target, x, y), expected) << "centre " << cx << " at " << x << "," << y << " path " << path;
        }
    }
  }
  qrn::simd::SetWideVectors(1);
  qrn::simd::SetStreamStores(-1);
}

}  // namespace
