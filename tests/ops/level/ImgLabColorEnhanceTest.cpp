#include "ops/level/ImgLabColorEnhance.h"

#include <gtest/gtest.h>

#include "core/Color.h"
#include "ops/level/LevelTestImages.h"

using leveltest::Make;

namespace {

std::unique_ptr<COrbImage> Colours() {
  return Make(5, 2, 3, 0, 255, [](int x, int y, int p) { return 20 + 40 * ((x + 2 * p + y) % 5); });
}

TEST(ImgLabColorEnhance, GreyKeepsLightnessFullTurnKeepsColourAndShiftMovesTheCast) {
  auto src = Colours();
  COrbImage grey(*src), turned(*src);
  EXPECT_EQ(static_cast<CImgLabColorEnhance&>(grey).Do(0.0, 0.0, src.get(), nullptr, 0), 1);
  static_cast<CImgLabColorEnhance&>(turned).Do(1.0, 360.0, 0.0, 0.0, src.get(), nullptr, 0);
  for (int x = 0; x < 5; ++x) {
    CColor in, out;
    in.RgbToLab(src->GetPixelGrayRaw(x, 1, 0), src->GetPixelGrayRaw(x, 1, 1), src->GetPixelGrayRaw(x, 1, 2));
    out.RgbToLab(grey.GetPixelGrayRaw(x, 1, 0), grey.GetPixelGrayRaw(x, 1, 1), grey.GetPixelGrayRaw(x, 1, 2));
    // Float storage of 0..255 values: L* and chroma within 1e-3.
    EXPECT_NEAR(out.GetL(), in.GetL(), 1e-3) << x;
    EXPECT_NEAR(out.Geta(), 0.0, 1e-3) << x;
    EXPECT_NEAR(out.Getb(), 0.0, 1e-3) << x;
    // A round trip through L*a*b* of in-gamut colours: within 1e-3 on the 0..255 scale.
    for (int p = 0; p < 3; ++p) EXPECT_NEAR(turned.GetPixelGrayRaw(x, 0, p), src->GetPixelGrayRaw(x, 0, p), 1e-3);
  }
  auto neutral = Make(1, 1, 3, 0, 255, [](int, int, int) { return 100; });
  COrbImage yellow(*neutral);
  static_cast<CImgLabColorEnhance&>(yellow).Do(1.0, 0.0, 0.0, 10.0, neutral.get(), nullptr, 0);  // b* up
  EXPECT_GT(yellow.GetPixelGrayRaw(0, 0, 0), yellow.GetPixelGrayRaw(0, 0, 2));
  EXPECT_GT(yellow.GetPixelGrayRaw(0, 0, 1), yellow.GetPixelGrayRaw(0, 0, 2));
}

TEST(ImgLabColorEnhance, NeutralCopiesAndGreyIsRefused) {
  auto src = Colours();
  COrbImage dst(*src);
  EXPECT_EQ(static_cast<CImgLabColorEnhance&>(dst).Do(1.0, 0.0, src.get(), nullptr, 0), 1);
  EXPECT_TRUE(leveltest::BitEqual(dst, *src));
  auto grey = Make(2, 2, 1, 0, 255, [](int, int, int) { return 3; });
  COrbImage greyDst(*grey);
  EXPECT_EQ(static_cast<CImgLabColorEnhance&>(greyDst).Do(2.0, 10.0, grey.get(), nullptr, 0), 0);
  EXPECT_TRUE(leveltest::BitEqual(greyDst, *grey));
}

}  // namespace
