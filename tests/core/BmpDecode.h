// A small reader of .bmp files and packed bitmaps, written from the file format, for tests.
#pragma once
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace bmptest {

inline std::uint32_t U32(const unsigned char* p) { return p[0] | p[1] << 8 | p[2] << 16 | std::uint32_t(p[3]) << 24; }
inline std::uint16_t U16(const unsigned char* p) { return std::uint16_t(p[0] | p[1] << 8); }

/// A decoded picture: top-down rows of red, green, blue, plus the raw indices of 8-bit files.
struct Picture {
  int width = 0, height = 0, bits = 0;
  std::uint32_t imageSize = 0;
  std::vector<unsigned char> rgb;
  std::vector<unsigned char> index;
  std::string error;
  const unsigned char* At(int x, int y) const { return &rgb[(std::size_t(y) * width + x) * 3]; }
};

/// Decodes a whole .bmp file (14-byte file header, 40-byte info header, uncompressed 8 or 24 bits).
inline Picture DecodeFile(const std::vector<unsigned char>& f) {
  Picture pic;
  if (f.size() < 54 || f[0] != 'B' || f[1] != 'M') return pic.error = "signature", pic;
  if (U32(&f[2]) != f.size()) return pic.error = "file size", pic;
  const std::uint32_t offBits = U32(&f[10]);
  const unsigned char* h = &f[14];
  if (U32(h) != 40 || U16(h + 12) != 1 || U32(h + 16) != 0) return pic.error = "header", pic;
  pic.width = int(U32(h + 4));
  pic.height = int(U32(h + 8));
  pic.bits = U16(h + 14);
  pic.imageSize = U32(h + 20);
  if (pic.width <= 0 || pic.height <= 0 || (pic.bits != 8 && pic.bits != 24)) return pic.error = "geometry", pic;
  const std::size_t stride = (std::size_t(pic.width) * pic.bits + 31) / 32 * 4;
  if (offBits + stride * pic.height > f.size()) return pic.error = "truncated", pic;
  pic.rgb.resize(std::size_t(pic.width) * pic.height * 3);
  if (pic.bits == 8) pic.index.resize(std::size_t(pic.width) * pic.height);
  const unsigned char* pal = h + 40;
  for (int y = 0; y < pic.height; ++y) {
    const unsigned char* row = &f[offBits + stride * (pic.height - 1 - y)];  // bottom-up
    for (int x = 0; x < pic.width; ++x) {
      unsigned char* out = &pic.rgb[(std::size_t(y) * pic.width + x) * 3];
      const unsigned char* bgr = pic.bits == 24 ? row + 3 * x : pal + 4 * row[x];
      if (pic.bits == 8) pic.index[std::size_t(y) * pic.width + x] = row[x];
      out[0] = bgr[2];
      out[1] = bgr[1];
      out[2] = bgr[0];
    }
  }
  return pic;
}

/// Prepends the 14-byte file header to a packed bitmap and decodes the result.
inline Picture DecodePacked(const unsigned char* packed, std::size_t size) {
  std::vector<unsigned char> f(14 + size);
  const unsigned bits = U16(packed + 14);
  const std::uint32_t off = 14 + 40 + (bits == 8 ? 1024 : 0);
  const std::uint32_t total = std::uint32_t(f.size());
  f[0] = 'B';
  f[1] = 'M';
  std::memcpy(&f[2], &total, 4);  // little-endian host
  std::memcpy(&f[10], &off, 4);
  std::memcpy(&f[14], packed, size);
  return DecodeFile(f);
}

}  // namespace bmptest
