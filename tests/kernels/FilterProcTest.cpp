#include "kernels/FilterProc.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <random>
#include <vector>

#include "common/ImageCompare.h"
#include "kernels/FilterMatrix.h"

namespace {

COrbImage RandomImage(int w, int h, int planes, unsigned seed) {
  COrbImage img(-32, w, h, planes);
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> u(-50.0f, 200.0f);
  qrntest::Fill(img, [&](int, int, int) { return u(rng); });
  return img;
}

// Direct separable convolution: taps = centre row of the kernel normalised to sum 1; along
// the line the column is clamped, down the columns the row is reflected (-r at the top,
// 2h - r - 1 at the bottom) and, for images lower than the radius, clamped afterwards.
double Direct(const COrbImage& img, const CFilterMatrix& m, int plane, int x, int y) {
  const int r = m.GetRadius(), w = img.GetWidth(), h = img.GetHeight();
  std::vector<double> t;
  double sum = 0;
  for (int k = -r; k <= r; ++k) sum += m.At(k, 0), t.push_back(m.At(k, 0));
  for (double& v : t) v /= sum;
  double out = 0;
  for (int j = -r; j <= r; ++j) {
    int row = y + j;
    row = row < 0 ? -row : (row >= h ? 2 * h - row - 1 : row);
    row = std::clamp(row, 0, h - 1);
    double line = 0;
    for (int k = -r; k <= r; ++k) line += t[k + r] * img.GetPixelGrayRaw(std::clamp(x + k, 0, w - 1), row, plane);
    out += t[j + r] * line;
  }
  return out;
}

}  // namespace

TEST(FilterProc, EqualsDirectSeparableConvolutionInAnyVisitOrder) {
  struct Case {
    int w, h, radius;
  };
  for (Case c : {Case{1, 1, 1}, Case{3, 2, 1}, Case{5, 7, 2}, Case{17, 9, 3}, Case{23, 19, 2}, Case{40, 13, 2}}) {
    COrbImage img = RandomImage(c.w, c.h, 3, static_cast<unsigned>(c.w * 31 + c.h));
    CFilterMatrix m;
    m.Gaussian(c.radius, 1.3);
    CFilterProc proc(&img, &m, 1);
    const auto at = [&](int x, int y) { return static_cast<size_t>(y * c.w + x); };
    std::vector<float> got(at(0, c.h));
#pragma omp parallel for schedule(static)
    for (int y = 0; y < c.h; ++y)
      for (int x = 0; x < c.w; ++x) got[at(x, y)] = proc.Calc(x, y);
    for (int y = 0; y < c.h; ++y)
      for (int x = 0; x < c.w; ++x)
        // Float taps and float sums of at most 49 terms of magnitude <= 200 (relative 1e-6).
        ASSERT_NEAR(got[at(x, y)], Direct(img, m, 1, x, y), 2e-3)
            << c.w << "x" << c.h << " r " << c.radius << " at " << x << "," << y;
    // Jumps up and down by every distance, including ones shorter than the ring, and the line
    // form from an inner column upwards give the same values bit for bit.
    std::mt19937 rng(3);
    for (int i = 0; i < 400; ++i) {
      const int x = static_cast<int>(rng() % c.w), y = static_cast<int>(rng() % c.h);
      ASSERT_EQ(proc.Calc(x, y), got[at(x, y)]) << c.w << "x" << c.h << " at " << x << "," << y;
    }
    const int x0 = c.w / 3;
    std::vector<float> line(c.w);
    for (int y = c.h - 1; y >= 0; --y) {
      proc.CalcLine(x0, y, c.w - x0, line.data());
      for (int x = x0; x < c.w; ++x) ASSERT_EQ(line[x - x0], got[at(x, y)]) << c.w << "x" << c.h << " line " << y;
    }
  }
}

TEST(FilterProc, NonSeparableKernelUsesItsCentreRowTwiceAndEmptyResets) {
  COrbImage img(-32, 6, 6, 1);
  qrntest::Fill(img, [](int x, int y, int) { return x == 3 && y == 3 ? 16 : 0; });
  const int k[9] = {9, 9, 9, 1, 2, 1, 9, 9, 9};  // only the centre row 1 2 1 counts
  CFilterMatrix m(1, k, 0);
  CFilterProc proc;
  EXPECT_EQ(proc.IsEmpty(), 1);
  EXPECT_EQ(proc.MakeBuf(&img, &m, 0, 0), 1);  // no normalisation: taps 1 2 1
  EXPECT_EQ(proc.IsEmpty(), 0);
  EXPECT_EQ(proc.Calc(3, 3), 64.0f);  // 16 * 2 * 2
  EXPECT_EQ(proc.Calc(2, 2), 16.0f);  // 16 * 1 * 1
  EXPECT_EQ(proc.Calc(3, 5), 0.0f);
  proc.Empty();
  EXPECT_EQ(proc.IsEmpty(), 1);
}
