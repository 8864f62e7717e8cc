// Sharpening filters: detail added back, thresholds, brighter switch, edge test, sub-bands.
#include "ops/filter/ImgFilterSharp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "common/ImageCompare.h"

namespace {

using qrntest::Fill;
using qrntest::ImagesNear;

std::unique_ptr<COrbImage> MakeImage(int w, int h, int planes) {
  auto image = std::make_unique<COrbImage>(-32, w, h, planes);
  for (int p = 0; p < planes; ++p) image->SetLevel(p, 0.0, 255.0);
  return image;
}

CImgFilterSharp& Sharp(COrbImage& image) { return static_cast<CImgFilterSharp&>(image); }

enum Method { kStandard, kEdge, kUnsharp };

/// The ten per-plane arrays, every switch off.
struct SharpArgs {
  double radius[3] = {1, 1, 1}, weight[3] = {100, 100, 100};
  int minOn[3] = {}, maxOn[3] = {}, brighterOn[3] = {};
  double min[3] = {}, minBuf[3] = {}, max[3] = {}, maxBuf[3] = {}, brighter[3] = {};

  void Run(Method m, COrbImage& dst, COrbImage* work, CRect* rect = nullptr) {
    CImgFilterSharp& s = Sharp(dst);
    if (m == kStandard)
      s.SharpFilter(radius, weight, minOn, min, minBuf, maxOn, max, maxBuf, brighterOn, brighter, work, rect, 0);
    else if (m == kEdge)
      s.SharpEdgeFilter(radius, weight, minOn, min, minBuf, maxOn, max, maxBuf, brighterOn, brighter, work, rect, 0);
    else
      s.UnSharpMask(radius, weight, minOn, min, minBuf, maxOn, max, maxBuf, brighterOn, brighter, work, rect, 0);
  }
};

/// 17 x 3: 0 left of column 8, 100 from it on.
std::unique_ptr<COrbImage> StepImage(int planes = 1) {
  auto image = MakeImage(17, 3, planes);
  Fill(*image, [](int x, int, int) { return x < 8 ? 0.0 : 100.0; });
  return image;
}

/// Correction out - work at (x, 1) of plane 0.
double Correction(const COrbImage& out, const COrbImage& work, int x) {
  return static_cast<double>(out.GetPixelGrayRaw(x, 1, 0)) - work.GetPixelGrayRaw(x, 1, 0);
}

TEST(Sharpening, FlatImagesStayFlatOnAwkwardShapes) {
  // Also with the largest radius (500, clamped to 50) and any band count, far beyond the image.
  for (int planes : {1, 3})
    for (int w : {1, 3, 5, 17})
      for (double radius : {1.0, 500.0}) {
        auto work = MakeImage(w, 2, planes);
        Fill(*work, [](int, int, int p) { return 80.0 + p; });
        SharpArgs a;
        for (double& r : a.radius) r = radius;
        for (Method m : {kStandard, kEdge, kUnsharp}) {
          auto dst = MakeImage(w, 2, planes);
          a.Run(m, *dst, work.get());
          // Normalised float taps sum to 1 within a few ulps: detail of ~1e-5 on 80.
          EXPECT_TRUE(ImagesNear(*dst, *work, 1e-3)) << "method " << m << " width " << w << " radius " << radius;
        }
        auto dst = MakeImage(w, 2, planes);
        Sharp(*dst).SubBandUnSharpMask(std::min(radius, 50.0), 100.0, radius > 1 ? 99 : 3, work.get(), nullptr, 0);
        EXPECT_TRUE(ImagesNear(*dst, *work, 1e-3)) << "width " << w << " radius " << radius;
      }
}

TEST(Sharpening, StepEdgeOvershootsTheCorrectionScalesWithWeightAndEdgeOnlyIgnoresNoise) {
  auto work = StepImage();
  for (Method m : {kStandard, kEdge, kUnsharp}) {
    auto once = MakeImage(17, 3, 1), twice = MakeImage(17, 3, 1);
    SharpArgs a;
    a.Run(m, *once, work.get());
    a.weight[0] = 200;
    a.Run(m, *twice, work.get());
    EXPECT_LT(once->GetPixelGrayRaw(7, 1, 0), 0.0f) << m;     // dark side darker
    EXPECT_GT(once->GetPixelGrayRaw(8, 1, 0), 100.0f) << m;   // bright side brighter
    // Far from the edge: the float taps sum to 1 within a few ulps.
    EXPECT_NEAR(once->GetPixelGrayRaw(0, 1, 0), 0.0f, 1e-3) << m;
    EXPECT_NEAR(once->GetPixelGrayRaw(16, 1, 0), 100.0f, 1e-3) << m;
    for (int x = 0; x < 17; ++x)
      // Both corrections come from the same blur; only the double products round differently.
      EXPECT_NEAR(Correction(*twice, *work, x), 2.0 * Correction(*once, *work, x), 1e-4) << m << " x " << x;
  }
  // Sub-bands: the same linearity in the weight.
  auto once = MakeImage(17, 3, 1), twice = MakeImage(17, 3, 1);
  Sharp(*once).SubBandUnSharpMask(1.0, 50.0, 2, work.get(), nullptr, 0);
  Sharp(*twice).SubBandUnSharpMask(1.0, 100.0, 2, work.get(), nullptr, 0);
  EXPECT_GT(once->GetPixelGrayRaw(8, 1, 0), 100.0f);
  for (int x = 0; x < 17; ++x) EXPECT_NEAR(Correction(*twice, *work, x), 2.0 * Correction(*once, *work, x), 1e-4);

  // Edge-only leaves faint detail alone: noise of +-0.5 (below 1 % of the 0..255 window).
  Fill(*work, [](int x, int y, int) { return (x < 8 ? 0.0 : 100.0) + ((x + y) % 2 ? 0.5 : -0.5); });
  auto edge = MakeImage(17, 3, 1), usm = MakeImage(17, 3, 1);
  SharpArgs().Run(kEdge, *edge, work.get());
  SharpArgs().Run(kUnsharp, *usm, work.get());
  for (int x : {0, 1, 2, 14, 15, 16}) {
    EXPECT_EQ(edge->GetPixelGrayRaw(x, 1, 0), work->GetPixelGrayRaw(x, 1, 0)) << x;
    EXPECT_NE(usm->GetPixelGrayRaw(x, 1, 0), work->GetPixelGrayRaw(x, 1, 0)) << x;
  }
  EXPECT_EQ(edge->GetPixelGrayRaw(8, 1, 0), usm->GetPixelGrayRaw(8, 1, 0));
}

TEST(Sharpening, ThresholdsAndBrighterSwitchDampTheCorrection) {
  auto work = StepImage();
  auto full = MakeImage(17, 3, 1), dst = MakeImage(17, 3, 1);
  SharpArgs().Run(kUnsharp, *full, work.get());

  SharpArgs low;
  low.minOn[0] = 1, low.min[0] = 50;
  low.Run(kUnsharp, *dst, work.get());
  EXPECT_EQ(dst->GetPixelGrayRaw(7, 1, 0), 0.0f);  // at or below the lower threshold
  EXPECT_EQ(dst->GetPixelGrayRaw(8, 1, 0), full->GetPixelGrayRaw(8, 1, 0));

  SharpArgs high;
  high.maxOn[0] = 1, high.max[0] = 50;
  high.Run(kUnsharp, *dst, work.get());
  EXPECT_EQ(dst->GetPixelGrayRaw(8, 1, 0), 100.0f);  // at or above the upper threshold
  EXPECT_EQ(dst->GetPixelGrayRaw(7, 1, 0), full->GetPixelGrayRaw(7, 1, 0));

  // 100 lies halfway up the ramp 0 .. 200.
  SharpArgs ramp;
  ramp.minOn[0] = 1, ramp.min[0] = 0, ramp.minBuf[0] = 200;
  ramp.Run(kUnsharp, *dst, work.get());
  // Tolerance: the halved correction is rounded to float on a value near 100.
  EXPECT_NEAR(Correction(*dst, *work, 8), 0.5 * Correction(*full, *work, 8), 1e-4);
  ramp = SharpArgs();
  ramp.maxOn[0] = 1, ramp.max[0] = 150, ramp.maxBuf[0] = 100;  // and halfway down 50 .. 150
  ramp.Run(kUnsharp, *dst, work.get());
  EXPECT_NEAR(Correction(*dst, *work, 8), 0.5 * Correction(*full, *work, 8), 1e-4);

  // The brighter switch damps only the darkening.
  SharpArgs a;
  a.brighterOn[0] = 1, a.brighter[0] = 100;
  a.Run(kUnsharp, *dst, work.get());
  for (int x = 0; x < 17; ++x) EXPECT_GE(dst->GetPixelGrayRaw(x, 1, 0), work->GetPixelGrayRaw(x, 1, 0)) << x;
  EXPECT_EQ(dst->GetPixelGrayRaw(8, 1, 0), full->GetPixelGrayRaw(8, 1, 0));
  a.brighter[0] = 50;
  a.Run(kUnsharp, *dst, work.get());
  // Float rounding of a correction of a few tens near 0.
  EXPECT_NEAR(Correction(*dst, *work, 7), 0.5 * Correction(*full, *work, 7), 1e-4);
  // The switch off ignores the amount.
  a.brighterOn[0] = 0;
  a.Run(kUnsharp, *dst, work.get());
  EXPECT_TRUE(ImagesNear(*dst, *full, 0.0));
}

TEST(Sharpening, StandardKeepsARampAndScalarFormsMatchArrays) {
  auto ramp = MakeImage(17, 5, 1);
  Fill(*ramp, [](int x, int, int) { return 10.0 + 4.0 * x; });
  auto dst = MakeImage(17, 5, 1);
  SharpArgs().Run(kStandard, *dst, ramp.get());
  // The box mean of a ramp is its centre value away from the ends (three float products).
  for (int x = 1; x < 16; ++x) EXPECT_NEAR(dst->GetPixelGrayRaw(x, 2, 0), 10.0 + 4.0 * x, 1e-3) << x;

  auto work = StepImage(3);
  SharpArgs a;
  for (int p = 0; p < 3; ++p) a.radius[p] = 2, a.weight[p] = 70, a.minOn[p] = 1, a.min[p] = 10, a.minBuf[p] = 5;
  for (Method m : {kStandard, kEdge, kUnsharp}) {
    auto arrays = MakeImage(17, 3, 3), scalars = MakeImage(17, 3, 3);
    a.Run(m, *arrays, work.get());
    CImgFilterSharp& s = Sharp(*scalars);
    if (m == kStandard) s.SharpFilter(2, 70, 1, 10, 5, 0, 0, 0, 0, 0, work.get(), nullptr, 0);
    if (m == kEdge) s.SharpEdgeFilter(2, 70, 1, 10, 5, 0, 0, 0, 0, 0, work.get(), nullptr, 0);
    if (m == kUnsharp) s.UnSharpMask(2, 70, 1, 10, 5, 0, 0, 0, 0, 0, work.get(), nullptr, 0);
    EXPECT_TRUE(ImagesNear(*arrays, *scalars, 0.0)) << m;
  }
}

TEST(Sharpening, BadInputNeverCrashesOrWritesOutsideTheRectangle) {
  auto work = StepImage();
  auto dst = MakeImage(17, 3, 1);
  Fill(*dst, [](int, int, int) { return -1.0; });
  CRect inverted(9, 2, 3, 1), outside(40, 40, 50, 50);
  SharpArgs a;
  a.Run(kUnsharp, *dst, work.get(), &inverted);
  a.Run(kStandard, *dst, work.get(), &outside);
  a.Run(kEdge, *dst, nullptr);
  auto other = MakeImage(16, 3, 1);
  a.Run(kUnsharp, *dst, other.get());
  Sharp(*dst).SubBandUnSharpMask(1.0, 100.0, 3, nullptr, nullptr, 0);
  for (int x = 0; x < 17; ++x) EXPECT_EQ(dst->GetPixelGrayRaw(x, 1, 0), -1.0f);
  CRect part(2, 0, 5, 3);
  a.Run(kUnsharp, *dst, work.get(), &part);
  EXPECT_EQ(dst->GetPixelGrayRaw(1, 1, 0), -1.0f);
  EXPECT_EQ(dst->GetPixelGrayRaw(3, 1, 0), 0.0f);

  // A radius beyond 50 acts as 50: on an impulse wide enough for the blur's reach to show,
  // 80 gives what 50 gives, and 45 something else.
  auto impulse = MakeImage(121, 3, 1);
  Fill(*impulse, [](int x, int, int) { return x == 60 ? 1000.0 : 0.0; });
  const auto unsharp = [&](double radius) {
    auto out = MakeImage(121, 3, 1);
    SharpArgs args;
    args.radius[0] = radius;
    args.Run(kUnsharp, *out, impulse.get());
    return out;
  };
  EXPECT_TRUE(ImagesNear(*unsharp(80), *unsharp(50), 0.0));
  EXPECT_FALSE(ImagesNear(*unsharp(45), *unsharp(50), 0.0));
}

}  // namespace
