// COrbImage plane conversion and L*a*b* planes.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <utility>

#include "core/Color.h"
#include "core/OrbImage.h"

namespace {

std::unique_ptr<COrbImage> MakeImage(int width, int height, int planes, double min, double max) {
  auto image = std::make_unique<COrbImage>(-32, width, height, planes);
  for (int p = 0; p < planes; ++p) image->SetLevel(p, min, max);
  return image;
}

TEST(OrbImageColorTest, ToGrayTakesTheBrightValueOnTheDisplayScale) {
  auto src = MakeImage(3, 2, 3, 0.0, 1.0);
  src->SetLevel(1, 10.0, 20.0);
  src->SetLevel(2, 0.0, 100.0);
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 3; ++x) {
      src->SetPixelGrayRaw(x, y, 0.2f * x, 0);         // 256f: 51 x
      src->SetPixelGrayRaw(x, y, 15.0f, 1);            // 127.5
      src->SetPixelGrayRaw(x, y, 40.0f + 10 * y, 2);   // 102, 127.5
    }
  auto dst = MakeImage(3, 2, 3, 100.0, 355.0);  // plane 0 window maps 256f one to one plus 100
  dst->SetLevel(1, -5.0, 5.0);
  ASSERT_TRUE(dst->ToGray(src.get(), 0));
  ASSERT_EQ(dst->GetPlanes(), 1);
  EXPECT_EQ(dst->GetLevelMin(0), 100.0);
  EXPECT_EQ(dst->GetLevelMax(0), 355.0);
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 3; ++x) {
      const double bright = 0.299 * 51 * x + 0.587 * 127.5 + 0.114 * (y ? 127.5 : 102.0);
      // Values pass through float twice (256f and bright) before the raw scale.
      EXPECT_NEAR(dst->GetPixelGrayRaw(x, y, 0), bright + 100.0, 1e-4) << x << "," << y;
    }
}

TEST(OrbImageColorTest, ToGrayOnAGreyImageAndBadSourcesChangeNothing) {
  auto grey = MakeImage(3, 1, 1, 0.0, 1.0);
  grey->SetPixelGrayRaw(1, 0, 0.25f, 0);
  auto colour = MakeImage(3, 1, 3, 0.0, 1.0);
  EXPECT_TRUE(grey->ToGray(colour.get(), 0));
  EXPECT_EQ(grey->GetPixelGrayRaw(1, 0, 0), 0.25f);
  EXPECT_EQ(grey->GetPlanes(), 1);

  auto other = MakeImage(4, 1, 3, 0.0, 1.0);
  EXPECT_FALSE(colour->ToGray(other.get(), 0));  // another size
  EXPECT_FALSE(colour->ToGray(nullptr, 0));
  EXPECT_EQ(colour->GetPlanes(), 3);
  EXPECT_TRUE(colour->ToColor(nullptr, 0));  // already colour: nothing to do
}

TEST(OrbImageColorTest, ToColorCopiesRawSamplesAndLevels) {
  auto grey = MakeImage(5, 2, 1, -3.0, 7.0);
  for (int x = 0; x < 5; ++x) grey->SetPixelGrayRaw(x, 1, float(x) - 2.5f, 0);
  auto dst = MakeImage(5, 2, 1, -3.0, 7.0);
  ASSERT_TRUE(dst->ToColor(grey.get(), 0));
  ASSERT_EQ(dst->GetPlanes(), 3);
  for (int p = 0; p < 3; ++p) {
    EXPECT_EQ(dst->GetLevelMin(p), -3.0);
    EXPECT_EQ(dst->GetLevelMax(p), 7.0);
    for (int x = 0; x < 5; ++x) EXPECT_EQ(dst->GetPixelGrayRaw(x, 1, p), float(x) - 2.5f);
  }

  // From a colour source each plane keeps its own samples.
  auto src = MakeImage(1, 3, 3, 0.0, 1.0);
  for (int y = 0; y < 3; ++y)
    for (int p = 0; p < 3; ++p) src->SetPixelGrayRaw(0, y, float(10 * p + y), p);
  auto one = MakeImage(1, 3, 1, 0.0, 1.0);
  ASSERT_TRUE(one->ToColor(src.get(), 0));
  for (int y = 0; y < 3; ++y)
    for (int p = 0; p < 3; ++p) EXPECT_EQ(one->GetPixelGrayRaw(0, y, p), float(10 * p + y));
}

TEST(OrbImageColorTest, LabPlanesMatchCColorOnTheDisplayScale) {
  auto image = MakeImage(3, 2, 3, 0.0, 1.0);
  image->SetLevel(1, 0.0, 2.0);
  const float rgb[6][3] = {{1, 2, 1}, {0, 0, 0}, {0.5f, 0.2f, 0.1f}, {0.1f, 1.0f, 0.9f}, {0.3f, 0.6f, 0.3f}, {2, 0, 0}};
  for (int i = 0; i < 6; ++i)
    for (int p = 0; p < 3; ++p) image->SetPixelGrayRaw(i % 3, i / 3, rgb[i][p], p);
  std::unique_ptr<COrbImage> lab(image->MakeLabPlane());
  std::unique_ptr<COrbImage> l(image->MakeLPlane());
  std::unique_ptr<COrbImage> a(image->MakeAbPlane(0));
  std::unique_ptr<COrbImage> b(image->MakeAbPlane(1));
  ASSERT_TRUE(lab && l && a && b);
  EXPECT_EQ(lab->GetPlanes(), 3);
  EXPECT_EQ(l->GetLevelMax(0), 100.0);
  // White at the top of every window is L = 100, a = b = 0 (rows of the matrix sum to white).
  EXPECT_NEAR(l->GetPixelGrayRaw(0, 0, 0), 100.0f, 1e-4);
  EXPECT_NEAR(a->GetPixelGrayRaw(0, 0, 0), 0.0f, 1e-4);
  EXPECT_NEAR(l->GetPixelGrayRaw(1, 0, 0), 0.0f, 1e-6);
  for (int i = 0; i < 6; ++i) {
    const int x = i % 3, y = i / 3;
    CColor c;
    c.RgbToLab(rgb[i][0], rgb[i][1] / 2.0, rgb[i][2]);
    // Planes store floats: half an ulp of values up to about 100. The explicit-window
    // accessors with the image's own windows agree.
    double pa = 0, pb = 0;
    image->GetPixelAb(x, y, 0, 0, 0, 1, 2, &pa, &pb, 1);
    EXPECT_EQ(std::make_pair(pa, pb), std::make_pair(c.Geta(), c.Getb()));
    const std::pair<float, double> pairs[] = {
        {l->GetPixelGrayRaw(x, y, 0), c.GetL()},   {lab->GetPixelGrayRaw(x, y, 0), c.GetL()},
        {lab->GetPixelGrayRaw(x, y, 1), c.Geta()}, {lab->GetPixelGrayRaw(x, y, 2), c.Getb()},
        {a->GetPixelGrayRaw(x, y, 0), c.Geta()},   {b->GetPixelGrayRaw(x, y, 0), c.Getb()},
        {image->GetPixelL(x, y, 0, 0, 0, 1, 2, 1), c.GetL()}};
    for (const auto& [got, want] : pairs) EXPECT_NEAR(got, want, 1e-5) << i;
  }
  // Red is on the +a side, the green-cyan pixel on the -a side.
  EXPECT_GT(a->GetPixelGrayRaw(2, 1, 0), 0);
  EXPECT_LT(a->GetPixelGrayRaw(0, 1, 0), 0);
}

TEST(OrbImageColorTest, GreyImageIsNeutralInLab) {
  auto grey = MakeImage(5, 1, 1, 0.0, 4.0);
  for (int x = 0; x < 5; ++x) grey->SetPixelGrayRaw(x, 0, float(x), 0);
  std::unique_ptr<COrbImage> lab(grey->MakeLabPlane());
  ASSERT_TRUE(lab);
  float previous = -1;
  for (int x = 0; x < 5; ++x) {
    // x = y = z for a grey, so a and b vanish up to the rounding of the matrix rows.
    EXPECT_NEAR(lab->GetPixelGrayRaw(x, 0, 1), 0.0f, 1e-4);
    EXPECT_NEAR(lab->GetPixelGrayRaw(x, 0, 2), 0.0f, 1e-4);
    EXPECT_GT(lab->GetPixelGrayRaw(x, 0, 0), previous);  // L rises with the grey level
    previous = lab->GetPixelGrayRaw(x, 0, 0);
  }
  // A window that is not positive switches its channel off instead of dividing by zero.
  EXPECT_NEAR(grey->GetPixelL(4, 0, 0, 0, 0, 0, 0, 0), 0.0f, 1e-6);
  COrbImage empty;
  EXPECT_EQ(empty.MakeLPlane(), nullptr);
}

}  // namespace
