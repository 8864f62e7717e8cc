// CMemoryDIB and CVmDIB: geometry, bottom-up addressing, palettes and packed output.
#include <gtest/gtest.h>

#include <tuple>

#include "core/BmpDecode.h"
#include "core/MemoryDIB.h"
#include "core/VmDIB.h"

namespace {

// Fills a 24-bit bitmap with a pattern that identifies each pixel through GetImageAdr24.
void FillPattern24(CBaseDIB& dib) {
  for (int y = 0; y < dib.GetHeight(); ++y)
    for (int x = 0; x < dib.GetWidth(); ++x) {
      BYTE* p = dib.GetImageAdr24(x, y);
      p[0] = BYTE(x);           // blue
      p[1] = BYTE(y);           // green
      p[2] = BYTE(x + 10 * y);  // red
    }
}

std::vector<unsigned char> Bytes(HGLOBAL block) {
  const auto* p = static_cast<const unsigned char*>(GlobalLock(block));
  std::vector<unsigned char> v(p, p + GlobalSize(block));
  GlobalUnlock(block);
  return v;
}

// Decodes a packed bitmap block (freed afterwards when owned).
bmptest::Picture Decode(HGLOBAL block, bool owned = true) {
  const auto bytes = Bytes(block);
  if (owned) GlobalFree(block);
  return bmptest::DecodePacked(bytes.data(), bytes.size());
}

TEST(MemoryDIBTest, PaddedStrideBottomUpRowsAndRefusedSizes) {
  CMemoryDIB dib;
  EXPECT_EQ(dib.GetDC(), nullptr);
  // Rows are padded to 4 bytes; line 0 of the picture is the last row in memory.
  struct Case {
    int w, h, bits, stride, x, y, offset;
  };
  for (const Case c : {Case{5, 3, 24, 16, 1, 2, 3}, Case{1, 2, 8, 4, 0, 0, 4}, Case{3, 4, 8, 4, 0, 0, 12},
                       Case{3, 4, 8, 4, 2, 3, 2}, Case{3, 4, 16, 8, 2, 0, 28}, Case{3, 4, 32, 12, 1, 1, 28}}) {
    ASSERT_TRUE(dib.Create(nullptr, c.w, c.h, c.bits));
    EXPECT_EQ(std::make_tuple(dib.GetWidth(), dib.GetHeight(), dib.GetBitCount(), dib.GetStride()),
              std::make_tuple(c.w, c.h, c.bits, c.stride));
    EXPECT_NE(dib.GetDC(), nullptr);
    const BYTE* at = c.bits == 8    ? dib.GetImageAdr8(c.x, c.y)
                     : c.bits == 16 ? dib.GetImageAdr16(c.x, c.y)
                     : c.bits == 24 ? dib.GetImageAdr24(c.x, c.y)
                                    : dib.GetImageAdr32(c.x, c.y);
    EXPECT_EQ(at, dib.GetBits() + c.offset) << c.w << "x" << c.h << "x" << c.bits;
  }
  // A refused size or bit count leaves the bitmap empty.
  EXPECT_FALSE(dib.Create(nullptr, 0, 5, 24));
  EXPECT_FALSE(dib.Create(nullptr, 5, -1, 24));
  EXPECT_FALSE(dib.Create(nullptr, 5, 5, 12));
  EXPECT_TRUE(dib.IsEmpty());
  EXPECT_EQ(dib.CreateHDIB(), nullptr);
  EXPECT_EQ(dib.GetDC(), nullptr);
}

TEST(MemoryDIBTest, PackedBitmapIsAValidBmpFileAndTheVmBitmapMatchesIt) {
  for (int width : {1, 3, 5, 17}) {
    CMemoryDIB dib;
    CVmDIB vm;
    ASSERT_TRUE(dib.Create(nullptr, width, 3, 24));
    ASSERT_TRUE(vm.Create(nullptr, width, 3, 24));
    FillPattern24(dib);
    FillPattern24(vm);
    HGLOBAL a = dib.CreateHDIB(), b = vm.CreateHDIB();
    ASSERT_TRUE(a && b);
    EXPECT_EQ(Bytes(a), Bytes(b)) << "width " << width;
    GlobalFree(b);
    const bmptest::Picture pic = Decode(a);
    ASSERT_EQ(pic.error, "") << "width " << width;
    EXPECT_EQ(pic.imageSize, std::uint32_t(dib.GetStride() * 3));
    for (int y = 0; y < 3; ++y)
      for (int x = 0; x < width; ++x)
        EXPECT_EQ(std::make_tuple(pic.At(x, y)[0], pic.At(x, y)[1], pic.At(x, y)[2]),
                  std::make_tuple(BYTE(x + 10 * y), BYTE(y), BYTE(x)));
  }
  CVmDIB vm;
  ASSERT_TRUE(vm.Create(nullptr, 4, 2, 8));
  vm.Destroy();
  EXPECT_TRUE(vm.IsEmpty());
  EXPECT_FALSE(vm.Create(nullptr, 4, 0, 8));
}

TEST(MemoryDIBTest, EightBitPaletteIsGreyUnlessGivenAndGoesIntoThePackedBitmaps) {
  CMemoryDIB grey;
  ASSERT_TRUE(grey.Create(nullptr, 2, 1, 8));
  EXPECT_EQ(grey.GetPalette()[200].rgbRed, 200);
  EXPECT_EQ(grey.GetPalette()[200].rgbBlue, 200);

  const RGBQUAD pal[2] = {{0, 0, 255, 0}, {255, 0, 0, 0}};  // red, blue
  CMemoryDIB dib;
  ASSERT_TRUE(dib.Create(nullptr, 2, 1, pal, 2));
  EXPECT_EQ(dib.GetPalette()[7].rgbRed, 0);  // unlisted entries are black
  *dib.GetImageAdr8(0, 0) = 1;
  *dib.GetImageAdr8(1, 0) = 0;
  bmptest::Picture pic = Decode(dib.CreateHDIB());
  ASSERT_EQ(pic.error, "");
  EXPECT_EQ(pic.At(0, 0)[2], 255);  // blue
  EXPECT_EQ(pic.At(1, 0)[0], 255);  // red
  EXPECT_EQ(pic.At(1, 0)[2], 0);
  // The bitmap's own block carries the current palette.
  const RGBQUAD green{0, 255, 0, 0};
  dib.SetPalette(&green, 1);
  ASSERT_NE(dib.GetHDIB(), nullptr);
  pic = Decode(dib.GetHDIB(), false);
  ASSERT_EQ(pic.error, "");
  EXPECT_EQ(pic.At(1, 0)[1], 255);  // index 0 is now green
}

}  // namespace
