#include "ops/level/ImgNormalize.h"

#include <gtest/gtest.h>

#include <cmath>
#include <utility>

#include "kernels/Vec4.h"
#include "ops/level/LevelTestImages.h"

using leveltest::Make;

namespace {

TEST(ImgNormalize, HandWorkedShiftAndScale) {
  // Samples 1, 2, 3, 4: μ = 2.5, σ = sqrt(1.25).
  auto src = Make(4, 1, 1, 0, 10, [](int x, int, int) { return x + 1; });
  COrbImage shifted(*src), scaled(*src);
  float mean[1] = {10.0f}, sigma[1] = {float(2 * std::sqrt(1.25))};
  static_cast<CImgNormalize&>(shifted).Do(src.get(), mean, nullptr, 0);
  static_cast<CImgNormalize&>(scaled).Do(src.get(), nullptr, sigma, 0);
  for (int x = 0; x < 4; ++x) {
    EXPECT_EQ(shifted.GetPixelGrayRaw(x, 0, 0), x + 8.5f);
    // Doubling the spread about 2.5: 1 -> -0.5, 2 -> 1.5, ...; sigma passes through float (1e-6).
    EXPECT_NEAR(scaled.GetPixelGrayRaw(x, 0, 0), 2.5 + 2 * (x + 1 - 2.5), 1e-5);
  }
}

TEST(ImgNormalize, EverySampleFollowsTheInOrderSumsAndTheTwoSteps) {
  // Lines long enough for the sums to go by blocks: the moments from double sums taken in
  // sample order, the shift stored as float, then the scaling about the new mean; bit for bit
  // on both widths, into another image and in place. The result has the requested moments.
  auto src = leveltest::Noise(2500, 9, 3, 900, 5000, 5);
  float mean[3] = {100, 2000, -50}, sigma[3] = {10, 300, 1};
  // A plane's mean and standard deviation from double sums in sample order.
  auto moments = [](const COrbImage& image, int p) {
    const double count = double(image.GetWidth()) * image.GetHeight();
    double sum = 0, squares = 0;
    for (int y = 0; y < image.GetHeight(); ++y)
      for (int x = 0; x < image.GetWidth(); ++x) {
        const double v = image.GetPixelGrayRaw(x, y, p);
        sum += v, squares += v * v;
      }
    return std::pair(sum / count, std::sqrt(squares / count - sum / count * (sum / count)));
  };
  std::pair<double, double> in[3];
  for (int p = 0; p < 3; ++p) in[p] = moments(*src, p);
  auto expected = [&](int x, int y, int p) {
    const float shifted = static_cast<float>(src->GetPixelGrayRaw(x, y, p) + (mean[p] - in[p].first));
    return static_cast<float>((shifted - double(mean[p])) * (sigma[p] / in[p].second) + mean[p]);
  };
  for (int wide : {1, 0}) {
    qrn::simd::SetWideVectors(wide);
    COrbImage dst(*src), inPlace(*src);
    static_cast<CImgNormalize&>(dst).Do(src.get(), mean, sigma, 0);
    static_cast<CImgNormalize&>(inPlace).Do(&inPlace, mean, sigma, 1);
    EXPECT_EQ(leveltest::Mismatches(dst, expected), 0) << "wide " << wide;
    EXPECT_EQ(leveltest::Mismatches(inPlace, expected), 0) << "in place, wide " << wide;
    for (int p = 0; p < 3; ++p) {
      // Samples are stored as float between the two steps: relative error about 1e-6 of ~5000.
      EXPECT_NEAR(moments(dst, p).first, mean[p], 0.02) << p;
      EXPECT_NEAR(moments(dst, p).second, sigma[p], 0.02) << p;
    }
  }
  qrn::simd::SetWideVectors(1);
}

TEST(ImgNormalize, ConstantPlaneIsShiftedNotScaledAndBadRequestsChangeNothing) {
  auto src = Make(3, 3, 1, 0, 10, [](int x, int, int) { return x; });
  auto flat = Make(3, 3, 1, 0, 10, [](int, int, int) { return 4; });
  auto other = Make(3, 3, 3, 0, 10, [](int x, int, int) { return x; });
  COrbImage dst(*src), shifted(*flat);
  float mean[3] = {6, 50, 50}, sigma[1] = {2};
  static_cast<CImgNormalize&>(shifted).Do(flat.get(), mean, sigma, 0);
  for (int x = 0; x < 3; ++x) EXPECT_EQ(shifted.GetPixelGrayRaw(x, 2, 0), 6.0f);
  static_cast<CImgNormalize&>(dst).Do(src.get(), nullptr, nullptr, 0);
  static_cast<CImgNormalize&>(dst).Do(other.get(), mean, nullptr, 0);
  static_cast<CImgNormalize&>(dst).Do(nullptr, mean, nullptr, 0);
  EXPECT_TRUE(leveltest::BitEqual(dst, *src));
}

}  // namespace
