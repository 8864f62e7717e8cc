// Dark synthesis from two measured darks.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>

#include "ops/calibration/CalibrationTestImages.h"
#include "kernels/Vec4.h"
#include "ops/calibration/ImgDark.h"

using calibtest::At;
using calibtest::Image;

namespace {

// A dark current model linear in temperature: bias plus a per-pixel rate times degrees.
double DarkAt(int x, int y, int p, double temperature) {
  return 100.0 + 7 * p + (0.5 + ((x * 5 + y * 3) % 7)) * (temperature + 20.0);
}

TEST(ImgDark, ScoreBetweenTwoDarksReproducesTheMiddleTemperature) {
  for (int planes : {1, 3}) {
    auto d0 = Image(17, 3, planes, [](int x, int y, int p) { return DarkAt(x, y, p, -10.0); });
    auto d1 = Image(17, 3, planes, [](int x, int y, int p) { return DarkAt(x, y, p, 0.0); });
    auto want = Image(17, 3, planes, [](int x, int y, int p) { return DarkAt(x, y, p, -5.0); });
    static_cast<CImgDark&>(*d0).DoInterpolateByScore(d1.get(), -5.0, -10.0, 0.0, 0);
    // The samples are below 400 and the mix is exact in double: one float rounding (3e-5) at most.
    EXPECT_TRUE(qrntest::ImagesNear(*d0, *want, 1e-4)) << planes << " planes";
  }
}

TEST(ImgDark, ScoreClampsBetweenTheTwoDarksByHand) {
  // Beyond the second reference (a factor of 2 = (3 − 1)/(2 − 1) on D1 − D0): (D0, D1) =
  // (10, 20) clamps to D1; (20, 10) gives 0, below D1 but only compared with D0 afterwards, so
  // it becomes D0; (30, 30) stays.
  auto d0 = Image(3, 1, 1, {10, 20, 30});
  auto d1 = Image(3, 1, 1, {20, 10, 30});
  static_cast<CImgDark&>(*d0).DoInterpolateByScore(d1.get(), 3.0, 1.0, 2.0, 0);
  for (int x = 0; x < 3; ++x) EXPECT_EQ(At(*d0, x, 0), x == 2 ? 30.0f : 20.0f) << x;
  // Below the first reference, with D1 < D0: r = 20 + (−10)(−1) = 30 > D1, so D1.
  auto e0 = Image(1, 1, 1, {20});
  auto e1 = Image(1, 1, 1, {10});
  static_cast<CImgDark&>(*e0).DoInterpolateByScore(e1.get(), 0.0, 1.0, 2.0, 0);
  EXPECT_EQ(At(*e0, 0, 0), 10.0f);
  static_cast<CImgDark&>(*e0).DoInterpolateByScore(nullptr, 0.0, 1.0, 2.0, 0);  // nothing to mix with
  EXPECT_EQ(At(*e0, 0, 0), 10.0f);
}

TEST(ImgDark, EveryRowVariantEqualsThePlainDoubleFormula) {
  // Irregular darks with awkward reference values, so that every product and quotient rounds:
  // each member must store exactly the float of its formula evaluated in double, left to
  // right, on the narrow, the eight-wide and the fused multiply-add rows, on rows too short for
  // a vector and rows with a tail. Every fifth column has equal darks (a zero difference), and
  // a few samples are ±0 or infinite; clamped scores occur where D1 lies on either side of D0.
  const float inf = std::numeric_limits<float>::infinity();
  auto special = [&](int x, int y, int p, int seed) {
    const int k = x + 37 * (y + 3 * p);
    return k == 6 ? -0.0f : k == 7 ? 0.0f : k == 12 + seed ? inf : k == 20 ? -inf : std::nanf("");
  };
  auto sample = [&](int x, int y, int p, int seed) {
    const float s = special(x, y, p, seed);
    if (!std::isnan(s)) return double(s);
    return 90.0 + std::fmod((x * 37.3 + y * 11.9 + p + (x % 5 ? seed : 0)) * 1.7, 53.1);
  };
  const double t = 1.3, t0 = -2.7, t1 = 9.1, e = 0.7, e0 = 0.1, e1 = 3.3, k = std::pow(2.0, 3.1 - 1.9 / 6.3);
  using Formula = std::function<double(double, double)>;
  const Formula proportion = [&](double a, double b) { return a + (b - a) * (t - t0) / (t1 - t0) + (b - a) * (e - e0) / (e1 - e0); };
  const Formula power = [&](double a, double b) { return a + (b - a) * (t - t0) / (t1 - t0) + a * k; };
  // Scores also with a negative span, and with a negative shift, since the fused division treats
  // the divisor's sign apart and must keep the sign of a zero quotient either way.
  const auto scoreFor = [](double target, double mine, double others) -> Formula {
    return [=](double a, double b) {
      const double r = a + (b - a) * (target - mine) / (others - mine);
      return r > b ? b : r < a ? a : r;
    };
  };
  const Formula score = scoreFor(t, t0, t1), scoreDown = scoreFor(10.0, t1, t0), scoreBelow = scoreFor(-5.0, t0, t1);
  enum Variant { kFused, kWide, kNarrow };
  for (int w : {1, 5, 37})
    for (int member = 0; member < 5; ++member)
      for (Variant variant : {kFused, kWide, kNarrow}) {
        qrn::simd::SetWideVectors(variant != kNarrow);
        qrn::simd::SetFusedMultiplyAdd(variant == kFused);
        auto d0 = Image(w, 3, 3, [&](int x, int y, int p) { return sample(x, y, p, 0); });
        auto d1 = Image(w, 3, 3, [&](int x, int y, int p) { return sample(x, y, p, 5); });
        auto& dark = static_cast<CImgDark&>(*d0);
        if (member == 0) dark.DoInterpolateByScore(d1.get(), t, t0, t1, 0);
        if (member == 1) dark.DoInterpolateByProportion(d1.get(), t, t0, t1, e0, e1, e, 0);
        // x = b = 3.1 since |3.1 − 1.9| ≤ |1.9 − (−4)|.
        if (member == 2) dark.DoInterpolateByPower(d1.get(), t, t0, t1, -4.0, 3.1, 1.9, 6.3, 0);
        if (member == 3) dark.DoInterpolateByScore(d1.get(), 10.0, t1, t0, 0);
        if (member == 4) dark.DoInterpolateByScore(d1.get(), -5.0, t0, t1, 0);
        const Formula* formulas[] = {&score, &proportion, &power, &scoreDown, &scoreBelow};
        const Formula& formula = *formulas[member];
        int wrong = 0;
        for (int p = 0; p < 3; ++p)
          for (int y = 0; y < 3; ++y)
            for (int x = 0; x < w; ++x) {
              const float a = static_cast<float>(sample(x, y, p, 0)), b = At(*d1, x, y, p);
              const float got = At(*d0, x, y, p), want = static_cast<float>(formula(a, b));
              wrong += std::memcmp(&got, &want, sizeof got) != 0;
            }
        EXPECT_EQ(wrong, 0) << "member " << member << ", variant " << variant << ", width " << w;
        EXPECT_EQ(d0->GetLockCount() + d1->GetLockCount(), 0);
      }
  qrn::simd::SetWideVectors(1);
  qrn::simd::SetFusedMultiplyAdd(1);
}

TEST(ImgDark, ProportionAndPowerTermsByHand) {
  // |b − c| = 1 is not above |c − a| = 3, so x = b = 5; k = 2^(5 − 4/2) = 8.
  // r = D0 + (D1 − D0)/2 + 8 D0: D0 = 2, D1 = 6 gives 2 + 2 + 16 = 20.
  auto d0 = Image(1, 1, 1, {2});
  auto d1 = Image(1, 1, 1, {6});
  static_cast<CImgDark&>(*d0).DoInterpolateByPower(d1.get(), 1.0, 0.0, 2.0, 1.0, 5.0, 4.0, 2.0, 0);
  EXPECT_EQ(At(*d0, 0, 0), 20.0f);
  // |b − c| = 3 is above |c − a| = 1, so x = a = 3: k = 2^(3 − 2) = 2; 2 + 2 + 4 = 8.
  auto e0 = Image(1, 1, 1, {2});
  static_cast<CImgDark&>(*e0).DoInterpolateByPower(d1.get(), 1.0, 0.0, 2.0, 3.0, 7.0, 4.0, 2.0, 0);
  EXPECT_EQ(At(*e0, 0, 0), 8.0f);

  // Proportion: temperature halfway (0.5) plus exposure a quarter beyond (1.25) of D1 − D0 = 4.
  auto f0 = Image(1, 1, 3, {2, 2, 2});
  static_cast<CImgDark&>(*f0).DoInterpolateByProportion(d1.get(), 5.0, 0.0, 10.0, 60.0, 120.0, 135.0, 0);
  for (int p = 0; p < 3; ++p) EXPECT_EQ(At(*f0, 0, 0, p), 9.0f);  // grey D1 serves every plane
}

}  // namespace
