// CPaletteQuantizer: exact palettes for few colours, order independence, nearest mapping.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "core/PaletteQuantizer.h"

namespace {

TEST(PaletteQuantizerTest, FewColoursGetTheirOwnEntries) {
  const BYTE r[] = {0, 255, 0, 255, 12};
  const BYTE g[] = {0, 0, 255, 255, 34};
  const BYTE b[] = {0, 0, 0, 255, 56};
  CPaletteQuantizer q;
  q.AddPixels(r, g, b, 5);
  EXPECT_EQ(q.BuildPalette(256), 5);
  for (int i = 0; i < 5; ++i) {
    const RGBQUAD e = q.GetPalette()[q.Map(r[i], g[i], b[i])];
    EXPECT_EQ(e.rgbRed, r[i]);
    EXPECT_EQ(e.rgbGreen, g[i]);
    EXPECT_EQ(e.rgbBlue, b[i]);
  }
}

TEST(PaletteQuantizerTest, PaletteDoesNotDependOnPixelOrder) {
  std::mt19937 rng(3);
  std::vector<BYTE> bgr(3 * 5000);
  for (auto& v : bgr) v = BYTE(rng());
  CPaletteQuantizer a, b;
  a.AddPixelsBgr(bgr.data(), 5000);
  // The same pixels in reverse order.
  std::vector<BYTE> reversed(bgr.size());
  for (int i = 0; i < 5000; ++i) std::copy_n(&bgr[3 * (4999 - i)], 3, &reversed[3 * i]);
  b.AddPixelsBgr(reversed.data(), 5000);
  ASSERT_EQ(a.BuildPalette(), 256);
  ASSERT_EQ(b.BuildPalette(), 256);
  EXPECT_TRUE(std::equal(a.GetPalette(), a.GetPalette() + 256, b.GetPalette(), [](RGBQUAD x, RGBQUAD y) {
    return x.rgbRed == y.rgbRed && x.rgbGreen == y.rgbGreen && x.rgbBlue == y.rgbBlue;
  }));
}

TEST(PaletteQuantizerTest, TwoClustersSplitIntoTwoWeightedMeans) {
  // Two tight clusters and a two-colour palette: each entry is its cluster's mean.
  std::vector<BYTE> r, g, b;
  for (int i = 0; i < 4; ++i) {
    r.push_back(BYTE(10 + 2 * i)); g.push_back(20); b.push_back(30);    // mean 13, 20, 30
    r.push_back(200); g.push_back(BYTE(100 + 4 * i)); b.push_back(50);  // mean 200, 106, 50
  }
  CPaletteQuantizer q;
  q.AddPixels(r.data(), g.data(), b.data(), int(r.size()));
  ASSERT_EQ(q.BuildPalette(2), 2);
  const RGBQUAD dark = q.GetPalette()[q.Map(12, 20, 30)];
  const RGBQUAD bright = q.GetPalette()[q.Map(200, 104, 50)];
  EXPECT_EQ(dark.rgbRed, 13);
  EXPECT_EQ(dark.rgbGreen, 20);
  EXPECT_EQ(bright.rgbRed, 200);
  EXPECT_EQ(bright.rgbGreen, 106);
  // A colour never counted maps to the nearest entry.
  EXPECT_EQ(q.GetPalette()[q.Map(255, 120, 60)].rgbRed, 200);
  CPaletteQuantizer none;
  EXPECT_EQ(none.BuildPalette(), 0);
}

}  // namespace
