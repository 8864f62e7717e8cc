// COrbImage::GetDib and ToDIB: packed bitmaps decoded by an independent reader.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <random>

#include "core/BmpDecode.h"
#include "core/MemoryDIB.h"
#include "core/OrbImage.h"
#include "kernels/Vec4.h"

namespace {

// The display byte by its definition, evaluated directly in double.
BYTE ReferenceByte(float s, double min, double max) {
  if (std::isnan(s) || s <= min) return 0;
  if (s >= max) return 255;
  return BYTE((s - min) / (max - min) * 255.0);
}

std::unique_ptr<COrbImage> MakeImage(int width, int height, int planes, double min, double max) {
  auto image = std::make_unique<COrbImage>(-32, width, height, planes);
  for (int p = 0; p < planes; ++p) image->SetLevel(p, min, max);
  return image;
}

bmptest::Picture Decode(HGLOBAL block) {
  const auto* p = static_cast<const unsigned char*>(GlobalLock(block));
  bmptest::Picture pic = bmptest::DecodePacked(p, GlobalSize(block));
  GlobalUnlock(block);
  GlobalFree(block);
  return pic;
}

TEST(OrbImageDibTest, HeaderStrideAndPaddingForAwkwardWidths) {
  for (int width : {1, 3, 5, 17}) {
    for (int bits : {8, 24}) {
      auto image = MakeImage(width, 2, 1, 0.0, 1.0);
      for (int x = 0; x < width; ++x) image->SetPixelGrayRaw(x, 0, 1.0f, 0);
      HGLOBAL block = image->GetDib(bits);
      ASSERT_NE(block, nullptr);
      const auto* p = static_cast<const unsigned char*>(GlobalLock(block));
      const int stride = (width * bits / 8 + 3) / 4 * 4;
      const int palette = bits == 8 ? 1024 : 0;
      EXPECT_EQ(bmptest::U32(p), 40u);
      EXPECT_EQ(bmptest::U32(p + 8), 2u);  // positive height: bottom-up
      EXPECT_EQ(bmptest::U32(p + 20), std::uint32_t(stride * 2));
      EXPECT_EQ(GlobalSize(block), std::size_t(40 + palette + stride * 2));
      // Line 0 (white) is the last row; padding bytes are zero.
      const unsigned char* last = p + 40 + palette + stride;
      const unsigned char* first = p + 40 + palette;
      for (int i = 0; i < stride; ++i) {
        const bool pad = i >= width * bits / 8;
        EXPECT_EQ(last[i], pad ? 0 : 255) << width << "/" << bits << " byte " << i;
        EXPECT_EQ(first[i], 0);
      }
      GlobalUnlock(block);
      GlobalFree(block);
    }
  }
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
    auto image = MakeImage(width, height, 3, 0, 1);
    double lo[3], hi[3];
    for (int p = 0; p < 3; ++p) {
      lo[p] = level(rng), hi[p] = level(rng);
      if (lo[p] > hi[p]) std::swap(lo[p], hi[p]);
      if (trial == 0 && p == 2) lo[p] = hi[p] = float(lo[p]);  // empty window: at it is black
      image->SetLevel(p, lo[p], hi[p]);
      std::uniform_real_distribution<float> sample(float(lo[p] - 10), float(hi[p] + 10));
      for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
          const int k = (x * 7 + y + p) % 97;
          float s = k == 0 ? nan : k == 1 ? inf : k == 2 ? -inf : k % 4 == 3 ? float(lo[p]) : sample(rng);
          if (k % 4 == 1) {
            s = float(lo[p] + boundary(rng) / 255.0 * (hi[p] - lo[p]));
            const int steps = ulps(rng);
            for (int i = 0; i < std::abs(steps); ++i) s = std::nextafter(s, steps > 0 ? inf : -inf);
          }
          image->SetPixelGrayRaw(x, y, s, p);
        }
    }
    auto grey = MakeImage(width, height, 1, lo[0], hi[0]);
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) grey->SetPixelGrayRaw(x, y, image->GetPixelGrayRaw(x, y, 0), 0);
    for (int wide : {1, 0}) {
      qrn::simd::SetWideVectors(wide);
      const bmptest::Picture colour = Decode(image->GetDib(24));
      const bmptest::Picture grey24 = Decode(grey->GetDib(24));
      const bmptest::Picture grey8 = Decode(grey->GetDib(8));
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
    }
    qrn::simd::SetWideVectors(1);
  }
}

TEST(OrbImageDibTest, HandWorkedGreyBytesAndRefusedDepths) {
  auto image = MakeImage(4, 1, 1, 0.0, 1.0);
  const float samples[4] = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                            -std::numeric_limits<float>::infinity(), 0.5f};
  for (int x = 0; x < 4; ++x) image->SetPixelGrayRaw(x, 0, samples[x], 0);
  const bmptest::Picture pic = Decode(image->GetDib(8));
  ASSERT_EQ(pic.error, "");
  EXPECT_EQ(pic.index, (std::vector<unsigned char>{0, 255, 0, 127}));  // NaN is black; 127.5 truncates
  for (int bits : {16, 32, 0}) EXPECT_EQ(image->GetDib(bits), nullptr) << bits;
  EXPECT_EQ(COrbImage().GetDib(24), nullptr);
}

TEST(OrbImageDibTest, EightBitColourKeepsFewColoursExactly) {
  // Six distinct colours fit the palette, so each pixel decodes to its own colour.
  const BYTE colours[6][3] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {10, 20, 30}, {200, 200, 200}, {0, 0, 0}};
  auto image = MakeImage(5, 3, 3, 0.0, 255.0);
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 5; ++x)
      for (int p = 0; p < 3; ++p) image->SetPixelGrayRaw(x, y, colours[(x + y) % 6][p] + 0.5f, p);
  const bmptest::Picture pic = Decode(image->GetDib(8));
  ASSERT_EQ(pic.error, "");
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 5; ++x)
      for (int c = 0; c < 3; ++c) EXPECT_EQ(pic.At(x, y)[c], colours[(x + y) % 6][c]) << x << "," << y;
}

TEST(OrbImageDibTest, EightBitColourApproximatesASmoothPicture) {
  // A colour ramp whose 3072 pixels are all different colours. The adaptive palette must do
  // better than a fixed 6 x 6 x 7 grid of 252 colours (each channel to its nearest grid level),
  // which is what a non-adaptive 8-bit display would show.
  const int w = 64, h = 48;
  auto image = MakeImage(w, h, 3, 0.0, 1.0);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      image->SetPixelGrayRaw(x, y, x / float(w), 0);
      image->SetPixelGrayRaw(x, y, y / float(h), 1);
      image->SetPixelGrayRaw(x, y, 0.5f + 0.4f * std::sin(0.2f * (x + y)), 2);
    }
  HGLOBAL exact = image->GetDib(24);
  const bmptest::Picture truth = Decode(exact);
  const bmptest::Picture pic = Decode(image->GetDib(8));
  ASSERT_EQ(pic.error, "");
  double err = 0, gridErr = 0;
  for (std::size_t i = 0; i < pic.rgb.size(); ++i) {
    const int v = truth.rgb[i];
    const int levels = i % 3 == 2 ? 7 : 6;
    const double step = 255.0 / (levels - 1);
    gridErr += std::abs(v - std::round(std::round(v / step) * step));
    err += std::abs(int(pic.rgb[i]) - v);
  }
  EXPECT_LT(err, 0.75 * gridErr);
  // The same picture always gives the same bitmap.
  const bmptest::Picture again = Decode(image->GetDib(8));
  EXPECT_EQ(again.index, pic.index);
}

TEST(OrbImageDibTest, ToDibWritesOnlyTheAreaAtImageCoordinates) {
  auto image = MakeImage(5, 4, 3, 0.0, 1.0);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 5; ++x) {
      image->SetPixelGrayRaw(x, y, 1.0f, 0);
      image->SetPixelGrayRaw(x, y, 0.5f, 1);
      image->SetPixelGrayRaw(x, y, 0.0f, 2);
    }
  for (int bits : {24, 32}) {
    CMemoryDIB dib;
    ASSERT_TRUE(dib.Create(nullptr, 5, 4, bits));
    CRect area(1, 1, 3, 4);
    ASSERT_TRUE(image->ToDIB(&dib, &area, 0));
    for (int y = 0; y < 4; ++y)
      for (int x = 0; x < 5; ++x) {
        const BYTE* p = bits == 24 ? dib.GetImageAdr24(x, y) : dib.GetImageAdr32(x, y);
        const bool inside = x >= 1 && x < 3 && y >= 1;
        EXPECT_EQ(p[0], 0);
        EXPECT_EQ(p[1], inside ? 127 : 0);
        EXPECT_EQ(p[2], inside ? 255 : 0) << bits << " " << x << "," << y;
      }
  }
  // A bitmap smaller than the image is filled where they overlap.
  CMemoryDIB small;
  ASSERT_TRUE(small.Create(nullptr, 2, 2, 24));
  ASSERT_TRUE(image->ToDIB(&small, nullptr, 0));
  EXPECT_EQ(small.GetImageAdr24(1, 1)[2], 255);
  EXPECT_FALSE(image->ToDIB(nullptr, nullptr, 0));
}

TEST(OrbImageDibTest, ToDibEightBitMatchesGetDib) {
  auto grey = MakeImage(3, 2, 1, 0.0, 6.0);
  for (int x = 0; x < 3; ++x)
    for (int y = 0; y < 2; ++y) grey->SetPixelGrayRaw(x, y, float(x + 3 * y), 0);
  CMemoryDIB dib;
  ASSERT_TRUE(dib.Create(nullptr, 3, 2, 8));
  ASSERT_TRUE(grey->ToDIB(&dib, nullptr, 0));
  const bmptest::Picture pic = Decode(grey->GetDib(8));
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 3; ++x) EXPECT_EQ(*dib.GetImageAdr8(x, y), pic.index[y * 3 + x]);

  // A colour image gets its own palette in the bitmap.
  auto colour = MakeImage(2, 1, 3, 0.0, 255.0);
  colour->SetPixelGrayRaw(0, 0, 255.0f, 0);
  colour->SetPixelGrayRaw(1, 0, 255.0f, 2);
  ASSERT_TRUE(dib.Create(nullptr, 2, 1, 8));
  ASSERT_TRUE(colour->ToDIB(&dib, nullptr, 0));
  const RGBQUAD red = dib.GetPalette()[*dib.GetImageAdr8(0, 0)];
  const RGBQUAD blue = dib.GetPalette()[*dib.GetImageAdr8(1, 0)];
  EXPECT_EQ(red.rgbRed, 255);
  EXPECT_EQ(red.rgbBlue, 0);
  EXPECT_EQ(blue.rgbBlue, 255);
  EXPECT_EQ(blue.rgbRed, 0);
}

}  // namespace
