// Image container: construction, format conversion and whole-image operations.
#include "container/Image.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

namespace {

// Reports the progress of a whole-image operation to the host's window, if any.
class CAllocationProgress {
 public:
  CAllocationProgress(HWND window, const wchar_t* text) : m_window(window) {
    if (m_window) SendMessageW(m_window, WM_QRN_PROGRESS, 0, reinterpret_cast<LPARAM>(text));
  }
  ~CAllocationProgress() {
    if (m_window) SendMessageW(m_window, WM_QRN_PROGRESS, 2, 0);
  }
  CAllocationProgress(const CAllocationProgress&) = delete;
  CAllocationProgress& operator=(const CAllocationProgress&) = delete;
  void Report(long long done, long long total) {
    if (!m_window || total <= 0) return;
    const int percent = static_cast<int>(done * 100 / total);
    if (percent != m_last) PostMessageW(m_window, WM_QRN_PROGRESS, 1, percent);
    m_last = percent;
  }

 private:
  HWND m_window;
  int m_last = -1;
};

bool IsKnownFormat(int bits) { return bits == 8 || bits == 16 || bits == 32 || bits == -32 || bits == -64; }

// Stored value of one sample, before bscale and bzero.
double ReadStored(const unsigned char* p, int bits, int isSigned) {
  switch (bits) {
    case -64: { double v; std::memcpy(&v, p, 8); return v; }
    case -32: { float v; std::memcpy(&v, p, 4); return v; }
    case 8: return *p;
    case 16: {
      std::uint16_t v; std::memcpy(&v, p, 2);
      return isSigned ? double(static_cast<std::int16_t>(v)) : double(v);
    }
    case 32: {
      std::uint32_t v; std::memcpy(&v, p, 4);
      return isSigned ? double(static_cast<std::int32_t>(v)) : double(v);
    }
    default: return 0.0;
  }
}

template <class T>
T RoundClamped(double v) {
  if (std::isnan(v)) return T(0);
  const double lo = double(std::numeric_limits<T>::lowest()), hi = double(std::numeric_limits<T>::max());
  return static_cast<T>(std::nearbyint(std::clamp(v, lo, hi)));
}

void WriteStored(unsigned char* p, int bits, int isSigned, double v) {
  switch (bits) {
    case -64: std::memcpy(p, &v, 8); break;
    case -32: { const float f = static_cast<float>(v); std::memcpy(p, &f, 4); break; }
    case 8: *p = RoundClamped<std::uint8_t>(v); break;
    case 16: {
      const std::uint16_t s = isSigned ? std::uint16_t(RoundClamped<std::int16_t>(v)) : RoundClamped<std::uint16_t>(v);
      std::memcpy(p, &s, 2);
      break;
    }
    case 32: {
      const std::uint32_t s = isSigned ? std::uint32_t(RoundClamped<std::int32_t>(v)) : RoundClamped<std::uint32_t>(v);
      std::memcpy(p, &s, 4);
      break;
    }
    default: break;
  }
}

// Smallest and largest stored value of an integer format.
void IntegerRange(int bits, int isSigned, double* lo, double* hi) {
  const int width = bits;
  if (bits == 8 || !isSigned) {
    *lo = 0;
    *hi = std::ldexp(1.0, width) - 1;
  } else {
    *lo = -std::ldexp(1.0, width - 1);
    *hi = std::ldexp(1.0, width - 1) - 1;
  }
}

#pragma pack(push, 1)
struct BitmapInfoHeader {
  std::uint32_t size;
  std::int32_t width, height;
  std::uint16_t planes, bitCount;
  std::uint32_t compression, sizeImage;
  std::int32_t xPelsPerMeter, yPelsPerMeter;
  std::uint32_t clrUsed, clrImportant;
};
#pragma pack(pop)

}  // namespace

CImage::CImage() : m_store(std::make_unique<CVmImage>()) { ResetLevels(); }

CImage::CImage(int bits, int width, int height, int planes, double bscale, double bzero, int allocate, HWND window,
               const wchar_t* text)
    : CImage() {
  if (!IsValidLayout(bits, width, height, planes)) return;
  m_bitsPixel = bits;
  m_width = width;
  m_height = height;
  SetPlanes(planes);
  m_bscale = bscale;
  m_bzero = bzero;
  ResetLevels();
  if (allocate && !AllocImage(window, text)) Empty();
}

CImage::CImage(const CImage& other, HWND window, const wchar_t* text) : CImage() { CopyImage(other, window, text); }

CImage::~CImage() = default;

bool CImage::IsValidLayout(int bits, int width, int height, int planes) {
  return IsKnownFormat(bits) && width > 0 && height > 0 && planes >= 1 && planes <= kMaxPlanes;
}

void CImage::ResetLevels() {
  const double top = m_bitsPixel == 8 ? 255.0 : 65535.0;
  for (int p = 0; p < kMaxPlanes; ++p) SetLevel(p, 0.0, top);
}

void CImage::CopyFields(const CImage& other) {
  m_bitsPixel = other.m_bitsPixel;
  m_signed = other.m_signed;
  m_dimension = other.m_dimension;
  m_width = other.m_width;
  m_height = other.m_height;
  m_planes = other.m_planes;
  m_bscale = other.m_bscale;
  m_bzero = other.m_bzero;
  std::copy(other.m_levelMin, other.m_levelMin + kMaxPlanes, m_levelMin);
  std::copy(other.m_levelMax, other.m_levelMax + kMaxPlanes, m_levelMax);
  std::copy(other.m_levelRange, other.m_levelRange + kMaxPlanes, m_levelRange);
  m_ownLevel = other.m_ownLevel;
  m_saveableFormat = other.m_saveableFormat;
  m_saveableFile = other.m_saveableFile;
  m_orgFileName = other.m_orgFileName;
  m_orgFileFormat = other.m_orgFileFormat;
  m_orgBitsPixel = other.m_orgBitsPixel;
  m_orgPlanes = other.m_orgPlanes;
  m_orgBayer = other.m_orgBayer;
  m_orgHoneyComb = other.m_orgHoneyComb;
  m_orgDevelopment = other.m_orgDevelopment;
  m_orgWidth = other.m_orgWidth;
  m_orgHeight = other.m_orgHeight;
  m_bayer = other.m_bayer;
  m_honeyComb = other.m_honeyComb;
  m_rawImageBits = other.m_rawImageBits;
  m_development = other.m_development;
  m_header = other.m_header;
  m_hasCull = other.m_hasCull;
  m_cullX = other.m_cullX;
  m_cullY = other.m_cullY;
}

int CImage::AllocImage(HWND window, const wchar_t* text) {
  if (!IsValidLayout(m_bitsPixel, m_width, m_height, m_planes)) return 0;
  CAllocationProgress progress(window, text);
  if (!m_store->Allocate(m_width, m_height, m_planes, GetBytesPixel())) return 0;
  progress.Report(1, 1);
  ChooseHistogramCull();
  return 1;
}

void CImage::CopyPixels(const CImage& other, HWND window, const wchar_t* text) {
  CAllocationProgress progress(window, text);
  const bool sameFormat = other.m_bitsPixel == m_bitsPixel && other.m_signed == m_signed &&
                          other.m_bscale == m_bscale && other.m_bzero == m_bzero;
  const std::size_t lineBytes = std::size_t(m_width) * GetBytesPixel();
  for (int p = 0; p < m_planes; ++p) {
#pragma omp parallel for schedule(static)
    for (int y = 0; y < m_height; ++y) {
      auto* dst = static_cast<unsigned char*>(GetImageAdr(0, y, p, 0));
      const auto* src = static_cast<const unsigned char*>(other.GetImageAdr(0, y, p, VM_READONLY));
      if (sameFormat) {
        std::memcpy(dst, src, lineBytes);
        continue;
      }
      for (int x = 0; x < m_width; ++x) {
        const double physical = ReadStored(src + std::size_t(x) * other.GetBytesPixel(), other.m_bitsPixel, other.m_signed) *
                                    other.m_bscale + other.m_bzero;
        WriteStored(dst + std::size_t(x) * GetBytesPixel(), m_bitsPixel, m_signed, (physical - m_bzero) / m_bscale);
      }
    }
    progress.Report(p + 1, m_planes);
  }
}

int CImage::CopyImage(const CImage& other, HWND window, const wchar_t* text) {
  if (&other == this) return IsEmpty() ? 0 : 1;
  Empty();
  CopyFields(other);
  if (other.IsEmpty()) return 0;
  if (!m_store->Allocate(m_width, m_height, m_planes, GetBytesPixel())) {
    Empty();
    return 0;
  }
  CopyPixels(other, window, text);
  return 1;
}

int CImage::Create(const CImage& other, HWND window, const wchar_t* text) {
  if (&other == this) return IsEmpty() ? 0 : 1;
  Empty();
  CopyFields(other);
  if (!AllocImage(window, text)) {
    Empty();
    return 0;
  }
  return 1;
}

void CImage::Empty() {
  m_store->Release();
  m_width = 0;
  m_height = 0;
}

void CImage::Swap(CImage* other) {
  if (!other || other == this) return;
  std::swap(m_bitsPixel, other->m_bitsPixel);
  std::swap(m_signed, other->m_signed);
  std::swap(m_dimension, other->m_dimension);
  std::swap(m_width, other->m_width);
  std::swap(m_height, other->m_height);
  std::swap(m_planes, other->m_planes);
  std::swap(m_bscale, other->m_bscale);
  std::swap(m_bzero, other->m_bzero);
  std::swap(m_store, other->m_store);
  std::swap(m_levelMin, other->m_levelMin);
  std::swap(m_levelMax, other->m_levelMax);
  std::swap(m_levelRange, other->m_levelRange);
  std::swap(m_ownLevel, other->m_ownLevel);
  std::swap(m_saveableFormat, other->m_saveableFormat);
  std::swap(m_saveableFile, other->m_saveableFile);
  std::swap(m_orgFileName, other->m_orgFileName);
  std::swap(m_orgFileFormat, other->m_orgFileFormat);
  std::swap(m_orgBitsPixel, other->m_orgBitsPixel);
  std::swap(m_orgPlanes, other->m_orgPlanes);
  std::swap(m_orgBayer, other->m_orgBayer);
  std::swap(m_orgHoneyComb, other->m_orgHoneyComb);
  std::swap(m_orgDevelopment, other->m_orgDevelopment);
  std::swap(m_orgWidth, other->m_orgWidth);
  std::swap(m_orgHeight, other->m_orgHeight);
  std::swap(m_bayer, other->m_bayer);
  std::swap(m_honeyComb, other->m_honeyComb);
  std::swap(m_rawImageBits, other->m_rawImageBits);
  std::swap(m_development, other->m_development);
  std::swap(m_header, other->m_header);
  std::swap(m_hasCull, other->m_hasCull);
  std::swap(m_cullX, other->m_cullX);
  std::swap(m_cullY, other->m_cullY);
}

int CImage::ChangeBits(int bits, int fitRange, int signedInt, HWND window, const wchar_t* text) {
  if (IsEmpty() || !IsKnownFormat(bits)) return 0;
  CImage target;
  target.CopyFields(*this);
  target.m_bitsPixel = bits;
  target.m_signed = bits == 8 ? 0 : (bits < 0 ? 1 : (signedInt ? 1 : 0));
  target.m_bscale = 1.0;
  target.m_bzero = 0.0;
  if (bits > 0 && fitRange) {
    double lo = std::numeric_limits<double>::max(), hi = std::numeric_limits<double>::lowest();
    for (int p = 0; p < m_planes; ++p) {
      double pmin, pmax;
      GetMinMax(p, &pmin, &pmax);
      lo = std::min(lo, pmin);
      hi = std::max(hi, pmax);
    }
    double tlo, thi;
    IntegerRange(bits, target.m_signed, &tlo, &thi);
    if (hi > lo && std::isfinite(hi - lo)) {
      target.m_bscale = (hi - lo) / (thi - tlo);
      target.m_bzero = lo - tlo * target.m_bscale;
    }
  }
  if (!target.m_store->Allocate(m_width, m_height, m_planes, target.GetBytesPixel())) return 0;
  target.CopyPixels(*this, window, text);
  target.ChooseHistogramCull();
  Swap(&target);
  return 1;
}

int CImage::ChangePlanes(int planes, HWND window, const wchar_t* text) {
  if (IsEmpty() || (planes != 1 && planes != kColorPlanes)) return 0;
  if (planes == m_planes) return 1;
  if (m_planes != 1 && m_planes != kColorPlanes) return 0;  // a working copy with a luminance plane
  CImage target;
  target.CopyFields(*this);
  target.SetPlanes(planes);
  if (!target.AllocImage()) return 0;
  CAllocationProgress progress(window, text);
  const int bytes = GetBytesPixel();
  const bool toColor = planes == kColorPlanes;
#pragma omp parallel for schedule(static)
  for (int y = 0; y < m_height; ++y) {
    for (int x = 0; x < m_width; ++x) {
      const std::size_t offset = std::size_t(x) * bytes;
      if (toColor) {
        const auto* src = static_cast<const unsigned char*>(GetImageAdr(0, y, 0)) + offset;
        for (int p = 0; p < planes; ++p)
          std::memcpy(static_cast<unsigned char*>(target.GetImageAdr(0, y, p, 0)) + offset, src, bytes);
      } else {
        double rgb[3];
        for (int p = 0; p < 3; ++p)
          rgb[p] = ReadStored(static_cast<const unsigned char*>(GetImageAdr(0, y, p)) + offset, m_bitsPixel, m_signed);
        const double bright = 0.299 * rgb[0] + 0.587 * rgb[1] + 0.114 * rgb[2];
        WriteStored(static_cast<unsigned char*>(target.GetImageAdr(0, y, 0, 0)) + offset, m_bitsPixel, m_signed, bright);
      }
    }
  }
  progress.Report(1, 1);
  for (int p = 1; p < planes; ++p) target.SetLevel(p, m_levelMin[0], m_levelMax[0]);
  Swap(&target);
  return 1;
}

int CImage::ChangeSize(int width, int height, HWND window, const wchar_t* text) {
  if (IsEmpty() || width <= 0 || height <= 0) return 0;
  CImage target;
  target.CopyFields(*this);
  target.m_width = width;
  target.m_height = height;
  if (!target.AllocImage()) return 0;
  CAllocationProgress progress(window, text);
  const std::size_t lineBytes = std::size_t(std::min(width, m_width)) * GetBytesPixel();
  const int lines = std::min(height, m_height);
  for (int p = 0; p < m_planes; ++p)
    for (int y = 0; y < lines; ++y)
      std::memcpy(target.GetImageAdr(0, y, p, 0), GetImageAdr(0, y, p), lineBytes);
  progress.Report(1, 1);
  Swap(&target);
  return 1;
}

int CImage::AttachDIB(HGLOBAL dib) {
  const std::size_t blockSize = GlobalSize(dib);
  if (blockSize < sizeof(BitmapInfoHeader)) return 0;
  const auto* bytes = static_cast<const unsigned char*>(GlobalLock(dib));
  BitmapInfoHeader info;
  std::memcpy(&info, bytes, sizeof info);
  const int width = info.width;
  const bool bottomUp = info.height > 0;
  const long long heightAbs = info.height < 0 ? -static_cast<long long>(info.height) : info.height;
  const bool supported = info.size >= 40 && info.compression == 0 && (info.bitCount == 8 || info.bitCount == 24) &&
                         width > 0 && heightAbs > 0 && heightAbs <= std::numeric_limits<int>::max();
  const int height = static_cast<int>(heightAbs);
  const std::size_t colors = info.bitCount == 8 ? (info.clrUsed ? std::min<std::uint32_t>(info.clrUsed, 256) : 256) : 0;
  const std::size_t stride = (std::size_t(width) * info.bitCount / 8 + 3) / 4 * 4;
  const std::size_t bitsOffset = info.size + colors * 4;
  if (!supported || bitsOffset + stride * std::size_t(height) > blockSize) {
    GlobalUnlock(dib);
    return 0;
  }
  const unsigned char* palette = bytes + info.size;
  bool grey = true;
  for (std::size_t i = 0; i < colors; ++i)
    grey = grey && palette[i * 4] == palette[i * 4 + 1] && palette[i * 4 + 1] == palette[i * 4 + 2];
  const int planes = (info.bitCount == 8 && grey) ? 1 : 3;

  CImage target(8, width, height, planes, 1.0, 0.0, 1);
  if (target.IsEmpty()) {
    GlobalUnlock(dib);
    return 0;
  }
  target.m_signed = 0;
  for (int y = 0; y < height; ++y) {
    const unsigned char* row = bytes + bitsOffset + stride * std::size_t(bottomUp ? height - 1 - y : y);
    for (int x = 0; x < width; ++x) {
      // Samples in blue, green, red order, as bitmaps hold them.
      const unsigned char* bgr = info.bitCount == 24 ? row + 3 * x : palette + 4 * std::size_t(std::min<std::size_t>(row[x], colors - 1));
      for (int p = 0; p < planes; ++p)
        *static_cast<unsigned char*>(target.GetImageAdr(x, y, p, 0)) = planes == 1 ? bgr[0] : bgr[2 - p];
    }
  }
  GlobalUnlock(dib);
  target.ResetLevels();
  const CHeader header = m_header;
  Swap(&target);
  m_header = header;
  return 1;
}

int CImage::SetLevel(int plane, double min, double max) {
  if (plane < 0 || plane >= kMaxPlanes) return 0;
  m_levelMin[plane] = min;
  m_levelMax[plane] = max;
  m_levelRange[plane] = max - min;
  return 1;
}

void CImage::SetLevelMin(int plane, double min) {
  if (plane >= 0 && plane < kMaxPlanes) SetLevel(plane, min, m_levelMax[plane]);
}

void CImage::SetLevelMax(int plane, double max) {
  if (plane >= 0 && plane < kMaxPlanes) SetLevel(plane, m_levelMin[plane], max);
}

void CImage::ChooseHistogramCull() {
  constexpr double kTargetSamples = 1.0e6;
  const double samples = double(m_width) * double(m_height);
  const int step = samples > kTargetSamples ? static_cast<int>(std::ceil(std::sqrt(samples / kTargetSamples))) : 1;
  SetHistogramCull(step, step);
}

int CImage::GetHistogramCull(int* x, int* y) const {
  if (!m_hasCull || IsEmpty()) return 0;
  if (x) *x = m_cullX;
  if (y) *y = m_cullY;
  return 1;
}

void CImage::SetHistogramCull(int x, int y) {
  m_cullX = std::max(1, x);
  m_cullY = std::max(1, y);
  m_hasCull = true;
}

double CImage::GetPixel(int x, int y, int plane) const {
  if (!IsKnownFormat(m_bitsPixel)) return 0.0;
  const auto* p = static_cast<const unsigned char*>(GetImageAdr(x, y, plane, VM_READONLY));
  return ReadStored(p, m_bitsPixel, m_signed) * m_bscale + m_bzero;
}

void CImage::GetMinMax(int plane, double* min, double* max) const {
  double lo = 0, hi = 0;
  if (!IsEmpty() && plane >= 0 && plane < m_planes) {
    lo = std::numeric_limits<double>::infinity();
    hi = -lo;
    for (int y = 0; y < m_height; ++y) {
      for (int x = 0; x < m_width; ++x) {
        const double v = GetPixel(x, y, plane);
        if (v < lo) lo = v;
        if (v > hi) hi = v;
      }
    }
  }
  if (min) *min = lo;
  if (max) *max = hi;
}

std::vector<unsigned char> CImage::CreatePlaneBuffer() const {
  if (IsEmpty()) return {};
  return std::vector<unsigned char>(std::size_t(m_width) * m_height * GetBytesPixel());
}

std::vector<unsigned char> CImage::GetPlaneImage(int plane) const {
  if (IsEmpty() || plane < 0 || plane >= m_planes) return {};
  auto buffer = CreatePlaneBuffer();
  const std::size_t lineBytes = std::size_t(m_width) * GetBytesPixel();
  for (int y = 0; y < m_height; ++y) std::memcpy(buffer.data() + lineBytes * y, GetImageAdr(0, y, plane), lineBytes);
  return buffer;
}

int CImage::SetPlaneImage(int plane, const std::vector<unsigned char>& buffer) {
  if (IsEmpty() || plane < 0 || plane >= m_planes || buffer.size() != CreatePlaneBuffer().size()) return 0;
  const std::size_t lineBytes = std::size_t(m_width) * GetBytesPixel();
  for (int y = 0; y < m_height; ++y) std::memcpy(GetImageAdr(0, y, plane, 0), buffer.data() + lineBytes * y, lineBytes);
  return 1;
}
