// Sky-gradient removal: linear and parabolic background profiles.
#include "ops/calibration/ImgFlat.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "core/LineLoop.h"
#include "kernels/Vec4.h"

namespace {
constexpr int kTitleGradient = 6139;

// The constants of one plane's pass: mode, the sky level and the base of mode 1.
struct GradientPass {
  int mode;
  double sky, base;
};

// One row, columns [left, left + n) of line y, from s into d.
template <class G>
void GradientRow(const GradientPass& pass, const G& g, const float* s, float* d, int left, int n, int y) {
  const double sky = pass.sky, base = pass.base;
  if (pass.mode == 0) {
    for (int i = 0; i < n; ++i) d[i] = static_cast<float>(s[i] - g(left + i, y));
  } else if (pass.mode == 1) {
    for (int i = 0; i < n; ++i)
      d[i] = static_cast<float>((sky + base) / (g(left + i, y) + sky + base) * (double(s[i]) + base) - base);
  } else {
    for (int i = 0; i < n; ++i) d[i] = 0.0f;
  }
}

// The same row compiled for 256-bit vectors: four doubles a step.
template <class G>
QRN_WIDE_TARGET void GradientRowWide(const GradientPass& pass, const G& g, const float* s, float* d, int left, int n,
                                     int y) {
  GradientRow(pass, g, s, d, left, n, y);
}
}  // namespace

// profile(p) gives the plane's background function g(x, y); the frame around it is shared.
template <class Profile>
void CImgFlat::RemoveGradient(COrbImage* src, const double* level, const double* floor, int mode, CRect* rect,
                              int progress, Profile&& profile) {
  if (!src) src = this;
  int left, top, right, bottom;
  NormalizeRect(rect, left, top, right, bottom);
  const int planes = GetPlanes();
  ShowProgressInit(progress, kTitleGradient, (bottom > top ? bottom - top : 0) * planes);
  CLineLoop loop(*this);
  const bool wide = qrn::simd::WideVectors();
  for (int p = 0; p < planes && right > left; ++p) {
    const double sky = level ? level[p] : 0.0;
    double base = 0.0;
    if (mode == 1) {
      base = floor ? -std::min<double>(src->GetMinPixel(p), floor[p]) : -double(src->GetMinPixel(p));
      if (base == 0.0) base = 1.0;
    }
    const auto g = profile(p);
    const GradientPass pass{mode, sky, base};
    loop.Run(top, bottom, [&](int y) {
      LOCKHANDLE hs = nullptr, hd = nullptr;
      const float* s = src->GetImageAdr(left, y, p, VM_READONLY | VM_LOCK, &hs);
      float* d = GetImageAdr(left, y, p, VM_LOCK, &hd);
      if (wide) GradientRowWide(pass, g, s, d, left, right - left, y);
      else GradientRow(pass, g, s, d, left, right - left, y);
      Unlock(hd);
      src->Unlock(hs);
    });
  }
  ShowProgressEnd(nullptr);
}

void CImgFlat::DoFlat(COrbImage* src, CPoint* p1, CPoint* p2, double* slope, double* level, double* floor, int mode,
                      CRect* rect, int progress) {
  if (!p1 || !p2 || !slope) return;
  RemoveGradient(src, level, floor, mode, rect, progress, [&](int p) {
    const CPoint P = p1[p], Q = p2[p];
    const int dx = Q.x - P.x, dy = Q.y - P.y;
    double ux, uy;
    if (dx == 0) {
      ux = 0.0;
      uy = dy > 0 ? 1.0 : -1.0;
    } else {
      const double m = double(dy) / dx;
      ux = (dx >= 0 ? 1.0 : -1.0) * std::sqrt(1.0 / (m * m + 1.0));
      uy = ux * m;
    }
    // The reference comes from the two y coordinates only: their mean read as a packed
    // point whose x is the low 16 bits, sign-extended. Kept as the gradient's zero line.
    const int packed = (P.y + Q.y) / 2;
    const double c = static_cast<std::int16_t>(static_cast<std::uint32_t>(packed) & 0xFFFFu);
    const double s = slope[p];
    return [=](int x, int y) { return (x * ux + y * uy - c) * s; };
  });
}

void CImgFlat::DoFlatPoint(COrbImage* src, double* gradX, double* gradY, double* level, double* floor, int mode,
                           CRect* rect, int progress) {
  if (!gradX || !gradY) return;
  const double cx = (GetWidth() - 1) / 2.0, cy = (GetHeight() - 1) / 2.0;
  RemoveGradient(src, level, floor, mode, rect, progress, [&](int p) {
    const double ax = gradX[p], ay = gradY[p];
    return [=](int x, int y) { return ax * (x - cx) + ay * (y - cy); };
  });
}

namespace {
auto Parabola(double cx, double cy, double k) {
  return [=](int x, int y) { return k * ((x - cx) * (x - cx) + (y - cy) * (y - cy)); };
}
}  // namespace

void CImgFlat::DoParabolic(COrbImage* src, CPoint* centre, double* curvature, double* level, double* floor, int mode,
                           CRect* rect, int progress) {
  if (!centre || !curvature) return;
  RemoveGradient(src, level, floor, mode, rect, progress,
                 [&](int p) { return Parabola(centre[p].x, centre[p].y, curvature[p]); });
}

void CImgFlat::DoParabolicPoint(COrbImage* src, double* centreX, double* centreY, double* curvature, double* level,
                                double* floor, int mode, CRect* rect, int progress) {
  if (!centreX || !centreY || !curvature) return;
  RemoveGradient(src, level, floor, mode, rect, progress,
                 [&](int p) { return Parabola(centreX[p], centreY[p], curvature[p]); });
}
