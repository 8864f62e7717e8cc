#include "ops/level/ImgReduceTone.h"

#include <gtest/gtest.h>

#include "ops/level/LevelTestImages.h"

using leveltest::Make;

namespace {

TEST(ImgReduceTone, HandWorkedStepsThroughBothWindows) {
  const float v[6] = {-50, 0, 127.9f, 128, 255, 400};
  auto src = Make(6, 1, 3, 0, 255, [&](int x, int, int) { return v[x]; });
  COrbImage dst(*src);
  static_cast<CImgReduceTone&>(dst).Do(2, src.get(), nullptr, 0);
  const float expected[6] = {0, 0, 0, 255, 255, 255};
  for (int p = 0; p < 3; ++p)
    for (int x = 0; x < 6; ++x) EXPECT_EQ(dst.GetPixelGrayRaw(x, 0, p), expected[x]) << x;
  // A single step (or fewer) is mid-grey: 255 of 510.
  auto mid = Make(3, 1, 1, 0, 510, [](int x, int, int) { return x * 100; });
  static_cast<CImgReduceTone&>(*mid).Do(-4, mid.get(), nullptr, 0);
  for (int x = 0; x < 3; ++x) EXPECT_EQ(mid->GetPixelGrayRaw(x, 0, 0), 255.0f);

  // Full steps truncate to display values, brought through the target's window.
  auto ramp = Make(256, 1, 1, 0, 255, [](int x, int, int) { return x + 0.75f; });
  auto full = Make(256, 1, 1, 1000, 1510, [](int, int, int) { return 0; });  // 2 raw units per step
  static_cast<CImgReduceTone&>(*full).Do(999, ramp.get(), nullptr, 0);     // clamped to 256
  for (int x = 0; x < 256; ++x) EXPECT_EQ(full->GetPixelGrayRaw(x, 0, 0), 1000.0f + 2 * x) << x;
}

TEST(ImgReduceTone, EverySampleFollowsTheScalarRuleOnBothVectorWidths) {
  auto src = leveltest::NoiseWithSpecials(3, -200, 3000);
  for (int steps : {1, 7, 256}) {
    leveltest::ForEveryRowVariant([&](int wide, int stream) {
      auto dst = Make(src->GetWidth(), src->GetHeight(), 3, 10, 20, [](int, int, int) { return 0; });
      static_cast<CImgReduceTone&>(*dst).Do(steps, src.get(), nullptr, 0);
      const float lo = -200.0f, k = static_cast<float>(255.0 / 3200.0), scale = static_cast<float>(10.0 / 255.0);
      EXPECT_EQ(leveltest::Mismatches(*dst, [&](int x, int y, int p) {
                  const float t = (src->GetPixelGrayRaw(x, y, p) - lo) * k;
                  return CImgReduceTone::ReduceTonePixel(t, steps) * scale + 10.0f;
                }), 0) << steps << " steps, wide " << wide << ", stream " << stream;
    });
  }
}

}  // namespace
