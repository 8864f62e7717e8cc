// Common geometry, palette and bottom-up pixel addressing of the library's bitmaps.
#pragma once
#include <cstddef>

#include "platform/GlobalMemory.h"
#include "platform/Types.h"

class CWnd;
struct HDC__;
/// Opaque device-context handle. There is no drawing system behind it on this platform.
using HDC = HDC__*;

/// One palette entry as a packed bitmap stores it.
struct RGBQUAD {
  BYTE rgbBlue;
  BYTE rgbGreen;
  BYTE rgbRed;
  BYTE rgbReserved;
};

/// @brief A device-independent bitmap of 8, 16, 24 or 32 bits per pixel: rows padded to a
/// multiple of 4 bytes and stored bottom-up, so GetImageAdr8..32(x, y) with y counted from
/// the top of the picture address row (height − 1 − y) from the start of the bits. 8-bit
/// bitmaps carry a 256-entry palette (grey ramp unless given); 16-bit pixels are RGB 5-5-5.
///
/// Derived classes decide where the rows live (CMemoryDIB: one movable memory block;
/// CVmDIB: the image block store). Pixel accessors do not check coordinates. Not copyable.
class CBaseDIB {
 public:
  static constexpr int kHeaderSize = 40;
  static constexpr int kPaletteEntries = 256;

  CBaseDIB() = default;
  CBaseDIB(const CBaseDIB&) = delete;
  CBaseDIB& operator=(const CBaseDIB&) = delete;
  virtual ~CBaseDIB() = default;

  /// A zeroed bitmap of bits 8 (grey palette), 16, 24 or 32. The window is accepted for the
  /// host's calling convention and not used. Returns 0 (and holds nothing) for a size that
  /// is not positive, another bit count, or exhausted memory.
  int Create(CWnd* wnd, int width, int height, int bits);
  /// A zeroed 8-bit bitmap whose palette takes count entries (at most 256; the rest black).
  int Create(CWnd* wnd, int width, int height, const RGBQUAD* palette, int count);
  /// Releases the pixels; the bitmap then has no size.
  virtual void Destroy();
  bool IsEmpty() const { return m_width == 0; }

  int GetWidth() const { return m_width; }
  int GetHeight() const { return m_height; }
  int GetBitCount() const { return m_bits; }
  /// Bytes per stored row: width × bits / 8 rounded up to a multiple of 4.
  int GetStride() const { return m_stride; }
  static int CalcStride(int width, int bits) { return static_cast<int>(((long long)width * bits / 8 + 3) / 4 * 4); }

  const RGBQUAD* GetPalette() const { return m_palette; }
  /// Replaces the first count entries (8-bit bitmaps only); returns the number written.
  int SetPalette(const RGBQUAD* palette, int count);

  BYTE* GetImageAdr8(int x, int y) const { return GetRowAdr(m_height - y - 1) + x; }
  BYTE* GetImageAdr16(int x, int y) const { return GetRowAdr(m_height - y - 1) + x * 2; }
  BYTE* GetImageAdr24(int x, int y) const { return GetRowAdr(m_height - y - 1) + x * 3; }
  BYTE* GetImageAdr32(int x, int y) const { return GetRowAdr(m_height - y - 1) + x * 4; }

  /// The bitmap as a packed bitmap (40-byte header, palette for 8 bits, rows bottom-up) in a
  /// new movable memory block that the caller frees with GlobalFree; null when empty or out
  /// of memory.
  HGLOBAL CreateHDIB() const;
  /// Writes the 40-byte header of a bitmap of this geometry to out.
  static void WriteHeader(BYTE* out, int width, int height, int bits, std::size_t imageSize);

 protected:
  /// Start of stored row r (0 = the bottom row of the picture).
  virtual BYTE* GetRowAdr(int row) const = 0;
  /// Makes room for the rows of the geometry already set; false when memory runs out.
  virtual bool AllocateRows() = 0;
  virtual void ReleaseRows() = 0;

  RGBQUAD m_palette[kPaletteEntries] = {};

 private:
  int m_width = 0;
  int m_height = 0;
  int m_bits = 0;
  int m_stride = 0;
};
