// COrbImage plane conversion and L*a*b* planes.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <utility>

#include "core/Color.h"
#include "core/CoreTest.h"

namespace {

using coretest::Image;

TEST(OrbImageColorTest, ToGrayTakesTheBrightValueOnTheDisplayScale) {
  // 256f values: plane 0 51 x, plane 1 127.5, plane 2 102 on line 0 and 127.5 on line 1.
  auto src = Image(3, 2, 3, [](int x, int y, int p) { return p == 0 ? 0.2f * x : p == 1 ? 15.0f : 40.0f + 10 * y; });
  src->SetLevel(0, 0.0, 1.0);
  src->SetLevel(1, 10.0, 20.0);
  src->SetLevel(2, 0.0, 100.0);
  auto dst = Image(3, 2, 3, [](int, int, int) { return 0; }, 100.0, 355.0);  // plane 0 maps 256f one to one plus 100
  dst->SetLevel(1, -5.0, 5.0);
  ASSERT_TRUE(dst->ToGray(src.get(), 0));
  ASSERT_EQ(dst->GetPlanes(), 1);
  EXPECT_EQ(std::make_pair(dst->GetLevelMin(0), dst->GetLevelMax(0)), std::make_pair(100.0, 355.0));
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 3; ++x) {
      const double bright = 0.299 * 51 * x + 0.587 * 127.5 + 0.114 * (y ? 127.5 : 102.0);
      // Values pass through float twice (256f and bright) before the raw scale.
      EXPECT_NEAR(dst->GetPixelGrayRaw(x, y, 0), bright + 100.0, 1e-4) << x << "," << y;
    }

  // A grey image stays as it is; another size or no source changes nothing.
  auto grey = Image(3, 1, 1, [](int x, int, int) { return 0.25f * x; }, 0.0, 1.0);
  auto colour = Image(3, 1, 3, [](int, int, int) { return 0; }, 0.0, 1.0);
  EXPECT_TRUE(grey->ToGray(colour.get(), 0));
  EXPECT_EQ(std::make_pair(grey->GetPixelGrayRaw(1, 0, 0), grey->GetPlanes()), std::make_pair(0.25f, 1));
  auto other = Image(4, 1, 3, [](int, int, int) { return 0; }, 0.0, 1.0);
  EXPECT_FALSE(colour->ToGray(other.get(), 0));
  EXPECT_FALSE(colour->ToGray(nullptr, 0));
  EXPECT_EQ(colour->GetPlanes(), 3);
  EXPECT_TRUE(colour->ToColor(nullptr, 0));  // already colour: nothing to do
}

TEST(OrbImageColorTest, ToColorCopiesRawSamplesAndLevels) {
  auto grey = Image(5, 2, 1, [](int x, int, int) { return float(x) - 2.5f; }, -3.0, 7.0);
  auto dst = Image(5, 2, 1, [](int, int, int) { return 0; }, -3.0, 7.0);
  ASSERT_TRUE(dst->ToColor(grey.get(), 0));
  ASSERT_EQ(dst->GetPlanes(), 3);
  EXPECT_TRUE(qrntest::ImagesNear(*dst, *Image(5, 2, 3, [](int x, int, int) { return float(x) - 2.5f; }), 0));
  for (int p = 0; p < 3; ++p)
    EXPECT_EQ(std::make_pair(dst->GetLevelMin(p), dst->GetLevelMax(p)), std::make_pair(-3.0, 7.0)) << p;

  // From a colour source each plane keeps its own samples.
  auto src = Image(1, 3, 3, [](int, int y, int p) { return 10 * p + y; }, 0.0, 1.0);
  auto one = Image(1, 3, 1, [](int, int, int) { return 0; }, 0.0, 1.0);
  ASSERT_TRUE(one->ToColor(src.get(), 0));
  EXPECT_TRUE(qrntest::ImagesNear(*one, *src, 0));
}

TEST(OrbImageColorTest, LabPlanesMatchCColorOnTheDisplayScaleAndGreyIsNeutral) {
  const float rgb[6][3] = {{1, 2, 1}, {0, 0, 0}, {0.5f, 0.2f, 0.1f}, {0.1f, 1.0f, 0.9f}, {0.3f, 0.6f, 0.3f}, {2, 0, 0}};
  auto image = Image(3, 2, 3, [&](int x, int y, int p) { return rgb[x + 3 * y][p]; }, 0.0, 1.0);
  image->SetLevel(1, 0.0, 2.0);
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

  // A grey image is its one plane on all three channels, and neutral: x = y = z, so a and b
  // vanish up to the rounding of the matrix rows.
  auto grey = Image(5, 1, 1, [](int x, int, int) { return x; }, 0.0, 4.0);
  lab.reset(grey->MakeLabPlane());
  ASSERT_TRUE(lab);
  for (int x = 0; x < 5; ++x) {
    CColor c;
    c.RgbToLab(x / 4.0, x / 4.0, x / 4.0);
    EXPECT_NEAR(lab->GetPixelGrayRaw(x, 0, 0), c.GetL(), 1e-4) << x;
    EXPECT_NEAR(lab->GetPixelGrayRaw(x, 0, 1), 0.0f, 1e-4) << x;
    EXPECT_NEAR(lab->GetPixelGrayRaw(x, 0, 2), 0.0f, 1e-4) << x;
  }
  // A window that is not positive switches its channel off instead of dividing by zero.
  EXPECT_NEAR(grey->GetPixelL(4, 0, 0, 0, 0, 0, 0, 0), 0.0f, 1e-6);
  COrbImage empty;
  EXPECT_EQ(empty.MakeLPlane(), nullptr);
}

}  // namespace
