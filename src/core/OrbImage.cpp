// COrbImage: construction, copying, markers, value scales and pixel reads.
#include "core/OrbImage.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/Exceptions.h"

COrbImage::COrbImage() { Init(); }

COrbImage::COrbImage(int bits, int width, int height, int planes, double bscale, double bzero, int allocate,
                     HWND window, const wchar_t* text)
    : CImage(bits, width, height, planes, bscale, bzero, allocate, window, text) {
  Init();
}

// Markers are deliberately left at their default (0, 0) instead of being re-initialised.
COrbImage::COrbImage(const COrbImage& other, HWND window, const wchar_t* text) : CImage(other, window, text) {
  if (IsEmpty() && !other.IsEmpty()) AfxThrowMemoryException();
  CopyCarriedFields(other);
}

COrbImage& COrbImage::operator=(const COrbImage& other) {
  CopyImage(other);
  return *this;
}

COrbImage::~COrbImage() = default;

void COrbImage::Init() {
  std::fill(m_minPixel, m_minPixel + kMaxPlanes, 0.0f);
  std::fill(m_maxPixel, m_maxPixel + kMaxPlanes, 0.0f);
  std::fill(m_avrPixel, m_avrPixel + kMaxPlanes, 0.0f);
  m_stdPt[0].Set(-1, -1);
  m_stdPt[1].Set(-1, -1);
  m_stdCtr.Set(-1, -1);
  m_showCrossGauge = 0;
  m_crossGauge.x = m_crossGauge.y = -100;
  m_starPt = CPoint(-100, -100);
  m_skyPt = CPoint(-100, -100);
  m_skyRadius = 0;
  m_pickupPt = CPoint(-100, -100);
}

void COrbImage::CopyCarriedFields(const COrbImage& other) {
  m_progressWindow = other.m_progressWindow;
  CopyStdPtCtr(&other);
  std::copy(other.m_minPixel, other.m_minPixel + kMaxPlanes, m_minPixel);
  std::copy(other.m_maxPixel, other.m_maxPixel + kMaxPlanes, m_maxPixel);
  std::copy(other.m_avrPixel, other.m_avrPixel + kMaxPlanes, m_avrPixel);
}

void COrbImage::SwapCarriedFields(COrbImage& other) {
  std::swap(m_progressWindow, other.m_progressWindow);
  std::swap(m_stdPt, other.m_stdPt);
  std::swap(m_stdCtr, other.m_stdCtr);
  std::swap(m_minPixel, other.m_minPixel);
  std::swap(m_maxPixel, other.m_maxPixel);
  std::swap(m_avrPixel, other.m_avrPixel);
}

int COrbImage::CopyImage(const COrbImage& other, HWND window, const wchar_t* text) {
  if (&other == this) return 1;
  Empty();
  CopyCarriedFields(other);
  const int ok = CImage::CopyImage(other, window, text);
  if (!ok && !other.IsEmpty()) AfxThrowMemoryException();
  return ok;
}

int COrbImage::Create(const COrbImage& other, HWND window, const wchar_t* text) {
  if (&other == this) return IsEmpty() ? 0 : 1;
  CopyCarriedFields(other);
  const int ok = CImage::Create(other, window, text);
  if (ok) {
    // The store is allocated zeroed; write the zeros anyway so the pages are owned now,
    // one line per iteration as every other loop does.
    const std::size_t lineBytes = sizeof(float) * static_cast<std::size_t>(GetWidth());
    for (int p = 0; p < GetPlanes(); ++p) {
#pragma omp parallel for schedule(static)
      for (int y = 0; y < GetHeight(); ++y) std::fill_n(GetImageAdr(0, y, p, 0), lineBytes / sizeof(float), 0.0f);
    }
  }
  return ok;
}

std::unique_ptr<COrbImage> COrbImage::Clone(HWND window, const wchar_t* text) const {
  return std::make_unique<COrbImage>(*this, window, text);
}

std::unique_ptr<COrbImage> COrbImage::CloneWithoutImage(HWND window, const wchar_t* text) const {
  auto image = std::make_unique<COrbImage>();
  if (!image->Create(*this, window, text)) return nullptr;
  return image;
}

void COrbImage::Swap(COrbImage* other) {
  if (!other || other == this) return;
  SwapCarriedFields(*other);
  CImage::Swap(other);
}

void COrbImage::CopyStdPtCtr(const COrbImage* other) {
  if (!other) return;
  m_stdPt[0] = other->m_stdPt[0];
  m_stdPt[1] = other->m_stdPt[1];
  m_stdCtr = other->m_stdCtr;
}

// ---- Markers ----------------------------------------------------------------------------

void COrbImage::SetStdPt(int i, const CfPoint& p) {
  if (i < 0 || i > 1) return;
  m_stdPt[i] = p;
  if (i == 0) m_stdCtr = p;
}

int COrbImage::GetStdPtNum() const { return (m_stdPt[0].IsValid() ? 1 : 0) + (m_stdPt[1].IsValid() ? 1 : 0); }

void COrbImage::SetDefaultCenter() { m_stdCtr.Set(GetWidth() / 2, GetHeight() / 2); }

CRect COrbImage::GetBkgRect(int i) const { return (i >= 0 && i < kBackgroundRects) ? m_bkgRect[i] : CRect(); }

void COrbImage::SetBkgRect(int i, const CRect& r) {
  if (i >= 0 && i < kBackgroundRects) m_bkgRect[i] = r;
}

void COrbImage::ClearBkgRect(int i) {
  if (i >= 0 && i < kBackgroundRects) m_bkgRect[i].SetRectEmpty();
}

bool COrbImage::IsBkgRectValid(int i) const {
  return i >= 0 && i < kBackgroundRects && m_bkgRect[i].Width() != 0 && m_bkgRect[i].Height() != 0;
}

int COrbImage::GetBkgRectNum() const { return (IsBkgRectValid(0) ? 1 : 0) + (IsBkgRectValid(1) ? 1 : 0); }

// ---- Value scales -----------------------------------------------------------------------

float COrbImage::To256(float value, int plane) const {
  return static_cast<float>((value - GetLevelMin(plane)) / GetLevelRange(plane) * 255.0);
}

double COrbImage::To256(double value, int plane) const {
  return (value - GetLevelMin(plane)) / GetLevelRange(plane) * 255.0;
}

float COrbImage::ToRaw(float value, int plane) const {
  return static_cast<float>(value / 255.0 * GetLevelRange(plane) + GetLevelMin(plane));
}

double COrbImage::ToRaw(double value, int plane) const { return value / 255.0 * GetLevelRange(plane) + GetLevelMin(plane); }

BYTE COrbImage::GetPixelGray256(int x, int y, int plane) const {
  const double v = *GetImageAdr(x, y, plane);
  if (v <= GetLevelMin(plane)) return 0;
  if (v >= GetLevelMax(plane)) return 255;
  return static_cast<BYTE>((v - GetLevelMin(plane)) / GetLevelRange(plane) * 255.0);
}

float COrbImage::GetPixelBright256f(const float* r, const float* g, const float* b) const {
  if (GetPlanes() < 3) return GetPixelGray256f(r, 0);
  return static_cast<float>(CalcBright(static_cast<double>(GetPixelGray256f(r, 0)),
                                       static_cast<double>(GetPixelGray256f(g, 1)),
                                       static_cast<double>(GetPixelGray256f(b, 2))));
}

float COrbImage::GetPixelBright256f(int x, int y) const {
  if (GetPlanes() < 3) return GetPixelGray256f(x, y, 0);
  return GetPixelBright256f(GetImageAdr(x, y, 0), GetImageAdr(x, y, 1), GetImageAdr(x, y, 2));
}

float COrbImage::GetPixelBrightRaw(const float* r, const float* g, const float* b) const {
  return static_cast<float>(GetPixelBright256f(r, g, b) / 255.0 * GetLevelRange(0) + GetLevelMin(0));
}

float COrbImage::GetPixelBrightRaw(int x, int y) const {
  return static_cast<float>(GetPixelBright256f(x, y) / 255.0 * GetLevelRange(0) + GetLevelMin(0));
}

// ---- Sub-pixel reads --------------------------------------------------------------------

namespace {

// Integer cell and the (possibly replaced) coordinate along one axis. Past the next-to-last
// sample the cell is the last pair and the coordinate the last sample, so the last sample is
// read exactly. A one-sample axis has cell 0.
void Cell(double& v, int size, int& cell) {
  if (v < size - 1) {
    cell = static_cast<int>(v);
  } else {
    cell = size - 2;
    v = size - 1;
  }
  if (cell < 0) cell = 0;
}

float Bilinear(const float* row0, const float* row1, int ix, int ix1, double fx, double fy) {
  const double fxy = fx * fy;
  return static_cast<float>((1.0 - fx) * (1.0 - fy) * row0[ix] + (fy - fxy) * row1[ix] + (fx - fxy) * row0[ix1] +
                            fxy * row1[ix1]);
}

}  // namespace

float COrbImage::GetPixelGrayRaw(double x, double y, int plane) const {
  int ix, iy;
  Cell(x, GetWidth(), ix);
  Cell(y, GetHeight(), iy);
  if (ix == x && iy == y) return *GetImageAdr(ix, iy, plane);
  const int iy1 = std::min(iy + 1, GetHeight() - 1);
  const int ix1 = std::min(ix + 1, GetWidth() - 1);  // a one-column image has no right neighbour
  return Bilinear(GetImageAdr(0, iy, plane), GetImageAdr(0, iy1, plane), ix, ix1, x - ix, y - iy);
}

float COrbImage::GetPixelGray(double x, double y, int plane) const {
  return GetPixelGrayRaw(x, y, plane) - static_cast<float>(GetLevelMin(plane));
}

float COrbImage::GetPixelGray256f(double x, double y, int plane) const {
  return static_cast<float>((GetPixelGrayRaw(x, y, plane) - GetLevelMin(plane)) / GetLevelRange(plane) * 255.0);
}

void COrbImage::GetPixelGrayRawBufInit() {
  m_rowBufY[0] = m_rowBufY[1] = -1;
  m_rowBuf[0] = m_rowBuf[1] = nullptr;
}

float COrbImage::GetPixelGrayRawBuf(double x, double y, int plane) {
  int ix, iy;
  Cell(x, GetWidth(), ix);
  Cell(y, GetHeight(), iy);
  const int iy1 = std::min(iy + 1, GetHeight() - 1);
  if (m_rowBufY[0] != iy) {
    m_rowBufY[0] = iy;
    m_rowBuf[0] = GetImageAdr(0, iy, plane);
  }
  if (m_rowBufY[1] != iy1) {
    m_rowBufY[1] = iy1;
    m_rowBuf[1] = GetImageAdr(0, iy1, plane);
  }
  if (ix == x && iy == y) return m_rowBuf[0][ix];
  const int ix1 = std::min(ix + 1, GetWidth() - 1);
  return Bilinear(m_rowBuf[0], m_rowBuf[1], ix, ix1, x - ix, y - iy);
}

// ---- Transformed reads ------------------------------------------------------------------

void COrbImage::TransformPoint(double x, double y, double dx, double dy, double sine, double cosine, double scale,
                               double cx, double cy, double* sx, double* sy) {
  if (!(cosine == 1.0 && sine == 0.0)) {
    const double u = x - cx - dx;
    const double w = cy - y + dy;
    *sx = (u * cosine - w * sine) * scale + cx;
    *sy = cy - (u * sine + w * cosine) * scale;
  } else if (scale == 1.0) {
    *sx = x - dx;
    *sy = y - dy;
  } else {
    *sx = (x - cx - dx) * scale + cx;
    *sy = (y - cy - dy) * scale + cy;
  }
}

float COrbImage::ReadNearest(int ix, int iy, int plane, bool scale256) const {
  if (plane >= 0) {
    const float* p = GetImageAdr(ix, iy, plane);
    return scale256 ? GetPixelGray256f(p, plane) : *p;
  }
  return scale256 ? GetPixelBright256f(ix, iy) : GetPixelBrightRaw(ix, iy);
}

float COrbImage::ReadTransformed(double sx, double sy, int plane, bool scale256, float outside, int nearest,
                                 bool testRounded, int* isOutside) const {
  if (GetPlanes() < 3) plane = 0;
  const int w = GetWidth(), h = GetHeight();
  if (nearest) {
    int ix = static_cast<int>(sx + 0.5), iy = static_cast<int>(sy + 0.5);
    const bool inside = testRounded ? (ix >= 0 && ix < w && iy >= 0 && iy < h)
                                    : (sx >= 0 && sx < w && sy >= 0 && sy < h);
    if (inside) {
      // The unrounded test admits the last half pixel, which rounds onto the next column
      // or row; read the last one instead of leaving the image.
      ix = std::min(ix, w - 1);
      iy = std::min(iy, h - 1);
      return ReadNearest(ix, iy, plane, scale256);
    }
  } else if (sx >= 0 && sx < w && sy >= 0 && sy < h) {
    if (plane >= 0) return scale256 ? GetPixelGray256f(sx, sy, plane) : GetPixelGrayRaw(sx, sy, plane);
    double r, g, b;
    ReadRgb(sx, sy, true, &r, &g, &b);
    const double bright256 = static_cast<float>(CalcBright(r, g, b));
    return scale256 ? static_cast<float>(bright256)
                    : static_cast<float>(bright256 / 255.0 * GetLevelRange(0) + GetLevelMin(0));
  }
  if (isOutside) *isOutside = 1;
  return outside;
}

float COrbImage::GetPixelGray256f(int x, int y, double dx, double dy, double sine, double cosine, double scale,
                                  int plane, float outside, int nearest, int* isOutside, double* srcX,
                                  double* srcY) const {
  double sx, sy;
  TransformPoint(x, y, dx, dy, sine, cosine, scale, m_stdCtr.fx, m_stdCtr.fy, &sx, &sy);
  if (isOutside) *isOutside = 0;
  if (srcX) *srcX = sx;
  if (srcY) *srcY = sy;
  return ReadTransformed(sx, sy, plane, true, outside, nearest, false, isOutside);
}

float COrbImage::GetPixelGray256f(int x, int y, int dx, int dy, double sine, double cosine, double scale, int plane,
                                  float outside, int nearest, int* isOutside, double* srcX, double* srcY) const {
  return GetPixelGray256f(x, y, double(dx), double(dy), sine, cosine, scale, plane, outside, nearest, isOutside, srcX,
                          srcY);
}

float COrbImage::GetPixelGrayRaw(int x, int y, double dx, double dy, double sine, double cosine, double scale,
                                 int plane, float outside, int nearest, int* isOutside, double* srcX,
                                 double* srcY) const {
  double sx, sy;
  TransformPoint(x, y, dx, dy, sine, cosine, scale, m_stdCtr.fx, m_stdCtr.fy, &sx, &sy);
  if (isOutside) *isOutside = 0;
  if (srcX) *srcX = sx;
  if (srcY) *srcY = sy;
  return ReadTransformed(sx, sy, plane, false, outside, nearest, true, isOutside);
}

float COrbImage::GetPixelGrayRaw(int x, int y, int dx, int dy, double sine, double cosine, double scale, int plane,
                                 float outside, int nearest, int* isOutside, double* srcX, double* srcY) const {
  return GetPixelGrayRaw(x, y, double(dx), double(dy), sine, cosine, scale, plane, outside, nearest, isOutside, srcX,
                         srcY);
}

void COrbImage::ReadRgb(double sx, double sy, bool scale256, double* r, double* g, double* b) const {
  double* out[3] = {r, g, b};
  for (int k = 0; k < 3; ++k) {
    const int plane = GetPlanes() < 3 ? 0 : k;
    *out[k] = scale256 ? GetPixelGray256f(sx, sy, plane) : GetPixelGrayRaw(sx, sy, plane);
  }
}

void COrbImage::GetPixelRgb256f(int x, int y, double dx, double dy, double sine, double cosine, int useStdCtr,
                                double scale, double* r, double* g, double* b, double outside, int* isOutside,
                                double* srcX, double* srcY) const {
  const double cx = useStdCtr ? m_stdCtr.fx : GetWidth() * 0.5;
  const double cy = useStdCtr ? m_stdCtr.fy : GetHeight() * 0.5;
  double sx, sy;
  TransformPoint(x, y, dx, dy, sine, cosine, scale, cx, cy, &sx, &sy);
  if (isOutside) *isOutside = 0;
  if (srcX) *srcX = sx;
  if (srcY) *srcY = sy;
  if (sx >= 0 && sx < GetWidth() && sy >= 0 && sy < GetHeight()) {
    ReadRgb(sx, sy, true, r, g, b);
    return;
  }
  if (isOutside) *isOutside = 1;
  *r = *g = *b = outside;
}

void COrbImage::GetPixelRgbRaw(int x, int y, double dx, double dy, double sine, double cosine, int useStdCtr,
                               double scale, double* r, double* g, double* b, double outside, int* isOutside,
                               double* srcX, double* srcY) const {
  const double cx = useStdCtr ? m_stdCtr.fx : GetWidth() * 0.5;
  const double cy = useStdCtr ? m_stdCtr.fy : GetHeight() * 0.5;
  double sx, sy;
  TransformPoint(x, y, dx, dy, sine, cosine, scale, cx, cy, &sx, &sy);
  if (isOutside) *isOutside = 0;
  if (srcX) *srcX = sx;
  if (srcY) *srcY = sy;
  if (sx >= 0 && sx < GetWidth() && sy >= 0 && sy < GetHeight()) {
    ReadRgb(sx, sy, false, r, g, b);
    return;
  }
  if (isOutside) *isOutside = 1;
  *r = *g = *b = outside;
}

// ---- Levels and areas -------------------------------------------------------------------

int COrbImage::SetLevel(int plane, double min, double max) {
  if (plane == -1 && GetPlanes() < 3) plane = 0;
  if (plane != -1) return CImage::SetLevel(plane, min, max);
  const double a = (min - GetLevelMin(0)) / GetLevelRange(0);
  const double b = (max - GetLevelMax(0)) / GetLevelRange(0);
  for (int k = 1; k < 3; ++k)
    CImage::SetLevel(k, GetLevelMin(k) + a * GetLevelRange(k), GetLevelMax(k) + b * GetLevelRange(k));
  return CImage::SetLevel(0, min, max);
}

void COrbImage::NormalizeRect(const CRect* r, int& left, int& top, int& right, int& bottom) const {
  if (!r) {
    left = 0;
    top = 0;
    right = GetWidth();
    bottom = GetHeight();
    return;
  }
  left = std::clamp(r->left, 0, GetWidth());
  right = std::clamp(r->right, 0, GetWidth());
  top = std::clamp(r->top, 0, GetHeight());
  bottom = std::clamp(r->bottom, 0, GetHeight());
}

void COrbImage::PixelBlt(int x, int y, int w, int h, const COrbImage* src, int sx, int sy, int rescale) {
  if (!src || src->GetPlanes() != GetPlanes()) return;
  // Clip the block against both images, moving both origins together.
  const int shiftX = std::max({0, -x, -sx}), shiftY = std::max({0, -y, -sy});
  x += shiftX, sx += shiftX, w -= shiftX;
  y += shiftY, sy += shiftY, h -= shiftY;
  w = std::min({w, GetWidth() - x, src->GetWidth() - sx});
  h = std::min({h, GetHeight() - y, src->GetHeight() - sy});
  if (w <= 0 || h <= 0) return;
  for (int p = 0; p < GetPlanes(); ++p) {
    const double srcMin = src->GetLevelMin(p), srcRange = src->GetLevelRange(p);
    const double dstMin = GetLevelMin(p), dstRange = GetLevelRange(p);
    for (int row = 0; row < h; ++row) {
      const float* in = src->GetImageAdr(sx, sy + row, p);
      float* out = GetImageAdr(x, y + row, p, 0);
      if (!rescale) {
        std::copy_n(in, w, out);
        continue;
      }
      for (int i = 0; i < w; ++i) {
        const float t = static_cast<float>((in[i] - srcMin) / srcRange * 255.0);
        out[i] = static_cast<float>(t / 255.0 * dstRange + dstMin);
      }
    }
  }
}
