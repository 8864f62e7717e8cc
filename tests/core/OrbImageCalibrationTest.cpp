// Dark subtraction, flat division and the combined dark-and-flat pass.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "core/OrbImage.h"
#include "kernels/Vec4.h"
#include "platform/QrnSys.h"
#include "ops/calibration/CalibrationTestImages.h"

using calibtest::At;
using calibtest::Image;

namespace {

TEST(OrbImageCalibration, DarkSubtractionClampsAtZeroPlaneByPlaneOrFromGreyPlane) {
  // A grey dark serves every plane; equal or larger dark samples give exactly 0.
  auto greyDark = Image(3, 1, 1, {4, 5, 10});
  auto colourDark = Image(3, 1, 3, {1, 1, 1, 2, 2, 2, 3, 3, 3});
  const std::pair<COrbImage*, std::array<float, 9>> cases[] = {
      {greyDark.get(), {6, 0, 0, 0, 15, 0, 0, 0, 90}}, {colourDark.get(), {9, 4, 6, 0, 18, 1, 0, 0, 97}}};
  for (const auto& [dark, want] : cases) {
    auto light = Image(3, 1, 3, {10, 5, 7, 1, 20, 3, 0, 0, 100});
    light->DarkClbrtn(dark, 0);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(At(*light, i % 3, 0, i / 3), want[i]) << dark->GetPlanes() << " planes " << i;
    EXPECT_EQ(light->GetLockCount() + dark->GetLockCount(), 0);
  }

  // NaN is not "at most 0" for DarkClbrtn but is "not above 0" for the combined pass.
  auto nan = Image(1, 1, 1, {NAN});
  auto one = Image(1, 1, 1, {1});
  auto target = Image(1, 1, 1, {-7});
  target->DarkFlat(nan.get(), one.get(), nullptr, nullptr, nullptr, nullptr, 0, 0, nullptr, 0);
  EXPECT_EQ(At(*target, 0, 0), 0.0f);
  nan->DarkClbrtn(one.get(), 0);
  EXPECT_TRUE(std::isnan(At(*nan, 0, 0)));
}

TEST(OrbImageCalibration, PlainFlatDividesByFlatOverItsPlaneZeroMeanAndFlatWithoutRangeIsIgnored) {
  // Flat sum 10 over (w − 1)(h − 1) = 2 gives the normaliser 5. Samples 0 and −1 leave the light alone.
  auto flat = Image(3, 2, 1, {2, 4, 0, 2, -1, 3});
  auto light = Image(3, 2, 1, {10, 10, 10, 10, 10, 10});
  light->FlatClbrtn(flat.get(), 0);
  const float want[6] = {25, 12.5f, 10, 25, 10, 50.0f / 3.0f};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(At(*light, i % 3, i / 3), want[i]) << i;

  // A colour flat: every plane is normalised by plane 0's mean (4 here), not its own.
  auto colourFlat = Image(2, 2, 3, {1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3});
  auto colour = Image(2, 2, 3, [](int, int, int) { return 6.0; });
  colour->FlatClbrtn(colourFlat.get(), 0);
  EXPECT_EQ(At(*colour, 1, 1, 0), 24.0f);
  EXPECT_EQ(At(*colour, 1, 1, 1), 12.0f);
  EXPECT_EQ(At(*colour, 1, 1, 2), 8.0f);

  // Plane 1 has no range, so planes 1 and 2 stay undivided although plane 2 has one.
  auto noRange = Image(2, 2, 3, {1, 3, 1, 3, 2, 2, 2, 2, 1, 3, 1, 3});
  colour = Image(2, 2, 3, [](int, int, int) { return 15.0; });
  colour->FlatClbrtn(noRange.get(), 0.0f, 0.0, 0);
  EXPECT_EQ(At(*colour, 0, 0, 0), 120.0f);
  EXPECT_EQ(At(*colour, 0, 0, 1), 15.0f);
  EXPECT_EQ(At(*colour, 0, 0, 2), 15.0f);

  // The combined pass still subtracts the dark.
  auto constant = Image(2, 2, 1, {4, 4, 4, 4});
  auto dark = Image(2, 2, 1, {5, 5, 5, 5});
  auto raw = Image(2, 2, 1, {15, 16, 17, 18});
  float lo = 4, hi = 4, mean = 4;
  raw->DarkFlat(nullptr, dark.get(), constant.get(), &lo, &hi, &mean, 0.0f, 0.0, nullptr, 0);
  EXPECT_EQ(At(*raw, 1, 1), 13.0f);
}

TEST(OrbImageCalibration, FlatWithPedestalAndGammaWithAndWithoutGivenStatistics) {
  // Flat 1..3, sum 8 over (w − 1)(h − 1) = 1: mean 8, bottom 3 − 2·2 = −1. With pedestal 0.25
  // f' = f + 8 · 0.25; gamma −1 is no curve; gamma 2 maps the mean to (9/4)² · 4 − 1 = 19.25,
  // flat 1 to 0 (no division) and flat 3 to 3. The combined pass without statistics measures
  // the flat itself and must agree.
  auto flat = Image(2, 2, 1, {1, 3, 1, 3});
  const struct {
    float pedestal;
    double gamma;
    float want[2];
  } cases[] = {{0.25f, 0.0, {40, 24}}, {0.0f, -1.0, {120, 40}}, {0.0f, 2.0, {15, 96.25f}}};
  for (const auto& c : cases) {
    auto light = Image(2, 2, 1, [](int, int, int) { return 15.0; });
    auto combined = light->Clone();
    light->FlatClbrtn(flat.get(), c.pedestal, c.gamma, 0);
    combined->DarkFlat(nullptr, nullptr, flat.get(), nullptr, nullptr, nullptr, c.pedestal, c.gamma, nullptr, 0);
    for (int x = 0; x < 2; ++x) {
      EXPECT_EQ(At(*light, x, 1), c.want[x]) << "gamma " << c.gamma << " x " << x;
      EXPECT_EQ(At(*combined, x, 1), c.want[x]) << "gamma " << c.gamma << " x " << x;
    }
  }
}

TEST(OrbImageCalibration, FlatStatisticsAreThoseOfCalcMinMaxAndTheRawMean) {
  // A colour flat measured inside FlatClbrtn must give what the combined pass gives with
  // the statistics taken one by one, and leave the flat's stored statistics as CalcMinMax.
  std::mt19937 rng(23);
  // Counts large enough that the float running sum of CalcMinMax rounds: its mean differs
  // from the raw mean, which is the one the calibration uses.
  std::uniform_real_distribution<float> counts(900000.0f, 1300000.0f);
  auto flat = Image(200, 150, 3, [&](int, int, int) { return std::round(counts(rng)); });
  auto light = Image(200, 150, 3, [](int x, int y, int p) { return 500.0 + x * 3 + y + 50 * p; });
  auto viaStats = light->Clone();
  auto measured = flat->Clone();
  measured->CalcMinMax();
  float lo[3], hi[3], mean[3];
  for (int p = 0; p < 3; ++p) {
    lo[p] = measured->GetMinPixel(p);
    hi[p] = measured->GetMaxPixel(p);
    mean[p] = measured->GetAvrGrayRaw(p);
  }
  viaStats->DarkFlat(nullptr, nullptr, flat.get(), lo, hi, mean, 0.1f, 1.7, nullptr, 0);
  light->FlatClbrtn(flat.get(), 0.1f, 1.7, 0);
  EXPECT_TRUE(qrntest::ImagesNear(*light, *viaStats, 0.0));
  for (int p = 0; p < 3; ++p) {
    EXPECT_EQ(flat->GetMinPixel(p), lo[p]);
    EXPECT_EQ(flat->GetMaxPixel(p), hi[p]);
    EXPECT_EQ(flat->GetAvrPixel(p), measured->GetAvrPixel(p));
    EXPECT_NE(measured->GetAvrPixel(p), mean[p]);
  }
}

// The per-sample rule of the combined pass, written out from its description.
float CombinedReference(float v, const float* d, const float* f, float lo, float hi, float mean, float pedestal,
                        double gamma) {
  if (d) {
    v = v - *d;
    if (!(v > 0)) v = 0;
  }
  if (f && lo != hi) {
    const float bottom = hi - 2.0f * (hi - lo);
    const double span = double(hi) - bottom;
    auto curve = [&](double s) { return float(std::pow((s - bottom) / span, gamma) * span + bottom); };
    const float m = gamma > 0 ? curve(mean) : mean;
    float g = gamma > 0 ? curve(*f) : *f;
    g += m * pedestal;
    if (g > 0) v = m * v / g;
  }
  return v;
}

TEST(OrbImageCalibration, CombinedPassMatchesTheSampleRuleOnAwkwardShapesAndEveryPath) {
  // Paths: the scalar rule, then four- and eight-wide rows, each without and with streaming
  // stores; a rectangle from column 1 gives the streamed rows a head before their first
  // aligned vector. Every vector path must give the scalar rule's bits. The last frame has
  // lines enough to be shared among threads.
  for (double gamma : {0.0, 1.7})
    for (int planes : {1, 3})
      for (auto [w, h] : {std::pair{1, 4}, {3, 4}, {5, 4}, {17, 4}, {37, 4}, {61, 43}}) {
        const int left = w > 5 ? 1 : 0;
        auto src = Image(w, h, planes, [](int x, int y, int p) { return 40.0 + 13 * x - 7 * y + 5 * p; });
        // A grey dark serves every plane; a colour one (with the curve, and on the large frame
        // without it) has its own planes.
        const int darkPlanes = gamma > 0 || h > 4 ? planes : 1;
        auto dark = Image(w, h, darkPlanes, [](int x, int y, int p) { return (x + 2 * y + p) % 5 * 9.0; });
        // Flat samples from −0.2 (no division) to 1.0.
        auto flat = Image(w, h, planes, [](int x, int y, int p) { return -0.2 + 0.15 * ((x * 3 + y + p) % 9); });
        float lo[3], hi[3], mean[3];
        for (int p = 0; p < planes; ++p) lo[p] = -0.2f, hi[p] = 1.0f, mean[p] = 0.8f + 0.01f * p;
        std::vector<float> scalar;
        for (int path = 0; path < 5; ++path) {
          auto target = Image(w, h, planes, [](int, int, int) { return -1.0; });
          CRect rect(left, 0, w, h);
          CQrnSys::SetSIMD(path == 0 ? 0 : -1);
          qrn::simd::SetWideVectors(path >= 3);
          qrn::simd::SetStreamStores(path == 2 || path == 4 ? 1 : 0);
          target->DarkFlat(src.get(), dark.get(), flat.get(), lo, hi, mean, 0.05f, gamma, &rect, path == 1);
          CQrnSys::SetSIMD(-1);
          qrn::simd::SetWideVectors(1);
          qrn::simd::SetStreamStores(-1);
          std::vector<float> got;
          for (int p = 0; p < planes; ++p)
            for (int y = 0; y < h; ++y)
              for (int x = 0; x < w; ++x) {
                got.push_back(At(*target, x, y, p));
                if (path > 0) continue;
                const float d = At(*dark, x, y, dark->IsColor() ? p : 0), f = At(*flat, x, y, p);
                float want = CombinedReference(At(*src, x, y, p), &d, &f, lo[p], hi[p], mean[p], 0.05f, gamma);
                if (x < left) want = -1.0f;
                // Relative 1e-6: the reference may round a product differently in the last bit.
                EXPECT_NEAR(got.back(), want, 1e-6 * std::fabs(want)) << w << "x" << h << " p" << p << " gamma " << gamma;
              }
          if (path == 0) scalar = got;
          EXPECT_EQ(std::memcmp(got.data(), scalar.data(), got.size() * sizeof(float)), 0)
              << w << "x" << h << " gamma " << gamma << " planes " << planes << " path " << path;
          EXPECT_EQ(target->GetLockCount() + src->GetLockCount() + dark->GetLockCount() + flat->GetLockCount(), 0);
        }
      }
}

TEST(OrbImageCalibration, CombinedPassWritesOnlyTheRectangleAndSkipsMissingFrames) {
  auto src = Image(6, 5, 1, [](int x, int y, int) { return 100.0 + x + 10 * y; });
  auto target = Image(6, 5, 1, [](int, int, int) { return -3.0; });
  CRect rect(1, 2, 4, 9);  // clipped to rows 2..4
  target->DarkFlat(src.get(), nullptr, nullptr, nullptr, nullptr, nullptr, 0.5f, 2.0, &rect, 0);
  auto want = Image(6, 5, 1, [](int x, int y, int) { return x >= 1 && x < 4 && y >= 2 ? 100.0 + x + 10 * y : -3.0; });
  EXPECT_TRUE(qrntest::ImagesNear(*target, *want, 0));
  // A dark that covers the rectangle but not the whole target is enough.
  auto dark = Image(4, 5, 1, [](int, int, int) { return 1.0; });
  target->DarkFlat(src.get(), dark.get(), nullptr, nullptr, nullptr, nullptr, 0.0f, 0.0, &rect, 0);
  EXPECT_EQ(At(*target, 3, 4), 99.0f + 3 + 40);
}

TEST(OrbImageCalibration, SyntheticRawFrameReturnsToTheSky) {
  const int w = 61, h = 43, planes = 3;
  const double sigma = 2.0;
  auto sky = Image(w, h, planes, [](int x, int y, int p) { return 500.0 + 3.0 * x + 2.0 * y + 100.0 * p; });
  // Vignetting-like response, then normalised to mean 1.
  auto response = [&](int x, int y, int p) {
    const double dx = (x - w / 2.0) / w, dy = (y - h / 2.0) / h;
    return 1.0 - 1.2 * (dx * dx + dy * dy) - 0.05 * p;
  };
  auto flat = Image(w, h, planes, response);
  float lo[3], hi[3], mean[3];
  for (int p = 0; p < planes; ++p) {
    double sum = 0;
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) sum += response(x, y, p);
    const double m = sum / (w * h);
    lo[p] = 1e9f, hi[p] = -1e9f;
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        const float f = static_cast<float>(response(x, y, p) / m);
        flat->SetPixelGrayRaw(x, y, f, p);
        lo[p] = std::min(lo[p], f), hi[p] = std::max(hi[p], f);
      }
    mean[p] = 1.0f;
  }
  auto dark = Image(w, h, planes, [](int x, int y, int p) { return (x * 7 + y * 3 + p) % 11 == 0 ? 400.0 : 50.0; });
  std::mt19937 rng(4242);
  std::normal_distribution<double> gauss(0.0, sigma);
  auto raw = Image(w, h, planes, [&](int x, int y, int p) {
    const double n = std::clamp(gauss(rng), -4 * sigma, 4 * sigma);
    return At(*sky, x, y, p) * At(*flat, x, y, p) + At(*dark, x, y, p) + n;
  });

  auto result = Image(w, h, planes, [](int, int, int) { return 0.0; });
  result->DarkFlat(raw.get(), dark.get(), flat.get(), lo, hi, mean, 0.0f, 0.0, nullptr, 1);
  double residualSum = 0;
  for (int p = 0; p < planes; ++p)
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        const double residual = At(*result, x, y, p) - At(*sky, x, y, p);
        // Noise is cut at 4 sigma and then divided by the flat; 0.01 covers float rounding near 1000.
        EXPECT_LE(std::fabs(residual), 4 * sigma / At(*flat, x, y, p) + 0.01) << x << "," << y << " p" << p;
        residualSum += residual;
      }
  // The residual is the noise alone: its mean is zero within 4 standard errors (about 0.06).
  EXPECT_NEAR(residualSum / (w * h * planes), 0.0, 4 * 1.3 * sigma / std::sqrt(w * h * planes));
}

}  // namespace
