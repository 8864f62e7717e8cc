// Bitmap files: the 14-byte file header and a packed bitmap.
#include "io/BmpFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#include "Error.h"

namespace {

constexpr std::size_t kFileHeader = 14;

void Put16(unsigned char* p, std::uint16_t v) { p[0] = BYTE(v); p[1] = BYTE(v >> 8); }
void Put32(unsigned char* p, std::uint32_t v) { for (int i = 0; i < 4; ++i) p[i] = BYTE(v >> (8 * i)); }
std::uint32_t Get32(const unsigned char* p) {
  return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 | std::uint32_t(p[3]) << 24;
}

struct CGlobal {
  HGLOBAL h = nullptr;
  ~CGlobal() {
    if (h) GlobalFree(h);
  }
};

}  // namespace

CLoadedImage CBmpFile::Read(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw CQrnError(path, std::string("cannot open: ") + std::strerror(errno));
  std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (bytes.size() < kFileHeader + 40 || bytes[0] != 'B' || bytes[1] != 'M') throw CQrnError(path, "not a bitmap file");
  const std::uint32_t infoSize = Get32(&bytes[kFileHeader]);
  if (infoSize < 40)
    throw CQrnError(path, "unsupported bitmap layout: a " + std::to_string(infoSize) +
                              "-byte information header (40 bytes or more are read)");
  const std::uint16_t bitCount = std::uint16_t(bytes[kFileHeader + 14] | bytes[kFileHeader + 15] << 8);
  const std::uint32_t compression = Get32(&bytes[kFileHeader + 16]);
  if ((bitCount != 8 && bitCount != 24) || compression != 0)
    throw CQrnError(path, "unsupported bitmap layout: " + std::to_string(bitCount) + " bits, compression " +
                              std::to_string(compression) + " (uncompressed 8 and 24 bits are read)");
  // The packed bitmap holds the information header, the palette entries the pixels use, and
  // the pixels, which the file may place anywhere after the palette (its pixel offset).
  // A palette that declares no count holds 256 entries, or as many as fit before the pixels
  // (some writers store only those they use); the packed bitmap declares the count it holds.
  const std::uint32_t colorsUsed = Get32(&bytes[kFileHeader + 32]);
  const std::size_t paletteAt = kFileHeader + infoSize, pixelsAt = Get32(&bytes[10]);
  if (pixelsAt < paletteAt || pixelsAt > bytes.size())
    throw CQrnError(path, "truncated or malformed bitmap: pixel offset " + std::to_string(pixelsAt));
  const std::size_t room = (pixelsAt - paletteAt) / 4;
  const std::size_t colors =
      bitCount == 8 ? (colorsUsed ? std::min<std::size_t>(colorsUsed, 256) : std::min<std::size_t>(room, 256)) : 0;
  if (paletteAt + 4 * colors > pixelsAt || (bitCount == 8 && colors == 0))
    throw CQrnError(path, "truncated or malformed bitmap: pixel offset " + std::to_string(pixelsAt));
  CGlobal dib;
  dib.h = GlobalAlloc(GHND, infoSize + 4 * colors + (bytes.size() - pixelsAt));
  if (!dib.h) throw CQrnError(path, "out of memory");
  auto* packed = static_cast<unsigned char*>(GlobalLock(dib.h));
  std::memcpy(packed, bytes.data() + kFileHeader, infoSize + 4 * colors);
  std::memcpy(packed + infoSize + 4 * colors, bytes.data() + pixelsAt, bytes.size() - pixelsAt);
  if (bitCount == 8) Put32(packed + 32, std::uint32_t(colors));
  GlobalUnlock(dib.h);
  CImage decoded;
  if (!decoded.AttachDIB(dib.h)) throw CQrnError(path, "truncated or malformed bitmap");
  auto img = qrnio::MakeStoredImage(path, 8, false, decoded.GetWidth(), decoded.GetHeight(), decoded.GetPlanes());
  for (int p = 0; p < decoded.GetPlanes(); ++p)
    for (int y = 0; y < decoded.GetHeight(); ++y)
      std::memcpy(img->CImage::GetImageAdr(0, y, p, 0), decoded.GetImageAdr(0, y, p), decoded.GetWidth());
  CLoadedImage out;
  out.format = "BMP";
  out.bits = 8;
  out.isSigned = false;
  qrnio::FinishRead(path, *img);
  out.image = std::move(img);
  return out;
}

void CBmpFile::WriteDib(const std::string& path, HGLOBAL dib) {
  const std::size_t size = GlobalSize(dib);
  const auto* packed = static_cast<const unsigned char*>(GlobalLock(dib));
  // Pixels start after the info header and the colour table.
  const std::uint32_t infoSize = Get32(packed);
  const std::uint16_t bitCount = std::uint16_t(packed[14] | packed[15] << 8);
  const std::uint32_t clrUsed = Get32(packed + 32);
  const std::uint32_t colours = bitCount <= 8 ? (clrUsed ? clrUsed : (1u << bitCount)) : 0;
  unsigned char header[kFileHeader] = {'B', 'M'};
  Put32(header + 2, std::uint32_t(kFileHeader + size));
  Put16(header + 6, 0);
  Put16(header + 8, 0);
  Put32(header + 10, std::uint32_t(kFileHeader + infoSize + 4 * colours));
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(header), kFileHeader);
  out.write(reinterpret_cast<const char*>(packed), std::streamsize(size));
  GlobalUnlock(dib);
  out.flush();
  if (!out) throw CQrnError(path, std::string("cannot write: ") + std::strerror(errno));
}

void CBmpFile::Write(const std::string& path, const COrbImage& image) {
  // Levels 0 .. 256 make the display byte of an integer-valued sample equal to the sample.
  COrbImage copy(image);
  auto stored = qrnio::ToStored(path, image, 8, false);
  if (!copy.CImage::CopyImage(*stored)) throw CQrnError(path, "out of memory");
  if (!copy.ChangeBits(-32, 0, 1)) throw CQrnError(path, "out of memory");
  for (int p = 0; p < copy.GetPlanes(); ++p) copy.SetLevel(p, 0.0, 255.0);
  CGlobal dib;
  dib.h = copy.GetDib(copy.GetPlanes() >= 3 ? 24 : 8);
  if (!dib.h) throw CQrnError(path, "cannot build the bitmap");
  WriteDib(path, dib.h);
}
