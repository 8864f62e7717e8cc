#include "ops/level/ImgAutoLevel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <utility>
#include <vector>

#include "ops/level/LevelTestImages.h"

namespace {

template <class F>
std::unique_ptr<COrbImage> Image(int w, int h, int planes, F f) {
  return leveltest::Make(w, h, planes, 0, 255, f);
}

std::unique_ptr<COrbImage> Line(const std::vector<float>& v) {
  return Image(int(v.size()), 1, 1, [&](int x, int, int) { return v[x]; });
}

CImgAutoLevel& Auto(COrbImage& img) { return static_cast<CImgAutoLevel&>(img); }

std::pair<double, double> Window(const COrbImage& img, int p = 0) { return {img.GetLevelMin(p), img.GetLevelMax(p)}; }

/// The parameters Get reads back from the present window (method 1 mean, 2 median, else normal).
std::pair<double, double> Inverse(COrbImage& img, int method) {
  double low = -1, high = -1;
  Auto(img).Get(low, high, method, nullptr);
  return {low, high};
}

/// The mode and, optionally, background limits in one call.
float Mode(COrbImage& img, float* low = nullptr, float* high = nullptr, int luminance = 0, int plane = 0,
           CRect* rect = nullptr) {
  float mode = -7.0f;
  Auto(img).GetMode(&mode, low, high, luminance, plane, rect);
  return mode;
}

float Median(COrbImage& img, int sample = 1, CRect* rect = nullptr) {
  float m = -7.0f;
  Auto(img).GetMedian(&m, sample, 0, 0, rect);
  return m;
}

TEST(ImgAutoLevel, RangeCountsAndDeviations) {
  auto img = Line({1, 2, 3, 4, 10});
  auto count = [&](float lo, float hi, int plane, CRect* rect) {
    int n = -1;
    Auto(*img).GetLevelRangeNum(lo, hi, &n, plane, rect);
    return n;
  };
  auto deviation = [&](float lo, float hi, bool aboutHigh) {
    double sd = -1;
    if (aboutHigh) Auto(*img).GetLevelDoubleRangeStd(lo, hi, &sd, 0, 0, nullptr);
    else Auto(*img).GetLevelRangeStd(lo, hi, &sd, 0, nullptr);
    return sd;
  };
  CRect inverted(4, 0, 1, 1), partly(-3, -3, 2, 9);  // partly: clipped to the first two samples
  EXPECT_EQ(count(1, 4, 0, nullptr), 4);  // both ends inclusive
  EXPECT_EQ(count(0, 100, 0, &inverted), 0);
  EXPECT_EQ(count(0, 100, 0, &partly), 2);
  EXPECT_EQ(count(0, 100, 1, nullptr), 0);
  EXPECT_DOUBLE_EQ(deviation(1, 4, false), std::sqrt(1.25));  // 1..4 about 2.5
  EXPECT_DOUBLE_EQ(deviation(1, 4, true), std::sqrt(3.5));    // distances from 4: (9 + 4 + 1 + 0) / 4
  EXPECT_EQ(deviation(5, 9, false), 0.0);                     // no sample in range
  EXPECT_EQ(deviation(5, 9, true), 0.0);
}

// 0 and 5000 (so 5000 bins are one unit wide), 12 × 100 and 12 × 105 (two equal peaks), and
// 3 × 90 below them.
std::unique_ptr<COrbImage> ModeImage() {
  std::vector<float> v = {0, 5000, 90, 90, 90};
  for (int i = 0; i < 12; ++i) v.push_back(100), v.push_back(105);
  return Line(v);
}

TEST(ImgAutoLevel, ModeLowerPeakAndBackgroundLimits) {
  auto img = ModeImage();
  float low, high;
  EXPECT_EQ(Mode(*img, &low, &high), 100.0f);  // a tie: the lower bin wins
  // One-sided sigma below the mode over 0 (100²), 3 × 90 (10²), 12 × 100: sqrt(10300 / 16).
  EXPECT_NEAR(low, 100.0 - 6.0 * std::sqrt(10300.0 / 16.0), 1e-4);
  // Sparse walk (threshold 10): 100 and 105 reset the run, 106 … 116 are the eleven sparse bins.
  EXPECT_EQ(high, 116.0f);
  EXPECT_EQ(Mode(*img), 100.0f);  // limits are optional

  // 1100 × 1000 pixels of 100, bins 101 … 130 holding 10 samples each. Below 1,100,000 pixels
  // a bin of 10 is not sparse and the walk runs to 141; at 1,100,000 the threshold is 11.
  auto big = Image(1100, 1000, 1, [](int x, int y, int) {
    if (y == 0 && x < 2) return x ? 5000.0f : 0.0f;
    if (y == 1 && x < 300) return float(101 + x / 10);
    return 100.0f;
  });
  CRect smaller(0, 0, 1100, 999);
  EXPECT_EQ(Mode(*big, nullptr, &high, 0, 0, &smaller), 100.0f);
  EXPECT_EQ(high, 141.0f);
  Mode(*big, nullptr, &high);
  EXPECT_EQ(high, 111.0f);
}

TEST(ImgAutoLevel, ModeOfConstantAndOddImages) {
  for (auto [w, h] : {std::pair{1, 7}, std::pair{7, 1}, std::pair{3, 3}}) {
    auto img = Image(w, h, 1, [](int, int, int) { return 42.0f; });
    float low = 0, high = 0;
    EXPECT_EQ(Mode(*img, &low, &high), 42.0f);
    EXPECT_EQ(low, 42.0f);
    EXPECT_EQ(high, 42.0f);
    Auto(*img).DoByHistogram(1.0, 3.0, 1, 1, nullptr);  // zero width: a window of no range
    EXPECT_EQ(Window(*img), std::pair(42.0, 42.0));
  }
  // NaN and infinite samples must not index outside the histogram (the sanitizer build checks
  // that).
  auto bad = Line({std::nanf(""), 1, 1, 2, INFINITY});
  Mode(*bad);
  // A grey image takes its single plane whatever plane or luminance is asked for; a colour
  // image's plane out of range leaves the result alone.
  auto grey = Image(3, 3, 1, [](int, int, int) { return 42.0f; });
  EXPECT_EQ(Mode(*grey, nullptr, nullptr, 1, -1), 42.0f);
  EXPECT_EQ(Mode(*grey, nullptr, nullptr, 0, 3), 42.0f);
  auto colour = Image(3, 3, 3, [](int, int, int) { return 42.0f; });
  EXPECT_EQ(Mode(*colour, nullptr, nullptr, 0, 3), -7.0f);
}

TEST(ImgAutoLevel, MedianTakesUpperMiddleAndSamplesByBlocks) {
  auto img = Line({5, 1, 4, 2, 3, 9});
  CRect firstThree(0, -1, 3, 5), empty(2, 0, 2, 1);
  EXPECT_EQ(Median(*img), 4.0f);  // sorted 1 2 3 4 5 9, index 3
  EXPECT_EQ(Median(*img, 1, &firstThree), 4.0f);  // 1 4 5
  EXPECT_EQ(Median(*img, 1, &empty), 0.0f);
  // 250 × 200 = 50000 pixels: k = 1, every sample counts; a permutation of 0..49999.
  auto exact = Image(250, 200, 1, [](int x, int y, int) { return float((y * 250 + x) * 7919 % 50000); });
  EXPECT_EQ(Median(*exact), 25000.0f);
  // 501 × 400: k = 2. Each 2 × 2 block holds one value; the odd last column is a remainder
  // strip and is ignored even though it is huge.
  auto blocks = Image(501, 400, 1, [](int x, int y, int) {
    return x == 500 ? 1e9f : float((y / 2 * 250 + x / 2) * 7919 % 50000);
  });
  EXPECT_EQ(Median(*blocks), 25000.0f);
  EXPECT_GT(Median(*blocks, 0), 25000.0f);  // no sampling: the last column counts
}

TEST(ImgAutoLevel, MosaicSubLatticeMedians) {
  // Each sub-lattice of a 4 × 4 mosaic holds base + {1, 2, 3, 4}: median base + 3. In a single
  // column the odd columns are empty: rows 0, 2 give 2 and rows 1, 3 give 3.
  const float base[4] = {10, 20, 30, 40}, single[4] = {2, 0, 3, 0};
  auto img = Image(4, 4, 1, [&](int x, int y, int) { return base[(y % 2) * 2 + x % 2] + 1 + x / 2 + 2 * (y / 2); });
  auto column = Image(1, 4, 1, [](int, int y, int) { return float(y); });
  float m[4], c[4];
  Auto(*img).GetMedianBayer(m, 1);
  Auto(*column).GetMedianBayer(c, 1);
  for (int k = 0; k < 4; ++k) {
    EXPECT_EQ(m[k], base[k] + 3) << k;
    EXPECT_EQ(c[k], single[k]) << k;
  }
  // Honeycomb: an 8 × 4 area, each of the eight cell positions holding base + {1, 2, 3, 4};
  // then the same area inside the border of that camera's frames, the border full of junk.
  auto fill = [](int x, int y) { return float(100 * ((y % 2) * 4 + x % 4) + 1 + x / 4 + 2 * (y / 2)); };
  auto comb = Image(8, 4, 1, [&](int x, int y, int) { return fill(x, y); });
  auto framed = Image(104, 64, 1, [&](int x, int y, int) {
    return x >= 48 && x < 56 && y >= 30 && y < 34 ? fill(x - 48, y - 30) : 1e6f;
  });
  framed->GetHeader().SetCameraModel(CString(L"FinePixS2Pro"));
  for (COrbImage* image : {comb.get(), framed.get()}) {
    double hm[8];
    Auto(*image).GetMedianHoneyComb(hm, 1);
    for (int k = 0; k < 8; ++k) EXPECT_EQ(hm[k], 100.0 * k + 3) << k << " of " << image->GetWidth();
  }
}

TEST(ImgAutoLevel, MeanAndMedianWindowsAndTheirInverses) {
  // Mean 2.5, population sigma sqrt(1.25); the inverses are closed forms: only double rounding.
  auto img = Image(2, 2, 1, [](int x, int y, int) { return float(1 + x + 2 * y); });
  Auto(*img).DoByMean(1.0, 2.0, 0, nullptr);
  EXPECT_DOUBLE_EQ(img->GetLevelMin(0), 2.5 - std::sqrt(1.25));
  EXPECT_DOUBLE_EQ(img->GetLevelMax(0), 2.5 + 2 * std::sqrt(1.25));
  EXPECT_NEAR(Inverse(*img, 1).first, 1.0, 1e-12);
  EXPECT_NEAR(Inverse(*img, 1).second, 2.0, 1e-12);

  auto colour = Image(2, 2, 3, [](int x, int y, int p) { return float((1 + x + 2 * y) * (p + 1)); });
  Auto(*colour).DoByMean(0.0, 1.0, 1, nullptr);
  for (int p = 0; p < 3; ++p) {
    EXPECT_DOUBLE_EQ(colour->GetLevelMin(p), 2.5 * (p + 1)) << p;
    EXPECT_NEAR(colour->GetLevelMax(p), (p + 1) * (2.5 + std::sqrt(1.25)), 1e-12) << p;
  }
  // No deviation: the window collapses onto the value, and the inverse has nothing to divide by.
  auto flat = Image(3, 1, 1, [](int, int, int) { return 7.0f; });
  Auto(*flat).DoByMean(1.0, 1.0, 0, nullptr);
  EXPECT_EQ(Window(*flat), std::pair(7.0, 7.0));
  EXPECT_EQ(Inverse(*flat, 1).first, 0.0);

  // Median 3; (4 + 1 + 0 + 1 + 49) / 5 = 11. An empty region afterwards leaves the levels alone.
  auto line = Line({1, 2, 3, 4, 10});
  Auto(*line).DoByMedian(1.0, 2.0, 0, nullptr);
  EXPECT_NEAR(Inverse(*line, 2).first, 1.0, 1e-12);
  EXPECT_NEAR(Inverse(*line, 2).second, 2.0, 1e-12);
  CRect outside(200, 200, 300, 300);
  Auto(*line).DoByMean(1, 1, 0, &outside);
  Auto(*line).DoByMedian(5, 5, 0, &outside);
  EXPECT_DOUBLE_EQ(line->GetLevelMin(0), 3 - std::sqrt(11.0));
  EXPECT_DOUBLE_EQ(line->GetLevelMax(0), 3 + 2 * std::sqrt(11.0));
}

TEST(ImgAutoLevel, DoByNormalPercentilesAndMultiples) {
  // 0 … 4999: each of the 5000 bins holds one sample, so every bin adds 2 to a total of 10000.
  auto img = Image(100, 50, 1, [](int x, int y, int) { return float(y * 100 + x); });
  Auto(*img).DoByNormal(0.1, 0.75, 0, nullptr);
  // Low: 2(i + 1) > 1000 first at i = 500. High: from the top 2(5000 − j) > 2500 first at
  // j = 3749, offset (j + 1). Offsets are bins × 4999/5000.
  EXPECT_DOUBLE_EQ(img->GetLevelMin(0), 500 * 4999.0 / 5000);
  EXPECT_DOUBLE_EQ(img->GetLevelMax(0), 3750 * 4999.0 / 5000);
  EXPECT_NEAR(Inverse(*img, 0).first, 0.1, 2e-4);  // within one bin (2 / 10000) of the request
  EXPECT_NEAR(Inverse(*img, 0).second, 0.75, 2e-4);
  Auto(*img).DoByNormal(0.0, 1.0, 0, nullptr);  // not fractions: multiples of the range
  EXPECT_EQ(Window(*img), std::pair(0.0, 4999.0));
  Auto(*img).DoByNormal(-0.5, 1.5, 0, nullptr);
  EXPECT_EQ(Window(*img), std::pair(-2499.5, 7498.5));
}

TEST(ImgAutoLevel, DoByHistogramWindowAndBalanceModes) {
  auto img = ModeImage();
  Auto(*img).DoByHistogram(1.0, 3.0, 0, 3, nullptr);  // balance 3: nothing
  EXPECT_EQ(Window(*img), std::pair(0.0, 255.0));
  Auto(*img).DoByHistogram(1.0, 3.0, 0, 1, nullptr);
  // Mode 100, width 6 sigma: min = 100 − width, max ≈ 100 + 3 width (a float division by
  // 255/4 and back: 1e-3 of 500).
  const double width = 6.0 * std::sqrt(10300.0 / 16.0);
  EXPECT_NEAR(img->GetLevelMin(0), 100 - width, 1e-4);
  EXPECT_NEAR(img->GetLevelMax(0), 100 + 3 * width, 1e-3);

  // Colour, separate, balance 1: each plane from itself (planes shifted by 0, 50, 200; all
  // keep 0 and 5000, so bins stay one unit wide). One-sided sigmas: plane 1 over 0 (150²),
  // 3 × 140 (10²), 12 × 150: sqrt(22800 / 16); plane 2 likewise sqrt(90300 / 16).
  auto colour = Image(29, 1, 3, [&](int x, int, int p) {
    return img->GetPixelGrayRaw(x, 0, 0) + (x < 2 ? 0.0f : p == 0 ? 0.0f : p == 1 ? 50.0f : 200.0f);
  });
  Auto(*colour).DoByHistogram(1.0, 3.0, 1, 1, nullptr);
  EXPECT_NEAR(colour->GetLevelMin(0), 100 - width, 1e-3);
  EXPECT_NEAR(colour->GetLevelMin(1), 150 - 6 * std::sqrt(22800.0 / 16), 1e-3);
  EXPECT_NEAR(colour->GetLevelMin(2), 300 - 6 * std::sqrt(90300.0 / 16), 1e-3);
  // Balance 0 gives every plane plane 0's width: the windows are plane 0's shifted to each
  // background.
  Auto(*colour).DoByHistogram(1.0, 3.0, 1, 0, nullptr);
  EXPECT_NEAR(colour->GetLevelMin(2) - colour->GetLevelMin(0), 200.0, 1e-3);
  EXPECT_NEAR(colour->GetLevelMax(2) - colour->GetLevelMax(0), 200.0, 1e-3);

  // Four planes (a development work image has a luminance plane): every plane gets its window
  // (and the sanitizer build checks that the per-plane results stay in bounds).
  auto four = Image(29, 1, 4, [&](int x, int, int p) { return img->GetPixelGrayRaw(x, 0, 0) + 10.0f * p; });
  Auto(*four).DoByHistogram(1.0, 3.0, 1, 1, nullptr);
  EXPECT_NEAR(four->GetLevelMin(3), 130 - width, 1e-3);
}

}  // namespace
