#include "ops/level/ImgCutOff.h"

#include <gtest/gtest.h>

#include <cmath>

#include "ops/level/LevelTestImages.h"

using leveltest::Make;

namespace {

TEST(ImgCutOff, ReplacesAtAndBeyondTheSourceWindow) {
  const float values[6] = {5, 10, 10.5f, 19.5f, 20, 25};
  auto src = Make(6, 1, 3, 10, 20, [&](int x, int, int) { return values[x]; });
  auto dst = Make(6, 1, 3, 0, 1, [](int, int, int) { return 0; });  // target's own window is not used
  static_cast<CImgCutOff&>(*dst).Do(src.get(), -1, 99, nullptr, 0);
  const float expected[6] = {-1, -1, 10.5f, 19.5f, 99, 99};
  for (int p = 0; p < 3; ++p)
    for (int x = 0; x < 6; ++x) EXPECT_EQ(dst->GetPixelGrayRaw(x, 0, p), expected[x]) << p << " " << x;

  auto one = Make(1, 1, 1, 7, 7, [](int, int, int) { return 7; });  // on both bounds: low
  static_cast<CImgCutOff&>(*one).Do(one.get(), 1, 2, nullptr, 0);
  EXPECT_EQ(one->GetPixelGrayRaw(0, 0, 0), 1.0f);
}

TEST(ImgCutOff, EveryRowVariantFollowsTheSampleRule) {
  // Long rows with NaN and infinities, in place and into another image, the rectangle off a
  // vector boundary and reaching below the image (clipped to line 3); NaN passes both tests
  // and is copied.
  auto src = leveltest::NoiseWithSpecials(3, 0, 100);
  CRect rect(1, 1, 42, 99);
  leveltest::ForEveryRowVariant([&](int wide, int stream) {
    for (bool inPlace : {false, true}) {
      COrbImage dst(*src);
      static_cast<CImgCutOff&>(dst).Do(inPlace ? &dst : src.get(), -1, 1000, &rect, 0);
      EXPECT_EQ(leveltest::Mismatches(dst, [&](int x, int y, int p) {
                  const float v = src->GetPixelGrayRaw(x, y, p);
                  const bool inside = x >= rect.left && x < rect.right && y >= rect.top;
                  return !inside ? v : v <= 0 ? -1 : v >= 100 ? 1000 : v;
                }), 0) << "wide " << wide << ", stream " << stream << ", in place " << inPlace;
    }
  });
}

}  // namespace
