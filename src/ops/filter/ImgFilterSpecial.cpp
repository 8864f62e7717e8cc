// Digital development and the star and nebula filters.
#include "ops/filter/ImgFilterSpecial.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "core/LineLoop.h"
#include "kernels/FilterMatrix.h"
#include "kernels/Vec4.h"
#include "ops/filter/BlurRows.h"
#include "ops/level/ImgAutoLevel.h"
#include "platform/Diagnostics.h"
#include "platform/QrnSys.h"

using namespace qrn::filter;

namespace {

/// Gamma curve above a lower bound: values at or below lo pass unchanged.
float GammaCurve(float v, float e, float lo, float rg) {
  const float d = v - lo;
  if (d <= 0.0f) return v;
  return std::pow(d / rg, e) * rg + lo;
}

/// Disc kernel of digital development: weight w inside the circle of radius rho (-1: r),
/// 1 at the centre, 0 outside, normalised.
void DiscKernel(CFilterMatrix& m, int r, double rho, double w) {
  if (rho == -1.0) rho = r;
  const int side = 2 * r + 1;
  std::vector<double> c(static_cast<size_t>(side) * static_cast<size_t>(side), 0.0);
  for (int dy = -r; dy <= r; ++dy)
    for (int dx = -r; dx <= r; ++dx)
      if (dx * dx + dy * dy <= rho * rho) c[static_cast<size_t>((dy + r) * side + dx + r)] = w;
  c[static_cast<size_t>(r * side + r)] = 1.0;
  m = CFilterMatrix(r, c.data(), 0);
  m.Normalize();
}

/// Where pixel (0, 0) of the destination sits in the work image: the work image is either
/// the same size or a bordered copy centred on it.
struct WorkOffset {
  int x = 0, y = 0;
};

bool UsableDDWork(const COrbImage& image, const COrbImage* work, WorkOffset& off) {
  if (!work || work->IsEmpty() || image.IsEmpty()) return false;
  if (work->GetWidth() < image.GetWidth() || work->GetHeight() < image.GetHeight()) return false;
  if (work->GetPlanes() < image.GetPlanes()) return false;
  off.x = (work->GetWidth() - image.GetWidth()) / 2;
  off.y = (work->GetHeight() - image.GetHeight()) / 2;
  return true;
}

/// Per-plane constants of the development pass.
struct DDPlane {
  float e = 1.0f, lo = 0.0f, s = 0.0f, gLow = 0.0f, gRange = 0.0f, offset = 0.0f, mult = 0.0f;
  double low = 0.0, range = 0.0;
  bool gamma = false, usable = false;
};

/// Development without gamma of pixels [0, n) of a row, four at a time, from the work pixels
/// and the blur of plane q: the same float and double steps, in the same order, as
/// DigitalDvlp2's per-pixel function; lanes whose divisor is not positive keep the work
/// pixel. Returns the first pixel not done (the caller finishes the row one pixel at a time).
inline int DevelopSpan(const DDPlane& c, const DDPlane& q, const float* src, const float* blur, float* dst, int n) {
  const Vec4f qlo(q.lo), qs(q.s), lo(c.lo), s(c.s), offset(c.offset), mult(c.mult), zero(0.0f);
  const Vec4d k255(255.0), range(c.range), low(c.low);
  int i = 0;
  for (; i + 4 <= n; i += 4) {
    const Vec4f b = (Vec4f::Load(blur + i) - qlo) * qs;
    const Vec4f rb = ToFloat(ToDouble(b) / k255 * range + low);
    const Vec4f d = (rb - lo) * s + offset;
    const Vec4f v = Vec4f::Load(src + i);
    Vec4f::Select(d > zero, ((v - lo) * s / d) * mult / s + lo, v).Store(dst + i);
  }
  return i;
}

using DevelopRowFn = int (*)(const DDPlane& c, const DDPlane& q, const float* src, const float* blur, float* dst,
                             int n);

QRN_WIDE_TARGET int DevelopSpanWide(const DDPlane& c, const DDPlane& q, const float* src, const float* blur,
                                    float* dst, int n) {
  return DevelopSpan(c, q, src, blur, dst, n);
}

/// The vector row of development without gamma for this processor, or null for the scalar path.
DevelopRowFn DevelopRow() {
  if (!(CQrnSys::SIMD() & 2)) return nullptr;
  return qrn::simd::WideVectors() ? &DevelopSpanWide : &DevelopSpan;
}

/// The two development passes share everything but the per-pixel arithmetic.
template <class Pixel>
void RunDevelopment(CImgFilterSpecial& image, double* gamma, COrbImage* work, int* filterPlane, float* gLow,
                    float* gRange, float* offset, float* mult, CRect* rect, int progress, Pixel pixel,
                    DevelopRowFn fastRow = nullptr) {
  WorkOffset off;
  if (!UsableDDWork(image, work, off)) return;
  const int planes = image.GetPlanes();
  DDPlane k[CImage::kMaxPlanes];
  for (int p = 0; p < planes; ++p) {
    k[p].e = static_cast<float>(1.0 / gamma[p]);
    k[p].gamma = k[p].e != 1.0f;
    k[p].low = image.GetLevelMin(p);
    k[p].range = image.GetLevelRange(p);
    k[p].lo = static_cast<float>(k[p].low);
    k[p].s = static_cast<float>(255.0 / k[p].range);
    k[p].usable = k[p].range != 0.0;
    if (gLow) k[p].gLow = gLow[p];
    if (gRange) k[p].gRange = gRange[p];
    k[p].offset = offset[p];
    k[p].mult = mult[p];
  }
  const Area a = ClipArea(image, rect);
  if (a.IsEmpty()) return;
  RowScratch scratch(3, a.Width());
  image.ShowProgressInit(progress, 6116, a.Height() * planes);
  CLineLoop(image).RunPlanes(planes, a.top, a.bottom, [&](int p, int y) {
    const int n = a.Width(), xw = a.left + off.x, yw = y + off.y;
    const float* src = work->GetImageAdr(xw, yw, p, VM_READONLY);
    float* dst = image.GetImageAdr(a.left, y, p, 0);
    const DDPlane& c = k[p];
    if (!c.usable) {
      std::copy(src, src + n, dst);
      return;
    }
    // Grey images have one blur whatever filterPlane asks for.
    const int q = planes < 3 ? 0 : std::max(0, filterPlane[p]);
    // Blur of each pixel in plane p's 0..255 units of plane q (or the mean of three planes).
    float* blurRows[3] = {scratch.Row(0), scratch.Row(1), scratch.Row(2)};
    if (q < 3) {
      BlurRow(image, q, xw, yw, n, blurRows[0]);
    } else {
      for (int i = 0; i < 3; ++i) BlurRow(image, i, xw, yw, n, blurRows[i]);
    }
    // The vector row serves planes without gamma blurred from one plane.
    int i = fastRow && q < 3 && !c.gamma ? fastRow(c, k[q], src, blurRows[0], dst, n) : 0;
    for (; i < n; ++i) {
      double b;
      if (q < 3)
        b = (blurRows[0][i] - k[q].lo) * k[q].s;
      else
        b = ((blurRows[0][i] - k[0].lo) * k[0].s + (blurRows[1][i] - k[1].lo) * k[1].s +
             (blurRows[2][i] - k[2].lo) * k[2].s) /
            3.0;
      dst[i] = pixel(c, src[i], b);
    }
  });
  image.UnlockAll();
  work->UnlockAll();
  image.ShowProgressEnd(nullptr);
}

}  // namespace

void CImgFilterSpecial::DigitalDvlp1(double* background, int kernelType, double* sigma, double discWeight,
                                     double* gamma, int minMaxMode, COrbImage* work, float* gLow, float* gRange,
                                     float* offset, float* mult, int gammaAfter) {
  OutputDebugStringW(L"CImgFilterSpecial::DigitalDvlp1\n");
  CFilterMatrix matrix[3];
  WorkOffset off;
  if (!UsableDDWork(*this, work, off)) return;
  const int planes = GetPlanes();
  float e[CImage::kMaxPlanes] = {1.0f, 1.0f, 1.0f};
  for (int p = 0; p < planes; ++p) {
    e[p] = static_cast<float>(1.0 / gamma[p]);
    if (kernelType == 0) {
      matrix[p].Gaussian(sigma[p]);
    } else if (kernelType == 1) {
      DiscKernel(matrix[p], std::max(1, 2 * static_cast<int>(sigma[p])), sigma[p], discWeight);
    } else {
      return;
    }
    MakeFilterProc(work, &matrix[p], p, 1);
  }
  float max[3] = {0.0f, 0.0f, 0.0f};
  DigitalDvlpGetMinMax(minMaxMode, work, gLow, max, gRange);

  const double low0 = GetLevelMin(0), range0 = GetLevelRange(0);
  const bool gammaBefore = gammaAfter == 0 && e[0] != 1.0f;
  float f = static_cast<float>(background[0]);
  if (gammaBefore) f = GammaCurve(f, e[0], gLow[0], gRange[0]);
  const float a = static_cast<float>((f - low0) / range0 * 255.0);
  float m = 0.0f;
  static_cast<CImgAutoLevel*>(work)->GetMedian(&m, 1, 0, 0, nullptr);
  if (gammaBefore) m = GammaCurve(m, e[0], gLow[0], gRange[0]);
  const float k = static_cast<float>((m - low0) / range0 * 255.0) + a;
  for (int p = 0; p < 3; ++p) {
    offset[p] = a;
    mult[p] = k;
  }
}

void CImgFilterSpecial::DigitalDvlp2(int enable, double* gamma, COrbImage* work, int* filterPlane, float* gLow,
                                     float* gRange, float* offset, float* mult, CRect* rect, int progress) {
  OutputDebugStringW(L"CImgFilterSpecial::DigitalDvlp2\n");
  RunDevelopment(*this, gamma, work, filterPlane, gLow, gRange, offset, mult, rect, progress,
                 [enable](const DDPlane& c, float v, double b) {
                   if (c.gamma) v = GammaCurve(v, c.e, c.gLow, c.gRange);
                   if (!enable) return v;
                   float rb = static_cast<float>(b / 255.0 * c.range + c.low);
                   if (c.gamma) rb = GammaCurve(rb, c.e, c.gLow, c.gRange);
                   const float d = (rb - c.lo) * c.s + c.offset;
                   if (d > 0.0f) v = ((v - c.lo) * c.s / d) * c.mult / c.s + c.lo;
                   return v;
                 },
                 enable ? DevelopRow() : nullptr);
}

void CImgFilterSpecial::DigitalDvlpGmAftrDdp(int enable, double* gamma, COrbImage* work, int* filterPlane,
                                             float* gLow, float* gRange, float* offset, float* mult, CRect* rect,
                                             int progress) {
  OutputDebugStringW(L"CImgFilterSpecial::DigitalDvlpGmAftrDdp\n");
  RunDevelopment(*this, gamma, work, filterPlane, gLow, gRange, offset, mult, rect, progress,
                 [enable](const DDPlane& c, float v, double b) {
                   if (!enable) return v;
                   float n = (v - c.lo) * c.s;
                   const float d = (static_cast<float>(b / 255.0 * c.range + c.low) - c.lo) * c.s + c.offset;
                   if (d > 0.0f) n = n / d * c.mult;
                   if (c.gamma) n = GammaCurve(n, c.e, 0.0f, 255.0f);
                   return static_cast<float>(n / 255.0 * c.range + c.low);
                 });
}

void CImgFilterSpecial::DigitalDvlpGetMinMax(int mode, COrbImage* work, float* min, float* max, float* range) {
  const int planes = GetPlanes();
  const bool known = work && mode >= 0 && mode <= 3;
  if (known) {
    for (int p = 0; p < planes; ++p) {
      switch (mode) {
        case 0:
          min[p] = 0.0f;
          max[p] = work->GetMaxPixel(p);
          break;
        case 1:
          min[p] = work->GetMinPixel(p);
          max[p] = work->GetMaxPixel(p);
          break;
        case 2:
          min[p] = work->GetMinPixel(p);
          max[p] = static_cast<float>(work->GetLevelMax(0));
          break;
        default:
          min[p] = static_cast<float>(GetLevelMin(p));
          max[p] = work->GetMaxPixel(p);
          break;
      }
    }
    if (planes == 3) {
      // Planes 1 and 2 take plane 0's values at the same place of their own display scale.
      const double low0 = GetLevelMin(0), range0 = GetLevelRange(0);
      auto carry = [&](float v0, int k) {
        return static_cast<float>(static_cast<float>((v0 - low0) / range0 * 255.0) / 255.0 * GetLevelRange(k) +
                                  GetLevelMin(k));
      };
      for (int k = 1; k < 3; ++k) {
        max[k] = carry(max[0], k);
        min[k] = mode == 3 ? static_cast<float>(GetLevelMin(k)) : carry(min[0], k);
      }
    }
  }
  for (int k = 0; k < 3; ++k) range[k] = max[k] - min[k];
}

void CImgFilterSpecial::DigitalDvlpGetLevel(double* gamma, int mode, COrbImage* work, double* low, double* high) {
  if (gamma[0] == 1.0 && gamma[1] == 1.0 && gamma[2] == 1.0) return;
  const int planes = GetPlanes();
  // An unknown mode leaves the level source alone; it then stands at this image's window.
  float mn[3], mx[3], rg[3];
  for (int p = 0; p < 3; ++p) {
    const int lp = p < planes ? p : 0;
    mn[p] = static_cast<float>(GetLevelMin(lp));
    mx[p] = static_cast<float>(GetLevelMax(lp));
  }
  DigitalDvlpGetMinMax(mode, work, mn, mx, rg);
  for (int p = 0; p < planes; ++p) {
    if (gamma[p] == 1.0) continue;
    const float e = static_cast<float>(1.0 / gamma[p]);
    if (mn[p] <= low[p] && high[p] <= mx[p]) {
      low[p] = GammaCurve(static_cast<float>(low[p]), e, mn[p], rg[p]);
      high[p] = GammaCurve(static_cast<float>(high[p]), e, mn[p], rg[p]);
    } else if (low[p] < mn[p] && high[p] <= mx[p]) {
      high[p] = GammaCurve(static_cast<float>(high[p]), e, mn[p], rg[p]);
    }
  }
}

// ---- Star and nebula filters ---------------------------------------------------------

int CImgFilterSpecial::GetStarSharpFilterNum(double radius) {
  const int r = static_cast<int>(std::ceil(ClampBlurSize(radius)));
  CFilterMatrix disc;
  disc.Disc(r);
  int count = 0;
  for (int y = -r; y <= r; ++y)
    for (int x = -r; x <= r; ++x) count += disc.At(x, y) != 0.0f;
  return count;
}

void CImgFilterSpecial::StarEnhanceFilter(double radius, double amount, double threshold, int kernelType,
                                          COrbImage* work, CRect* rect, int progress) {
  double r[3] = {radius, radius, radius}, a[3] = {amount, amount, amount}, t[3] = {threshold, threshold, threshold};
  StarEnhanceFilter2(r, a, t, kernelType, work, rect, progress);
}

void CImgFilterSpecial::StarEnhanceFilter2(double* radius, double* amount, double* threshold, int kernelType,
                                           COrbImage* work, CRect* rect, int progress) {
  RunBlurFilter(
      *this, work, rect, 6173, progress, [&](int p, CFilterMatrix& m) { BuildBlurKernel(m, kernelType, radius[p]); },
      [&](int p, int, int, const float* src, const float* blur, float* dst, int n) {
        const double a = amount[p], t = threshold[p];
        for (int i = 0; i < n; ++i) {
          const double e = static_cast<double>(src[i]) - blur[i];
          dst[i] = e > t ? static_cast<float>(src[i] + a * (e - t)) : src[i];
        }
      });
}

void CImgFilterSpecial::StarSharpFilter(double* radius, double* amount, double* threshold, int kernelType,
                                        COrbImage* work, CRect* rect, int progress) {
  const int planes = GetPlanes();
  // Offsets of the clamping disc per plane, as (dx, dy) pairs.
  std::vector<std::vector<int>> disc(static_cast<size_t>(planes));
  for (int p = 0; p < planes; ++p) {
    const int r = static_cast<int>(std::ceil(ClampBlurSize(radius[p])));
    for (int dy = -r; dy <= r; ++dy)
      for (int dx = -r; dx <= r; ++dx)
        if (dx * dx + dy * dy <= r * r) disc[static_cast<size_t>(p)].insert(disc[static_cast<size_t>(p)].end(), {dx, dy});
  }
  const int w = GetWidth(), h = GetHeight();
  RunBlurFilter(
      *this, work, rect, 6165, progress, [&](int p, CFilterMatrix& m) { BuildBlurKernel(m, kernelType, radius[p]); },
      [&](int p, int x0, int y, const float* src, const float* blur, float* dst, int n) {
        const double a = amount[p], t = threshold[p];
        const std::vector<int>& d = disc[static_cast<size_t>(p)];
        for (int i = 0; i < n; ++i) {
          const double e = static_cast<double>(src[i]) - blur[i];
          if (!(std::fabs(e) > t)) {
            dst[i] = src[i];
            continue;
          }
          // Neighbours outside the image are left out of the range.
          float lo = src[i], hi = src[i];
          for (size_t j = 0; j < d.size(); j += 2) {
            const int xx = x0 + i + d[j], yy = y + d[j + 1];
            if (xx < 0 || xx >= w || yy < 0 || yy >= h) continue;
            const float s = *work->GetImageAdr(xx, yy, p, VM_READONLY);
            lo = std::min(lo, s);
            hi = std::max(hi, s);
          }
          dst[i] = std::clamp(static_cast<float>(src[i] + a * e), lo, hi);
        }
      });
}

void CImgFilterSpecial::NebularSmootherFilter(double* radius, double* strength, double* threshold, int kernelType,
                                              COrbImage* work, CRect* rect, int progress) {
  RunBlurFilter(
      *this, work, rect, 6174, progress, [&](int p, CFilterMatrix& m) { BuildBlurKernel(m, kernelType, radius[p]); },
      [&](int p, int, int, const float* src, const float* blur, float* dst, int n) {
        const double s = std::clamp(strength[p], 0.0, 1.0), t = threshold[p];
        for (int i = 0; i < n; ++i) {
          const double e = static_cast<double>(src[i]) - blur[i];
          dst[i] = e <= t ? static_cast<float>(src[i] + s * (blur[i] - static_cast<double>(src[i]))) : src[i];
        }
      });
}

void CImgFilterSpecial::StaryMask(double radius, double threshold, double grow, int kernelType, COrbImage* work,
                                  CRect* rect, int progress) {
  const Area a = ClipArea(*this, rect);
  if (!SameGeometry(*this, work) || a.IsEmpty()) return;
  const int planes = GetPlanes();
  const int g = static_cast<int>(std::lround(ClampBlurSize(grow)));
  // Stars are detected in the area grown by g, so that a star just outside still reaches in.
  const Area d{std::max(0, a.left - g), std::max(0, a.top - g), std::min(GetWidth(), a.right + g),
               std::min(GetHeight(), a.bottom + g)};
  std::vector<unsigned char> star(static_cast<size_t>(d.Width()) * static_cast<size_t>(d.Height()), 0);
  std::vector<CFilterMatrix> matrix(static_cast<size_t>(planes));
  ClearFilterProc();
  for (int p = 0; p < planes; ++p) {
    BuildBlurKernel(matrix[static_cast<size_t>(p)], kernelType, radius);
    MakeFilterProc(work, &matrix[static_cast<size_t>(p)], p, 1);
  }
  RowScratch scratch(1, d.Width());
  ShowProgressInit(progress, 6196, d.Height() + a.Height());
  CLineLoop loop(*this);
  loop.Run(d.top, d.bottom, [&](int y) {
    unsigned char* flag = star.data() + static_cast<size_t>(y - d.top) * static_cast<size_t>(d.Width());
    float* blur = scratch.Row(0);
    for (int p = 0; p < planes; ++p) {
      BlurRow(*this, p, d.left, y, d.Width(), blur);
      const float* src = work->GetImageAdr(d.left, y, p, VM_READONLY);
      for (int i = 0; i < d.Width(); ++i)
        if (static_cast<double>(src[i]) - blur[i] > threshold) flag[i] = 1;
    }
  });
  loop.Run(a.top, a.bottom, [&](int y) {
    for (int x = a.left; x < a.right; ++x) {
      bool on = false;
      for (int dy = -g; dy <= g && !on; ++dy) {
        const int yy = y + dy;
        if (yy < d.top || yy >= d.bottom) continue;
        const unsigned char* row = star.data() + static_cast<size_t>(yy - d.top) * static_cast<size_t>(d.Width());
        for (int dx = -g; dx <= g && !on; ++dx) {
          const int xx = x + dx;
          if (xx >= d.left && xx < d.right && dx * dx + dy * dy <= g * g && row[xx - d.left]) on = true;
        }
      }
      for (int p = 0; p < planes; ++p) *GetImageAdr(x, y, p, 0) = on ? 1.0f : 0.0f;
    }
  });
  for (int p = 0; p < planes; ++p) SetLevel(p, 0.0, 1.0);
  UnlockAll();
  work->UnlockAll();
  ShowProgressEnd(nullptr);
  ClearFilterProc();
}
