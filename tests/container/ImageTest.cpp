#include "container/Image.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <tuple>
#include <utility>

namespace {
template <class T>
void Put(CImage& image, int x, int y, int plane, T value) {
  std::memcpy(image.GetImageAdr(x, y, plane, 0), &value, sizeof value);
}
}  // namespace

TEST(CImage, ConstructionRejectsBadLayoutsWithAnEmptyImage) {
  const int big = std::numeric_limits<int>::max();
  for (const CImage& bad : {CImage(-32, 0, 10, 1), CImage(-32, 10, -5, 1), CImage(-32, 10, 10, 0),
                            CImage(-32, 10, 10, 5), CImage(12, 10, 10, 1), CImage(-64, big, big, 3)})
    EXPECT_TRUE(bad.IsEmpty());
  CImage ok(-32, 10, 4, 3);
  EXPECT_EQ(std::make_tuple(ok.IsEmpty(), ok.IsColor(), ok.GetDimension(), ok.GetPixelCount(), ok.GetImageSize()),
            std::make_tuple(false, true, 3, std::size_t(120), std::size_t(480)));
  CImage deferred(-32, 10, 4, 1, 1.0, 0.0, 0);
  EXPECT_TRUE(deferred.IsEmpty());
  EXPECT_EQ(deferred.AllocImage(), 1);
  EXPECT_FALSE(deferred.IsEmpty());
}

TEST(CImage, GetPixelConvertsEveryFormatWithScaleAndZero) {
  CImage u8(8, 2, 1, 1, 2.0, 10.0);
  Put<std::uint8_t>(u8, 0, 0, 0, 200);
  EXPECT_DOUBLE_EQ(u8.GetPixel(0, 0, 0), 410.0);

  CImage s16(16, 2, 1, 1, 1.0, 32768.0);
  s16.SetSigned(1);
  Put<std::int16_t>(s16, 0, 0, 0, -32768);
  EXPECT_DOUBLE_EQ(s16.GetPixel(0, 0, 0), 0.0);
  s16.SetSigned(0);  // the same bits read as unsigned
  EXPECT_DOUBLE_EQ(s16.GetPixel(0, 0, 0), 32768.0 + 32768.0);

  CImage s32(32, 2, 1, 1);
  Put<std::int32_t>(s32, 1, 0, 0, -7);
  EXPECT_DOUBLE_EQ(s32.GetPixel(1, 0, 0), -7.0);

  CImage f64(-64, 2, 1, 1, 0.5, 0.0);
  Put<double>(f64, 0, 0, 0, 3.25);
  EXPECT_DOUBLE_EQ(f64.GetPixel(0, 0, 0), 1.625);

  CImage f32(-32, 2, 1, 1);
  f32.SetBitsPixel(24);  // an unknown code reads as 0
  EXPECT_DOUBLE_EQ(f32.GetPixel(0, 0, 0), 0.0);
}

TEST(CImage, ChangeBitsKeepsPhysicalValues) {
  CImage image(-32, 3, 2, 1);
  const float values[6] = {-100.5f, 0.0f, 12.25f, 1000.0f, 65000.0f, 3.0f};
  for (int i = 0; i < 6; ++i) Put<float>(image, i % 3, i / 3, 0, values[i]);

  CImage fitted(image);
  ASSERT_EQ(fitted.ChangeBits(16, 1, 0), 1);
  EXPECT_EQ(fitted.GetBitsPixel(), 16);
  for (int i = 0; i < 6; ++i)  // 16-bit steps over the range 65100.5: half a step is about 0.5
    EXPECT_NEAR(fitted.GetPixel(i % 3, i / 3, 0), values[i], 0.5) << i;

  CImage clamped(image);
  ASSERT_EQ(clamped.ChangeBits(8, 0, 0), 1);  // clamped to the byte range, rounded inside it
  EXPECT_EQ(std::make_tuple(clamped.GetPixel(0, 0, 0), clamped.GetPixel(2, 0, 0), clamped.GetPixel(1, 1, 0)),
            std::make_tuple(0.0, 12.0, 255.0));

  ASSERT_EQ(fitted.ChangeBits(-64, 0, 0), 1);
  EXPECT_DOUBLE_EQ(fitted.GetBscale(), 1.0);
  EXPECT_NEAR(fitted.GetPixel(2, 0, 0), 12.25, 0.5);
  EXPECT_EQ(fitted.ChangeBits(7, 0, 0), 0);
  EXPECT_EQ(fitted.GetBitsPixel(), -64);  // a refused conversion changes nothing
}

TEST(CImage, ChangePlanesCopiesGreyAndKeepsLuminance) {
  CImage grey(-32, 2, 2, 1);
  Put<float>(grey, 1, 1, 0, 50.0f);
  grey.SetLevel(0, 10, 90);
  ASSERT_EQ(grey.ChangePlanes(3), 1);
  EXPECT_TRUE(grey.IsColor());
  for (int p = 0; p < 3; ++p)
    EXPECT_EQ(std::make_pair(grey.GetPixel(1, 1, p), grey.GetLevelMax(p)), std::make_pair(50.0, 90.0)) << p;
  CImage colour(-32, 1, 1, 3);
  for (int p = 0; p < 3; ++p) Put<float>(colour, 0, 0, p, p == 1 ? 200.0f : p ? 50.0f : 100.0f);
  ASSERT_EQ(colour.ChangePlanes(1), 1);
  EXPECT_EQ(colour.GetDimension(), 2);
  EXPECT_NEAR(colour.GetPixel(0, 0, 0), 0.299 * 100 + 0.587 * 200 + 0.114 * 50, 1e-3);
  EXPECT_EQ(colour.ChangePlanes(2), 0);
  CImage working(-32, 2, 2, 4);  // colours plus a luminance plane: neither grey nor colour
  EXPECT_EQ(working.ChangePlanes(1), 0);
  EXPECT_EQ(working.ChangePlanes(3), 0);
}

TEST(CImage, ChangeSizeKeepsTheTopLeftAndZeroesTheRest) {
  CImage image(-32, 3, 3, 1);
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 3; ++x) Put<float>(image, x, y, 0, float(10 * y + x + 1));
  ASSERT_EQ(image.ChangeSize(5, 2), 1);
  EXPECT_EQ(std::make_pair(image.GetWidth(), image.GetHeight()), std::make_pair(5, 2));
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 5; ++x) EXPECT_EQ(image.GetPixel(x, y, 0), x < 3 ? 10 * y + x + 1 : 0.0) << x << "," << y;
  EXPECT_EQ(std::make_pair(image.ChangeSize(0, 2), image.ChangeSize(4, -1)), std::make_pair(0, 0));
  EXPECT_EQ(image.GetWidth(), 5);
}

TEST(CImage, CopyCreateAndSwapCarryFormatLevelsAndHeader) {
  CImage a(-32, 4, 3, 3);
  a.SetLevel(2, -5, 5);
  a.GetHeader().SetKeyword(L"OBJECT", L"M42");
  Put<float>(a, 3, 2, 2, 9.5f);
  CImage copy(a);
  EXPECT_DOUBLE_EQ(copy.GetPixel(3, 2, 2), 9.5);
  EXPECT_DOUBLE_EQ(copy.GetLevelRange(2), 10.0);
  Put<float>(copy, 3, 2, 2, 1.0f);
  EXPECT_DOUBLE_EQ(a.GetPixel(3, 2, 2), 9.5);  // deep copy

  CImage created;
  ASSERT_EQ(created.Create(a), 1);
  EXPECT_EQ(created.GetPlanes(), 3);
  EXPECT_DOUBLE_EQ(created.GetPixel(3, 2, 2), 0.0);

  CImage b(8, 1, 1, 1);
  a.Swap(&b);
  EXPECT_EQ(std::make_pair(a.GetBitsPixel(), b.GetPlanes()), std::make_pair(8, 3));
  EXPECT_DOUBLE_EQ(b.GetPixel(3, 2, 2), 9.5);
  CString object;
  EXPECT_TRUE(b.GetHeader().GetKeyword(L"OBJECT", object));
}

TEST(CImage, PlaneBuffersRoundTripAndRefuseWrongSizes) {
  CImage image(16, 3, 2, 3);
  auto buffer = image.CreatePlaneBuffer();
  ASSERT_EQ(buffer.size(), 12u);
  for (std::size_t i = 0; i < buffer.size(); ++i) buffer[i] = static_cast<unsigned char>(i + 1);
  ASSERT_EQ(image.SetPlaneImage(1, buffer), 1);
  EXPECT_EQ(image.GetPlaneImage(1), buffer);
  EXPECT_EQ(image.GetPlaneImage(0), std::vector<unsigned char>(12, 0));
  buffer.pop_back();
  EXPECT_EQ(image.SetPlaneImage(1, buffer), 0);
  EXPECT_EQ(image.SetPlaneImage(3, image.CreatePlaneBuffer()), 0);
  EXPECT_TRUE(image.GetPlaneImage(-1).empty());
}

namespace {
// A packed bitmap: 40-byte header, palette, rows bottom-up padded to 4 bytes.
HGLOBAL MakeDib(int width, int height, int bits, const std::vector<unsigned char>& palette,
                const std::vector<std::vector<unsigned char>>& topDownRows) {
  const std::size_t stride = (std::size_t(width) * bits / 8 + 3) / 4 * 4;
  HGLOBAL mem = GlobalAlloc(GHND, 40 + palette.size() + stride * height);
  auto* p = static_cast<unsigned char*>(GlobalLock(mem));
  const std::int32_t header[10] = {40, width, height, 1 | (bits << 16), 0, 0, 0, 0, 0, 0};
  std::memcpy(p, header, 40);
  if (!palette.empty()) std::memcpy(p + 40, palette.data(), palette.size());
  for (int y = 0; y < height; ++y)
    std::memcpy(p + 40 + palette.size() + stride * (height - 1 - y), topDownRows[y].data(), topDownRows[y].size());
  GlobalUnlock(mem);
  return mem;
}
}  // namespace

TEST(CImage, AttachDibReadsGreyPalettesAndColourBitmaps) {
  std::vector<unsigned char> greyPalette(1024);
  for (int i = 0; i < 256; ++i) greyPalette[4 * i] = greyPalette[4 * i + 1] = greyPalette[4 * i + 2] = i;
  HGLOBAL grey = MakeDib(3, 2, 8, greyPalette, {{1, 2, 3}, {4, 5, 6}});
  CImage image;
  ASSERT_EQ(image.AttachDIB(grey), 1);
  EXPECT_EQ(std::make_pair(image.GetPlanes(), image.GetBitsPixel()), std::make_pair(1, 8));
  for (int y = 0; y < 2; ++y)  // the first picture line is the last bitmap row
    for (int x = 0; x < 3; ++x) EXPECT_EQ(image.GetPixel(x, y, 0), 1 + x + 3 * y) << x << "," << y;
  GlobalFree(grey);
  // Two pixels: pure red, then blue-ish, stored as blue, green, red.
  HGLOBAL colour = MakeDib(2, 1, 24, {}, {{0, 0, 255, 200, 10, 20}});
  ASSERT_EQ(image.AttachDIB(colour), 1);
  EXPECT_EQ(image.GetPlanes(), 3);
  EXPECT_EQ(std::make_tuple(image.GetPixel(0, 0, 0), image.GetPixel(1, 0, 0), image.GetPixel(1, 0, 1),
                            image.GetPixel(1, 0, 2)),
            std::make_tuple(255.0, 20.0, 10.0, 200.0));
  GlobalFree(colour);

  HGLOBAL truncated = GlobalAlloc(GHND, 20);
  EXPECT_EQ(std::make_pair(image.AttachDIB(truncated), image.AttachDIB(nullptr)), std::make_pair(0, 0));
  EXPECT_EQ(image.GetPlanes(), 3);  // a refused bitmap leaves the image alone
  GlobalFree(truncated);
}

TEST(CImage, HistogramCullReadsAboutAMillionSamples) {
  CImage small(-32, 100, 100, 1);
  int x = 0, y = 0;
  ASSERT_EQ(small.GetHistogramCull(&x, &y), 1);
  EXPECT_EQ(x, 1);
  CImage big(-32, 4096, 3000, 1);
  ASSERT_EQ(big.GetHistogramCull(&x, &y), 1);
  const double sampled = std::ceil(4096.0 / x) * std::ceil(3000.0 / y);
  EXPECT_GE(sampled, 0.5e6);
  EXPECT_LE(sampled, 1.0e6);
  EXPECT_EQ(CImage().GetHistogramCull(&x, &y), 0);
}
