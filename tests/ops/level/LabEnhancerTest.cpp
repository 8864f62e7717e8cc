#include "ops/level/LabEnhancer.h"

#include <gtest/gtest.h>

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
  CLabEnhancer::Levels l;
  for (int k = 0; k < 3; ++k) {
    l.srcMin[k] = lo;
    l.srcScale[k] = 255.0 / (hi - lo);
    l.dstMin[k] = dstLo;
    l.dstScale[k] = (dstHi - dstLo) / 255.0;
  }
  return l;
}

void ForEachPath(const std::function<void(int)>& body) {
  for (int path : {2, 1, 0}) {
    qrn::simd::SetWideVectors(path > 0);
    qrn::simd::SetFusedMultiplyAdd(path > 1);
    body(path);
  }
  qrn::simd::SetWideVectors(1);
  qrn::simd::SetFusedMultiplyAdd(1);
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

TEST(CLabEnhancer, RowsEqualThePixelByPixelMappingAndRarelyNeedIt) {
  // Gentle and strong enhancements, a turn by half a circle with casts that push colours out
  // of gamut, and grey; over a sky frame, where the vector path must decide at least 24
  // pixels in 25 (bounds that add up errors the solve cancels leave it several times more),
  // and over vivid colours, where only the results are checked.
  struct Setting {
    double saturation, hue, aShift, bShift;
  };
  const Setting settings[] = {{1.4, 10.0, 0, 0}, {3.0, -75.0, 0, 0}, {0.0, 0.0, 0, 0}, {1.0, 180.0, 25.0, -40.0}};
  const Planes sky = Frame(4003, false, 11), vivid = Frame(4003, true, 12);  // not a multiple of the width
  ForEachPath([&](int path) {
    for (const Setting& s : settings) {
      const double turn = s.hue * 3.14159265358979323846 / 180.0;
      const CLabEnhancer e(Window(1000, 60000, 0, 65535), std::cos(turn) * s.saturation,
                           std::sin(turn) * s.saturation, s.aShift, s.bShift);
      for (bool inPlace : {false, true}) {
        int fallbacks = 0, ignored = 0;
        EXPECT_EQ(Mismatches(e, sky, inPlace, fallbacks), 0) << "saturation " << s.saturation << " path " << path;
        EXPECT_LT(fallbacks, sky.Size() / 25) << "saturation " << s.saturation << " path " << path;
        EXPECT_EQ(Mismatches(e, vivid, inPlace, ignored), 0) << "saturation " << s.saturation << " path " << path;
      }
    }
  });
}

TEST(CLabEnhancer, ResultsNearAFloatRoundingBoundaryStillMatch) {
  // For each pixel the target's level minima are chosen so that every result lands, in
  // exact arithmetic, halfway between two floats or a little to either side of halfway
  // (2^-52 to 2^-35 of the value): only the reference's own roundings decide which float it
  // becomes, and the vector path must leave the pixels whose distance from halfway its
  // errors could exceed to it, however small its errors happen to be.
  const Planes vivid = Frame(300, true, 13);
  const double cs = 1.4 * std::cos(0.2), sn = 1.4 * std::sin(0.2);
  std::vector<double> offsets = {0.0};
  for (int bits = 35; bits <= 52; ++bits)
    offsets.insert(offsets.end(), {std::ldexp(1.0, -bits), -std::ldexp(1.0, -bits)});
  ForEachPath([&](int path) {
    int wrong = 0;
    for (int x = 0; x < vivid.Size(); ++x) {
      CLabEnhancer::Levels levels = Window(1000, 60000, 0, 255);
      CColor color;
      color.RgbToLab((vivid.p[0][x] - 1000.0) * levels.srcScale[0], (vivid.p[1][x] - 1000.0) * levels.srcScale[1],
                     (vivid.p[2][x] - 1000.0) * levels.srcScale[2]);
      const double a = color.Geta(), b = color.Getb();
      color.LabToRgb(color.GetL(), a * cs - b * sn, a * sn + b * cs);
      const double rgb[3] = {color.GetR(), color.GetG(), color.GetB()};
      Planes in(16);  // copies of the pixel, as many as the widest vector group takes
      for (int k = 0; k < 3; ++k) in.p[k].assign(16, vivid.p[k][x]);
      for (double offset : offsets) {
        for (int k = 0; k < 3; ++k) {
          levels.dstScale[k] = 1.0;
          const float below = static_cast<float>(rgb[k]);
          const double halfway = (double(below) + double(std::nextafter(below, 1e30f))) / 2;
          levels.dstMin[k] = halfway + offset * halfway - rgb[k];
        }
        const CLabEnhancer e(levels, cs, sn, 0.0, 0.0);
        int fallbacks = 0;
        wrong += Mismatches(e, in, false, fallbacks);
      }
    }
    EXPECT_EQ(wrong, 0) << "path " << path;
  });
}

TEST(CLabEnhancer, PixelsAtTheModelsEdgesStillMatch) {
  // Black and the gamma floor, colours whose L*a*b* values sit on the companding thresholds,
  // single-channel colours that clip in the solve, NaN, infinities and huge values.
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
      int fallbacks = 0;
      EXPECT_EQ(Mismatches(e, in, false, fallbacks), 0) << "cs " << cs << " path " << path;
    }
  });
}

}  // namespace
