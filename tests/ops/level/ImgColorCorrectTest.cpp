#include "ops/level/ImgColorCorrect.h"

#include <gtest/gtest.h>

#include <limits>

#include "ops/level/LevelTestImages.h"

using leveltest::Make;

namespace {

const tagMATRIX kIdentity{1, 0, 0, 0, 1, 0, 0, 0, 1};
const tagMATRIX kSwapRedBlue{0, 0, 1, 0, 1, 0, 1, 0, 0};

std::unique_ptr<COrbImage> Rgb(float r, float g, float b) {
  return Make(3, 2, 3, 0, 255, [&](int, int, int p) { return p == 0 ? r : p == 1 ? g : b; });
}

TEST(ImgColorCorrect, IdentityReproducesHalfStrengthBlendsAndTheMatrixActsAboutBlack) {
  auto src = leveltest::Noise(17, 3, 3, 900, 5000);
  COrbImage dst(*src);
  tagMATRIX m = kIdentity, swap = kSwapRedBlue;
  EXPECT_EQ(static_cast<CImgColorCorrect&>(dst).Do(&m, 1.0, 2, 1000.0f, 0, src.get(), nullptr, 0), 1);
  // Two level-window mappings in double, stored as float: within an ulp of ~6000.
  for (int p = 0; p < 3; ++p)
    for (int x = 0; x < 17; ++x) EXPECT_NEAR(dst.GetPixelGrayRaw(x, 2, p), src->GetPixelGrayRaw(x, 2, p), 1e-3);

  auto rgb = Rgb(200, 100, 40);
  COrbImage half(*rgb);
  static_cast<CImgColorCorrect&>(half).Do(&swap, 0.5, 0, 0.0f, 0, rgb.get(), nullptr, 0);
  EXPECT_FLOAT_EQ(half.GetPixelGrayRaw(1, 1, 0), 120.0f);  // (200 + 40) / 2
  EXPECT_FLOAT_EQ(half.GetPixelGrayRaw(1, 1, 1), 100.0f);
  EXPECT_FLOAT_EQ(half.GetPixelGrayRaw(1, 1, 2), 120.0f);

  // Full strength stores the matrix result itself: an infinite red stays infinite, where the
  // blend's 0·∞ would give NaN.
  auto bright = Rgb(std::numeric_limits<float>::infinity(), 5, 5);
  COrbImage full(*bright);
  static_cast<CImgColorCorrect&>(full).Do(&m, 1.0, 0, 0.0f, 0, bright.get(), nullptr, 0);
  EXPECT_EQ(full.GetPixelGrayRaw(1, 1, 0), std::numeric_limits<float>::infinity());

  // The matrix acts about the black point, given or found: black 20 on every plane; a
  // doubling matrix moves 120 to 20 + 2·100 and keeps 20 at 20.
  auto neutral = Make(2, 1, 3, 0, 255, [](int x, int, int) { return x == 0 ? 20 : 120; });
  tagMATRIX twice{2, 0, 0, 0, 2, 0, 0, 0, 2};
  COrbImage given(*neutral), found(*neutral);
  static_cast<CImgColorCorrect&>(given).Do(&twice, 1.0, 2, 20.0f, 0, neutral.get(), nullptr, 0);
  static_cast<CImgColorCorrect&>(found).Do(&twice, 1.0, 1, 0.0f, 0, neutral.get(), nullptr, 0);  // minimum is 20
  for (const COrbImage* image : {&given, &found})
    for (int p = 0; p < 3; ++p) {
      EXPECT_FLOAT_EQ(image->GetPixelGrayRaw(0, 0, p), 20.0f);
      EXPECT_FLOAT_EQ(image->GetPixelGrayRaw(1, 0, p), 220.0f);
    }
}

TEST(ImgColorCorrect, OptionsClipAtBlackAndKeepBrightness) {
  auto src = Rgb(100, 50, 10);
  tagMATRIX m{1, -1, 0, 0, 1, 0, 0, 0, 1};  // red − green: a negative red for greenish pixels
  tagMATRIX swap = kSwapRedBlue;
  auto greenish = Rgb(10, 50, 10);
  COrbImage clipped(*greenish), kept(*src);
  static_cast<CImgColorCorrect&>(clipped).Do(&m, 1.0, 0, 0.0f, CImgColorCorrect::kClipBlack, greenish.get(),
                                             nullptr, 0);
  EXPECT_EQ(clipped.GetPixelGrayRaw(0, 0, 0), 0.0f);  // 10 − 50 clipped at black
  static_cast<CImgColorCorrect&>(kept).Do(&swap, 1.0, 0, 0.0f, CImgColorCorrect::kKeepBright, src.get(), nullptr, 0);
  const double before = 0.299 * 100 + 0.587 * 50 + 0.114 * 10;
  const double after = 0.299 * kept.GetPixelGrayRaw(0, 0, 0) + 0.587 * kept.GetPixelGrayRaw(0, 0, 1) +
                       0.114 * kept.GetPixelGrayRaw(0, 0, 2);
  EXPECT_NEAR(after, before, 1e-4);  // float storage of values near 100
  // Ratios are the swapped colour's: red/blue = 10/100.
  EXPECT_NEAR(kept.GetPixelGrayRaw(0, 0, 0) / kept.GetPixelGrayRaw(0, 0, 2), 0.1, 1e-6);
}

TEST(ImgColorCorrect, BothVectorWidthsGiveTheSameBitsForEveryOption) {
  auto src = leveltest::Noise(45, 4, 3, 900, 5000, 3);
  tagMATRIX m{1.2, -0.15, -0.05, -0.1, 1.25, -0.15, 0.02, -0.3, 1.28};
  for (int option = 0; option < 4; ++option) {
    std::unique_ptr<COrbImage> result[3];
    leveltest::ForEveryRowVariant([&](int wide, int) {
      result[wide] = std::make_unique<COrbImage>(*src);
      static_cast<CImgColorCorrect&>(*result[wide]).Do(&m, 0.8, 2, 1000.0f, option, src.get(), nullptr, 0);
    });
    EXPECT_TRUE(leveltest::BitEqual(*result[0], *result[1])) << "option " << option;
    EXPECT_TRUE(leveltest::BitEqual(*result[0], *result[2])) << "option " << option;
    EXPECT_FALSE(leveltest::BitEqual(*result[0], *src));
  }
}

TEST(ImgColorCorrect, RejectedRequestsChangeNothing) {
  auto src = Rgb(1, 2, 3);
  auto grey = Make(3, 2, 1, 0, 255, [](int, int, int) { return 1; });
  COrbImage dst(*src), greyDst(*grey);
  tagMATRIX m = kSwapRedBlue;
  auto& op = static_cast<CImgColorCorrect&>(dst);
  EXPECT_EQ(op.Do(&m, 1.0, 3, 0.0f, 0, src.get(), nullptr, 0), 0);
  EXPECT_EQ(op.Do(nullptr, 1.0, 0, 0.0f, 0, src.get(), nullptr, 0), 0);
  EXPECT_EQ(op.Do(&m, 1.0, 0, 0.0f, 0, grey.get(), nullptr, 0), 0);
  EXPECT_EQ(op.Do(nullptr, 0.0, 0, 0.0f, 0, 0), 1);  // in place, strength 0: done at once
  EXPECT_EQ(op.Do(&m, -2.0, 0, 0.0f, 0, src.get(), nullptr, 0), 1);  // clamped to 0: a copy
  EXPECT_EQ(static_cast<CImgColorCorrect&>(greyDst).Do(&m, 1.0, 0, 0.0f, 0, grey.get(), nullptr, 0), 0);
  EXPECT_TRUE(leveltest::BitEqual(dst, *src));
}

}  // namespace
