#include "ops/level/ImgFalseColor.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "kernels/Vec4.h"

#include "ops/level/LevelTestImages.h"

using leveltest::Make;

namespace {

TEST(ImgFalseColor, MapsRunDarkToBrightClampAndCycle) {
  double r, g, b, r2, g2, b2;
  // Heat, cool, cubehelix and grey run black to white; rainbow and jet blue-ish to red-ish.
  for (int scheme : {1, 2, 5, 9}) {
    CImgFalseColor::GetFalseColor(0, scheme, 0, &r, &g, &b);
    EXPECT_EQ(r + g + b, 0.0) << scheme;
    CImgFalseColor::GetFalseColor(255, scheme, 0, &r, &g, &b);
    EXPECT_NEAR(r + g + b, 765.0, 1e-9) << scheme;  // clamped exactly to 1 except rounding
  }
  CImgFalseColor::GetFalseColor(0, 0, 0, &r, &g, &b);
  EXPECT_EQ(b, 255.0);
  EXPECT_EQ(r, 0.0);
  CImgFalseColor::GetFalseColor(255, 0, 0, &r, &g, &b);
  EXPECT_EQ(r, 255.0);
  EXPECT_EQ(b, 0.0);
  CImgFalseColor::GetFalseColor(127.5, 4, 0, &r, &g, &b);  // diverging map is white in the middle
  EXPECT_EQ(r + g + b, 765.0);
  // Cubehelix brightness rises monotonically.
  double previous = -1;
  for (int v = 0; v <= 255; ++v) {
    CImgFalseColor::GetFalseColor(v, 5, 0, &r, &g, &b);
    const double bright = 0.30 * r + 0.59 * g + 0.11 * b;
    EXPECT_GE(bright, previous - 1e-9) << v;
    previous = bright;
  }
  // Clamps and cycles.
  CImgFalseColor::GetFalseColor(-40, 99, 0, &r, &g, &b);
  EXPECT_EQ(r, 0.0);
  CImgFalseColor::GetFalseColor(900, 99, 0, &r, &g, &b);
  EXPECT_EQ(g, 255.0);
  CImgFalseColor::GetFalseColor(200, 99, 2, &r, &g, &b);  // fmod(400, 256) = 144
  EXPECT_EQ(b, 144.0);
  // Grey is the value itself: through /255 and ·255 this one would come back a unit above.
  CImgFalseColor::GetFalseColor(63.9, 6, 0, &r, &g, &b);
  EXPECT_EQ(r, 63.9);
  EXPECT_EQ(g, 63.9);
  EXPECT_EQ(b, 63.9);
  CImgFalseColor::GetFalseColor(200, 3, 2, &r, &g, &b);
  CImgFalseColor::GetFalseColor(144, 3, 0, &r2, &g2, &b2);
  EXPECT_EQ(r, r2);
  EXPECT_EQ(g, g2);
  EXPECT_EQ(b, b2);
}

TEST(ImgFalseColor, CubehelixOnAFloatRoundingBoundaryStillMatches) {
  // Cubehelix takes its sines and cosines from vectors. For each brightness the target's
  // level minima are set so that every raw result lands, in exact arithmetic, halfway between
  // two floats: only the exact colour's own roundings decide which float it becomes, and the
  // vector path must leave such pixels to it, on every vector width.
  int wrong = 0;
  leveltest::ForEveryRowVariant([&](int, int) {
    for (int i = 0; i < 300; ++i) {
      const float v = 3.0f + i * 0.8313f;
      double c[3];
      CImgFalseColor::GetFalseColor(v, 5, 0, &c[0], &c[1], &c[2]);
      // Wide enough for the groups of eight vectors, single vectors and the scalar tail.
      const int w = 39;
      auto src = Make(w, 1, 1, 0, 255, [&](int, int, int) { return v; });
      COrbImage dst(-32, w, 1, 3);
      for (int k = 0; k < 3; ++k) {
        double min = 0.0;
        for (int step = 0; step < 4; ++step) {  // the range moves a little with the minimum
          dst.SetLevel(k, min, min + 255.0);
          const double scaled = c[k] / 255.0 * dst.GetLevelRange(k);
          const float below = static_cast<float>(scaled);
          min = (double(below) + double(std::nextafter(below, 1e30f))) / 2 - scaled;
        }
        dst.SetLevel(k, min, min + 255.0);
      }
      const COrbImage levels(dst);
      static_cast<CImgFalseColor&>(dst).Do(0, 255, 5, 0, src.get(), nullptr, 0);
      for (int k = 0; k < 3; ++k) {
        const float expected = static_cast<float>(c[k] / 255.0 * levels.GetLevelRange(k) + levels.GetLevelMin(k));
        for (int x = 0; x < w; ++x) wrong += dst.GetPixelGrayRaw(x, 0, k) != expected;
      }
    }
  });
  EXPECT_EQ(wrong, 0);
}

TEST(ImgFalseColor, GreyImageBecomesColourThroughItsWindow) {
  auto image = Make(3, 2, 1, 1000, 1510, [](int x, int, int) { return 1000 + 255 * x; });  // 0, 127.5, 255
  static_cast<CImgFalseColor&>(*image).Do(0, 255, 99, 0, image.get(), nullptr, 0);
  ASSERT_EQ(image->GetPlanes(), 3);
  for (int p = 0; p < 3; ++p) {
    EXPECT_EQ(image->GetLevelMin(p), 1000.0);
    for (int x = 0; x < 3; ++x) EXPECT_FLOAT_EQ(image->GetPixelGrayRaw(x, 1, p), 1000.0f + 255 * x);
  }
}

TEST(ImgFalseColor, EveryPixelIsItsColourThroughTheTargetWindowOnEveryPath) {
  // Rows longer than the blocks the rows are painted in, values below, inside and above the
  // window and NaN, every scheme with and without cycles, grey and colour sources, both
  // vector widths, streamed and not: each sample must be GetFalseColor of its brightness,
  // brought through the target's window, as one pixel at a time computes it.
  const int w = 601, h = 3;
  const float nan = std::numeric_limits<float>::quiet_NaN();
  for (int srcPlanes : {1, 3}) {
    auto src = Make(w, h, srcPlanes, 1000, 2020, [&](int x, int y, int p) {
      return x == 17 && p == 0 ? nan : 900.0 + (x * 37 + y * 11 + p * 5) % 1300 + 0.25 * p;
    });
    leveltest::ForEveryRowVariant([&](int wide, int stream) {
      for (int scheme = 0; scheme <= 6; ++scheme)
        for (int cycles : {0, 3}) {
          auto dst = Make(w, h, 3, -50, 4000, [](int, int, int) { return 0.0; });
          static_cast<CImgFalseColor&>(*dst).Do(20, 230, scheme, cycles, src.get(), nullptr, 0);
          EXPECT_EQ(leveltest::Mismatches(*dst, [&](int x, int y, int k) {
                      float v[3];
                      for (int p = 0; p < srcPlanes; ++p)
                        v[p] = (src->GetPixelGrayRaw(x, y, p) - 1000.0f) * static_cast<float>(255.0 / 1020.0);
                      const float t = srcPlanes == 3 ? COrbImage::CalcBright(v[0], v[1], v[2]) : v[0];
                      double c[3];
                      CImgFalseColor::GetFalseColor((t - 20.0) * (255.0 / 210.0), scheme, cycles, &c[0], &c[1], &c[2]);
                      return static_cast<float>(c[k] / 255.0 * 4050.0 - 50.0);
                    }), 0) << "scheme " << scheme << " cycles " << cycles << " wide " << wide << " stream " << stream
                           << " source planes " << srcPlanes;
        }
    });
  }
}

}  // namespace
