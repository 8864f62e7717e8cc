// CPaletteQuantizer: exact palettes for few colours, independence of order and threads, nearest mapping.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <tuple>
#include <vector>

#include "core/PaletteQuantizer.h"

namespace {

TEST(PaletteQuantizerTest, RowsCountedOnTheThreadTeamGiveThePaletteOfOnePassInAnyOrder) {
  // Rows counted by the team (each thread into its own histogram) against the same pixels
  // counted one by one in reverse order: the same palette, and row mapping equal to Map.
  const int rows = 37, width = 301;
  std::mt19937 rng(3);
  std::vector<BYTE> planes(std::size_t(3) * rows * width);
  for (auto& v : planes) v = BYTE(rng() % 7 == 0 ? 200 : rng());
  auto plane = [&](int k, int row) { return planes.data() + (std::size_t(3) * row + k) * width; };
  CPaletteQuantizer team, serial;
  team.AddRows(rows, width, [&](int row, BYTE* r, BYTE* g, BYTE* b) {
    std::copy_n(plane(0, row), width, r);
    std::copy_n(plane(1, row), width, g);
    std::copy_n(plane(2, row), width, b);
  });
  for (int row = rows - 1; row >= 0; --row)
    for (int x = width - 1; x >= 0; --x) serial.AddPixels(plane(0, row) + x, plane(1, row) + x, plane(2, row) + x, 1);
  ASSERT_EQ(team.BuildPalette(), 256);
  ASSERT_EQ(serial.BuildPalette(), 256);
  EXPECT_TRUE(std::equal(team.GetPalette(), team.GetPalette() + 256, serial.GetPalette(), [](RGBQUAD x, RGBQUAD y) {
    return x.rgbRed == y.rgbRed && x.rgbGreen == y.rgbGreen && x.rgbBlue == y.rgbBlue;
  }));
  std::vector<BYTE> mapped(width);
  int wrong = 0;
  for (int row = 0; row < rows; ++row) {
    team.MapPixels(plane(0, row), plane(1, row), plane(2, row), width, mapped.data());
    for (int x = 0; x < width; ++x) wrong += mapped[x] != serial.Map(plane(0, row)[x], plane(1, row)[x], plane(2, row)[x]);
  }
  EXPECT_EQ(wrong, 0);
}

TEST(PaletteQuantizerTest, FewColoursGetTheirOwnEntriesAndTwoClustersTwoWeightedMeans) {
  const BYTE fr[] = {0, 255, 0, 255, 12}, fg[] = {0, 0, 255, 255, 34}, fb[] = {0, 0, 0, 255, 56};
  CPaletteQuantizer few;
  few.AddPixels(fr, fg, fb, 5);
  EXPECT_EQ(few.BuildPalette(256), 5);
  for (int i = 0; i < 5; ++i) {
    const RGBQUAD e = few.GetPalette()[few.Map(fr[i], fg[i], fb[i])];
    EXPECT_EQ(std::make_tuple(e.rgbRed, e.rgbGreen, e.rgbBlue), std::make_tuple(fr[i], fg[i], fb[i])) << i;
  }

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
