// Display bitmaps: packed 8- and 24-bit bitmaps and rendering into CMemoryDIB.
#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <vector>

#include "core/LineLoop.h"
#include "core/MemoryDIB.h"
#include "core/OrbImage.h"
#include "core/PaletteQuantizer.h"

namespace {

constexpr int kTitleRender = 6169;

// The display byte of one plane. The rule is evaluated in double; a float estimate alone
// would differ from it near byte boundaries, so each plane gets the exact threshold of every
// byte value (the rule is monotone in the sample) and a cheap float estimate is corrected
// against those thresholds.
class CDisplayBytes {
 public:
  CDisplayBytes() = default;
  CDisplayBytes(double min, double max, double range) : m_min(min), m_max(max), m_range(range) {
    m_minF = static_cast<float>(min);
    m_scaleF = static_cast<float>(255.0 / range);
    m_threshold[0] = -std::numeric_limits<float>::infinity();
    std::uint32_t low = Key(-std::numeric_limits<float>::infinity());
    const std::uint32_t high = Key(std::numeric_limits<float>::infinity());
    for (int k = 1; k < 256; ++k) {
      if (Exact(FromKey(high)) < k) {
        m_threshold[k] = std::numeric_limits<float>::quiet_NaN();  // never reached
        continue;
      }
      // Smallest float (in value order) whose byte is at least k.
      std::uint32_t lo = low, hi = high;
      while (lo < hi) {
        const std::uint32_t mid = lo + (hi - lo) / 2;
        if (Exact(FromKey(mid)) >= k) hi = mid;
        else lo = mid + 1;
      }
      m_threshold[k] = FromKey(lo);
      low = lo;
    }
  }

  // The rule itself: 0 at or below the minimum, 255 at or above the maximum, else
  // (s − min) / range × 255 truncated. NaN samples and degenerate windows give 0.
  BYTE Exact(float s) const {
    const double v = s;
    if (v <= m_min) return 0;
    if (v >= m_max) return 255;
    const double t = (v - m_min) / m_range * 255.0;
    if (!(t > 0)) return 0;
    return t >= 255.0 ? 255 : static_cast<BYTE>(t);
  }

  BYTE operator()(float s) const {
    const float e = (s - m_minF) * m_scaleF;
    int k = e > 0 ? (e < 255 ? static_cast<int>(e) : 255) : 0;
    while (k < 255 && s >= m_threshold[k + 1]) ++k;
    while (k > 0 && !(s >= m_threshold[k])) --k;
    return static_cast<BYTE>(k);
  }

 private:
  // Float bit patterns reordered so that integer order is value order (NaN excluded).
  static std::uint32_t Key(float f) {
    const auto u = std::bit_cast<std::uint32_t>(f);
    return (u & 0x80000000u) ? ~u : (u | 0x80000000u);
  }
  static float FromKey(std::uint32_t k) {
    return std::bit_cast<float>((k & 0x80000000u) ? (k & 0x7fffffffu) : ~k);
  }

  double m_min = 0, m_max = 0, m_range = 0;
  float m_minF = 0, m_scaleF = 0;
  float m_threshold[256] = {};
};

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
void RenderBgr(const COrbImage& image, const CPlaneBytes& bytes, int y, int x0, int x1, BYTE* out, int step) {
  const int color = image.GetPlanes() >= 3;
  const float* r = image.GetImageAdr(0, y, 0);
  if (!color) {
    for (int x = x0; x < x1; ++x, out += step) out[0] = out[1] = out[2] = bytes.plane[0](r[x]);
    return;
  }
  const float* g = image.GetImageAdr(0, y, 1);
  const float* b = image.GetImageAdr(0, y, 2);
  for (int x = x0; x < x1; ++x, out += step) {
    out[0] = bytes.plane[2](b[x]);
    out[1] = bytes.plane[1](g[x]);
    out[2] = bytes.plane[0](r[x]);
  }
}

void RenderGrey(const COrbImage& image, const CDisplayBytes& bytes, int y, int x0, int x1, BYTE* out) {
  const float* s = image.GetImageAdr(0, y, 0);
  for (int x = x0; x < x1; ++x) *out++ = bytes(s[x]);
}

// Palette of the area's colours and each pixel's index in it; false when memory runs out.
bool ReduceColours(const COrbImage& image, const CPlaneBytes& bytes, int left, int top, int right, int bottom,
                   CPaletteQuantizer& quantizer, std::vector<BYTE>& bgr) {
  const int width = right - left;
  try {
    bgr.resize(std::size_t(width) * 3 * (bottom - top));
  } catch (const std::bad_alloc&) {
    return false;
  }
#pragma omp parallel for schedule(static)
  for (int y = top; y < bottom; ++y)
    RenderBgr(image, bytes, y, left, right, bgr.data() + std::size_t(y - top) * width * 3, 3);
  for (int y = top; y < bottom; ++y) quantizer.AddPixelsBgr(bgr.data() + std::size_t(y - top) * width * 3, width);
  return quantizer.BuildPalette(256) > 0;
}

void MapColours(const CPaletteQuantizer& quantizer, const BYTE* bgr, int count, BYTE* out) {
  for (int i = 0; i < count; ++i, bgr += 3) out[i] = quantizer.Map(bgr[2], bgr[1], bgr[0]);
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
    std::vector<BYTE> bgr;
    if (!ReduceColours(*this, bytes, 0, 0, width, height, quantizer, bgr)) {
      GlobalUnlock(block);
      GlobalFree(block);
      return nullptr;
    }
    std::memcpy(palette, quantizer.GetPalette(), paletteSize);
#pragma omp parallel for schedule(static)
    for (int y = 0; y < height; ++y) MapColours(quantizer, bgr.data() + std::size_t(y) * width * 3, width, row(y));
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
  const int width = right - left;

  CPaletteQuantizer quantizer;
  std::vector<BYTE> bgr;
  const bool reduce = bits == 8 && GetPlanes() >= 3;
  if (reduce) {
    if (!ReduceColours(*this, bytes, left, top, right, bottom, quantizer, bgr)) return 0;
    dib->SetPalette(quantizer.GetPalette(), CBaseDIB::kPaletteEntries);
  }
  ShowProgressInit(showProgress, kTitleRender, bottom - top);
  CLineLoop(*this).Run(top, bottom, [&](int y) {
    switch (bits) {
      case 8:
        if (reduce) MapColours(quantizer, bgr.data() + std::size_t(y - top) * width * 3, width, dib->GetImageAdr8(left, y));
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
