// Dark-frame synthesis from two measured darks.
#include "ops/calibration/ImgDark.h"

#include <cmath>

#include "kernels/Prefetch.h"
#include "kernels/Vec4.h"

namespace {
constexpr int kTitleDarkInterpolation = 6183;

// Per-lane choice with the same rule for a double and for four doubles.
inline double Choose(bool take, double a, double b) { return take ? a : b; }
inline Vec4d Choose(const Vec4d::Mask& take, const Vec4d& a, const Vec4d& b) { return Vec4d::Select(take, a, b); }

// A mix rule: rule(V()) returns the lane function V(V d0, V d1) for doubles or Vec4d, its
// constants made vectors once, outside the row loop.

// out[x] = mix(d0[x], d1[x]) in double, stored as float: the reference row.
template <class Rule>
void MixRow(const float* d0, const float* d1, int n, float* out, const Rule& rule) {
  const auto mix = rule(0.0);
  for (int x = 0; x < n; ++x) out[x] = static_cast<float>(mix(double(d0[x]), double(d1[x])));
}

// The same row four doubles a step. Each lane takes the reference's double steps in the same
// order, so the stored floats are identical.
template <class Rule>
void MixSpan4(const float* d0, const float* d1, int n, float* out, const Rule& rule) {
  const auto mix = rule(Vec4d());
  int x = 0;
  for (; x + 4 <= n; x += 4) {
    // One thread streams two inputs; the hardware's own prefetch alone falls short of that.
    qrn::simd::PrefetchRead<4>(d0 + x);
    qrn::simd::PrefetchRead<4>(d1 + x);
    ToFloat(mix(ToDouble(Vec4f::Load(d0 + x)), ToDouble(Vec4f::Load(d1 + x)))).Store(out + x);
  }
  MixRow(d0 + x, d1 + x, n - x, out + x, rule);
}

// MixSpan4 compiled for 256-bit vectors.
template <class Rule>
QRN_WIDE_TARGET void MixRowWide(const float* d0, const float* d1, int n, float* out, const Rule& rule) {
  MixSpan4(d0, d1, n, out, rule);
}
}  // namespace

// Replaces every sample d0 of this image by mix(d0, d1), d1 the matching sample of other,
// mix the lane function of the rule.
template <class Rule>
void CImgDark::Interpolate(COrbImage* other, int progress, const Rule& rule) {
  if (!other) return;
  const int planes = GetPlanes(), width = GetWidth(), height = GetHeight();
  const bool wide = qrn::simd::WideVectors();
  ShowProgressInit(progress, kTitleDarkInterpolation, height * planes);
  for (int p = 0; p < planes; ++p) {
    const int op = other->IsColor() ? p : 0;
    for (int y = 0; y < height; ++y) {
      LOCKHANDLE hd = nullptr, ho = nullptr;
      float* d0 = GetImageAdr(0, y, p, VM_LOCK, &hd);
      const float* d1 = other->GetImageAdr(0, y, op, VM_READONLY | VM_LOCK, &ho);
      if (wide) MixRowWide(d0, d1, width, d0, rule);
      else MixRow(d0, d1, width, d0, rule);
      other->Unlock(ho);
      Unlock(hd);
      ShowProgress(1);
    }
  }
  ShowProgressEnd(nullptr);
}

void CImgDark::DoInterpolateByScore(COrbImage* other, double target, double mine, double others, int progress) {
  Interpolate(other, progress, [shift = target - mine, span = others - mine](auto zero) {
    using V = decltype(zero);
    return [vshift = V(shift), vspan = V(span)](V d0, V d1) {
      const V r = d0 + (d1 - d0) * vshift / vspan;
      return Choose(r > d1, d1, Choose(r < d0, d0, r));
    };
  });
}

void CImgDark::DoInterpolateByProportion(COrbImage* other, double t, double t0, double t1, double e0, double e1,
                                         double e, int progress) {
  Interpolate(other, progress, [dt = t - t0, spanT = t1 - t0, de = e - e0, spanE = e1 - e0](auto zero) {
    using V = decltype(zero);
    return [vdt = V(dt), vspanT = V(spanT), vde = V(de), vspanE = V(spanE)](V d0, V d1) {
      return d0 + (d1 - d0) * vdt / vspanT + (d1 - d0) * vde / vspanE;
    };
  });
}

void CImgDark::DoInterpolateByPower(COrbImage* other, double t, double t0, double t1, double a, double b, double c,
                                    double doubling, int progress) {
  const double x = std::fabs(b - c) <= std::fabs(c - a) ? b : a;
  // Only c is divided by the doubling; the order is kept on purpose.
  const double k = std::pow(2.0, x - c / doubling);
  Interpolate(other, progress, [dt = t - t0, spanT = t1 - t0, k](auto zero) {
    using V = decltype(zero);
    return [vdt = V(dt), vspanT = V(spanT), vk = V(k)](V d0, V d1) { return d0 + (d1 - d0) * vdt / vspanT + d0 * vk; };
  });
}
