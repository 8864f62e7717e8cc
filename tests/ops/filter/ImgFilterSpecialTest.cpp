// Digital development and the star and nebula filters on hand-sized images.
#include "ops/filter/ImgFilterSpecial.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/ImageCompare.h"
#include "kernels/Vec4.h"
#include "ops/filter/ImgFilter.h"
#include "platform/Diagnostics.h"
#include "platform/QrnSys.h"

namespace {

using qrntest::Fill;
using qrntest::ImagesNear;

std::unique_ptr<COrbImage> MakeImage(int w, int h, int planes, double lo = 0.0, double hi = 255.0) {
  auto image = std::make_unique<COrbImage>(-32, w, h, planes);
  for (int p = 0; p < planes; ++p) image->SetLevel(p, lo, hi);
  return image;
}

template <class F>
std::unique_ptr<COrbImage> Filled(int w, int h, int planes, F f, double lo = 0.0, double hi = 255.0) {
  auto image = MakeImage(w, h, planes, lo, hi);
  Fill(*image, f);
  return image;
}

auto Const(double v) {
  return [v](int, int, int) { return v; };
}

CImgFilterSpecial& Special(COrbImage& image) { return static_cast<CImgFilterSpecial&>(image); }

/// Arguments of one development run, with gamma 1 and the Gaussian kernel.
struct Development {
  double background[3] = {0, 0, 0}, sigma[3] = {1.5, 1.5, 1.5}, gamma[3] = {1, 1, 1};
  int filterPlane[3] = {0, 1, 2};
  float gLow[3] = {}, gRange[3] = {}, offset[3] = {}, mult[3] = {};

  void Prepare(COrbImage& dst, COrbImage& work, int kernelType = 0, int gammaAfter = 0, int mode = 1) {
    dst.ClearFilterProc();
    work.CalcMinMax();
    Special(dst).DigitalDvlp1(background, kernelType, sigma, 0.5, gamma, mode, &work, gLow, gRange, offset, mult,
                              gammaAfter);
  }
  void Run(COrbImage& dst, COrbImage& work, int enable = 1, CRect* rect = nullptr) {
    Special(dst).DigitalDvlp2(enable, gamma, &work, filterPlane, gLow, gRange, offset, mult, rect, 0);
  }
  void RunAfter(COrbImage& dst, COrbImage& work, int enable = 1, CRect* rect = nullptr) {
    Special(dst).DigitalDvlpGmAftrDdp(enable, gamma, &work, filterPlane, gLow, gRange, offset, mult, rect, 0);
  }
};

struct DebugCapture {
  std::wstring text;
  DebugCapture() {
    SetDebugOutputHook([this](const wchar_t* t) { text += t; });
  }
  ~DebugCapture() { SetDebugOutputHook({}); }
};

// ---- Digital development ---------------------------------------------------------------

TEST(DigitalDevelopment, PixelAtTheMedianKeepsItsValueOnAwkwardShapes) {
  // A flat image keeps its value, whether the kernel fits the image or (sigma 20: radius 57)
  // is far larger than it.
  for (int planes : {1, 3})
    for (int w : {1, 3, 5, 17})
      for (double sigma : {1.5, 20.0}) {
        auto work = Filled(w, 4, planes, Const(100.0), 0.0, 1000.0);
        auto dst = MakeImage(w, 4, planes, 0.0, 1000.0);
        Development dd;
        dd.background[0] = 50.0;
        for (double& s : dd.sigma) s = sigma;
        dd.Prepare(*dst, *work);
        // offset = 50 / 1000 * 255; mult = 100 / 1000 * 255 + offset.
        EXPECT_FLOAT_EQ(dd.offset[2], 12.75f);
        EXPECT_FLOAT_EQ(dd.mult[2], 38.25f);
        dd.Run(*dst, *work);
        // A few float roundings (scale, divide, multiply, unscale) around 100: well under 1e-3.
        EXPECT_TRUE(ImagesNear(*dst, *work, 1e-3)) << "planes " << planes << " width " << w << " sigma " << sigma;
        dd.RunAfter(*dst, *work);
        EXPECT_TRUE(ImagesNear(*dst, *work, 1e-3)) << "planes " << planes << " width " << w << " sigma " << sigma;
      }
}

TEST(DigitalDevelopment, WithoutOffsetASmoothGradientFlattensToTheMedian) {
  // A symmetric kernel reproduces a linear ramp away from the edges, so value / blur = 1 and
  // every interior pixel becomes mult, the median on this 0..255 scale.
  auto work = Filled(21, 5, 1, [](int x, int, int) { return 20.0 + 5.0 * x; });
  auto dst = MakeImage(21, 5, 1);
  Development dd;
  dd.sigma[0] = 1.0;  // radius trunc(2.8 + 1) = 3
  dd.Prepare(*dst, *work);
  EXPECT_FLOAT_EQ(dd.offset[0], 0.0f);
  EXPECT_FLOAT_EQ(dd.mult[0], 70.0f);  // median of 20, 25, ..., 120
  dd.Run(*dst, *work);
  for (int y = 0; y < 5; ++y)
    for (int x = 3; x < 18; ++x)
      // The blur of a ramp sums thirteen float products: a relative error of a few 1e-7.
      EXPECT_NEAR(dst->GetPixelGrayRaw(x, y, 0), 70.0, 1e-3) << x << ", " << y;
}

TEST(DigitalDevelopment, DisabledOrNonPositiveDivisorKeepsThePixelAsRead) {
  // Disabled, the pixel is read from the work image, here also from a bordered copy, which is
  // read centred on this image; only the rectangle is written.
  auto work = Filled(6, 5, 1, [](int x, int y, int) { return 10.0 * x + y; });
  std::unique_ptr<COrbImage> bordered(static_cast<CImgFilter&>(*work).MakeDDWork(2, 0));
  ASSERT_TRUE(bordered);
  for (COrbImage* source : {work.get(), bordered.get()}) {
    auto dst = Filled(6, 5, 1, Const(-7.0));
    Development dd;
    dd.Prepare(*dst, *source);
    CRect rect(1, 1, 4, 3);
    dd.Run(*dst, *source, 0, &rect);
    for (int y = 0; y < 5; ++y)
      for (int x = 0; x < 6; ++x) {
        const bool inside = x >= 1 && x < 4 && y >= 1 && y < 3;
        EXPECT_EQ(dst->GetPixelGrayRaw(x, y, 0), inside ? 10.0f * x + y : -7.0f) << x << ", " << y;
      }
    if (source != work.get()) continue;
    // An offset below minus every blur makes every divisor negative.
    dd.offset[0] = -1000.0f;
    dd.Run(*dst, *work);
    EXPECT_TRUE(ImagesNear(*dst, *work, 0.0));
    dd.RunAfter(*dst, *work);
    // This pass returns through the 0..255 scale in double: one float rounding of the value.
    EXPECT_TRUE(ImagesNear(*dst, *work, 1e-5));
  }
}

// The pass written out pixel by pixel from its definition, on the blur the preparation built,
// against the scalar, four-wide and eight-wide rows: every float and double rounding step is
// the same, so the results must be equal. The offset leaves about half the divisors not
// positive, and the width 37 leaves a tail after the vectors.
TEST(DigitalDevelopment, VectorRowsGiveTheDefinitionsValuesExactly) {
  auto work = Filled(37, 7, 1, [](int x, int y, int) { return 300.0 + 13.7 * ((x * 7 + y * 3) % 11) + 40.0 * (x / 9); },
                     100.0, 900.0);
  for (int path = 0; path < 3; ++path) {
    CQrnSys::SetSIMD(path == 0 ? 0 : 2);
    qrn::simd::SetWideVectors(path == 2 ? 1 : 0);
    auto dst = MakeImage(37, 7, 1, 100.0, 900.0);
    Development dd;
    dd.Prepare(*dst, *work);
    dd.offset[0] = -100.0f;
    dd.mult[0] = 77.25f;
    dd.Run(*dst, *work);
    const float lo = 100.0f, s = static_cast<float>(255.0 / 800.0);
    int wrong = 0, kept = 0;
    for (int y = 0; y < 7; ++y)
      for (int x = 0; x < 37; ++x) {
        const double b = (dst->CalcFilterProc(x, y, 0) - lo) * s;
        const float rb = static_cast<float>(b / 255.0 * 800.0 + 100.0);
        const float d = (rb - lo) * s + dd.offset[0];
        float v = work->GetPixelGrayRaw(x, y, 0);
        if (d > 0.0f) v = ((v - lo) * s / d) * dd.mult[0] / s + lo;
        else ++kept;
        wrong += dst->GetPixelGrayRaw(x, y, 0) != v;
      }
    EXPECT_EQ(wrong, 0) << "path " << path;
    EXPECT_GT(kept, 20) << "path " << path;
    EXPECT_LT(kept, 37 * 7 - 20) << "path " << path;
  }
  CQrnSys::SetSIMD(-1);
  qrn::simd::SetWideVectors(-1);
}

TEST(DigitalDevelopment, GammaBeforeAndAfterTheDivision) {
  const float in[3] = {-5.0f, 25.0f, 100.0f};
  auto work = Filled(3, 1, 1, [&](int x, int, int) { return in[x]; });
  auto dst = MakeImage(3, 1, 1);
  Development dd;
  dd.gamma[0] = 2.0;
  dd.Prepare(*dst, *work);  // the gamma's level source is set below
  dd.gLow[0] = 0.0f;
  dd.gRange[0] = 100.0f;
  dd.Run(*dst, *work, 0);
  // (25 / 100)^0.5 * 100 = 50; (100 / 100)^0.5 * 100 = 100; -5 lies below the bound.
  EXPECT_FLOAT_EQ(dst->GetPixelGrayRaw(0, 0, 0), -5.0f);
  EXPECT_FLOAT_EQ(dst->GetPixelGrayRaw(1, 0, 0), 50.0f);
  EXPECT_FLOAT_EQ(dst->GetPixelGrayRaw(2, 0, 0), 100.0f);
  // After the division the gamma works on the 0..255 scale; disabled it copies.
  dd.RunAfter(*dst, *work, 0);
  EXPECT_TRUE(ImagesNear(*dst, *work, 0.0));
  // The median, 25, enters mult through the curve only when the gamma comes first.
  const float curved = dd.mult[0];
  dd.Prepare(*dst, *work, 0, 1);
  EXPECT_GT(curved, 25.0f);
  EXPECT_FLOAT_EQ(dd.mult[0], 25.0f);

  auto flat = Filled(4, 4, 1, Const(100.0));
  auto after = MakeImage(4, 4, 1);
  dd.Prepare(*after, *flat, 0, 1);
  EXPECT_FLOAT_EQ(dd.mult[0], 100.0f);  // gammaAfter: the median enters without the curve
  dd.RunAfter(*after, *flat);
  // Developed value 100 on 0..255, then sqrt(100 / 255) * 255; float pow and scaling: 1e-3.
  EXPECT_NEAR(after->GetPixelGrayRaw(2, 1, 0), std::sqrt(100.0 / 255.0) * 255.0, 1e-3);
}

TEST(DigitalDevelopment, FilterPlaneThreeDividesEveryPlaneByTheMeanBlur) {
  const double value[3] = {100.0, 200.0, 30.0};
  auto work = Filled(5, 3, 3, [&](int, int, int p) { return value[p]; });
  auto dst = MakeImage(5, 3, 3);
  Development dd;
  dd.Prepare(*dst, *work);
  EXPECT_FLOAT_EQ(dd.mult[1], 100.0f);  // plane 0's median, in every entry
  for (int& q : dd.filterPlane) q = 3;
  dd.Run(*dst, *work);
  // Mean blur (100 + 200 + 30) / 3 = 110; output v * 100 / 110. Float rounding: 1e-3.
  for (int p = 0; p < 3; ++p) EXPECT_NEAR(dst->GetPixelGrayRaw(2, 1, p), value[p] * 100.0 / 110.0, 1e-3);
  for (int p = 0; p < 3; ++p) dd.filterPlane[p] = p;
  dd.Run(*dst, *work);
  for (int p = 0; p < 3; ++p) EXPECT_NEAR(dst->GetPixelGrayRaw(2, 1, p), 100.0, 1e-3);
}

TEST(DigitalDevelopment, DebuggerLinesUnknownKernelTypeAndBadInput) {
  auto work = MakeImage(4, 4, 1);
  auto dst = Filled(4, 4, 1, Const(1.0));
  Development dd;
  for (float& v : dd.offset) v = -3.0f;
  DebugCapture capture;
  dd.Prepare(*dst, *work, 2);
  EXPECT_FLOAT_EQ(dd.offset[0], -3.0f);  // untouched
  dd.Run(*dst, *work);
  dd.RunAfter(*dst, *work);
  EXPECT_EQ(capture.text,
            L"CImgFilterSpecial::DigitalDvlp1\nCImgFilterSpecial::DigitalDvlp2\n"
            L"CImgFilterSpecial::DigitalDvlpGmAftrDdp\n");
  // Empty rectangles, no work image or a smaller one write nothing.
  dd.Prepare(*dst, *work);
  Fill(*dst, Const(1.0));
  CRect inverted(1, 1, 0, 0), outside(5, 5, 9, 9);
  dd.Run(*dst, *work, 1, &inverted);
  dd.Run(*dst, *work, 1, &outside);
  Special(*dst).DigitalDvlp2(1, dd.gamma, nullptr, dd.filterPlane, dd.gLow, dd.gRange, dd.offset, dd.mult, nullptr,
                             0);
  auto larger = Filled(5, 5, 1, Const(1.0));
  Special(*larger).DigitalDvlp2(1, dd.gamma, work.get(), dd.filterPlane, dd.gLow, dd.gRange, dd.offset, dd.mult,
                                nullptr, 0);
  EXPECT_TRUE(ImagesNear(*dst, *Filled(4, 4, 1, Const(1.0)), 0.0));
  EXPECT_TRUE(ImagesNear(*larger, *Filled(5, 5, 1, Const(1.0)), 0.0));
}

TEST(DigitalDevelopment, LevelSourcesTheirCarryOverToColourPlanesAndTheGammaWindow) {
  auto work = Filled(2, 1, 1, [](int x, int, int) { return x ? 90.0 : 10.0; }, 0.0, 70.0);
  work->CalcMinMax();
  auto dst = MakeImage(2, 1, 1, 5.0, 105.0);
  float mn[3] = {-1, -1, -1}, mx[3] = {-1, -1, -1}, rg[3];
  const float expectMin[4] = {0, 10, 10, 5}, expectMax[4] = {90, 90, 70, 90};
  for (int mode = 0; mode < 4; ++mode) {
    Special(*dst).DigitalDvlpGetMinMax(mode, work.get(), mn, mx, rg);
    EXPECT_EQ(mn[0], expectMin[mode]) << mode;
    EXPECT_EQ(mx[0], expectMax[mode]) << mode;
    EXPECT_EQ(rg[0], expectMax[mode] - expectMin[mode]) << mode;
  }
  Special(*dst).DigitalDvlpGetMinMax(7, work.get(), mn, mx, rg);
  EXPECT_EQ(mn[0], 5.0f);  // still mode 3's
  EXPECT_EQ(rg[1], 0.0f);  // -1 - -1

  // Colour: plane 0 at 0..100, plane 1 at 0..200, plane 2 at 10..110.
  auto colour = Filled(2, 1, 3, [](int x, int, int) { return x ? 50.0 : 20.0; });
  colour->CalcMinMax();
  auto cdst = MakeImage(2, 1, 3, 0.0, 100.0);
  cdst->SetLevel(1, 0.0, 200.0);
  cdst->SetLevel(2, 10.0, 110.0);
  Special(*cdst).DigitalDvlpGetMinMax(1, colour.get(), mn, mx, rg);
  EXPECT_FLOAT_EQ(mx[1], 100.0f);
  EXPECT_FLOAT_EQ(mx[2], 60.0f);
  EXPECT_FLOAT_EQ(mn[1], 40.0f);
  EXPECT_FLOAT_EQ(mn[2], 30.0f);
  EXPECT_FLOAT_EQ(rg[2], 30.0f);
  Special(*cdst).DigitalDvlpGetMinMax(3, colour.get(), mn, mx, rg);
  EXPECT_FLOAT_EQ(mn[1], 0.0f);
  EXPECT_FLOAT_EQ(mn[2], 10.0f);

  // A display window mapped through the gamma, on the level source of mode 1: 0 .. 100.
  auto ramp = Filled(2, 1, 1, [](int x, int, int) { return 100.0 * x; });
  ramp->CalcMinMax();
  auto level = [&](double g, double lo, double hi) {
    double gamma[3] = {g, 1, 1}, low[3] = {lo, 0, 0}, high[3] = {hi, 0, 0};
    Special(*dst).DigitalDvlpGetLevel(gamma, 1, ramp.get(), low, high);
    return std::pair{low[0], high[0]};
  };
  const auto inside = level(2, 25, 64), lowBelow = level(2, -5, 64);
  EXPECT_NEAR(inside.first, 50.0, 1e-4);  // sqrt(0.25) * 100, float pow
  EXPECT_NEAR(inside.second, 80.0, 1e-4);
  EXPECT_EQ(lowBelow.first, -5.0);  // only high is mapped
  EXPECT_NEAR(lowBelow.second, 80.0, 1e-4);
  EXPECT_EQ(level(2, 25, 120), std::pair(25.0, 120.0));  // high above the source: left alone
  EXPECT_EQ(level(2, -5, 120), std::pair(-5.0, 120.0));  // and with low below it as well
  EXPECT_EQ(level(1, 25, 64), std::pair(25.0, 64.0));    // a gamma of 1 maps nothing
}

// ---- Star and nebula filters -----------------------------------------------------------

/// Flat sky of 100 with one star of peak 1100 at (cx, cy).
std::unique_ptr<COrbImage> StarImage(int w, int h, int planes, int cx, int cy) {
  return Filled(w, h, planes, [&](int x, int y, int) {
    return 100.0 + 1000.0 * std::exp(-((x - cx) * (x - cx) + (y - cy) * (y - cy)) / 2.0);
  }, 0.0, 2000.0);
}

TEST(StarFilters, EnhanceBrightensTheStarAndLeavesTheSky) {
  for (int planes : {1, 3}) {
    auto work = StarImage(17, 17, planes, 8, 8);
    auto dst = MakeImage(17, 17, planes, 0.0, 2000.0);
    Special(*dst).StarEnhanceFilter(2.0, 1.0, 5.0, 0, work.get(), nullptr, 0);
    for (int p = 0; p < planes; ++p) {
      EXPECT_GT(dst->GetPixelGrayRaw(8, 8, p), work->GetPixelGrayRaw(8, 8, p) + 100.0f);
      EXPECT_EQ(dst->GetPixelGrayRaw(0, 0, p), 100.0f);  // flat sky: no excess
      for (int y = 0; y < 17; ++y)
        for (int x = 0; x < 17; ++x) ASSERT_GE(dst->GetPixelGrayRaw(x, y, p), work->GetPixelGrayRaw(x, y, p));
    }
    // A threshold above the star's excess changes nothing.
    Special(*dst).StarEnhanceFilter(2.0, 1.0, 5000.0, 1, work.get(), nullptr, 0);
    EXPECT_TRUE(ImagesNear(*dst, *work, 0.0));
  }
}

TEST(StarFilters, StarSharpStaysInsideTheNeighbourhoodRange) {
  auto work = StarImage(17, 13, 1, 6, 6);
  auto dst = MakeImage(17, 13, 1, 0.0, 2000.0);
  CImgFilterSpecial& s = Special(*dst);
  EXPECT_EQ(s.GetStarSharpFilterNum(0.0), 1);
  EXPECT_EQ(s.GetStarSharpFilterNum(1.0), 5);   // centre and four neighbours
  EXPECT_EQ(s.GetStarSharpFilterNum(1.5), 13);  // disc of radius 2
  EXPECT_EQ(s.GetStarSharpFilterNum(3.0), 29);
  double radius[3] = {1.5, 1.5, 1.5}, amount[3] = {3, 3, 3}, threshold[3] = {0, 0, 0};
  s.StarSharpFilter(radius, amount, threshold, 0, work.get(), nullptr, 0);
  // Brute force: every output lies within its disc of radius 2 of the work image.
  bool changed = false;
  for (int y = 0; y < 13; ++y)
    for (int x = 0; x < 17; ++x) {
      float lo = 1e9f, hi = -1e9f;
      for (int dy = -2; dy <= 2; ++dy)
        for (int dx = -2; dx <= 2; ++dx)
          if (dx * dx + dy * dy <= 4 && x + dx >= 0 && x + dx < 17 && y + dy >= 0 && y + dy < 13) {
            lo = std::min(lo, work->GetPixelGrayRaw(x + dx, y + dy, 0));
            hi = std::max(hi, work->GetPixelGrayRaw(x + dx, y + dy, 0));
          }
      const float v = dst->GetPixelGrayRaw(x, y, 0);
      ASSERT_GE(v, lo) << x << ", " << y;
      ASSERT_LE(v, hi) << x << ", " << y;
      changed |= v != work->GetPixelGrayRaw(x, y, 0);
    }
  EXPECT_TRUE(changed);
  EXPECT_GE(dst->GetPixelGrayRaw(0, 12, 0), 100.0f);  // no dark ring below the sky
  // The wings of the star are pulled in: the pixel two out gets darker.
  EXPECT_LT(dst->GetPixelGrayRaw(8, 6, 0), work->GetPixelGrayRaw(8, 6, 0));
}

TEST(StarFilters, NebulaSmootherCalmsTheSkyAndKeepsTheStar) {
  auto work = StarImage(17, 17, 1, 8, 8);
  // Faint +-2 checkerboard noise on the sky.
  Fill(*work, [&](int x, int y, int p) {
    return work->GetPixelGrayRaw(x, y, p) + ((x + y) % 2 ? 2.0 : -2.0);
  });
  auto dst = MakeImage(17, 17, 1, 0.0, 2000.0);
  double radius[3] = {1.0, 1.0, 1.0}, strength[3] = {1.0, 1.0, 1.0}, threshold[3] = {10, 10, 10};
  Special(*dst).NebularSmootherFilter(radius, strength, threshold, 0, work.get(), nullptr, 0);
  EXPECT_EQ(dst->GetPixelGrayRaw(8, 8, 0), work->GetPixelGrayRaw(8, 8, 0));
  // In the sky far from the star the noise shrinks.
  double before = 0, after = 0;
  for (int y = 0; y < 17; ++y)
    for (int x = 0; x < 4; ++x) {
      before += std::fabs(work->GetPixelGrayRaw(x, y, 0) - 100.0);
      after += std::fabs(dst->GetPixelGrayRaw(x, y, 0) - 100.0);
    }
  EXPECT_LT(after, before / 2);
  // Strength 0 changes nothing.
  double zero[3] = {0, 0, 0};
  Special(*dst).NebularSmootherFilter(radius, zero, threshold, 0, work.get(), nullptr, 0);
  EXPECT_TRUE(ImagesNear(*dst, *work, 0.0));
}

TEST(StarFilters, MaskMarksTheStarGrownByTheGivenRadius) {
  auto work = Filled(9, 7, 3, [](int x, int y, int p) { return x == 4 && y == 3 && p == 2 ? 900.0 : 100.0; }, 0.0,
                     2000.0);
  auto dst = MakeImage(9, 7, 3, 0.0, 2000.0);
  Special(*dst).StaryMask(1.0, 50.0, 1.0, 0, work.get(), nullptr, 0);
  for (int p = 0; p < 3; ++p) {
    EXPECT_EQ(dst->GetLevelMax(p), 1.0);
    for (int y = 0; y < 7; ++y)
      for (int x = 0; x < 9; ++x) {
        const bool star = std::abs(x - 4) + std::abs(y - 3) <= 1;  // disc of radius 1
        EXPECT_EQ(dst->GetPixelGrayRaw(x, y, p), star ? 1.0f : 0.0f) << x << ", " << y << " plane " << p;
      }
  }
  // A rectangle beside the star still sees it through the grown detection area.
  Fill(*dst, Const(7.0));
  CRect right(5, 0, 9, 7);
  Special(*dst).StaryMask(1.0, 50.0, 1.0, 0, work.get(), &right, 0);
  EXPECT_EQ(dst->GetPixelGrayRaw(5, 3, 0), 1.0f);
  EXPECT_EQ(dst->GetPixelGrayRaw(6, 3, 0), 0.0f);
  EXPECT_EQ(dst->GetPixelGrayRaw(4, 3, 0), 7.0f);
}

TEST(StarFilters, BadInputWritesNothing) {
  auto work = StarImage(3, 2, 1, 1, 1);
  auto dst = Filled(3, 2, 1, Const(5.0));
  double big[3] = {40, 40, 40}, one[3] = {1, 1, 1};
  CRect inverted(2, 2, 1, 1);
  Special(*dst).StarEnhanceFilter2(big, one, one, 0, work.get(), &inverted, 0);
  Special(*dst).StarSharpFilter(big, one, one, 1, nullptr, nullptr, 0);
  auto other = MakeImage(4, 2, 1);
  Special(*dst).NebularSmootherFilter(big, one, one, 0, other.get(), nullptr, 0);
  Special(*dst).StaryMask(40, 1, 40, 0, work.get(), &inverted, 0);
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 3; ++x) EXPECT_EQ(dst->GetPixelGrayRaw(x, y, 0), 5.0f);
  // Kernels far larger than the image still give finite results.
  Special(*dst).StarSharpFilter(big, one, one, 0, work.get(), nullptr, 0);
  for (int x = 0; x < 3; ++x) EXPECT_TRUE(std::isfinite(dst->GetPixelGrayRaw(x, 1, 0)));
}

}  // namespace
