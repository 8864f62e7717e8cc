// Sky-gradient removal: linear and parabolic background profiles.
#include "ops/calibration/ImgFlat.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "core/LineLoop.h"
#include "kernels/Vec4.h"

namespace {
constexpr int kTitleGradient = 6139;

// The constants of one plane's pass: mode, the sky level and the base of mode 1.
struct GradientPass {
  int mode;
  double sky, base;
};

// The scale of mode 1 at one column: (L + base) / (g + L + base), grouped as written.
template <class G>
inline double ProportionalFactor(const GradientPass& pass, const G& g, int x, int y) {
  return (pass.sky + pass.base) / (g(x, y) + pass.sky + pass.base);
}

// The radial profile k·((x − cx)² + (y − cy)²). When 2·cx is an integer, x − cx and
// (2·cx − x) − cx are exact and opposite, so a column and its mirror 2·cx − x give the same
// profile bit for bit, and mode 1 divides once for both.
struct Parabola {
  double cx, cy, k;
  double operator()(int x, int y) const { return k * ((x - cx) * (x - cx) + (y - cy) * (y - cy)); }
  // The mirror sum 2·cx in `m` when columns mirror exactly.
  bool Mirrors(long long& m) const {
    const double twice = 2.0 * cx;
    if (!(std::fabs(cx) < 0x1p30) || twice != std::floor(twice)) return false;
    m = static_cast<long long>(twice);
    return true;
  }
};

template <class G>
constexpr bool kMirrored = std::is_same_v<std::decay_t<G>, Parabola>;

// d[i] = f·(s[i] + base) − base in double, stored as float, with f = factor[i], or factor[−i]
// when kReversed (the factors of mirrored columns, read backwards). kStream writes the aligned
// part with streaming stores (the caller fences).
template <bool kStream, bool kReversed>
void ScaleSpan(const double* factor, const float* s, float* d, int n, double base) {
  auto one = [&](int i) {
    const double f = kReversed ? factor[-i] : factor[i];
    d[i] = static_cast<float>(f * (double(s[i]) + base) - base);
  };
  int i = 0;
  if constexpr (kStream) {
    for (const int head = UnalignedHead<4>(d, n); i < head; ++i) one(i);
    const Vec4d b(base);
    for (; i + 4 <= n; i += 4) {
      Vec4d f;
      if constexpr (kReversed) {
        const Vec4d r = Vec4d::Load(factor - i - 3);
        f = Vec4d::Raw{r[3], r[2], r[1], r[0]};
      } else {
        f = Vec4d::Load(factor + i);
      }
      Put<true>(d + i, ToFloat(f * (ToDouble(Vec4f::Load(s + i)) + b) - b));
    }
  }
  for (; i < n; ++i) one(i);
}

// Mode 1 on columns [left, right) of line y for a mirrored parabola: each column left of its
// mirror m − x (and every column without one in the row) divides on its own, into factor
// (room for right − left); the others take their mirror's factor, read backwards.
template <bool kStream>
void ParabolaRow(const GradientPass& pass, const Parabola& g, const float* s, float* d, int left, int right, int y,
                 long long m, double* factor) {
  const long long firstRight = (m >= 0 ? m / 2 : (m - 1) / 2) + 1;  // first column right of the centre
  const int own = static_cast<int>(std::clamp<long long>(firstRight, left, right));
  const int mirrored = static_cast<int>(std::clamp<long long>(m - left + 1, own, right));
  // Copies of the constants: stores into factor could otherwise alias them, which keeps the
  // compiler from vectorising the divisions.
  const GradientPass p = pass;
  const Parabola curve = g;
  for (int x = left; x < own; ++x) factor[x - left] = ProportionalFactor(p, curve, x, y);
  for (int x = mirrored; x < right; ++x) factor[x - left] = ProportionalFactor(p, curve, x, y);
  const int a = own - left, b = mirrored - left, n = right - left;
  ScaleSpan<kStream, false>(factor, s, d, a, p.base);
  ScaleSpan<kStream, true>(factor + (m - own - left), s + a, d + a, b - a, p.base);
  ScaleSpan<kStream, false>(factor + b, s + b, d + b, n - b, p.base);
}

// One row, columns [left, left + n) of line y, from s into d; `factor` has room for n.
template <class G, bool kStream = false>
void GradientRow(const GradientPass& pass, const G& g, const float* s, float* d, int left, int n, int y,
                 double* factor) {
  const double base = pass.base;
  if (pass.mode == 0) {
    for (int i = 0; i < n; ++i) d[i] = static_cast<float>(s[i] - g(left + i, y));
  } else if (pass.mode == 1) {
    long long m = 0;
    if constexpr (kMirrored<G>) {
      if (g.Mirrors(m)) {
        ParabolaRow<kStream>(pass, g, s, d, left, left + n, y, m, factor);
        return;
      }
    }
    for (int i = 0; i < n; ++i)
      d[i] = static_cast<float>(ProportionalFactor(pass, g, left + i, y) * (double(s[i]) + base) - base);
  } else {
    for (int i = 0; i < n; ++i) d[i] = 0.0f;
  }
}

// The same row compiled for 256-bit vectors: four doubles a step.
template <class G, bool kStream>
QRN_WIDE_TARGET void GradientRowWide(const GradientPass& pass, const G& g, const float* s, float* d, int left, int n,
                                     int y, double* factor) {
  GradientRow<G, kStream>(pass, g, s, d, left, n, y, factor);
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
  // Only the mirrored parabola's scaling pass streams; the other rows store as they go.
  const std::size_t bytes = sizeof(float) * std::size_t(std::max(right - left, 0)) * std::max(bottom - top, 0) * planes;
  const bool stream = wide && mode == 1 && qrn::simd::StreamStores(bytes, src == this);
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
      // Per-thread room for a row of mode 1 scales, kept between rows.
      thread_local std::vector<double> factors;
      factors.resize(static_cast<std::size_t>(right - left));
      using G = std::decay_t<decltype(g)>;
      if (stream) GradientRowWide<G, true>(pass, g, s, d, left, right - left, y, factors.data());
      else if (wide) GradientRowWide<G, false>(pass, g, s, d, left, right - left, y, factors.data());
      else GradientRow(pass, g, s, d, left, right - left, y, factors.data());
      if (stream) qrn::simd::StreamFence();
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

void CImgFlat::DoParabolic(COrbImage* src, CPoint* centre, double* curvature, double* level, double* floor, int mode,
                           CRect* rect, int progress) {
  if (!centre || !curvature) return;
  RemoveGradient(src, level, floor, mode, rect, progress,
                 [&](int p) { return Parabola{double(centre[p].x), double(centre[p].y), curvature[p]}; });
}

void CImgFlat::DoParabolicPoint(COrbImage* src, double* centreX, double* centreY, double* curvature, double* level,
                                double* floor, int mode, CRect* rect, int progress) {
  if (!centreX || !centreY || !curvature) return;
  RemoveGradient(src, level, floor, mode, rect, progress,
                 [&](int p) { return Parabola{centreX[p], centreY[p], curvature[p]}; });
}
