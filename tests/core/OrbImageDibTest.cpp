// COrbImage::GetDib and ToDIB: packed bitmaps decoded by an independent reader.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <tuple>

#include "core/BmpDecode.h"
#include "core/CoreTest.h"
#include "core/MemoryDIB.h"

namespace {

using coretest::Image;

// The display byte by its definition, evaluated directly in double.
BYTE ReferenceByte(float s, double min, double max) {
  if (std::isnan(s) || s <= min) return 0;
  if (s >= max) return 255;
  return BYTE((s - min) / (max - min) * 255.0);
}

bmptest::Picture Decode(HGLOBAL block) {
  const auto* p = static_cast<const unsigned char*>(GlobalLock(block));
  bmptest::Picture pic = bmptest::DecodePacked(p, GlobalSize(block));
  GlobalUnlock(block);
  GlobalFree(block);
  return pic;
}

TEST(OrbImageDibTest, HeaderStridePaddingHandWorkedGreyBytesAndRefusedDepths) {
  for (int width : {1, 3, 5, 17})
    for (int bits : {8, 24}) {
      auto image = Image(width, 2, 1, [](int, int y, int) { return y == 0; }, 0.0, 1.0);  // line 0 white
      HGLOBAL block = image->GetDib(bits);
      ASSERT_NE(block, nullptr);
      const auto* p = static_cast<const unsigned char*>(GlobalLock(block));
      const int stride = (width * bits / 8 + 3) / 4 * 4, palette = bits == 8 ? 1024 : 0;
      // Header size, a positive height (bottom-up rows), the image size and the block's size.
      EXPECT_EQ(std::make_tuple(bmptest::U32(p), bmptest::U32(p + 8), bmptest::U32(p + 20), GlobalSize(block)),
                std::make_tuple(40u, 2u, std::uint32_t(stride * 2), std::size_t(40 + palette + stride * 2)));
      // Line 0 (white) is the last row; padding bytes are zero.
      for (int i = 0; i < 2 * stride; ++i)
        EXPECT_EQ(p[40 + palette + i], i >= stride && i < stride + width * bits / 8 ? 255 : 0)
            << width << "/" << bits << " byte " << i;
      GlobalUnlock(block);
      GlobalFree(block);
    }

  // Hand-worked bytes: NaN is black, 127.5 truncates; other depths and an empty image give nothing.
  const float samples[4] = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                            -std::numeric_limits<float>::infinity(), 0.5f};
  auto image = Image(4, 1, 1, [&](int x, int, int) { return samples[x]; }, 0.0, 1.0);
  const bmptest::Picture pic = Decode(image->GetDib(8));
  ASSERT_EQ(pic.error, "");
  EXPECT_EQ(pic.index, (std::vector<unsigned char>{0, 255, 0, 127}));
  for (int bits : {16, 32, 0}) EXPECT_EQ(image->GetDib(bits), nullptr) << bits;
  EXPECT_EQ(COrbImage().GetDib(24), nullptr);
}

TEST(OrbImageDibTest, RandomSamplesAndLevelsMatchTheRuleOnEveryVectorPath) {
  // Rows longer than the renderer's chunks with a ragged tail, each plane with its own window
  // (levels not representable in float, so a float-only path would misplace samples next to a
  // byte boundary); among the samples NaN, infinities, the window's minimum and the floats
  // around every boundary; both the wide and the narrow row code.
  const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
  std::mt19937 rng(7);
  std::uniform_real_distribution<double> level(-1e4, 1e4);
  std::uniform_int_distribution<int> boundary(0, 256), ulps(-4, 4);
  const int width = 1061, height = 3;
  for (int trial = 0; trial < 6; ++trial) {
    double lo[3], hi[3];
    for (int p = 0; p < 3; ++p) {
      lo[p] = level(rng), hi[p] = level(rng);
      if (lo[p] > hi[p]) std::swap(lo[p], hi[p]);
    }
    if (trial == 0) lo[2] = hi[2] = float(lo[2]);  // empty window: at it is black
    auto image = Image(width, height, 3, [&](int x, int y, int p) {
      std::uniform_real_distribution<float> sample(float(lo[p] - 10), float(hi[p] + 10));
      const int k = (x * 7 + y + p) % 97;
      float s = k == 0 ? nan : k == 1 ? inf : k == 2 ? -inf : k % 4 == 3 ? float(lo[p]) : sample(rng);
      if (k % 4 == 1) {
        s = float(lo[p] + boundary(rng) / 255.0 * (hi[p] - lo[p]));
        const int steps = ulps(rng);
        for (int i = 0; i < std::abs(steps); ++i) s = std::nextafter(s, steps > 0 ? inf : -inf);
      }
      return s;
    });
    for (int p = 0; p < 3; ++p) image->SetLevel(p, lo[p], hi[p]);
    auto grey = Image(width, height, 1, [&](int x, int y, int) { return image->GetPixelGrayRaw(x, y, 0); });
    grey->SetLevel(0, lo[0], hi[0]);
    coretest::OnEveryWidth([&](int wide) {
      const bmptest::Picture colour = Decode(image->GetDib(24));
      const bmptest::Picture grey24 = Decode(grey->GetDib(24)), grey8 = Decode(grey->GetDib(8));
      ASSERT_EQ(colour.error + grey24.error + grey8.error, "");
      int wrong = 0;
      for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
          const BYTE red = ReferenceByte(image->GetPixelGrayRaw(x, y, 0), lo[0], hi[0]);
          for (int p = 0; p < 3; ++p)
            wrong += colour.At(x, y)[p] != ReferenceByte(image->GetPixelGrayRaw(x, y, p), lo[p], hi[p]);
          wrong += grey24.At(x, y)[0] != red || grey24.At(x, y)[1] != red || grey24.At(x, y)[2] != red;
          wrong += grey8.index[std::size_t(y) * width + x] != red;
        }
      EXPECT_EQ(wrong, 0) << "trial " << trial << " wide " << wide;
    });
  }
}

TEST(OrbImageDibTest, EightBitColourKeepsFewColoursExactlyAndApproximatesASmoothPicture) {
  // Six distinct colours fit the palette, so each pixel decodes to its own colour.
  const BYTE colours[6][3] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {10, 20, 30}, {200, 200, 200}, {0, 0, 0}};
  auto few = Image(5, 3, 3, [&](int x, int y, int p) { return colours[(x + y) % 6][p] + 0.5f; }, 0.0, 255.0);
  const bmptest::Picture exact = Decode(few->GetDib(8));
  ASSERT_EQ(exact.error, "");
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 5; ++x)
      for (int c = 0; c < 3; ++c) EXPECT_EQ(exact.At(x, y)[c], colours[(x + y) % 6][c]) << x << "," << y;

  // A colour ramp whose 3072 pixels are all different colours. The adaptive palette must do
  // better than a fixed 6 x 6 x 7 grid of 252 colours (each channel to its nearest grid level),
  // which is what a non-adaptive 8-bit display would show.
  const int w = 64, h = 48;
  auto image = Image(w, h, 3, [&](int x, int y, int p) {
    return p == 0 ? x / float(w) : p == 1 ? y / float(h) : 0.5f + 0.4f * std::sin(0.2f * (x + y));
  }, 0.0, 1.0);
  const bmptest::Picture truth = Decode(image->GetDib(24));
  const bmptest::Picture pic = Decode(image->GetDib(8));
  ASSERT_EQ(pic.error, "");
  double err = 0, gridErr = 0;
  for (std::size_t i = 0; i < pic.rgb.size(); ++i) {
    const int v = truth.rgb[i];
    const double step = 255.0 / (i % 3 == 2 ? 6 : 5);
    gridErr += std::abs(v - std::round(std::round(v / step) * step));
    err += std::abs(int(pic.rgb[i]) - v);
  }
  EXPECT_LT(err, 0.75 * gridErr);
  EXPECT_EQ(Decode(image->GetDib(8)).index, pic.index);  // the same picture always gives the same bitmap
}

TEST(OrbImageDibTest, ToDibWritesOnlyTheAreaAtImageCoordinates) {
  auto image = Image(5, 4, 3, [](int, int, int p) { return 1.0f - 0.5f * p; }, 0.0, 1.0);
  for (int bits : {24, 32}) {
    CMemoryDIB dib;
    ASSERT_TRUE(dib.Create(nullptr, 5, 4, bits));
    CRect area(1, 1, 3, 4);
    ASSERT_TRUE(image->ToDIB(&dib, &area, 0));
    for (int y = 0; y < 4; ++y)
      for (int x = 0; x < 5; ++x) {
        const BYTE* p = bits == 24 ? dib.GetImageAdr24(x, y) : dib.GetImageAdr32(x, y);
        const bool inside = x >= 1 && x < 3 && y >= 1;
        EXPECT_EQ(std::make_tuple(p[0], p[1], p[2]), std::make_tuple(0, inside ? 127 : 0, inside ? 255 : 0))
            << bits << " " << x << "," << y;
      }
  }
  // A bitmap smaller than the image is filled where they overlap.
  CMemoryDIB small;
  ASSERT_TRUE(small.Create(nullptr, 2, 2, 24));
  ASSERT_TRUE(image->ToDIB(&small, nullptr, 0));
  EXPECT_EQ(small.GetImageAdr24(1, 1)[2], 255);
  EXPECT_FALSE(image->ToDIB(nullptr, nullptr, 0));

  // Eight bits: a grey image gives GetDib's indices; a colour image gets its own palette.
  auto grey = Image(3, 2, 1, [](int x, int y, int) { return x + 3 * y; }, 0.0, 6.0);
  CMemoryDIB dib;
  ASSERT_TRUE(dib.Create(nullptr, 3, 2, 8));
  ASSERT_TRUE(grey->ToDIB(&dib, nullptr, 0));
  const bmptest::Picture pic = Decode(grey->GetDib(8));
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 3; ++x) EXPECT_EQ(*dib.GetImageAdr8(x, y), pic.index[y * 3 + x]);
  auto colour = Image(2, 1, 3, [](int x, int, int p) { return p == 2 * x ? 255 : 0; }, 0.0, 255.0);  // red, blue
  ASSERT_TRUE(dib.Create(nullptr, 2, 1, 8));
  ASSERT_TRUE(colour->ToDIB(&dib, nullptr, 0));
  const RGBQUAD red = dib.GetPalette()[*dib.GetImageAdr8(0, 0)];
  const RGBQUAD blue = dib.GetPalette()[*dib.GetImageAdr8(1, 0)];
  EXPECT_EQ(std::make_tuple(red.rgbRed, red.rgbBlue, blue.rgbBlue, blue.rgbRed), std::make_tuple(255, 0, 255, 0));
}

}  // namespace
