// Bitmap geometry, palette and packing into a movable memory block.
#include "core/BaseDIB.h"

#include <algorithm>
#include <cstring>

namespace {

void PutU16(BYTE* p, unsigned v) {
  p[0] = BYTE(v);
  p[1] = BYTE(v >> 8);
}

void PutU32(BYTE* p, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = BYTE(v >> (8 * i));
}

}  // namespace

int CBaseDIB::Create(CWnd*, int width, int height, int bits) {
  Destroy();
  if (width <= 0 || height <= 0 || (bits != 8 && bits != 16 && bits != 24 && bits != 32)) return 0;
  // The packed header stores the image size in 32 bits.
  const long long stride = CalcStride(width, bits);
  if (stride * height > 0xffffffffLL - kHeaderSize - 4 * kPaletteEntries) return 0;
  m_width = width;
  m_height = height;
  m_bits = bits;
  m_stride = static_cast<int>(stride);
  for (int i = 0; i < kPaletteEntries; ++i) m_palette[i] = bits == 8 ? RGBQUAD{BYTE(i), BYTE(i), BYTE(i), 0} : RGBQUAD{};
  if (!AllocateRows()) {
    Destroy();
    return 0;
  }
  return 1;
}

int CBaseDIB::Create(CWnd* wnd, int width, int height, const RGBQUAD* palette, int count) {
  if (!Create(wnd, width, height, 8)) return 0;
  std::fill(m_palette, m_palette + kPaletteEntries, RGBQUAD{});
  SetPalette(palette, count);
  return 1;
}

void CBaseDIB::Destroy() {
  if (m_width) ReleaseRows();
  m_width = m_height = m_bits = m_stride = 0;
}

int CBaseDIB::SetPalette(const RGBQUAD* palette, int count) {
  if (m_bits != 8 || !palette || count <= 0) return 0;
  count = std::min(count, kPaletteEntries);
  std::copy(palette, palette + count, m_palette);
  return count;
}

void CBaseDIB::WriteHeader(BYTE* out, int width, int height, int bits, std::size_t imageSize) {
  std::memset(out, 0, kHeaderSize);
  PutU32(out, kHeaderSize);
  PutU32(out + 4, std::uint32_t(width));
  PutU32(out + 8, std::uint32_t(height));
  PutU16(out + 12, 1);
  PutU16(out + 14, unsigned(bits));
  PutU32(out + 20, std::uint32_t(imageSize));
}

HGLOBAL CBaseDIB::CreateHDIB() const {
  if (IsEmpty()) return nullptr;
  const std::size_t imageSize = std::size_t(m_stride) * m_height;
  const std::size_t paletteSize = m_bits == 8 ? sizeof m_palette : 0;
  HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE, kHeaderSize + paletteSize + imageSize);
  if (!block) return nullptr;
  auto* out = static_cast<BYTE*>(GlobalLock(block));
  WriteHeader(out, m_width, m_height, m_bits, imageSize);
  std::memcpy(out + kHeaderSize, m_palette, paletteSize);
  BYTE* bits = out + kHeaderSize + paletteSize;
  for (int row = 0; row < m_height; ++row) std::memcpy(bits + std::size_t(row) * m_stride, GetRowAdr(row), m_stride);
  GlobalUnlock(block);
  return block;
}
