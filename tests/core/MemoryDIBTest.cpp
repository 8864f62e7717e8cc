// CMemoryDIB and CVmDIB: geometry, bottom-up addressing, palettes and packed output.
#include <gtest/gtest.h>

#include "core/BmpDecode.h"
#include "core/MemoryDIB.h"
#include "core/VmDIB.h"

namespace {

// Fills a 24-bit bitmap with a pattern that identifies each pixel through GetImageAdr24.
void FillPattern24(CBaseDIB& dib) {
  for (int y = 0; y < dib.GetHeight(); ++y)
    for (int x = 0; x < dib.GetWidth(); ++x) {
      BYTE* p = dib.GetImageAdr24(x, y);
      p[0] = BYTE(x);       // blue
      p[1] = BYTE(y);       // green
      p[2] = BYTE(x + 10 * y);  // red
    }
}

std::vector<unsigned char> Bytes(HGLOBAL block) {
  const auto* p = static_cast<const unsigned char*>(GlobalLock(block));
  std::vector<unsigned char> v(p, p + GlobalSize(block));
  GlobalUnlock(block);
  return v;
}

TEST(MemoryDIBTest, PaddedStrideAndBottomUpRows) {
  CMemoryDIB dib;
  EXPECT_EQ(dib.GetDC(), nullptr);
  ASSERT_TRUE(dib.Create(nullptr, 5, 3, 24));
  EXPECT_EQ(dib.GetWidth(), 5);
  EXPECT_EQ(dib.GetHeight(), 3);
  EXPECT_EQ(dib.GetBitCount(), 24);
  EXPECT_NE(dib.GetDC(), nullptr);
  // Rows are padded to 4 bytes; line 0 of the picture is the last row in memory.
  struct Case {
    int w, h, bits, stride, x, y, offset;
  };
  for (const Case c : {Case{5, 3, 24, 16, 1, 2, 3}, Case{1, 2, 8, 4, 0, 0, 4}, Case{3, 4, 8, 4, 0, 0, 12},
                       Case{3, 4, 8, 4, 2, 3, 2}, Case{3, 4, 16, 8, 2, 0, 28}, Case{3, 4, 32, 12, 1, 1, 28}}) {
    ASSERT_TRUE(dib.Create(nullptr, c.w, c.h, c.bits));
    EXPECT_EQ(dib.GetStride(), c.stride) << c.w << "x" << c.h << "x" << c.bits;
    const BYTE* at = c.bits == 8    ? dib.GetImageAdr8(c.x, c.y)
                     : c.bits == 16 ? dib.GetImageAdr16(c.x, c.y)
                     : c.bits == 24 ? dib.GetImageAdr24(c.x, c.y)
                                    : dib.GetImageAdr32(c.x, c.y);
    EXPECT_EQ(at, dib.GetBits() + c.offset) << c.w << "x" << c.h << "x" << c.bits;
  }
}

TEST(MemoryDIBTest, RejectsBadSizesAndBitCounts) {
  CMemoryDIB dib;
  EXPECT_FALSE(dib.Create(nullptr, 0, 5, 24));
  EXPECT_FALSE(dib.Create(nullptr, 5, -1, 24));
  EXPECT_FALSE(dib.Create(nullptr, 5, 5, 12));
  EXPECT_TRUE(dib.IsEmpty());
  EXPECT_EQ(dib.CreateHDIB(), nullptr);
  EXPECT_EQ(dib.GetDC(), nullptr);
}

TEST(MemoryDIBTest, PackedBitmapIsAValidBmpFile) {
  for (int width : {1, 3, 5, 17}) {
    CMemoryDIB dib;
    ASSERT_TRUE(dib.Create(nullptr, width, 3, 24));
    FillPattern24(dib);
    HGLOBAL block = dib.CreateHDIB();
    ASSERT_NE(block, nullptr);
    const auto bytes = Bytes(block);
    GlobalFree(block);
    const bmptest::Picture pic = bmptest::DecodePacked(bytes.data(), bytes.size());
    ASSERT_EQ(pic.error, "") << "width " << width;
    EXPECT_EQ(pic.imageSize, std::uint32_t(dib.GetStride() * 3));
    for (int y = 0; y < 3; ++y)
      for (int x = 0; x < width; ++x) {
        EXPECT_EQ(pic.At(x, y)[0], BYTE(x + 10 * y));
        EXPECT_EQ(pic.At(x, y)[1], y);
        EXPECT_EQ(pic.At(x, y)[2], x);
      }
  }
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
  HGLOBAL block = dib.CreateHDIB();
  auto bytes = Bytes(block);
  GlobalFree(block);
  bmptest::Picture pic = bmptest::DecodePacked(bytes.data(), bytes.size());
  ASSERT_EQ(pic.error, "");
  EXPECT_EQ(pic.At(0, 0)[2], 255);  // blue
  EXPECT_EQ(pic.At(1, 0)[0], 255);  // red
  EXPECT_EQ(pic.At(1, 0)[2], 0);
  // The bitmap's own block carries the current palette.
  const RGBQUAD green{0, 255, 0, 0};
  dib.SetPalette(&green, 1);
  ASSERT_NE(dib.GetHDIB(), nullptr);
  bytes = Bytes(dib.GetHDIB());
  pic = bmptest::DecodePacked(bytes.data(), bytes.size());
  ASSERT_EQ(pic.error, "");
  EXPECT_EQ(pic.At(1, 0)[1], 255);  // index 0 is now green
}

TEST(VmDIBTest, MatchesTheMemoryBitmap) {
  CVmDIB vm;
  CMemoryDIB mem;
  ASSERT_TRUE(vm.Create(nullptr, 17, 5, 24));
  ASSERT_TRUE(mem.Create(nullptr, 17, 5, 24));
  EXPECT_EQ(vm.GetStride(), mem.GetStride());
  FillPattern24(vm);
  FillPattern24(mem);
  HGLOBAL a = vm.CreateHDIB();
  HGLOBAL b = mem.CreateHDIB();
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(Bytes(a), Bytes(b));
  GlobalFree(a);
  GlobalFree(b);
  vm.Destroy();
  EXPECT_TRUE(vm.IsEmpty());
  EXPECT_FALSE(vm.Create(nullptr, 4, 0, 8));
}

}  // namespace
