#include "ops/level/ImgToneCurve.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "ops/level/LevelTestImages.h"

using leveltest::Make;

namespace {

// Level window lo..lo + 255 makes the raw value the 0..255 value plus lo, so results read directly.
float Apply(float** curves, int n, float v, int planes = 1, int plane = 0, double lo = 0) {
  auto src = Make(1, 1, planes, lo, lo + 255, [&](int, int, int) { return v; });
  COrbImage dst(*src);
  static_cast<CImgToneCurve&>(dst).Do(curves, n, src.get(), nullptr, 0, 0);
  return dst.GetPixelGrayRaw(0, 0, plane);
}

TEST(ImgToneCurve, HandWorkedLookupEndsAndColourOrder) {
  float steps[3] = {0.0f, 0.5f, 1.0f}, rising[3] = {0.0f, 0.2f, 0.6f}, flat[3] = {0.0f, 0.7f, 0.7f},
        falling[3] = {0.0f, 0.9f, 0.5f}, high[2] = {0.8f, 0.9f};
  float* curves[1] = {steps};
  // Lookup truncates without interpolating. Index trunc(t·2/255): 127 -> 0, 127.5 -> 1,
  // 254.9 -> 1, 255 -> 2.
  EXPECT_EQ(Apply(curves, 3, 127.0f), 0.0f);
  EXPECT_EQ(Apply(curves, 3, 127.5f), 127.5f);
  EXPECT_EQ(Apply(curves, 3, 254.9f), 127.5f);
  EXPECT_EQ(Apply(curves, 3, 255.0f), 255.0f);
  // Beyond the top: the last segment of `rising` climbs 0.4 of 255 over 127.5, slope 0.8 from
  // (153, 153) -> 153 + 147·0.8. Float rounding of 0.6·255 and the slope stays within 1e-4.
  curves[0] = rising;
  EXPECT_NEAR(Apply(curves, 3, 300.0f), 270.6f, 1e-4);
  EXPECT_NEAR(CImgToneCurve::CalcToneCurve(rising, 2, 300.0f), 270.6f, 1e-4);
  curves[0] = flat;
  EXPECT_NEAR(Apply(curves, 3, 400.0f), 0.7f * 255.0f, 1e-4);
  curves[0] = falling;  // a falling end is continued flat, never downwards
  EXPECT_NEAR(Apply(curves, 3, 400.0f), 0.5f * 255.0f, 1e-4);
  // Below the level minimum: the minimum, whatever the curve.
  curves[0] = high;
  for (float v : {999.0f, 899.0f}) EXPECT_EQ(Apply(curves, 2, v, 1, 0, 1000), 1000.0f) << v;

  // Colour planes pass their own curve, then the master.
  float master[3] = {0.0f, 0.5f, 1.0f}, lift[3] = {0.6f, 0.6f, 1.0f}, identity[256], dark[3] = {0, 0, 0};
  for (int i = 0; i < 256; ++i) identity[i] = i / 255.0f;
  float* colour[4] = {master, lift, identity, dark};
  // Red 100: own curve -> 0.6·255 = 153, master index trunc(153·2/255) = 1 -> 127.5.
  EXPECT_EQ(Apply(colour, 3, 100.0f, 3, 0), 127.5f);
  // Blue: own curve 0, master index 0 -> 0.
  EXPECT_EQ(Apply(colour, 3, 100.0f, 3, 2), 0.0f);
}

TEST(ImgToneCurve, HAlphaStretchesRedTwiceGreenOnceThresholdZeroKeepsAndLevelFromPlaneZero) {
  auto src = Make(17, 2, 3, 0, 255, [](int, int, int) { return 50; });
  COrbImage dst(*src);
  static_cast<CImgToneCurve&>(dst).DoHAlpha(0.5, 1.0, src.get(), nullptr, 0);
  // Knee at 127.5: 50 -> 50/127.5 of 255 = 100; red then 100 -> 200. The float curve points
  // carry relative rounding of about 1e-7, i.e. 1e-4 at these values.
  for (int x = 0; x < 17; ++x)
    for (int p = 0; p < 3; ++p) EXPECT_NEAR(dst.GetPixelGrayRaw(x, 1, p), p ? 100.0f : 200.0f, 1e-4) << p;

  auto ramp = Make(256, 1, 1, 0, 255, [](int x, int, int) { return x; });
  COrbImage same(*ramp);
  static_cast<CImgToneCurve&>(same).DoHAlpha(0.0, 3.0, ramp.get(), nullptr, 0);
  // Identity points i/255 in float times 255 come back within 1e-4 of i.
  for (int x = 0; x < 256; ++x) EXPECT_NEAR(same.GetPixelGrayRaw(x, 0, 0), x, 1e-4);

  // The level window of every plane comes from plane 0's range.
  auto planes = Make(4, 3, 3, 0, 1, [](int x, int y, int p) { return 10.0 * p + x + y; });
  COrbImage level(*planes);
  static_cast<CImgToneCurve&>(level).DoHAlphaLevel(2.0, planes.get());
  for (int p = 0; p < 3; ++p) {
    EXPECT_EQ(level.GetLevelMin(p), 0.0);
    EXPECT_EQ(level.GetLevelMax(p), 10.0);  // plane 0 maximum 5, times 2
  }
}

TEST(ImgToneCurve, EverySampleFollowsTheScalarRuleOnEveryRowVariant) {
  // A curve whose last segment rises, so samples above the window take the extension; NaN
  // and infinities take it too. The rectangle starts off a vector boundary, so a streamed
  // row has a head written sample by sample; columns outside it keep the source. Noise
  // beyond the window puts a sample outside into nearly every vector; samples inside it
  // (the window's ends included) fill whole vectors.
  float curve[5] = {0.1f, 0.3f, 0.2f, 0.7f, 0.9f}, own[5] = {0.0f, 0.5f, 0.6f, 0.65f, 1.0f};
  float* curves[4] = {curve, own, curve, own};
  CRect rect(3, 0, 98, 4);
  for (int planes : {1, 3})
    for (int inside : {0, 1}) {
    auto src = inside ? Make(101, 4, planes, 100, 900, [](int x, int y, int p) {
      // The window's top, and samples whose index t·4/255 falls on a whole number.
      if (y == 1 && x >= 50 && x < 54) return 300.0 + 200.0 * (x - 50);
      return 100.0 + (x * 37 + y * 11 + p * 5) % 800 + 0.25;
    })
                      : leveltest::NoiseWithSpecials(planes, 100, 900);
    leveltest::ForEveryRowVariant([&](int wide, int stream) {
      COrbImage dst(*src);
      static_cast<CImgToneCurve&>(dst).Do(curves, 5, src.get(), &rect, 0, 0);
      const float lo = 100.0f, k = static_cast<float>(255.0 / 800.0);
      EXPECT_EQ(leveltest::Mismatches(dst, [&](int x, int y, int p) {
                  const float v = src->GetPixelGrayRaw(x, y, p), t = (v - lo) * k;
                  float u = CImgToneCurve::ApplyCurve(planes == 1 ? curve : curves[p + 1], 4, t);
                  if (planes == 3) u = CImgToneCurve::ApplyCurve(curve, 4, u);
                  return x >= rect.left && x < rect.right ? u / k + lo : v;
                }), 0) << planes << " planes, inside " << inside << ", wide " << wide << ", stream " << stream;
    });
  }
}

TEST(ImgToneCurve, CurvesOfMoreThanTwoToThe23PointsNeverReadPastTheirLastPoint) {
  // n − 1 = 2^24 + 3 becomes 2^24 + 4 as a float, so t = 255 gives index n by the float steps.
  const int n = (1 << 24) + 4;
  std::vector<float> curve(n, 0.25f);
  curve[n - 1] = 0.75f;
  float* curves[1] = {curve.data()};
  EXPECT_EQ(CImgToneCurve::ApplyCurve(curve.data(), n - 1, 255.0f), 0.75f * 255.0f);
  auto src = Make(45, 1, 1, 0, 255, [](int, int, int) { return 255.0f; });
  leveltest::ForEveryRowVariant([&](int wide, int stream) {
    COrbImage dst(*src);
    static_cast<CImgToneCurve&>(dst).Do(curves, n, src.get(), nullptr, 0, 0);
    for (int x = 0; x < 45; ++x)
      EXPECT_EQ(dst.GetPixelGrayRaw(x, 0, 0), 0.75f * 255.0f) << x << ", wide " << wide << ", stream " << stream;
  });
}

TEST(ImgToneCurve, BadCurvesWriteNothing) {
  float curve[1] = {1.0f};
  float* curves[4] = {curve, curve, nullptr, curve};
  auto src = Make(2, 2, 3, 0, 255, [](int, int, int) { return 5; });
  COrbImage dst(*src);
  static_cast<CImgToneCurve&>(dst).Do(curves, 1, src.get(), nullptr, 0, 0);   // one point: no segment
  static_cast<CImgToneCurve&>(dst).Do(nullptr, 3, src.get(), nullptr, 0, 0);  // no curves
  float two[2] = {0.5f, 0.5f};
  curves[0] = curves[1] = curves[3] = two;
  static_cast<CImgToneCurve&>(dst).Do(curves, 2, src.get(), nullptr, 0, 0);  // a plane curve missing
  EXPECT_TRUE(leveltest::BitEqual(dst, *src));
}

}  // namespace
