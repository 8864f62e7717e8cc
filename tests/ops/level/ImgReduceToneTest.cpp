#include "ops/level/ImgReduceTone.h"

#include <gtest/gtest.h>

#include "ops/level/LevelTestImages.h"

using leveltest::Make;

namespace {

TEST(ImgReduceTone, TwoStepsSplitTheWindowInHalf) {
  const float v[6] = {-50, 0, 127.9f, 128, 255, 400};
  auto src = Make(6, 1, 3, 0, 255, [&](int x, int, int) { return v[x]; });
  COrbImage dst(*src);
  static_cast<CImgReduceTone&>(dst).Do(2, src.get(), nullptr, 0);
  const float expected[6] = {0, 0, 0, 255, 255, 255};
  for (int p = 0; p < 3; ++p)
    for (int x = 0; x < 6; ++x) EXPECT_EQ(dst.GetPixelGrayRaw(x, 0, p), expected[x]) << x;
}

TEST(ImgReduceTone, FullStepsTruncateToDisplayValuesThroughTheTargetWindow) {
  auto src = Make(256, 1, 1, 0, 255, [](int x, int, int) { return x + 0.75f; });
  auto dst = Make(256, 1, 1, 1000, 1510, [](int, int, int) { return 0; });  // 2 raw units per step
  static_cast<CImgReduceTone&>(*dst).Do(999, src.get(), nullptr, 0);      // clamped to 256
  for (int x = 0; x < 256; ++x) EXPECT_EQ(dst->GetPixelGrayRaw(x, 0, 0), 1000.0f + 2 * x) << x;
}

TEST(ImgReduceTone, SingleStepIsMidGrey) {
  auto src = Make(3, 1, 1, 0, 510, [](int x, int, int) { return x * 100; });
  COrbImage dst(*src);
  static_cast<CImgReduceTone&>(dst).Do(-4, &dst, nullptr, 0);
  for (int x = 0; x < 3; ++x) EXPECT_EQ(dst.GetPixelGrayRaw(x, 0, 0), 255.0f);
}

}  // namespace
