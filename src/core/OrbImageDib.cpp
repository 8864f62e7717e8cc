// Display bitmaps: packed 8- and 24-bit bitmaps and rendering into CMemoryDIB.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>

#include "core/DisplayBytes.h"
#include "core/LineLoop.h"
#include "core/MemoryDIB.h"
#include "core/OrbImage.h"
#include "core/PaletteQuantizer.h"

namespace {

constexpr int kTitleRender = 6169;

// Byte rules of planes 0, 1, 2 (a grey image repeats plane 0).
struct CPlaneBytes {
  CDisplayBytes plane[3];
  explicit CPlaneBytes(const COrbImage& image) {
    const int color = image.GetPlanes() >= 3;
    for (int k = 0; k < 3; ++k) {
      const int p = color ? k : 0;
      plane[k] = (k == 0 || color) ? CDisplayBytes(image.GetLevelMin(p), image.GetLevelMax(p), image.GetLevelRange(p))
                                   : plane[0];
    }
  }
};

// Writes the blue, green, red bytes of image line y, columns [x0, x1), `step` bytes apart.
// Each plane's bytes go to a small buffer first, then the three are interleaved.
void RenderBgr(const COrbImage& image, const CPlaneBytes& bytes, int y, int x0, int x1, BYTE* out, int step) {
  constexpr int kChunk = 1024;
  BYTE b[kChunk], g[kChunk], r[kChunk];
  const int color = image.GetPlanes() >= 3;
  if (!color && step == 3) {
    if (x1 > x0) bytes.plane[0].RowTriple(image.GetImageAdr(x0, y, 0), x1 - x0, out);
    return;
  }
  for (int x = x0; x < x1; x += kChunk) {
    const int n = std::min(kChunk, x1 - x);
    bytes.plane[0].Row(image.GetImageAdr(x, y, 0), n, r);
    if (color) {
      bytes.plane[1].Row(image.GetImageAdr(x, y, 1), n, g);
      bytes.plane[2].Row(image.GetImageAdr(x, y, 2), n, b);
    }
    // A grey image repeats its one plane in all three bytes.
    CDisplayBytes::Interleave(color ? b : r, color ? g : r, r, n, out + std::size_t(x - x0) * step, step);
  }
}

void RenderGrey(const COrbImage& image, const CDisplayBytes& bytes, int y, int x0, int x1, BYTE* out) {
  if (x1 > x0) bytes.Row(image.GetImageAdr(x0, y, 0), x1 - x0, out);
}

// The display bytes of colour image line y, columns [x0, x1), one plane to each array.
void RenderPlanes(const COrbImage& image, const CPlaneBytes& bytes, int y, int x0, int x1, BYTE* r, BYTE* g, BYTE* b) {
  BYTE* out[3] = {r, g, b};
  for (int k = 0; k < 3; ++k) bytes.plane[k].Row(image.GetImageAdr(x0, y, k), x1 - x0, out[k]);
}

// Palette of the area's colours; false when memory runs out. The rows are rendered once for
// counting and again for mapping, which costs less than keeping the whole area's bytes.
bool ReduceColours(const COrbImage& image, const CPlaneBytes& bytes, int left, int top, int right, int bottom,
                   CPaletteQuantizer& quantizer) {
  try {
    quantizer.AddRows(bottom - top, right - left, [&](int row, BYTE* r, BYTE* g, BYTE* b) {
      RenderPlanes(image, bytes, top + row, left, right, r, g, b);
    });
  } catch (const std::bad_alloc&) {
    return false;
  }
  return quantizer.BuildPalette(256) > 0;
}

// Writes the palette indices of colour image line y, columns [x0, x1), a chunk at a time.
void MapColours(const COrbImage& image, const CPlaneBytes& bytes, const CPaletteQuantizer& quantizer, int y, int x0,
                int x1, BYTE* out) {
  constexpr int kChunk = 1024;
  BYTE r[kChunk], g[kChunk], b[kChunk];
  for (int x = x0; x < x1; x += kChunk) {
    const int n = std::min(kChunk, x1 - x);
    RenderPlanes(image, bytes, y, x, x + n, r, g, b);
    quantizer.MapPixels(r, g, b, n, out + (x - x0));
  }
}

}  // namespace

HGLOBAL COrbImage::GetDib(int bits) {
  if (IsEmpty() || (bits != 8 && bits != 24)) return nullptr;
  const int width = GetWidth();
  const int height = GetHeight();
  const int color = GetPlanes() >= 3;
  const std::size_t stride = CBaseDIB::CalcStride(width, bits);
  const std::size_t imageSize = stride * height;
  const std::size_t paletteSize = bits == 8 ? 4 * CBaseDIB::kPaletteEntries : 0;
  if (imageSize > 0xffffffffu) return nullptr;  // the header holds the size in 32 bits
  // Not zero-filled: every byte is written below (the padding explicitly), which saves a
  // pass over the block.
  HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE, CBaseDIB::kHeaderSize + paletteSize + imageSize);
  if (!block) return nullptr;
  auto* out = static_cast<BYTE*>(GlobalLock(block));
  CBaseDIB::WriteHeader(out, width, height, bits, imageSize);
  auto* palette = reinterpret_cast<RGBQUAD*>(out + CBaseDIB::kHeaderSize);
  BYTE* pixels = out + CBaseDIB::kHeaderSize + paletteSize;
  // Image line y is bitmap row height − 1 − y: the picture is stored bottom-up.
  const std::size_t used = std::size_t(width) * (bits / 8);
  auto row = [&](int y) {
    BYTE* r = pixels + (height - 1 - y) * stride;
    std::memset(r + used, 0, stride - used);
    return r;
  };
  const CPlaneBytes bytes(*this);

  if (bits == 24) {
#pragma omp parallel for schedule(static)
    for (int y = 0; y < height; ++y) RenderBgr(*this, bytes, y, 0, width, row(y), 3);
  } else if (!color) {
    for (int i = 0; i < CBaseDIB::kPaletteEntries; ++i) palette[i] = RGBQUAD{BYTE(i), BYTE(i), BYTE(i), 0};
#pragma omp parallel for schedule(static)
    for (int y = 0; y < height; ++y) RenderGrey(*this, bytes.plane[0], y, 0, width, row(y));
  } else {
    CPaletteQuantizer quantizer;
    if (!ReduceColours(*this, bytes, 0, 0, width, height, quantizer)) {
      GlobalUnlock(block);
      GlobalFree(block);
      return nullptr;
    }
    std::memcpy(palette, quantizer.GetPalette(), paletteSize);
#pragma omp parallel for schedule(static)
    for (int y = 0; y < height; ++y) MapColours(*this, bytes, quantizer, y, 0, width, row(y));
  }
  GlobalUnlock(block);
  return block;
}

int COrbImage::ToDIB(CMemoryDIB* dib, CRect* rect, int showProgress) {
  if (!dib || dib->IsEmpty() || IsEmpty()) return 0;
  const int bits = dib->GetBitCount();
  if (bits != 8 && bits != 16 && bits != 24 && bits != 32) return 0;
  int left, top, right, bottom;
  NormalizeRect(rect, left, top, right, bottom);
  right = std::min(right, dib->GetWidth());
  bottom = std::min(bottom, dib->GetHeight());
  if (left >= right || top >= bottom) return 1;
  const CPlaneBytes bytes(*this);

  CPaletteQuantizer quantizer;
  const bool reduce = bits == 8 && GetPlanes() >= 3;
  if (reduce) {
    if (!ReduceColours(*this, bytes, left, top, right, bottom, quantizer)) return 0;
    dib->SetPalette(quantizer.GetPalette(), CBaseDIB::kPaletteEntries);
  }
  ShowProgressInit(showProgress, kTitleRender, bottom - top);
  CLineLoop(*this).Run(top, bottom, [&](int y) {
    switch (bits) {
      case 8:
        if (reduce) MapColours(*this, bytes, quantizer, y, left, right, dib->GetImageAdr8(left, y));
        else RenderGrey(*this, bytes.plane[0], y, left, right, dib->GetImageAdr8(left, y));
        break;
      case 16: {
        // RGB 5-5-5: the top five bits of each display byte.
        BYTE line[4 * 3];
        BYTE* out = dib->GetImageAdr16(left, y);
        for (int x = left; x < right; x += 4) {
          const int n = std::min(4, right - x);
          RenderBgr(*this, bytes, y, x, x + n, line, 3);
          for (int i = 0; i < n; ++i, out += 2) {
            const unsigned v = (unsigned(line[3 * i + 2] >> 3) << 10) | (unsigned(line[3 * i + 1] >> 3) << 5) |
                               unsigned(line[3 * i] >> 3);
            out[0] = BYTE(v);
            out[1] = BYTE(v >> 8);
          }
        }
        break;
      }
      case 24:
        RenderBgr(*this, bytes, y, left, right, dib->GetImageAdr24(left, y), 3);
        break;
      default:
        RenderBgr(*this, bytes, y, left, right, dib->GetImageAdr32(left, y), 4);
        break;
    }
  });
  ShowProgressEnd(nullptr);
  return 1;
}
