#include "ops/filter/ImgFilter.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "common/ImageCompare.h"
#include "kernels/Vec4.h"
#include "platform/QrnSys.h"

using qrntest::Fill;
using qrntest::ImagesNear;

namespace {

std::unique_ptr<COrbImage> Random(int w, int h, int planes, unsigned seed) {
  auto img = std::make_unique<COrbImage>(-32, w, h, planes);
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> u(0.0f, 1000.0f);
  Fill(*img, [&](int, int, int) { return std::round(u(rng)); });
  for (int p = 0; p < planes; ++p) img->SetLevel(p, 100.0, 900.0);
  return img;
}

CImgFilter& F(COrbImage& img) { return static_cast<CImgFilter&>(img); }

// Reference neighbourhood, written from the edge rules: rows reflect (-r, or 2h - r - 1),
// column offsets flip sign at the edges; an image smaller than the kernel is then clamped.
int RefRow(int r, int h) {
  int s = r < 0 ? -r : (r >= h ? 2 * h - r - 1 : r);
  return std::clamp(s, 0, h - 1);
}
int RefCol(int x, int o, int w) {
  int c = x + o;
  if (o == -1 && x < 1) c = x + 1;
  if (o == 1 && x >= w - 1) c = x - 1;
  if (o == -2 && x < 2) c = x + 2;
  if (o == 2 && x >= w - 2) c = x - 2;
  return std::clamp(c, 0, w - 1);
}
std::vector<std::pair<int, int>> Shape(int type) {  // (dx, dy) of the kernel
  std::vector<std::pair<int, int>> s;
  for (int dy = -2; dy <= 2; ++dy)
    for (int dx = -2; dx <= 2; ++dx) {
      const int ax = std::abs(dx), ay = std::abs(dy);
      const bool in = type == 0 ? ax + ay <= 1 : type == 1 ? ax <= 1 && ay <= 1 : type == 2 ? ax + ay <= 3 : !dx && !dy;
      if (in) s.emplace_back(dx, dy);
    }
  return s;
}
std::vector<float> Samples(const COrbImage& img, int x, int y, int p, int type) {
  std::vector<float> v;
  for (auto [dx, dy] : Shape(type))
    v.push_back(img.GetPixelGrayRaw(RefCol(x, dx, img.GetWidth()), RefRow(y + dy, img.GetHeight()), p));
  return v;
}
std::unique_ptr<COrbImage> RankReference(const COrbImage& src, int type, int rank) {
  auto out = src.Clone();
  Fill(*out, [&](int x, int y, int p) {
    auto v = Samples(src, x, y, p, type);
    std::sort(v.begin(), v.end());
    return v[static_cast<size_t>(rank)];
  });
  return out;
}

// Both the scalar path and the four-wide path are run; they must give the same values.
class BothPaths : public ::testing::TestWithParam<int> {
 protected:
  void SetUp() override { CQrnSys::SetSIMD(GetParam()); }
  void TearDown() override { CQrnSys::SetSIMD(-1); }
};
INSTANTIATE_TEST_SUITE_P(Simd, BothPaths, ::testing::Values(0, 2));

struct Geometry {
  int w, h, planes;
};
const Geometry kShapes[] = {{1, 1, 1}, {1, 4, 1}, {3, 2, 3}, {5, 5, 1}, {17, 9, 3}, {37, 6, 1}, {1101, 6, 1}};

}  // namespace

// Every rank of every kernel (and ranks beyond both ends, clamped) and the median, on
// awkward shapes and on rows longer than the column blocks of the two-pass row functions,
// through the four-wide and (where the processor has it) the eight-wide row functions; on
// the longer rows also over a rectangle whose left edge is not on a vector boundary.
TEST_P(BothPaths, RankFiltersMatchBruteForce) {
  unsigned seed = 1;
  for (int wide : {0, 1}) {
    qrn::simd::SetWideVectors(wide);
    for (const Geometry& g : kShapes)
      for (int type = 0; type <= 2; ++type) {
        const int n = CImgFilter::GetSampleCount(type);
        auto src = Random(g.w, g.h, g.planes, seed++);
        const CRect part(3, 1, g.w - 11, g.h - 1);
        for (int rank = -3; rank <= n + 2; ++rank) {
          auto ref = RankReference(*src, type, std::clamp(rank, 0, n - 1));
          auto dst = src->Clone();
          F(*dst).MinMaxFilter(type, rank, src.get(), nullptr, 0);
          EXPECT_TRUE(ImagesNear(*dst, *ref, 0.0)) << g.w << "x" << g.h << " wide " << wide << " type " << type
                                                   << " rank " << rank;
          if (g.w < 20) continue;
          auto clipped = src->Clone();
          CRect r = part;
          F(*clipped).MinMaxFilter(type, rank, src.get(), &r, 0);
          Fill(*dst, [&](int x, int y, int p) {
            const bool in = x >= 3 && x < g.w - 11 && y >= 1 && y < g.h - 1;
            return (in ? *ref : *src).GetPixelGrayRaw(x, y, p);
          });
          EXPECT_TRUE(ImagesNear(*clipped, *dst, 0.0))
              << "clipped, " << g.w << " wide " << wide << " type " << type << " rank " << rank;
        }
        auto med = src->Clone();
        F(*med).MedianFilter(type, src.get(), nullptr, 0);
        EXPECT_TRUE(ImagesNear(*med, *RankReference(*src, type, n / 2), 0.0)) << g.w << "x" << g.h << " type " << type;
        EXPECT_EQ(med->GetLockCount() + src->GetLockCount(), 0);
      }
  }
  qrn::simd::SetWideVectors(-1);
}

TEST_P(BothPaths, OtherTypesCopyTheCentreAndThreadsChangeNothing) {
  auto src = Random(23, 11, 3, 7);
  auto dst = Random(23, 11, 3, 8);
  F(*dst).MedianFilter(5, src.get(), nullptr, 0);
  EXPECT_TRUE(ImagesNear(*dst, *src, 0.0));

  auto many = src->Clone(), one = src->Clone();
  F(*many).MedianFilter(2, src.get(), nullptr, 0);
  const int threads = omp_get_max_threads();
  omp_set_num_threads(1);
  F(*one).MedianFilter(2, src.get(), nullptr, 0);
  omp_set_num_threads(threads);
  EXPECT_TRUE(ImagesNear(*many, *one, 0.0));
}

TEST(ImgFilterRect, ClippedEmptyAndInvertedRectangles) {
  auto src = Random(12, 10, 1, 3);
  auto full = src->Clone();
  F(*full).MinMaxFilter(1, 8, src.get(), nullptr, 0);

  auto part = src->Clone();
  CRect outside(8, -5, 40, 4);  // clipped to columns 8..11, rows 0..3
  F(*part).MinMaxFilter(1, 8, src.get(), &outside, 0);
  for (int y = 0; y < 10; ++y)
    for (int x = 0; x < 12; ++x) {
      const bool in = x >= 8 && y < 4;
      EXPECT_EQ(part->GetPixelGrayRaw(x, y, 0), (in ? *full : *src).GetPixelGrayRaw(x, y, 0)) << x << "," << y;
    }

  for (CRect r : {CRect(5, 2, 5, 8), CRect(7, 2, 3, 8), CRect(1, 6, 9, 2), CRect(20, 20, 30, 30)}) {
    auto same = src->Clone();
    F(*same).MedianFilter(1, src.get(), &r, 0);
    F(*same).LaplacianFilter(1, src.get(), &r, 0);
    F(*same).UnSharpMask(1.0, 1, 1.0, 0.0, src.get(), &r, 0);
    EXPECT_TRUE(ImagesNear(*same, *src, 0.0));
  }
  // A work image of another size writes nothing.
  auto other = Random(11, 10, 1, 4);
  auto same = src->Clone();
  F(*same).MedianFilter(1, other.get(), nullptr, 0);
  EXPECT_TRUE(ImagesNear(*same, *src, 0.0));
}

TEST(ImgFilterLaplacian, KernelsAgainstWeightsAndFlatAreas) {
  const double w0[3][3] = {{0, -1, 0}, {-1, 4, -1}, {0, -1, 0}};
  const double w1[3][3] = {{-1, -1, -1}, {-1, 8, -1}, {-1, -1, -1}};
  const double w2[3][3] = {{1, -2, 1}, {-2, 4, -2}, {1, -2, 1}};
  const double(*weights[3])[3] = {w0, w1, w2};
  for (const Geometry& g : kShapes)
    for (int type = 0; type <= 2; ++type) {
      auto src = Random(g.w, g.h, g.planes, 40 + type);
      auto dst = src->Clone();
      F(*dst).LaplacianFilter(type, src.get(), nullptr, 0);
      auto ref = src->Clone();
      Fill(*ref, [&](int x, int y, int p) {
        double s = 0;
        for (int dy = -1; dy <= 1; ++dy)
          for (int dx = -1; dx <= 1; ++dx)
            s += weights[type][dy + 1][dx + 1] *
                 src->GetPixelGrayRaw(RefCol(x, dx, g.w), RefRow(y + dy, g.h), p);
        return std::fabs(s) + src->GetLevelMin(p);
      });
      // Integer samples below 1000: every sum is exact; only the final float rounding differs.
      EXPECT_TRUE(ImagesNear(*dst, *ref, 0.0)) << g.w << "x" << g.h << " type " << type;
    }
  COrbImage flat(-32, 5, 4, 1);
  Fill(flat, [](int, int, int) { return 321; });
  flat.SetLevel(0, 20.0, 500.0);
  float* l[3];
  F(flat).SetFilterAdr(0, 0, 0, 1, l, VM_READONLY);
  for (int type = 0; type <= 2; ++type) {
    EXPECT_EQ(F(flat).GetLaplacianGray(l, 0, type, 0), 0.0f);
    EXPECT_EQ(F(flat).GetLaplacianRaw(l, 0, type, 0), 20.0f);
  }
  // Any other type gives the centre sample itself (plus the level minimum), not its neighbour.
  COrbImage rows(-32, 4, 4, 1);
  Fill(rows, [](int x, int y, int) { return 10 * y + x; });
  rows.SetLevel(0, 0.0, 255.0);
  F(rows).SetFilterAdr(1, 2, 0, 1, l, VM_READONLY);
  EXPECT_EQ(F(rows).GetLaplacianRaw(l, 1, 7, 0), 21.0f);
}

TEST(ImgFilterEvaluators, MeansScalesAndHighPass) {
  COrbImage img(-32, 5, 5, 1);
  Fill(img, [](int x, int y, int) { return x == 2 && y == 2 ? 90 : 10; });
  img.SetLevel(0, 10.0, 265.0);
  // A line array has one line per row of the kernel's radius.
  float *l0[1], *l1[3], *l2[5];
  F(img).SetFilterAdr(2, 2, 0, 0, l0, VM_READONLY);
  F(img).SetFilterAdr(2, 2, 0, 1, l1, VM_READONLY);
  F(img).SetFilterAdr(2, 2, 0, 2, l2, VM_READONLY);
  double plain = -1;
  EXPECT_FLOAT_EQ(F(img).GetMeanRaw(l1, 2, 1, 1.0, &plain), (8 * 10 + 90) / 9.0f);  // box mean
  EXPECT_DOUBLE_EQ(plain, 170.0 / 9.0);
  EXPECT_EQ(F(img).GetMeanRaw(l1, 2, 0, 0.0, nullptr), 90.0f);  // weight 0: the centre
  EXPECT_FLOAT_EQ(F(img).GetMeanRaw(l2, 2, 2, 0.5, nullptr), (200 * 0.5 + 90) / 11.0f);  // 20 w + 1
  plain = -1;
  EXPECT_EQ(F(img).GetMeanRaw(l0, 2, 7, 1.0, &plain), 90.0f);
  EXPECT_EQ(plain, -1.0);  // other types leave the plain mean alone
  EXPECT_FLOAT_EQ(F(img).GetMeanRaw(2, 2, 0, 1.0, 0), (4 * 10 + 90) / 5.0f);
  EXPECT_EQ(F(img).GetMedianRaw(2, 2, 2, 0), 10.0f);
  EXPECT_EQ(F(img).GetMedianGray(l1, 2, 1, 0), 0.0f);
  EXPECT_FLOAT_EQ(F(img).GetMean256f(l1, 2, 0, 0.0, 0), 80.0f);  // (90 - 10) / 255 * 255
  EXPECT_FLOAT_EQ(F(img).GetMeanGray(l1, 2, 0, 0.0, 0), 80.0f);
  EXPECT_FLOAT_EQ(F(img).GetMedian256f(l0, 2, 9, 0), 80.0f);

  EXPECT_EQ(F(img).HighPassRaw(2, 2, 0), 8 * 90.0f - 80.0f);
  EXPECT_EQ(F(img).HighPassRaw(1, 1, 0), 80.0f);  // the hot pixel is one of its eight neighbours
  // At a corner the clamped neighbours repeat the corner itself: 8 * 10 - 8 * 10.
  EXPECT_EQ(F(img).HighPassRaw(0, 0, 0), 0.0f);
}

TEST_P(BothPaths, UnsharpMaskAgainstItsDefinition) {
  for (const Geometry& g : kShapes)
    for (int type = 0; type <= 2; ++type) {
      auto src = Random(g.w, g.h, g.planes, 70 + type);
      auto dst = src->Clone();
      const double amount = 1.5, weight = 0.5, threshold = 0.05;
      F(*dst).UnSharpMask(amount, type, weight, threshold, src.get(), nullptr, 0);
      auto ref = src->Clone();
      Fill(*ref, [&](int x, int y, int p) {
        auto v = Samples(*src, x, y, p, type);
        const double c = src->GetPixelGrayRaw(x, y, p);
        double s = -c;
        for (float f : v) s += f;
        const double n = static_cast<double>(v.size());
        const double m = (s * weight + c) / ((n - 1) * weight + 1), plainMean = (s + c) / n;
        return std::fabs(plainMean / c - 1) >= threshold ? (c - m) * amount + c : c;
      });
      // Integer samples: sums are exact, the mean is rounded to float once before use.
      EXPECT_TRUE(ImagesNear(*dst, *ref, 1e-3)) << g.w << "x" << g.h << " type " << type;
    }
}

TEST(ImgFilterUnsharp, NeutralSettingsAndZeroCentres) {
  auto src = Random(9, 8, 3, 5);
  for (double amount : {0.0, 2.0}) {
    auto dst = src->Clone();
    const double threshold = amount == 0.0 ? 0.0 : 1e30;  // amount 0, or no pixel passes
    F(*dst).UnSharpMask(amount, 1, 1.0, threshold, src.get(), nullptr, 0);
    EXPECT_TRUE(ImagesNear(*dst, *src, 0.0));
  }
  COrbImage zero(-32, 5, 5, 1);
  Fill(zero, [](int x, int y, int) { return x == 2 && y == 1 ? 9 : 0; });
  auto work = zero.Clone();
  F(zero).UnSharpMask(1.0, 0, 1.0, 0.5, work.get(), 0, nullptr, 0);
  // (2, 2): centre 0 beside a 9 passes (infinite ratio): (0 - 9/5) * 1 + 0.
  EXPECT_FLOAT_EQ(zero.GetPixelGrayRaw(2, 2, 0), -1.8f);
  // (4, 4): all zero, 0/0 fails the test and the pixel stays.
  EXPECT_EQ(zero.GetPixelGrayRaw(4, 4, 0), 0.0f);
  EXPECT_FALSE(std::isnan(zero.GetPixelGrayRaw(4, 4, 0)));
}

TEST(ImgFilterWork, BorderedCopiesAndShift) {
  auto src = Random(5, 3, 3, 9);
  src->SetLevel(1, -4.0, 44.0);
  std::unique_ptr<COrbImage> work(F(*src).MakeFilterWork(0, 0));
  ASSERT_TRUE(work);
  ASSERT_EQ(work->GetWidth(), 9);  // border 0 means 2
  ASSERT_EQ(work->GetHeight(), 7);
  ASSERT_EQ(work->GetPlanes(), 3);
  EXPECT_EQ(work->GetLevelMin(1), -4.0);
  EXPECT_EQ(work->GetLevelMax(1), 44.0);
  for (int p = 0; p < 3; ++p)
    for (int y = 0; y < 7; ++y)
      for (int x = 0; x < 9; ++x)
        ASSERT_EQ(work->GetPixelGrayRaw(x, y, p), src->GetPixelGrayRaw(RefRow(x - 2, 5), RefRow(y - 2, 3), p));

  std::unique_ptr<COrbImage> dd(F(*src).MakeDDWork(3, 0));
  ASSERT_TRUE(dd);
  EXPECT_EQ(dd->GetWidth(), 11);
  EXPECT_EQ(dd->GetPixelGrayRaw(3, 3, 2), src->GetPixelGrayRaw(0, 0, 2));
  // A colour image's work copy carries the luminance as a fourth plane, border included,
  // on plane 0's window.
  ASSERT_EQ(dd->GetPlanes(), 4);
  EXPECT_EQ(dd->GetLevelMin(3), src->GetLevelMin(0));
  EXPECT_EQ(dd->GetLevelMax(3), src->GetLevelMax(0));
  const double lo = src->GetLevelMin(0), rg = src->GetLevelRange(0);
  for (int y = 0; y < dd->GetHeight(); ++y)
    for (int x = 0; x < dd->GetWidth(); ++x)
      ASSERT_EQ(dd->GetPixelGrayRaw(x, y, 3),
                CImgFilter::GetDDLuminance(dd->GetPixelGrayRaw(x, y, 0), dd->GetPixelGrayRaw(x, y, 1),
                                           dd->GetPixelGrayRaw(x, y, 2), lo, rg));
  auto grey = Random(4, 4, 1, 3);
  std::unique_ptr<COrbImage> greyWork(F(*grey).MakeDDWork(1, 0));
  EXPECT_EQ(greyWork->GetPlanes(), 1);
  // Mean of 0, 127.5 and 255 on the window 10 .. 265 is 127.5 -> raw 137.5.
  EXPECT_FLOAT_EQ(CImgFilter::GetDDLuminance(10.0f, 137.5f, 265.0f, 10.0, 255.0), 137.5f);

  int dx = 7, dy = 8;
  COrbImage big(-32, 10, 8, 1), small(-32, 5, 3, 1);
  F(big).CalcShift(dx, dy, 0, &small);
  EXPECT_EQ(dx, 7);
  EXPECT_EQ(dy, 8);
  F(small).CalcShift(dx, dy, 0, &big);
  EXPECT_EQ(dx, 2);  // (10 - 5) / 2 truncated
  EXPECT_EQ(dy, 2);
}
