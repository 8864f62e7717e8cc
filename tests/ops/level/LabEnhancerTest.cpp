#include "ops/level/LabEnhancer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <vector>

#include "core/Color.h"
#include "kernels/Vec4.h"

namespace {

bool SameBits(float a, float b) { return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b)); }

struct Planes {
  std::vector<float> p[3];
  explicit Planes(int n) {
    for (auto& plane : p) plane.assign(n, 0.0f);
  }
  int Size() const { return static_cast<int>(p[0].size()); }
};

// Row() over `in` (into a separate image, or in place) against Pixel() for every pixel.
// Returns the mismatches and adds the pixels Row() left to Pixel() to `fallbacks`.
int Mismatches(const CLabEnhancer& e, const Planes& in, bool inPlace, int& fallbacks) {
  Planes out = in;
  const float* src[3] = {in.p[0].data(), in.p[1].data(), in.p[2].data()};
  float* dst[3] = {out.p[0].data(), out.p[1].data(), out.p[2].data()};
  if (inPlace)
    for (int k = 0; k < 3; ++k) src[k] = dst[k];
  fallbacks += e.Row(src, dst, in.Size());
  int wrong = 0;
  for (int x = 0; x < in.Size(); ++x) {
    const float pixel[3] = {in.p[0][x], in.p[1][x], in.p[2][x]};
    float expected[3];
    e.Pixel(pixel, expected);
    for (int k = 0; k < 3; ++k) wrong += !SameBits(out.p[k][x], expected[k]);
  }
  return wrong;
}

CLabEnhancer::Levels Window(double lo, double hi, double dstLo, double dstHi) {
  const double s = 255.0 / (hi - lo), d = (dstHi - dstLo) / 255.0;
  return {{lo, lo, lo}, {s, s, s}, {dstLo, dstLo, dstLo}, {d, d, d}};
}

void ForEachPath(const std::function<void(int)>& body) {
  for (int path : {3, 2, 1, 0}) {
    qrn::simd::SetWideVectors(path > 0);
    qrn::simd::SetFusedMultiplyAdd(path > 1);
    qrn::simd::SetWidestVectors(path > 2);
    body(path);
  }
  qrn::simd::SetWideVectors(1);
  qrn::simd::SetFusedMultiplyAdd(1);
  qrn::simd::SetWidestVectors(1);
}

// n pixels of 16-bit counts: a sky background with faint tints and, on every 40th pixel, a
// star or nebula of stronger colour; `vivid` spreads every pixel over the whole range with
// strong tints instead, many beyond the level window.
Planes Frame(int n, bool vivid, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> sky(1200.0f, 2500.0f), bright(2500.0f, 60000.0f), any(-500.0f, 66000.0f);
  std::uniform_real_distribution<float> faint(0.95f, 1.05f), strong(0.7f, 1.3f);
  Planes in(n);
  for (int x = 0; x < n; ++x) {
    const bool star = x % 40 == 0;
    const float v = vivid ? any(rng) : star ? bright(rng) : sky(rng);
    for (auto& plane : in.p) plane[x] = std::round(v * (vivid || star ? strong(rng) : faint(rng)));
  }
  return in;
}

struct Setting {
  double saturation, hue, aShift, bShift;
  double Cos() const { return std::cos(hue * 3.14159265358979323846 / 180.0) * saturation; }
  double Sin() const { return std::sin(hue * 3.14159265358979323846 / 180.0) * saturation; }
};
// Gentle and strong enhancements, a turn by half a circle with casts that push colours out of
// gamut, and grey.
const Setting kSettings[] = {{1.4, 10.0, 0, 0}, {3.0, -75.0, 0, 0}, {0.0, 0.0, 0, 0}, {1.0, 180.0, 25.0, -40.0}};

CLabEnhancer Enhancer(const CLabEnhancer::Levels& levels, const Setting& s) {
  return CLabEnhancer(levels, s.Cos(), s.Sin(), s.aShift, s.bShift);
}

TEST(CLabEnhancer, RowsEqualThePixelByPixelMappingOnEveryPath) {
  // A sky frame and vivid colours, into a separate image and in place; none of their pixels
  // lies outside the vector functions' range.
  const Planes sky = Frame(4003, false, 11), vivid = Frame(4003, true, 12);  // not a multiple of the groups
  ForEachPath([&](int path) {
    for (const Setting& s : kSettings) {
      const CLabEnhancer e = Enhancer(Window(1000, 60000, 0, 65535), s);
      for (bool inPlace : {false, true}) {
        int throughColor = 0;
        EXPECT_EQ(Mismatches(e, sky, inPlace, throughColor), 0) << "saturation " << s.saturation << " path " << path;
        EXPECT_EQ(Mismatches(e, vivid, inPlace, throughColor), 0) << "saturation " << s.saturation << " path " << path;
        EXPECT_EQ(throughColor, 0) << "saturation " << s.saturation << " path " << path;
      }
    }
  });
}

// The colour model's own result for one pixel, through CColor, rounded to float.
void ThroughColor(const CLabEnhancer::Levels& lv, double cs, double sn, double aShift, double bShift,
                  const float (&in)[3], float (&out)[3]) {
  CColor color;
  color.RgbToLab((in[0] - lv.srcMin[0]) * lv.srcScale[0], (in[1] - lv.srcMin[1]) * lv.srcScale[1],
                 (in[2] - lv.srcMin[2]) * lv.srcScale[2]);
  const double a = color.Geta(), b = color.Getb();
  color.LabToRgb(color.GetL(), a * cs - b * sn + aShift, a * sn + b * cs + bShift);
  const double rgb[3] = {color.GetR(), color.GetG(), color.GetB()};
  for (int k = 0; k < 3; ++k) out[k] = static_cast<float>(rgb[k] * lv.dstScale[k] + lv.dstMin[k]);
}

TEST(CLabEnhancer, AgreesWithTheColourModelToTheLastBitButRarely) {
  // Against CColor's conversions: a sample may differ only where the model's double lies
  // within a few units of 2^-53 of a float rounding, so by one float unit, or where the solve
  // cancels a component to almost nothing (then by far less than the pixel's brightest
  // sample); and that must be rare.
  const CLabEnhancer::Levels levels = Window(1000, 60000, 0, 65535);
  int differing = 0, samples = 0;
  for (bool vivid : {false, true}) {
    const Planes in = Frame(60000, vivid, 21 + vivid);
    for (const Setting& s : kSettings) {
      const CLabEnhancer e = Enhancer(levels, s);
      for (int x = 0; x < in.Size(); ++x) {
        const float pixel[3] = {in.p[0][x], in.p[1][x], in.p[2][x]};
        float got[3], model[3];
        e.Pixel(pixel, got);
        ThroughColor(levels, s.Cos(), s.Sin(), s.aShift, s.bShift, pixel, model);
        const float brightest = std::max({std::fabs(model[0]), std::fabs(model[1]), std::fabs(model[2])});
        for (int k = 0; k < 3; ++k, ++samples) {
          if (SameBits(got[k], model[k])) continue;
          ++differing;
          const float unit = std::nextafter(std::fabs(model[k]), 1e30f) - std::fabs(model[k]);
          EXPECT_TRUE(std::fabs(got[k] - model[k]) <= unit || std::fabs(got[k] - model[k]) <= 1e-12f * brightest)
              << "pixel " << pixel[0] << " " << pixel[1] << " " << pixel[2] << " plane " << k << ": " << got[k]
              << " against " << model[k];
        }
      }
    }
  }
  EXPECT_LE(differing, samples / 100000) << differing << " of " << samples;
}

TEST(CLabEnhancer, PixelsAtTheModelsEdgesMatchOnEveryPath) {
  // Black and the gamma floor, colours whose L*a*b* values sit on the companding thresholds,
  // single-channel colours that clip in the solve, NaN, infinities and huge values (these go
  // through CColor).
  const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
  const float specials[] = {0.0f, -0.0f, 1e-7f, 3e-7f, 0.0088f, 0.008856f, 0.03f, 0.2f, 1.0f, 8.0f,
                            255.0f, -3.0f, 1e30f, 3e38f, inf, -inf, nan};
  Planes in(0);
  for (float r : specials)
    for (float g : specials)
      for (float b : {0.0f, 0.008856f, 1.0f, 255.0f, nan})
        for (int k = 0; k < 3; ++k) in.p[k].push_back(k == 0 ? r : k == 1 ? g : b);
  ForEachPath([&](int path) {
    for (double cs : {1.0, 2.5}) {
      const CLabEnhancer e(Window(0, 255, 0, 255), cs, 0.3, 0.0, 5.0);
      int throughColor = 0;
      EXPECT_EQ(Mismatches(e, in, false, throughColor), 0) << "cs " << cs << " path " << path;
      EXPECT_GT(throughColor, 0);
      // Those outside the vector functions' range are CColor's own results.
      for (int x = 0; x < in.Size(); ++x) {
        const float pixel[3] = {in.p[0][x], in.p[1][x], in.p[2][x]};
        if (std::isfinite(pixel[0]) && std::isfinite(pixel[1]) && std::isfinite(pixel[2]) &&
            std::max({pixel[0], pixel[1], pixel[2]}) < 1e31f)
          continue;
        float got[3], model[3];
        e.Pixel(pixel, got);
        ThroughColor(Window(0, 255, 0, 255), cs, 0.3, 0.0, 5.0, pixel, model);
        for (int k = 0; k < 3; ++k) EXPECT_TRUE(SameBits(got[k], model[k])) << x << " plane " << k;
      }
    }
  });
}

}  // namespace
