#include "kernels/GammaCurve.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "kernels/Vec4.h"

namespace {

bool SameBits(float a, float b) { return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b)); }

// Row() against the per-sample std::pow expression for every sample; returns the mismatches
// and adds the samples that needed std::pow to `fallbacks`.
int Mismatches(const CGammaCurve& curve, const std::vector<float>& v, int& fallbacks) {
  std::vector<float> out(v.size());
  fallbacks += curve.Row(v.data(), static_cast<int>(v.size()), out.data());
  int wrong = 0;
  for (std::size_t i = 0; i < v.size(); ++i) wrong += !SameBits(out[i], curve(v[i]));
  return wrong;
}

TEST(CGammaCurve, RowsEqualThePerSamplePowerAndRarelyNeedIt) {
  // Flat frames of integer counts and of normalised floats, samples across and beyond their
  // range, for weak and strong curves, on every vector width, the 256-bit one with and
  // without fused multiply-add. The rows start with the samples outside the vector range: the bottom
  // (power of 0), below it (negative base: NaN), NaN, infinities, the top, huge samples and
  // the smallest positive base.
  struct Flat {
    float lo, hi;
  };
  const Flat flats[] = {{21000, 30500}, {0.62f, 1.0f}, {3, 65535}, {-50, 40}};
  const double gammas[] = {0.3, 0.7, 1.0, 1.5, 2.2, 3.7};
  const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
  std::mt19937 rng(5);
  for (int path : {3, 2, 1, 0}) {
    qrn::simd::SetWideVectors(path > 0);
    qrn::simd::SetFusedMultiplyAdd(path > 1);
    qrn::simd::SetWidestVectors(path > 2);
    for (const Flat& f : flats) {
      const float bottom = f.hi - 2.0f * (f.hi - f.lo);
      std::uniform_real_distribution<float> inside(f.lo, f.hi);
      std::vector<float> v = {bottom, bottom - 1.0f, nan, inf, -inf, f.hi, 3e38f, std::nextafter(bottom, inf)};
      v.resize(20001);
      for (std::size_t i = 8; i < v.size(); ++i) v[i] = inside(rng);
      for (double gamma : gammas) {
        const CGammaCurve curve(f.hi, bottom, gamma);
        int fallbacks = 0;
        EXPECT_EQ(Mismatches(curve, v, fallbacks), 0) << f.lo << ".." << f.hi << " gamma " << gamma << " path " << path;
        EXPECT_LT(fallbacks, static_cast<int>(v.size()) / 100) << f.lo << ".." << f.hi << " gamma " << gamma;
      }
    }
    // A curve so steep that the powers of most samples under- or overflow.
    int fallbacks = 0;
    const std::vector<float> steep = {100, 99, nan, inf, -inf, 200, 3e38f, std::nextafter(100.0f, inf), 150};
    EXPECT_EQ(Mismatches(CGammaCurve(200.0f, 100.0f, 300.0), steep, fallbacks), 0) << "path " << path;
    // A flat so faint (2^-130 to 3·2^-130, bottom −2^-130) that the curve's value at
    // −¾·2^-130, exactly 0, has bounds on either side of zero, which round to −0 and +0:
    // equal as values, but the result is +0.
    const float b = std::ldexp(1.0f, -130);
    const std::vector<float> faint(64, -0.75f * b);
    EXPECT_EQ(Mismatches(CGammaCurve(3 * b, -b, 0.5), faint, fallbacks), 0) << "path " << path;
  }
  qrn::simd::SetWideVectors(1);
  qrn::simd::SetFusedMultiplyAdd(1);
  qrn::simd::SetWidestVectors(1);
}

// RowRemembered() over `rows` rows of v against the per-sample expression; returns the
// mismatches and adds the samples evaluated to `evaluated`.
int RememberedMismatches(const CGammaCurve& curve, const std::vector<float>& v, int rows, long& evaluated) {
  std::vector<float> out(v.size());
  const int width = static_cast<int>(v.size()) / rows;
  for (int y = 0; y < rows; ++y) {
    const std::size_t row = std::size_t(y) * width;
    evaluated += curve.RowRemembered(&v[row], width, &out[row]);
  }
  int wrong = 0;
  for (std::size_t i = 0; i < v.size(); ++i) wrong += !SameBits(out[i], curve(v[i]));
  return wrong;
}

TEST(CGammaCurve, RememberedRowsEqualThePowerAndEvaluateEachCountAboutOnce) {
  // A vignetted flat of integer counts with noise: about ten thousand distinct values over
  // 400 rows of 1000. Then a second curve over the same samples, which must not be answered
  // from the first one's memory, and the first again. Last, distinct floats throughout,
  // enough to fill the memory and make it stand aside, with special values that only the
  // per-sample path decides.
  std::mt19937 rng(9);
  std::normal_distribution<float> noise(0.0f, 150.0f);
  const int rows = 400, width = 1000;
  std::vector<float> v(std::size_t(rows) * width);
  for (int y = 0; y < rows; ++y)
    for (int x = 0; x < width; ++x) {
      const float dx = float(x) / width - 0.5f, dy = float(y) / rows - 0.5f;
      v[std::size_t(y) * width + x] = std::round(30000.0f * (1.0f - 0.6f * (dx * dx + dy * dy)) + noise(rng));
    }
  const float lo = *std::min_element(v.begin(), v.end()), hi = *std::max_element(v.begin(), v.end());
  for (int wide : {1, 0}) {
    qrn::simd::SetWideVectors(wide);
    for (double gamma : {1.5, 0.7, 1.5}) {
      const CGammaCurve curve(hi, hi - 2.0f * (hi - lo), gamma);
      long evaluated = 0;
      EXPECT_EQ(RememberedMismatches(curve, v, rows, evaluated), 0) << gamma << " wide " << wide;
      EXPECT_LT(evaluated, 15000) << gamma << " wide " << wide;
    }
  }
  qrn::simd::SetWideVectors(1);

  std::uniform_real_distribution<float> inside(0.62f, 1.0f);
  std::vector<float> distinct(200000);
  for (float& s : distinct) s = inside(rng);
  distinct[70000] = std::numeric_limits<float>::quiet_NaN();
  distinct[150001] = 0.24f;  // the curve's bottom
  long evaluated = 0;
  EXPECT_EQ(RememberedMismatches(CGammaCurve(1.0f, 0.24f, 2.2), distinct, 200, evaluated), 0);
  EXPECT_GT(evaluated, 150000);
}

}  // namespace
