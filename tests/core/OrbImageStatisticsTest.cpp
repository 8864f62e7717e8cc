// Statistics members of COrbImage: hand-sized images worked out on paper, large planes against
// plain one-pass references.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <tuple>
#include <vector>

#include "common/ThreadTeam.h"
#include "core/CoreTest.h"
#include "platform/QrnSys.h"

namespace {

using coretest::Image;
using Ints = std::vector<int>;

std::unique_ptr<COrbImage> FromRows(int w, const std::vector<float>& v) {
  return Image(w, int(v.size()) / w, 1, [&](int x, int y, int) { return v[y * w + x]; });
}

// GetHistogram into bins first set to 7 (so that unwritten bins show), the returned height last.
Ints Hist(COrbImage& img, int count, double lo, double hi, int plane = 0, int logScale = 0, int useCull = 0,
          CRect* rect = nullptr) {
  Ints bins(count + 1, 7);
  bins[count] = img.GetHistogram(bins.data(), count, lo, hi, plane, logScale, 0, useCull, rect, 0, 0);
  return bins;
}

const float kNaN = std::numeric_limits<float>::quiet_NaN();
const float kInf = std::numeric_limits<float>::infinity();

// ---- CalcMinMax, CalcAvr, CalcStdDev, GetAvrGray* ------------------------------------------

TEST(OrbImageStatistics, CalcMinMaxMatchesOnePlainPassAndItsMarginFormSkipsZerosAndEdges) {
  // One pass in sample order from the first sample (`if (v < min) min = v`, a float running
  // sum over (w − 1)(h − 1)) against the library: lines of whole blocks and a tail (a sky of
  // integer counts, the same with a NaN first sample, signed zeros where the first zero met
  // must stay), 2^24 + 1 that the float sum rounds back to 2^24, and one column (divisor 0).
  const int w = 4099, h = 200;
  std::mt19937 rng(21);
  std::uniform_int_distribution<int> counts(900, 1100);
  std::vector<float> sky(std::size_t(w) * h);
  for (float& v : sky) v = float(counts(rng));
  std::vector<float> nanFirst = sky, zeros(sky.size(), 5.0f);
  nanFirst[0] = kNaN;
  // Far enough down that the threads summarise these lines for a running sum already begun.
  zeros[150 * w + 110] = 0.0f;    // first zero met: +0
  zeros[150 * w + 907] = -0.0f;   // same line, a lane before its lane
  zeros[150 * w + 2100] = -0.0f;  // same line, a later block
  zeros[170 * w + 5] = -0.0f;     // a later line
  const std::tuple<int, std::vector<float>, const char*> planes[] = {
      {w, sky, "sky"}, {w, nanFirst, "NaN first"}, {w, zeros, "zeros"},
      {3, {16777216, 1, 1, 16777216, 1, 1}, "2^24 and ones"}, {1, {2, 3, 4}, "one column"}};
  for (const auto& [width, v, name] : planes) {
    float mn = v[0], mx = v[0], sum = 0.0f;
    for (float x : v) {
      sum += x;
      if (x < mn) mn = x;
      if (x > mx) mx = x;
    }
    auto img = FromRows(width, v);
    coretest::OnEveryWidth([&](int wide) {
      img->CalcMinMax();
      const float got[3] = {img->GetMinPixel(0), img->GetMaxPixel(0), img->GetAvrPixel(0)};
      const float want[3] = {mn, mx, sum / float((width - 1) * (int(v.size()) / width - 1))};
      for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(coretest::SameBits(got[i], want[i]))
            << name << ", value " << i << ", wide " << wide << ": " << got[i] << ", " << want[i];
    });
  }

  // With a margin: the inner 2 × 2 of a 4 × 4, whose start sample (1, 1) is 0, so min and max
  // start at 0.
  auto img = FromRows(4, {9, 9, 9, 9,  //
                          9, 0, 5, 9,  //
                          9, 7, -2, 9,  //
                          9, 9, 9, 9});
  const auto stats = [&] { return std::make_tuple(img->GetMinPixel(0), img->GetMaxPixel(0), img->GetAvrPixel(0)); };
  img->CalcMinMax(1);
  EXPECT_EQ(stats(), std::make_tuple(-2.0f, 7.0f, 10.0f / 3.0f));  // zero skipped: (5 + 7 − 2) / 3
  // Margin of half the width: no column visited, the start sample (2, 2) = −2 stays.
  img->CalcMinMax(2);
  EXPECT_EQ(std::make_pair(img->GetMinPixel(0), img->GetMaxPixel(0)), std::make_pair(-2.0f, -2.0f));
  EXPECT_TRUE(std::isnan(img->GetAvrPixel(0)));
  img->CalcMinMax(-3);  // a negative margin reads the whole image, nothing outside it
  EXPECT_EQ(img->GetMaxPixel(0), 9.0f);
}

TEST(OrbImageStatistics, AveragesDeviationAndTheRawMeanOnEveryPathAndThreadCount) {
  auto img = Image(2, 2, 3, [](int x, int y, int p) { return float(1 + x + 2 * y + 10 * p); });
  EXPECT_FLOAT_EQ(img->CalcAvr(0), 2.5f);
  EXPECT_FLOAT_EQ(img->CalcAvr(2), 22.5f);
  EXPECT_EQ(img->CalcAvr(3), 0.0f);
  EXPECT_EQ(img->CalcAvr(-1), 0.0f);
  // Mean of squares 30/4 = 7.5, minus 2.5² = 1.25.
  EXPECT_FLOAT_EQ(img->CalcStdDev(0, nullptr), std::sqrt(1.25f));
  const float given = 2.0f, tooBig = 3.0f;  // 7.5 − 4; 7.5 − 9 < 0 has no guard
  EXPECT_FLOAT_EQ(img->CalcStdDev(0, &given), std::sqrt(3.5f));
  EXPECT_TRUE(std::isnan(img->CalcStdDev(0, &tooBig)));
  EXPECT_EQ(img->CalcStdDev(5, nullptr), 0.0f);
  // Per-line double sums keep 2^24 + 2 exact where a float sum would not.
  EXPECT_EQ(FromRows(3, {16777216, 1, 1})->CalcAvr(0), float(16777218.0 / 3.0));

  // The raw mean divides by (w − 1)(h − 1) on every path, and CalcMinMax agrees.
  for (int w : {3, 17, 1027}) {
    auto flat = Image(w, 5, 1, [](int, int, int) { return 2.0f; });
    flat->SetLevel(0, 1.0, 5.0);
    const double expected = 2.0 * w * 5 / ((w - 1) * 4.0);
    EXPECT_FLOAT_EQ(flat->GetAvrGrayRaw(0), float(expected)) << w;
    EXPECT_FLOAT_EQ(flat->GetAvrGray(0), float(expected) - 1.0f) << w;
    EXPECT_FLOAT_EQ(flat->GetAvrGray256f(0), float((float(expected) - 1.0) / 4.0 * 255.0)) << w;
    flat->CalcMinMax();
    EXPECT_FLOAT_EQ(flat->GetAvrPixel(0), flat->GetAvrGrayRaw(0)) << "the two must agree";
  }
  EXPECT_EQ(FromRows(3, {1, 2, 3})->GetAvrGrayRaw(1), 0.0f);

  // The same on any number of threads: the first line sums to 1e20 and the last to −1e20;
  // each line between sums to about 5000, below half the double spacing at 1e20, so in line
  // order every one of them vanishes and the mean is 0. Lines summed in groups first (as a
  // per-thread reduction would) would survive and leave a mean far from 0.
  const int w = 301, h = 97;
  const float big = 1e20f / w, small = 5000.0f / w;
  auto tall = Image(w, h, 1, [&](int, int y, int) { return y == 0 ? big : y == h - 1 ? -big : small; });
  for (int t = 1; t <= 3; ++t) {
    const qrntest::ThreadTeam team(t);
    EXPECT_EQ(tall->GetAvrGrayRaw(0), 0.0f) << t << " threads";
  }
}

// ---- GetMaxPixel, histograms ---------------------------------------------------------------

TEST(OrbImageStatistics, GetMaxPixelAndFirstBrighterPixel) {
  auto img = FromRows(3, {1, 7, 2,  //
                          7, 3, 0});
  const auto max = [](COrbImage& image, int plane, CRect* rect) {
    int x = 55, y = 55;
    const float v = image.GetMaxPixel(plane, rect, x, y);
    return std::make_tuple(v, x, y);
  };
  CRect single(2, 1, 3, 2), partly(-5, 1, 50, 9), inverted(0, 2, 3, 1), outside(10, 10, 20, 20);
  EXPECT_EQ(max(*img, 0, nullptr), std::make_tuple(7.0f, 1, 0));
  EXPECT_EQ(max(*img, 0, &single), std::make_tuple(0.0f, 2, 1));
  EXPECT_EQ(max(*img, 0, &partly), std::make_tuple(7.0f, 0, 1));
  EXPECT_EQ(max(*FromRows(2, {4, 4, 4, 4}), 0, nullptr), std::make_tuple(4.0f, -1, -1));
  // No area or no plane: the lowest value, the position untouched.
  for (CRect* rect : {&inverted, &outside}) EXPECT_EQ(max(*img, 0, rect), std::make_tuple(-2147483648.0f, 55, 55));
  EXPECT_EQ(max(*img, 4, nullptr), std::make_tuple(-2147483648.0f, 55, 55));

  // The first sample strictly brighter than the level in scan order (NaN never is).
  auto scan = FromRows(3, {1, kNaN, 2,  //
                           9, 8, 9});
  const auto first = [&](CRect* rect, double level) {
    int x = 55, y = 55;
    const int found = scan->Get1stBrighterPixel(0, rect, level, x, y);
    return std::make_tuple(found, x, y);
  };
  CRect secondLine(1, 1, 3, 2);
  EXPECT_EQ(first(nullptr, 1.5), std::make_tuple(1, 2, 0));
  EXPECT_EQ(first(&secondLine, 8.5), std::make_tuple(1, 2, 1));
  EXPECT_EQ(first(nullptr, 9.0), std::make_tuple(0, -1, -1));
  int x, y;
  EXPECT_FALSE(scan->Get1stBrighterPixel(1, nullptr, 0.0, x, y));
}

TEST(OrbImageStatistics, HistogramsByHand) {
  // Over [0, 2] in 4 bins (scale 2): 0 → 0, 0.5 → 1, 1 → 2, 2 → 4 lowered to 3;
  // 10, −1 and NaN lie outside and are not counted. Height 2 w h / count = 4.
  auto img = FromRows(4, {0, 0.5f, 1, 2, 10, -1, kNaN, 1.9f});
  EXPECT_EQ(Hist(*img, 4, 0.0, 2.0), (Ints{1, 1, 1, 2, 4}));
  int bins[4];
  EXPECT_EQ(img->GetHistogram(bins, 4, 0.0, 2.0, 0, 0, 1, 0, nullptr, 0, 0), 2);  // peak height
  EXPECT_EQ(COrbImage::GetHeightOfHistogram(bins, 4), 2);
  EXPECT_EQ(COrbImage::GetHeightOfHistogram(bins, 0), 1);  // no count: the first bin
  // The rectangle limits the area but not the mean height of the result.
  CRect firstLine(-3, -3, 99, 1), inverted(3, 2, 1, 0);
  EXPECT_EQ(Hist(*img, 4, 0.0, 2.0, 0, 0, 0, &firstLine), (Ints{1, 1, 1, 1, 4}));
  EXPECT_EQ(Hist(*img, 4, 0.0, 2.0, 0, 0, 0, &inverted), (Ints{0, 0, 0, 0, 4}));
  // Log scale: trunc(log10(n) × 10000), an empty bin the most negative integer.
  auto many = FromRows(5, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1.2f, 2, 2, 2, 2});
  EXPECT_EQ(Hist(*many, 4, 0.0, 2.0, 0, 1), (Ints{10000, INT_MIN, 0, 6020, 7}));

  // Zero-width range: every in-range sample lands in bin 0; infinities are outside it.
  auto flat = FromRows(3, {5, 5, 5, kInf, 5, -kInf});
  EXPECT_EQ(Hist(*flat, 3, 5.0, 5.0), (Ints{4, 0, 0, 4}));
  // No bins: nothing is written and nothing divides by the count.
  EXPECT_EQ(flat->GetHistogram(nullptr, 0, 0.0, 1.0, 0, 0, 0, 0, nullptr, 0, 0), 0);
  bins[0] = 7;
  EXPECT_EQ(flat->GetHistogram(bins, -4, 0.0, 1.0, 0, 0, 1, 0, nullptr, 0, 0), 0);
  EXPECT_EQ(bins[0], 7);
  EXPECT_EQ(Hist(*flat, 3, 0.0, 10.0, 2), (Ints{0, 0, 0, 0}));  // a plane the image lacks counts nothing
  EXPECT_EQ(Hist(*flat, 3, 0.0, 6.0, -1), (Ints{0, 0, 4, 4}));  // plane −1 of a grey image is plane 0

  // 4 × 4, cull step 2: samples (0,0) = 1, (2,0) = 1, (0,2) = 3, (2,2) = 2, each standing for 4.
  auto culled = FromRows(4, {1, 0, 1, 0,  //
                             0, 0, 0, 0,  //
                             3, 0, 2, 0,  //
                             0, 0, 0, 0});
  culled->SetHistogramCull(2, 2);
  EXPECT_EQ(Hist(*culled, 4, 0.0, 4.0, 0, 0, 1), (Ints{0, 8, 4, 4, 8}));
  EXPECT_EQ(Hist(*culled, 4, 0.0, 4.0, 0, 0, 0), (Ints{12, 2, 1, 1, 8}));  // useCull 0: every sample

  // R 100, G 200, B 50, green on a window twice as wide: its 200 stands for 100 on plane 0's
  // scale, Y = 29.9 + 58.7 + 5.7 = 94.3. (Equal windows are counted in the large test.)
  auto colour = Image(3, 1, 3, [](int, int, int p) { return p == 0 ? 100.0f : p == 1 ? 200.0f : 50.0f; });
  colour->SetLevel(1, 0.0, 510.0);
  EXPECT_EQ(Hist(*colour, 256, 0.0, 256.0, -1)[94], 3);
  // The three planes in one pass, each on its raw samples: bins 1, 3 and 0 of four over [0, 256].
  int rgb[3][4];
  colour->GetHistogramRGB(rgb[0], rgb[1], rgb[2], 4, 0.0, 256.0, 0, 0, 0, nullptr, 0, 0);
  EXPECT_EQ(Ints(&rgb[0][0], &rgb[0][0] + 12), (Ints{0, 3, 0, 0, 0, 0, 0, 3, 3, 0, 0, 0}));
}

TEST(OrbImageStatistics, HistogramsOfLargeImagesWithSpecialValuesMatchNaiveCount) {
  // Enough lines for every thread to hold part of the histogram, lines longer than the
  // counting chunk, samples on both ends of the range, just outside it, infinite and NaN,
  // counted per plane and as luminance (equal windows, so Y = 0.299 R + 0.587 G + 0.114 B in
  // double), on both vector widths. A sample outside the range counts nowhere.
  const int w = 1027, h = 67, count = 50;
  std::mt19937 rng(11);
  std::uniform_real_distribution<float> u(-20.0f, 120.0f);
  const float specials[] = {0.0f, 100.0f, std::nextafter(0.0f, -1.0f), std::nextafter(100.0f, 200.0f), kInf, -kInf,
                            kNaN, 2.0f};  // 2.0: exactly the edge between bins 0 and 1
  auto img = Image(w, h, 3, [&](int x, int, int) {
    const float v = u(rng);
    return x % 13 == 0 ? specials[(x / 13) % 8] : v;
  });
  auto naive = [&](int plane) {
    Ints expected(count + 1, 0);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        const double v = plane >= 0 ? double(img->GetPixelGrayRaw(x, y, plane))
                                    : 0.299 * img->GetPixelGrayRaw(x, y, 0) + 0.587 * img->GetPixelGrayRaw(x, y, 1) +
                                          0.114 * img->GetPixelGrayRaw(x, y, 2);
        if (!(v >= 0.0 && v <= 100.0)) continue;
        ++expected[std::min(count - 1, int(v * (count / 100.0)))];
      }
    expected[count] = 2 * w * h / count;
    return expected;
  };
  coretest::OnEveryWidth([&](int wide) {
    for (int plane : {0, 1, 2, -1}) EXPECT_EQ(Hist(*img, count, 0.0, 100.0, plane), naive(plane)) << plane << wide;
  });
}

// ---- Thresholds, clamping, lifting --------------------------------------------------------------

TEST(OrbImageStatistics, ThresholdsActOnPlaneZeroCutOutOfLevelOnEachPlaneAndLiftUpMovesLines) {
  // Samples 1, 2, 3, NaN against 2; 'x' marks those that become −9. Plane 2 is never touched,
  // whatever the plane argument says.
  const float v[4] = {1, 2, 3, kNaN};
  const std::pair<void (COrbImage::*)(int, float, float), const char*> cases[] = {
      {&COrbImage::ThresholdLessThan, "x..."},    {&COrbImage::ThresholdLessThanEqual, "xx.."},
      {&COrbImage::ThresholdGreaterThan, "..x."}, {&COrbImage::ThresholdGreaterThanEqual, ".xx."},
      {&COrbImage::ThresholdEqual, ".x.."},       {&COrbImage::ThresholdNotEqual, "x.xx"}};
  for (const auto& [member, replaced] : cases) {
    auto img = Image(4, 1, 3, [&](int x, int, int) { return v[x]; });
    (img.get()->*member)(2, 2.0f, -9.0f);
    for (int x = 0; x < 4; ++x) {
      const float want = replaced[x] == 'x' ? -9.0f : v[x];
      EXPECT_TRUE(coretest::SameBits(img->GetPixelGrayRaw(x, 0, 0), want)) << replaced << x;
      EXPECT_TRUE(coretest::SameBits(img->GetPixelGrayRaw(x, 0, 2), v[x])) << replaced << x;
    }
  }

  auto img = Image(17, 3, 3, [](int x, int, int) { return float(x); });
  img->SetLevel(0, 2.0, 9.0);
  img->SetLevel(2, 4.5, 5.5);
  img->CutOutOfLevel();
  const float lo[3] = {2.0f, 0.0f, 4.5f}, hi[3] = {9.0f, 255.0f, 5.5f};
  auto want = Image(17, 3, 3, [&](int x, int, int p) { return std::clamp(float(x), lo[p], hi[p]); });
  EXPECT_TRUE(qrntest::ImagesNear(*img, *want, 0));

  auto lines = FromRows(2, {1, 1, 2, 2, 3, 3, 4, 4});
  lines->LiftUp(1);  // the bottom line stays
  for (int y = 0; y < 4; ++y) EXPECT_EQ(lines->GetPixelGrayRaw(1, y, 0), std::vector<float>({2, 3, 4, 4})[y]);
  lines->LiftUp(4);   // the whole height: no line has a destination
  lines->LiftUp(-2);  // negative: stays inside the image
  lines->LiftUp(0);
  EXPECT_EQ(lines->GetPixelGrayRaw(0, 0, 0), 2.0f);
}

// ---- Star centres and profiles ----------------------------------------------------------------

constexpr double kStarX = 10.3, kStarY = 12.7, kSigma = 1.5, kPeak = 1000.0, kSky = 100.0;

std::unique_ptr<COrbImage> MakeStar(int planes = 1) {
  return Image(25, 26, planes, [](int x, int y, int) {
    const double r2 = (x - kStarX) * (x - kStarX) + (y - kStarY) * (y - kStarY);
    return float(kSky + kPeak * std::exp(-r2 / (2 * kSigma * kSigma)));
  });
}

TEST(OrbImageStatistics, CentroidAndGaussianFitOfKnownStar) {
  auto img = MakeStar();
  double x, y;
  // The window reaches 6.9 sigma from the centre on every side, where the Gaussian is below
  // 1e-10 of its peak; the float samples then bound the error near 1e-5 pixel.
  ASSERT_TRUE(img->GetCentroid(x, y, nullptr));
  EXPECT_NEAR(x, kStarX, 1e-4);
  EXPECT_NEAR(y, kStarY, 1e-4);
  int ix, iy;
  ASSERT_TRUE(img->GetCentroid(ix, iy, nullptr));
  EXPECT_EQ(std::make_pair(ix, iy), std::make_pair(10, 13));
  // A window that cuts the star at 2 sigma pulls the plain centroid towards its inside;
  // the re-centred form walks back onto the star.
  CRect offCentre(0, 0, 13, 15);
  ASSERT_TRUE(img->GetCentroid(x, y, &offCentre));
  EXPECT_GT(std::hypot(x - kStarX, y - kStarY), 0.05);
  ASSERT_TRUE(img->GetCentroid2(x, y, &offCentre));
  EXPECT_NEAR(x, kStarX, 1e-3);  // recentred window spans ±6 px = 4 sigma
  EXPECT_NEAR(y, kStarY, 1e-3);
  // Colour: the luminance of three equal planes is the same star.
  ASSERT_TRUE(MakeStar(3)->GetCentroid(x, y, nullptr));
  EXPECT_NEAR(x, kStarX, 1e-4);
  // Without background removal the sky weighs too: the raw centroid of a flat sky is the
  // middle of the window, and a flat sky has nothing above its background.
  auto sky = Image(5, 3, 1, [](int, int, int) { return 7.0f; });
  ASSERT_TRUE(sky->GetCentroidRaw(x, y, 0, nullptr));
  EXPECT_EQ(std::make_pair(x, y), std::make_pair(2.0, 1.0));
  x = y = -5;
  EXPECT_FALSE(sky->GetCentroid(x, y, nullptr));
  CRect empty(3, 3, 3, 9);
  EXPECT_FALSE(img->GetCentroid(x, y, &empty));
  EXPECT_EQ(x, -5);

  // The fit: noise-free samples rounded to float (relative 6e-8 of 1100) land within 1e-4.
  double prm[COrbImage::kFitCount];
  ASSERT_TRUE(img->GetFitPrm(prm, 0, nullptr));
  EXPECT_NEAR(prm[COrbImage::kFitX], kStarX, 1e-4);
  EXPECT_NEAR(prm[COrbImage::kFitY], kStarY, 1e-4);
  EXPECT_NEAR(prm[COrbImage::kFitSigma], kSigma, 1e-4);
  EXPECT_NEAR(prm[COrbImage::kFitPeak], kPeak, 1e-2);
  EXPECT_NEAR(prm[COrbImage::kFitBackground], kSky, 1e-3);
  EXPECT_NEAR(prm[COrbImage::kFitFwhm], 2.354820045 * kSigma, 1e-3);
  // From the known centre, the moment estimate of a well-sampled Gaussian is within 1e-3
  // (discrete second moment of a sigma 1.5 Gaussian differs from sigma² by far less).
  ASSERT_TRUE(img->GetFitPrmFromCentroid(prm, kStarX, kStarY, 0, nullptr));
  EXPECT_NEAR(prm[COrbImage::kFitSigma], kSigma, 1e-3);
  EXPECT_NEAR(prm[COrbImage::kFitPeak], kPeak, 1.0);
  CRect tiny(0, 0, 2, 2);
  EXPECT_FALSE(img->GetFitPrm(prm, 0, &tiny));
  EXPECT_FALSE(img->GetFitPrm(prm, 3, nullptr));
}

TEST(OrbImageStatistics, ZeroMaskSamplesClearTheImageOnBothPaths) {
  for (int simd : {0, -1}) {
    CQrnSys::SetSIMD(simd);
    for (int w : {1, 3, 5, 17})
      for (int planes : {1, 3}) {
        auto img = Image(w, 2, planes, [](int x, int y, int p) { return float(1 + x + 10 * y + 100 * p); });
        auto mask = Image(w, 2, 1, [](int x, int y, int) { return (x + y) % 3 == 0 ? 0.0f : x == 4 ? kNaN : -1.0f; });
        EXPECT_TRUE(img->ApplyMask_Do0_x(mask.get(), 0));
        for (int p = 0; p < planes; ++p)
          for (int y = 0; y < 2; ++y)
            for (int x = 0; x < w; ++x)
              EXPECT_EQ(img->GetPixelGrayRaw(x, y, p), (x + y) % 3 == 0 ? 0.0f : float(1 + x + 10 * y + 100 * p))
                  << "SIMD " << simd << ", " << w << " " << x << " " << y << " " << p;
      }
    CQrnSys::SetSIMD(-1);
  }
  auto img = Image(3, 2, 1, [](int, int, int) { return 1.0f; });
  auto other = Image(2, 2, 1, [](int, int, int) { return 0.0f; });
  EXPECT_FALSE(img->ApplyMask_Do0_x(other.get(), 0));
  EXPECT_FALSE(img->ApplyMask_Do0_x(nullptr, 0));
  EXPECT_EQ(img->GetPixelGrayRaw(0, 0, 0), 1.0f);
}

}  // namespace
