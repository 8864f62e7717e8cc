// Pixel-wise arithmetic with a constant on the scalar and four-wide paths.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "kernels/Vec4.h"
#include "ops/calibration/CalibrationTestImages.h"
#include "ops/calibration/ImgCalculation.h"
#include "platform/QrnSys.h"

using calibtest::At;
using calibtest::Image;

namespace {

constexpr int kScalar = 0;
constexpr int kVector = 2;
constexpr int kStreamed = 6;  // the four-wide path with streaming stores forced on

// Runs Do on a fresh target (every sample −9) with the given capability mask (kStreamed: the
// four-wide one, streaming).
std::unique_ptr<COrbImage> Calculate(int mask, const COrbImage& src, double value, int op, int clip,
                               CRect* rect = nullptr) {
  auto target = Image(src.GetWidth(), src.GetHeight(), src.GetPlanes(), [](int, int, int) { return -9.0; });
  CQrnSys::SetSIMD(mask == kStreamed ? kVector : mask);
  qrn::simd::SetStreamStores(mask == kStreamed ? 1 : 0);
  static_cast<CImgCalculation&>(*target).Do(value, op, clip, const_cast<COrbImage*>(&src), rect, 0);
  CQrnSys::SetSIMD(-1);
  qrn::simd::SetStreamStores(-1);
  return target;
}

bool SameBits(const COrbImage& a, const COrbImage& b) {
  for (int p = 0; p < a.GetPlanes(); ++p)
    for (int y = 0; y < a.GetHeight(); ++y)
      if (std::memcmp(a.GetImageAdr(0, y, p), b.GetImageAdr(0, y, p), sizeof(float) * a.GetWidth())) return false;
  return true;
}

TEST(ImgCalculation, FourOperationsByHandOnBothPaths) {
  auto src = Image(5, 1, 1, {-2, 0, 1.5f, 3, 100});
  const struct {
    double value;
    int op, clip;
    float want[5];
  } cases[] = {{2.5, 0, 0, {0.5f, 2.5f, 4, 5.5f, 102.5f}}, {2.5, 1, 0, {-4.5f, -2.5f, -1, 0.5f, 97.5f}},
               {2.5, 1, 1, {0, 0, 0, 0.5f, 97.5f}},      {-4.0, 2, 0, {8, -0.0f, -6, -12, -400}},
               {4.0, 3, 0, {-0.5f, 0, 0.375f, 0.75f, 25}}};  // powers of two divide exactly
  for (int mask : {kScalar, kVector})
    for (const auto& c : cases) {
      auto out = Calculate(mask, *src, c.value, c.op, c.clip);
      for (int x = 0; x < 5; ++x)
        EXPECT_EQ(At(*out, x, 0), c.want[x]) << "mask " << mask << " op " << c.op << " clip " << c.clip << " x " << x;
    }
}

TEST(ImgCalculation, PathsAgreeBitForBitOnAwkwardShapes) {
  for (int planes : {1, 3})
    for (int w : {1, 3, 5, 17, 1027}) {
      auto src = Image(w, 3, planes, [](int x, int y, int p) { return std::sin(0.37 * x + y + p) * 1000.0; });
      for (int op : {0, 1, 2})
        for (int clip : {0, 1}) {
          // A rectangle starting on an odd column moves the four-wide blocks off the line start.
          CRect rect(w > 2 ? 1 : 0, 1, w, 3);
          auto a = Calculate(kScalar, *src, 0.7, op, clip, &rect);
          auto b = Calculate(kVector, *src, 0.7, op, clip, &rect);
          auto c = Calculate(kStreamed, *src, 0.7, op, clip, &rect);
          EXPECT_TRUE(SameBits(*a, *b)) << "op " << op << " clip " << clip << " width " << w;
          EXPECT_TRUE(SameBits(*a, *c)) << "streamed, op " << op << " clip " << clip << " width " << w;
          EXPECT_EQ(At(*a, 0, 0), -9.0f);  // row 0 lies outside the rectangle
        }
      // Division: the four-wide path multiplies by the float reciprocal; both roundings are
      // within one unit in the last place of the true quotient, so two units between them.
      auto a = Calculate(kScalar, *src, 0.7, 3, 0);
      auto b = Calculate(kVector, *src, 0.7, 3, 0);
      for (int p = 0; p < planes; ++p)
        for (int x = 0; x < w; ++x) {
          const float u = At(*a, x, 2, p), v = At(*b, x, 2, p);
          EXPECT_NEAR(u, v, 2 * std::fabs(std::nextafter(u, 0.0f) - u)) << x;
          EXPECT_NEAR(u, At(*src, x, 2, p) / 0.7, 1e-3);  // quotients below 1500: 1e-3 is far above float error
        }
    }
}

TEST(ImgCalculation, NothingToComputeLeavesTargetOnFourWidePathCopiesOnScalarPathNullSourceWorksInPlace) {
  auto src = Image(6, 2, 3, [](int x, int y, int p) { return x + 10.0 * y + 100.0 * p; });
  for (int op : {3, -1, 4}) {
    const double value = op == 3 ? 0.0 : 2.0;
    auto untouched = Calculate(kVector, *src, value, op, 0);
    auto copied = Calculate(kScalar, *src, value, op, 0);
    for (int p = 0; p < 3; ++p) {
      EXPECT_EQ(At(*untouched, 5, 1, p), -9.0f) << "op " << op;
      EXPECT_EQ(At(*copied, 5, 1, p), 15.0f + 100.0f * p) << "op " << op;
    }
  }
  // A value that is zero only as a float counts as zero too.
  auto tiny = Calculate(kScalar, *src, 1e-60, 3, 0);
  EXPECT_EQ(At(*tiny, 3, 1, 0), 13.0f);

  auto image = Image(5, 2, 1, [](int x, int y, int) { return x - 2.0 * y; });
  static_cast<CImgCalculation&>(*image).Do(1.0, 1, 1, nullptr, nullptr, 0);
  EXPECT_EQ(At(*image, 4, 0), 3.0f);
  EXPECT_EQ(At(*image, 0, 1), 0.0f);
  EXPECT_EQ(image->GetLockCount(), 0);
}

}  // namespace
