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

TEST(COrbImageMarkers, PointsRectanglesAndTheirValidityRules) {
  CfPoint p(-1.7, 2.9);  // the doubles kept, the integers truncated toward zero
  EXPECT_EQ(std::make_tuple(p.x, p.y, p.fx), std::make_tuple(-1, 2, -1.7));
  p.Set(3, -4);
  EXPECT_EQ(std::make_tuple(p.fy, p.IsValid(), CfPoint(-1, 5).IsValid()), std::make_tuple(-4.0, true, false));

  COrbImage image(-32, 11, 7, 1);
  EXPECT_EQ(std::make_pair(image.GetStdPtNum(), image.GetCrossGaugePt().x), std::make_pair(0, -100));
  EXPECT_FALSE(image.IsStdCtrValid() || image.IsStarPtValid() || image.IsPickupPtValid() || image.IsSkyPtValid());
  // Clearing the star point unsets x only, and either coordinate makes it valid; the pickup
  // point needs both, the sky point a radius as well.
  image.SetStarPt(CPoint(3, 4));
  image.ClearStarPt();
  image.SetPickupPt(CPoint(-1, 4));
  image.SetSkyPt(CPoint(5, 5), 0);
  EXPECT_EQ(std::make_tuple(image.GetStarPt(), image.IsStarPtValid(), image.IsPickupPtValid(), image.IsSkyPtValid()),
            std::make_tuple(CPoint(-1, 4), true, false, false));
  image.SetSkyPt(CPoint(-1, 5), 3);
  EXPECT_TRUE(image.IsSkyPtValid());
  image.ClearSkyPt();
  CPoint sky;
  int radius = -1;
  image.GetSkyPt(sky, radius);
  EXPECT_EQ(std::make_pair(sky.x, radius), std::make_pair(-1, 0));

  // Standard point 0 drives the centre.
  image.SetStdPt(1, CfPoint(2.5, 3.5));
  EXPECT_FALSE(image.IsStdCtrValid());
  image.SetStdPt(0, CfPoint(4, 5));
  EXPECT_EQ(std::make_pair(CPoint(image.GetStdCtr()), image.GetStdPtNum()), std::make_pair(CPoint(4, 5), 2));
  image.ClearStdPt(0);
  EXPECT_EQ(std::make_pair(image.IsStdCtrValid(), image.GetStdPtNum()), std::make_pair(false, 1));
  image.SetDefaultCenter();
  EXPECT_EQ(CPoint(image.GetStdCtr()), CPoint(5, 3));

  // Only the first two background rectangles count; one of zero width is not valid.
  image.SetBkgRect(5, CRect(1, 1, 4, 4));
  EXPECT_EQ(std::make_pair(image.IsBkgRectValid(5), image.GetBkgRectNum()), std::make_pair(true, 0));
  image.SetBkgRect(1, CRect(0, 0, 2, 2));
  image.SetBkgRect(0, CRect(3, 3, 3, 9));
  image.SetBkgRect(32, CRect(0, 0, 5, 5));  // ignored, no write past the array
  EXPECT_EQ(std::make_pair(image.GetBkgRectNum(), image.IsBkgRectValid(32)), std::make_pair(1, false));
  image.ClearBkgRect(1);
  EXPECT_EQ(image.GetBkgRectNum(), 0);
}

TEST(COrbImageCopy, CopiesAndSwapsCarryStandardPointsStatisticsAndWindowButNotMarkers) {
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
  EXPECT_EQ(std::make_tuple(copy.GetStdPtNum(), copy.GetStdCtr().y, copy.GetAvrPixel(2), copy.GetProgressHandle()),
            std::make_tuple(2, 2, 3.0f, FakeWindow()));
  // Markers are not carried and not re-initialised: the star point is (0, 0).
  EXPECT_EQ(std::make_tuple(copy.GetStarPt(), copy.GetBkgRectNum(), copy.GetCrossGaugePt().x),
            std::make_tuple(CPoint(0, 0), 0, 0));
  EXPECT_TRUE(copy.GetRegKey().IsEmpty());
  COrbImage assigned(-32, 1, 1, 1);
  assigned.SetStarPt(CPoint(7, 7));
  assigned = image;
  EXPECT_TRUE(qrntest::ImagesNear(assigned, image, 0));
  EXPECT_EQ(assigned.GetStarPt(), CPoint(7, 7));  // stays with its object
  EXPECT_EQ(assigned.GetStdPtNum(), 2);

  auto created = image.CloneWithoutImage();
  ASSERT_TRUE(created);
  EXPECT_EQ(std::make_tuple(created->GetPlanes(), created->GetPixelGrayRaw(5, 3, 2), created->GetMaxPixel(2)),
            std::make_tuple(3, 0.0f, 2.0f));
  EXPECT_TRUE(qrntest::ImagesNear(*image.Clone(), image, 0));

  // Swap exchanges the pixels and the carried fields; the markers stay with their objects.
  StatsImage other(-32, 3, 3, 1);
  other.SetStarPt(CPoint(2, 2));
  image.Swap(&other);
  EXPECT_EQ(image.GetPlanes(), 1);
  EXPECT_TRUE(qrntest::ImagesNear(other, copy, 0));
  EXPECT_EQ(std::make_pair(other.GetMinPixel(2), image.GetMinPixel(2)), std::make_pair(1.0f, 0.0f));
  EXPECT_EQ(std::make_pair(image.GetStdPtNum(), other.GetStdPtNum()), std::make_pair(0, 2));
  EXPECT_EQ(std::make_pair(image.GetProgressHandle(), other.GetProgressHandle()),
            std::make_pair(HWND(nullptr), FakeWindow()));
  EXPECT_EQ(std::make_pair(image.GetStarPt(), other.GetStarPt()), std::make_pair(CPoint(5, 5), CPoint(2, 2)));
}

TEST(COrbImageCopy, FailedPixelCopyRaisesTheMemoryExceptionAndCreateReportsIt) {
  COrbImage image(-32, 64, 64, 1), target;
  AllocationFailure noMemory;
  EXPECT_THROW(COrbImage copy(image), CMemoryException);
  EXPECT_THROW(target.CopyImage(image), CMemoryException);
  EXPECT_EQ(target.Create(image), 0);
  EXPECT_EQ(image.CloneWithoutImage(), nullptr);
  EXPECT_TRUE(COrbImage(-32, 8, 8, 1).IsEmpty());
}

TEST(COrbImageScales, GrayScaledDisplayAndBrightValues) {
  COrbImage image(-32, 4, 1, 1);
  image.SetLevel(0, 100.0, 300.0);
  const float raw[4] = {100.0f, 150.0f, 350.0f, 299.9f};
  const int bytes[4] = {0, 63, 255, 254};  // at the minimum, 63.75 truncated, clamped, just below
  for (int x = 0; x < 4; ++x) image.SetPixelGrayRaw(x, 0, raw[x], 0);
  for (int x = 0; x < 4; ++x) EXPECT_EQ(image.GetPixelGray256(x, 0, 0), bytes[x]) << x;
  EXPECT_FLOAT_EQ(image.GetPixelGray(1, 0, 0), 50.0f);
  EXPECT_FLOAT_EQ(image.GetPixelGray256f(1, 0, 0), 63.75f);
  EXPECT_FLOAT_EQ(image.GetPixelGray256f(2, 0, 0), 318.75f);  // not clamped
  EXPECT_FLOAT_EQ(image.GetPixelBright256f(1, 0), 63.75f);    // a grey image's bright value is its 256f value
  const float* p = image.GetImageAdr(1, 0, 0);
  EXPECT_EQ(COrbImage::GetPixelGray256(p, 100.0f, 300.0f, 255.0f / 200.0f), 63);
  EXPECT_FLOAT_EQ(COrbImage::GetPixelGray256f(p, 100.0f, 2.0f), 100.0f);

  image.SetPixelGray(0, 0, 25.0f, 0);
  EXPECT_FLOAT_EQ(image.GetPixelGrayRaw(0, 0, 0), 125.0f);
  image.SetPixelGray256f(0, 0, 127.5f, 0);
  EXPECT_FLOAT_EQ(image.GetPixelGrayRaw(0, 0, 0), 200.0f);
  EXPECT_DOUBLE_EQ(image.ToRaw(255.0, 0), 300.0);
  EXPECT_DOUBLE_EQ(image.To256(200.0, 0), 127.5);

  // Colour: the planes weighted on the display scale, each through its own window.
  COrbImage colour(-32, 1, 1, 3);
  const double levels[3][2] = {{0, 255}, {0, 510}, {100, 355}};
  const float samples[3] = {100.0f, 100.0f, 200.0f};  // 256f values 100, 50, 100
  for (int p = 0; p < 3; ++p) {
    colour.SetLevel(p, levels[p][0], levels[p][1]);
    colour.SetPixelGrayRaw(0, 0, samples[p], p);
  }
  const double bright = 0.299 * 100 + 0.587 * 50 + 0.114 * 100;
  EXPECT_NEAR(colour.GetPixelBright256f(0, 0), bright, 1e-4);
  EXPECT_NEAR(colour.GetPixelBrightRaw(0, 0), bright, 1e-4);  // plane 0 maps 0..255 to itself
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

TEST(COrbImageReads, TransformedReadsShiftRotateReportOutsideAndRoundNearest) {
  COrbImage image(-32, 5, 5, 1);
  image.SetLevel(0, 0.0, 255.0);
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

  // Nearest reads of destination (0, 1) shifted by dx, on the display scale or raw: the
  // display read tests the position before rounding, the raw read after it.
  const auto read = [&](bool display, double dx) {
    outside = -7;
    const float v = display ? image.GetPixelGray256f(0, 1, dx, 0.0, 0.0, 1.0, 1.0, 0, -1.0f, 1, &outside, nullptr, nullptr)
                            : image.GetPixelGrayRaw(0, 1, dx, 0.0, 0.0, 1.0, 1.0, 0, -1.0f, 1, &outside, nullptr, nullptr);
    return std::make_pair(v, outside);
  };
  // Source x = 4.6: inside the image before rounding, column 5 after it.
  EXPECT_EQ(read(true, -4.6), std::make_pair(14.0f, 0));  // the last column of line 1
  EXPECT_EQ(read(false, -4.6), std::make_pair(-1.0f, 1));
  // Source x = −0.3: outside before rounding, column 0 after it.
  EXPECT_EQ(read(true, 0.3).second, 1);
  EXPECT_EQ(read(false, 0.3), std::make_pair(10.0f, 0));
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
  EXPECT_EQ(std::make_pair(outside, g), std::make_pair(1, -9.0));
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
  for (int p = 0; p < 3; ++p)
    EXPECT_EQ(std::make_pair(image.GetLevelMin(p), image.GetLevelMax(p)), std::make_pair(want[p][0], want[p][1])) << p;
  EXPECT_DOUBLE_EQ(image.GetLevelRange(2), 280);
  COrbImage grey(-32, 1, 1, 1);
  grey.SetLevel(-1, 5, 6);
  EXPECT_DOUBLE_EQ(grey.GetLevelMax(0), 6);
  EXPECT_EQ(grey.SetLevel(4, 0, 1), 0);
}

TEST(COrbImageAreas, NormalizeRectClampsEachEdgeAndPixelBltClipsToBothImages) {
  COrbImage src(-32, 4, 4, 1), dst(-32, 5, 5, 1);
  int l, t, r, b;
  const CRect outside(-5, 3, 20, 99), inverted(4, 3, 2, 1);  // an inverted one stays so: loops over it visit nothing
  const std::pair<const CRect*, CRect> rects[] = {
      {nullptr, CRect(0, 0, 5, 5)}, {&outside, CRect(0, 3, 5, 5)}, {&inverted, inverted}};
  for (const auto& [rect, want] : rects) {
    dst.NormalizeRect(rect, l, t, r, b);
    EXPECT_EQ(CRect(l, t, r, b), want) << want.left << "," << want.top;
  }

  qrntest::Fill(src, [](int x, int y, int) { return 100 + x + 4 * y; });
  dst.PixelBlt(3, -1, 4, 4, &src, 0, 0, 0);  // only columns 3..4 and lines 0..2 land, from source (x − 3, y + 1)
  COrbImage want(-32, 5, 5, 1);
  qrntest::Fill(want, [](int x, int y, int) { return x >= 3 && y <= 2 ? 100 + (x - 3) + 4 * (y + 1) : 0; });
  EXPECT_TRUE(qrntest::ImagesNear(dst, want, 0));
  src.SetLevel(0, 100, 110);
  dst.SetLevel(0, 0, 1000);
  dst.PixelBlt(0, 0, 1, 1, &src, 1, 1, 1);  // 105 is halfway up src's window
  EXPECT_FLOAT_EQ(dst.GetPixelGrayRaw(0, 0, 0), 500.0f);
  COrbImage colour(-32, 5, 5, 3);
  colour.PixelBlt(0, 0, 2, 2, &src, 0, 0, 0);  // plane counts differ: nothing happens
  EXPECT_EQ(colour.GetPixelGrayRaw(0, 0, 0), 0.0f);
}
