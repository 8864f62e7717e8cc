#include "core/OrbImage.h"

#include <gtest/gtest.h>

#include <cmath>
#include <tuple>
#include <utility>

#include "common/ImageCompare.h"
#include "container/VmManager.h"
#include "platform/Exceptions.h"

namespace {
// Gives tests access to the statistics fields that CalcMinMax writes.
class StatsImage : public COrbImage {
 public:
  using COrbImage::COrbImage;
  void SetStats(int plane, float min, float max, float avr) {
    m_minPixel[plane] = min;
    m_maxPixel[plane] = max;
    m_avrPixel[plane] = avr;
  }
};

// Makes every allocation fail: no RAM allowed and no folder for a backing file.
class AllocationFailure {
 public:
  AllocationFailure() {
    CVmManager::SetMemoryLimit(0);
    CVmManager::SetTempDirectory("/nonexistent/qrnimg-test");
  }
  ~AllocationFailure() { CVmManager::Reset(); }
};

HWND FakeWindow() { return reinterpret_cast<HWND>(0x1234); }  // only compared, never used
}  // namespace

TEST(CfPoint, IntegerAndDoubleCoordinatesStayInStep) {
  CfPoint p(-1.7, 2.9);
  EXPECT_EQ(CPoint(p), CPoint(-1, 2));  // truncated toward zero
  EXPECT_EQ(p.fx, -1.7);
  p.Set(3, -4);
  EXPECT_EQ(p.fy, -4.0);
  EXPECT_TRUE(p.IsValid());
  EXPECT_FALSE(CfPoint(-1, 5).IsValid());
}

TEST(COrbImageMarkers, InitialStateAndValidityRules) {
  COrbImage image(-32, 10, 8, 1);
  EXPECT_EQ(image.GetStdPtNum(), 0);
  EXPECT_FALSE(image.IsStdCtrValid() || image.IsStarPtValid() || image.IsPickupPtValid() || image.IsSkyPtValid());
  EXPECT_EQ(image.GetCrossGaugePt().x, -100);
  image.SetStarPt(CPoint(3, 4));
  image.ClearStarPt();
  EXPECT_EQ(image.GetStarPt(), CPoint(-1, 4));
  EXPECT_TRUE(image.IsStarPtValid());  // either coordinate suffices for the star point
  image.SetPickupPt(CPoint(-1, 4));
  EXPECT_FALSE(image.IsPickupPtValid());  // the pickup point needs both
  image.SetSkyPt(CPoint(5, 5), 0);
  EXPECT_FALSE(image.IsSkyPtValid());  // and the sky point a radius
  image.SetSkyPt(CPoint(-1, 5), 3);
  EXPECT_TRUE(image.IsSkyPtValid());
  image.ClearSkyPt();
  CPoint sky;
  int radius = -1;
  image.GetSkyPt(sky, radius);
  EXPECT_EQ(std::make_pair(sky.x, radius), std::make_pair(-1, 0));
}

TEST(COrbImageMarkers, StandardPointZeroDrivesTheCentre) {
  COrbImage image(-32, 11, 7, 1);
  image.SetStdPt(1, CfPoint(2.5, 3.5));
  EXPECT_FALSE(image.IsStdCtrValid());
  image.SetStdPt(0, CfPoint(4, 5));
  EXPECT_EQ(CPoint(image.GetStdCtr()), CPoint(4, 5));
  EXPECT_EQ(image.GetStdPtNum(), 2);
  image.ClearStdPt(0);
  EXPECT_FALSE(image.IsStdCtrValid());
  EXPECT_EQ(image.GetStdPtNum(), 1);
  image.SetDefaultCenter();
  EXPECT_EQ(CPoint(image.GetStdCtr()), CPoint(5, 3));
}

TEST(COrbImageMarkers, OnlyTheFirstTwoBackgroundRectanglesCount) {
  COrbImage image(-32, 10, 10, 1);
  image.SetBkgRect(5, CRect(1, 1, 4, 4));
  EXPECT_TRUE(image.IsBkgRectValid(5));
  EXPECT_EQ(image.GetBkgRectNum(), 0);
  image.SetBkgRect(1, CRect(0, 0, 2, 2));
  image.SetBkgRect(0, CRect(3, 3, 3, 9));  // zero width: not valid
  EXPECT_EQ(image.GetBkgRectNum(), 1);
  image.SetBkgRect(32, CRect(0, 0, 5, 5));  // ignored, no write past the array
  EXPECT_FALSE(image.IsBkgRectValid(32));
  image.ClearBkgRect(1);
  EXPECT_EQ(image.GetBkgRectNum(), 0);
}

TEST(COrbImageCopy, CopyCarriesStandardPointsStatisticsAndWindowButNotMarkers) {
  StatsImage image(-32, 6, 4, 3);
  qrntest::Fill(image, [](int x, int y, int p) { return x + 10 * y + 100 * p; });
  image.SetStats(2, 1, 2, 3);
  image.SetStdPt(0, CfPoint(1, 2));
  image.SetStdPt(1, CfPoint(3, 3));
  image.SetStarPt(CPoint(5, 5));
  image.SetBkgRect(0, CRect(0, 0, 2, 2));
  image.SetProgressHandle(FakeWindow());
  image.SetRegKey(L"key");

  COrbImage copy(image);
  EXPECT_TRUE(qrntest::ImagesNear(copy, image, 0));
  EXPECT_EQ(copy.GetStdPtNum(), 2);
  EXPECT_EQ(copy.GetStdCtr().y, 2);
  EXPECT_EQ(copy.GetAvrPixel(2), 3.0f);
  EXPECT_EQ(copy.GetProgressHandle(), FakeWindow());
  // Markers are not carried and not re-initialised: the star point is (0, 0).
  EXPECT_EQ(copy.GetStarPt(), CPoint(0, 0));
  EXPECT_EQ(copy.GetBkgRectNum(), 0);
  EXPECT_EQ(copy.GetCrossGaugePt().x, 0);
  EXPECT_TRUE(copy.GetRegKey().IsEmpty());
  COrbImage assigned(-32, 1, 1, 1);
  assigned.SetStarPt(CPoint(7, 7));
  assigned = image;
  EXPECT_TRUE(qrntest::ImagesNear(assigned, image, 0));
  EXPECT_EQ(assigned.GetStarPt(), CPoint(7, 7));  // stays with its object
  EXPECT_EQ(assigned.GetStdPtNum(), 2);

  auto created = image.CloneWithoutImage();
  ASSERT_TRUE(created);
  EXPECT_EQ(created->GetPlanes(), 3);
  EXPECT_EQ(created->GetPixelGrayRaw(5, 3, 2), 0.0f);
  EXPECT_EQ(created->GetMaxPixel(2), 2.0f);
  EXPECT_TRUE(qrntest::ImagesNear(*image.Clone(), image, 0));
}

TEST(COrbImageCopy, SwapExchangesPixelsAndCarriedFieldsOnly) {
  StatsImage a(-32, 2, 2, 1), b(-32, 3, 3, 3);
  a.SetPixelGrayRaw(1, 1, 5.0f, 0);
  a.SetStats(0, 9, 9, 9);
  a.SetStdPt(0, CfPoint(1, 1));
  a.SetStarPt(CPoint(1, 0));
  b.SetStarPt(CPoint(2, 2));
  a.SetProgressHandle(FakeWindow());
  a.Swap(&b);
  EXPECT_EQ(a.GetPlanes(), 3);
  EXPECT_EQ(b.GetPixelGrayRaw(1, 1, 0), 5.0f);
  EXPECT_EQ(b.GetMinPixel(0), 9.0f);
  EXPECT_EQ(std::make_pair(a.GetStdPtNum(), b.GetStdPtNum()), std::make_pair(0, 1));
  EXPECT_EQ(std::make_pair(a.GetProgressHandle(), b.GetProgressHandle()), std::make_pair(HWND(nullptr), FakeWindow()));
  EXPECT_EQ(std::make_pair(a.GetStarPt(), b.GetStarPt()), std::make_pair(CPoint(1, 0), CPoint(2, 2)));  // markers stay
}

TEST(COrbImageCopy, FailedPixelCopyRaisesTheMemoryExceptionAndCreateReportsIt) {
  COrbImage image(-32, 64, 64, 1);
  AllocationFailure noMemory;
  EXPECT_THROW(COrbImage copy(image), CMemoryException);
  COrbImage target;
  EXPECT_THROW(target.CopyImage(image), CMemoryException);
  EXPECT_EQ(target.Create(image), 0);
  EXPECT_EQ(image.CloneWithoutImage(), nullptr);
  EXPECT_TRUE(COrbImage(-32, 8, 8, 1).IsEmpty());
}

TEST(COrbImageScales, GrayScaledAndDisplayBytes) {
  COrbImage image(-32, 4, 1, 1);
  image.SetLevel(0, 100.0, 300.0);
  const float raw[4] = {100.0f, 150.0f, 350.0f, 299.9f};
  const int bytes[4] = {0, 63, 255, 254};  // at the minimum, 63.75 truncated, clamped, just below
  for (int x = 0; x < 4; ++x) image.SetPixelGrayRaw(x, 0, raw[x], 0);
  for (int x = 0; x < 4; ++x) EXPECT_EQ(image.GetPixelGray256(x, 0, 0), bytes[x]) << x;
  EXPECT_FLOAT_EQ(image.GetPixelGray(1, 0, 0), 50.0f);
  EXPECT_FLOAT_EQ(image.GetPixelGray256f(1, 0, 0), 63.75f);
  EXPECT_FLOAT_EQ(image.GetPixelGray256f(2, 0, 0), 318.75f);  // not clamped
  const float* p = image.GetImageAdr(1, 0, 0);
  EXPECT_EQ(COrbImage::GetPixelGray256(p, 100.0f, 300.0f, 255.0f / 200.0f), 63);
  EXPECT_FLOAT_EQ(COrbImage::GetPixelGray256f(p, 100.0f, 2.0f), 100.0f);

  image.SetPixelGray(0, 0, 25.0f, 0);
  EXPECT_FLOAT_EQ(image.GetPixelGrayRaw(0, 0, 0), 125.0f);
  image.SetPixelGray256f(0, 0, 127.5f, 0);
  EXPECT_FLOAT_EQ(image.GetPixelGrayRaw(0, 0, 0), 200.0f);
  EXPECT_DOUBLE_EQ(image.ToRaw(255.0, 0), 300.0);
  EXPECT_DOUBLE_EQ(image.To256(200.0, 0), 127.5);
}

TEST(COrbImageScales, BrightWeightsThePlanesOnTheDisplayScale) {
  COrbImage image(-32, 1, 1, 3);
  const double levels[3][2] = {{0, 255}, {0, 510}, {100, 355}};
  const float raw[3] = {100.0f, 100.0f, 200.0f};  // 256f values 100, 50, 100
  for (int p = 0; p < 3; ++p) {
    image.SetLevel(p, levels[p][0], levels[p][1]);
    image.SetPixelGrayRaw(0, 0, raw[p], p);
  }
  const double bright = 0.299 * 100 + 0.587 * 50 + 0.114 * 100;
  EXPECT_NEAR(image.GetPixelBright256f(0, 0), bright, 1e-4);
  EXPECT_NEAR(image.GetPixelBrightRaw(0, 0), bright, 1e-4);  // plane 0 maps 0..255 to itself
  COrbImage grey(-32, 1, 1, 1);
  grey.SetLevel(0, 0, 510);
  grey.SetPixelGrayRaw(0, 0, 255.0f, 0);
  EXPECT_FLOAT_EQ(grey.GetPixelBright256f(0, 0), 127.5f);
}

TEST(COrbImageReads, SubPixelReadsInterpolateAndHitTheLastSampleExactly) {
  COrbImage image(-32, 3, 3, 1);
  qrntest::Fill(image, [](int x, int y, int) { return x * x + 10 * y; });
  EXPECT_FLOAT_EQ(image.GetPixelGrayRaw(1.0, 2.0, 0), 21.0f);
  EXPECT_FLOAT_EQ(image.GetPixelGrayRaw(0.5, 0.5, 0), (0 + 1 + 10 + 11) / 4.0f);
  EXPECT_FLOAT_EQ(image.GetPixelGrayRaw(2.0, 1.0, 0), 14.0f);   // last column, exactly
  EXPECT_FLOAT_EQ(image.GetPixelGrayRaw(2.0, 2.0, 0), 24.0f);   // last corner
  EXPECT_FLOAT_EQ(image.GetPixelGrayRaw(7.0, 0.25, 0), 6.5f);   // beyond: clamped to the last column
  EXPECT_FLOAT_EQ(image.GetPixelGrayRaw(1.25, 2.0, 0), 21.75f);  // last row
  image.GetPixelGrayRawBufInit();
  for (double y = 0; y <= 2.0; y += 0.25)
    for (double x = 0; x <= 2.0; x += 0.5)
      ASSERT_FLOAT_EQ(image.GetPixelGrayRawBuf(x, y, 0), image.GetPixelGrayRaw(x, y, 0)) << x << "," << y;
  COrbImage column(-32, 1, 2, 1);  // a single column has no right neighbour to read
  column.SetPixelGrayRaw(0, 1, 8.0f, 0);
  EXPECT_FLOAT_EQ(column.GetPixelGrayRaw(0.0, 0.5, 0), 4.0f);
}

TEST(COrbImageReads, TransformedReadsShiftRotateAndReportOutside) {
  COrbImage image(-32, 5, 5, 1);
  qrntest::Fill(image, [](int x, int y, int) { return x + 10 * y; });
  image.SetStdCtr(CfPoint(2, 2));
  int outside = -1;
  double sx, sy;
  // A pure shift: destination (3, 3) reads source (2, 1).
  EXPECT_FLOAT_EQ(image.GetPixelGrayRaw(3, 3, 1.0, 2.0, 0.0, 1.0, 1.0, 0, -5.0f, 0, &outside, &sx, &sy), 12.0f);
  EXPECT_EQ(std::make_tuple(outside, sx, sy), std::make_tuple(0, 2.0, 1.0));
  // A quarter turn (sine 1, cosine 0) about (2, 2): destination (4, 2) reads source (2, 0).
  EXPECT_NEAR(image.GetPixelGrayRaw(4, 2, 0.0, 0.0, 1.0, 0.0, 1.0, 0, -5.0f, 1, &outside, &sx, &sy), 2.0f, 1e-5);
  EXPECT_NEAR(sx, 2.0, 1e-12);
  EXPECT_NEAR(sy, 0.0, 1e-12);
  // Scale 2 about the centre: destination (3, 2) reads source (4, 2).
  EXPECT_FLOAT_EQ(image.GetPixelGrayRaw(3, 2, 0, 0, 0.0, 1.0, 2.0, 0, -5.0f, 0, &outside, nullptr, nullptr), 24.0f);
  EXPECT_FLOAT_EQ(image.GetPixelGrayRaw(0, 0, 3.0, 0.0, 0.0, 1.0, 1.0, 0, -5.0f, 0, &outside, nullptr, nullptr), -5.0f);
  EXPECT_EQ(outside, 1);
}

TEST(COrbImageReads, NearestReadsDifferAtTheLastHalfPixel) {
  COrbImage image(-32, 4, 4, 1);
  image.SetLevel(0, 0.0, 255.0);
  qrntest::Fill(image, [](int x, int y, int) { return 1 + x + 4 * y; });
  // Nearest reads of destination (0, 1) shifted by dx, on the display scale or raw.
  const auto read = [&](bool display, double dx) {
    int outside = -7;
    const float v = display ? image.GetPixelGray256f(0, 1, dx, 0.0, 0.0, 1.0, 1.0, 0, -1.0f, 1, &outside, nullptr, nullptr)
                            : image.GetPixelGrayRaw(0, 1, dx, 0.0, 0.0, 1.0, 1.0, 0, -1.0f, 1, &outside, nullptr, nullptr);
    return std::make_pair(v, outside);
  };
  // Source x = 3.6: inside the image before rounding, column 4 after it.
  EXPECT_EQ(read(true, -3.6), std::make_pair(8.0f, 0));  // the last column of line 1
  EXPECT_EQ(read(false, -3.6), std::make_pair(-1.0f, 1));
  // Source x = −0.3: outside before rounding, column 0 after it.
  EXPECT_EQ(read(true, 0.3).second, 1);
  EXPECT_EQ(read(false, 0.3), std::make_pair(5.0f, 0));
}

TEST(COrbImageReads, RgbReadsUseTheImageCentreUnlessAskedAndFillOutside) {
  COrbImage image(-32, 4, 4, 3);
  for (int p = 0; p < 3; ++p) image.SetLevel(p, 0.0, 255.0);
  qrntest::Fill(image, [](int x, int y, int p) { return 10 * p + x + y; });
  double r, g, b, sx, sy;
  int outside;
  image.GetPixelRgb256f(1, 1, 0.5, 0.0, 0.0, 1.0, 0, 1.0, &r, &g, &b, -9.0, &outside, &sx, &sy);
  EXPECT_EQ(std::make_pair(outside, sx), std::make_pair(0, 0.5));
  EXPECT_NEAR(r, 1.5, 1e-5);
  EXPECT_NEAR(b, 21.5, 1e-5);
  image.GetPixelRgbRaw(0, 0, 1.0, 0.0, 0.0, 1.0, 0, 1.0, &r, &g, &b, -9.0, &outside, nullptr, nullptr);
  EXPECT_EQ(outside, 1);
  EXPECT_EQ(g, -9.0);
  COrbImage grey(-32, 2, 2, 1);
  grey.SetLevel(0, 0.0, 255.0);
  grey.SetPixelGrayRaw(1, 1, 7.0f, 0);
  grey.GetPixelRgbRaw(1, 1, 0.0, 0.0, 0.0, 1.0, 0, 1.0, &r, &g, &b, -9.0, &outside, nullptr, nullptr);
  EXPECT_EQ(std::make_tuple(r, g, b), std::make_tuple(7.0, 7.0, 7.0));  // a grey image gives plane 0 in all three
}

TEST(COrbImageLevels, PlaneMinusOneMovesColourPlanesInProportion) {
  COrbImage image(-32, 1, 1, 3);
  image.SetLevel(0, 0, 100);
  image.SetLevel(1, 10, 30);
  image.SetLevel(2, -50, 150);
  image.SetLevel(-1, 10, 150);  // plane 0: min +10% of its range, max +50%
  const double want[3][2] = {{10, 150}, {12, 40}, {-30, 250}};
  for (int p = 0; p < 3; ++p) {
    EXPECT_DOUBLE_EQ(image.GetLevelMin(p), want[p][0]) << p;
    EXPECT_DOUBLE_EQ(image.GetLevelMax(p), want[p][1]) << p;
  }
  EXPECT_DOUBLE_EQ(image.GetLevelRange(2), 280);
  COrbImage grey(-32, 1, 1, 1);
  grey.SetLevel(-1, 5, 6);
  EXPECT_DOUBLE_EQ(grey.GetLevelMax(0), 6);
  EXPECT_EQ(grey.SetLevel(4, 0, 1), 0);
}

TEST(COrbImageAreas, NormalizeRectClampsEachEdge) {
  COrbImage image(-32, 10, 6, 1);
  int l, t, r, b;
  image.NormalizeRect(nullptr, l, t, r, b);
  EXPECT_EQ(CRect(l, t, r, b), CRect(0, 0, 10, 6));
  const CRect outside(-5, 3, 20, 99);
  image.NormalizeRect(&outside, l, t, r, b);
  EXPECT_EQ(CRect(l, t, r, b), CRect(0, 3, 10, 6));
  const CRect inverted(8, 5, 2, 1);  // kept inverted: loops over it visit nothing
  image.NormalizeRect(&inverted, l, t, r, b);
  EXPECT_EQ(CRect(l, t, r, b), CRect(8, 5, 2, 1));
}

TEST(COrbImageAreas, PixelBltClipsToBothImagesAndRescalesThroughLevels) {
  COrbImage src(-32, 4, 4, 1), dst(-32, 5, 5, 1);
  qrntest::Fill(src, [](int x, int y, int) { return 100 + x + 4 * y; });
  dst.PixelBlt(3, -1, 4, 4, &src, 0, 0, 0);  // only columns 3..4 and lines 0..2 land, from source (x − 3, y + 1)
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 5; ++x)
      EXPECT_EQ(dst.GetPixelGrayRaw(x, y, 0), x >= 3 && y <= 2 ? 100 + (x - 3) + 4 * (y + 1) : 0.0f) << x << "," << y;

  src.SetLevel(0, 100, 110);
  dst.SetLevel(0, 0, 1000);
  dst.PixelBlt(0, 0, 1, 1, &src, 1, 1, 1);  // 105 is halfway up src's window
  EXPECT_FLOAT_EQ(dst.GetPixelGrayRaw(0, 0, 0), 500.0f);
  COrbImage colour(-32, 5, 5, 3);
  colour.PixelBlt(0, 0, 2, 2, &src, 0, 0, 0);  // plane counts differ: nothing happens
  EXPECT_EQ(colour.GetPixelGrayRaw(0, 0, 0), 0.0f);
}
