// Dark-frame synthesis from two measured darks.
#include "ops/calibration/ImgDark.h"

#include <cmath>
#include <initializer_list>
#include <utility>

#include "kernels/ConstantDivisor.h"
#include "kernels/Prefetch.h"
#include "kernels/Vec4.h"

namespace {
constexpr int kTitleDarkInterpolation = 6183;

// Per-lane choice with the same rule for a double and for four doubles.
inline double Choose(bool take, double a, double b) { return take ? a : b; }
inline Vec4d Choose(const Vec4d::Mask& take, const Vec4d& a, const Vec4d& b) { return Vec4d::Select(take, a, b); }

// Division of V lanes by a constant, with the division itself.
template <class V>
struct PlainDivisor {
  V divisor;
  V operator()(const V& a) const { return a / divisor; }
};
template <class V>
PlainDivisor<V> PlainDivisorOf(double b) {
  return {V(b)};
}

#if QRN_HAVE_WIDE_TARGET
// The same quotients of four doubles through fused multiply-adds: identical values, without
// waiting on the divider (every member here divides once or twice per sample, on one thread).
struct FusedDivisor {
  CConstantDivisor divisor;
  Vec4d operator()(const Vec4d& a) const {
    Vec4d q;
    divisor.Divide(a, q);
    return q;
  }
};
FusedDivisor FusedDivisorOf(double b) { return {CConstantDivisor(b)}; }
#else
// Never chosen without the wide target (FusedMultiplyAdd() is then false).
PlainDivisor<Vec4d> FusedDivisorOf(double b) { return PlainDivisorOf<Vec4d>(b); }
#endif

// A mix rule: rule(V(), divisorOf) returns the lane function V(V d0, V d1) for doubles or
// Vec4d, its constants made vectors once, outside the row loop, and its divisions by
// constants done by divisorOf(constant).

// out[x] = mix(d0[x], d1[x]) in double, stored as float: the reference row.
template <class Rule>
void MixRow(const float* d0, const float* d1, int n, float* out, const Rule& rule) {
  const auto mix = rule(0.0, PlainDivisorOf<double>);
  for (int x = 0; x < n; ++x) out[x] = static_cast<float>(mix(double(d0[x]), double(d1[x])));
}

// The same row four doubles a step. Each lane takes the reference's double steps in the same
// order, so the stored floats are identical.
template <class Rule, class DivisorOf>
void MixSpan4(const float* d0, const float* d1, int n, float* out, const Rule& rule, const DivisorOf& divisorOf) {
  const auto mix = rule(Vec4d(), divisorOf);
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
  MixSpan4(d0, d1, n, out, rule, PlainDivisorOf<Vec4d>);
}

// MixSpan4 with fused multiply-add, used only for its divisions: this file is compiled
// without contraction, so every other product is still rounded before it is added.
template <class Rule>
QRN_WIDE_FMA_TARGET void MixRowFused(const float* d0, const float* d1, int n, float* out, const Rule& rule) {
  MixSpan4(d0, d1, n, out, rule, FusedDivisorOf);
}

// True when CConstantDivisor gives the quotients of (d1 − d0)·scale / divisor for every pair
// of scale and divisor.
bool DivisionsFuse(std::initializer_list<std::pair<double, double>> scaleAndDivisor) {
  for (const auto& [scale, divisor] : scaleAndDivisor)
    if (!CConstantDivisor::TakesScaledFloatDifferences(scale) || !CConstantDivisor::Takes(divisor)) return false;
  return true;
}
}  // namespace

// Replaces every sample d0 of this image by mix(d0, d1), d1 the matching sample of other,
// mix the lane function of the rule. fusible: the rule's divisions may go through
// CConstantDivisor.
template <class Rule>
void CImgDark::Interpolate(COrbImage* other, int progress, bool fusible, const Rule& rule) {
  if (!other) return;
  const int planes = GetPlanes(), width = GetWidth(), height = GetHeight();
  const bool wide = qrn::simd::WideVectors(), fused = fusible && qrn::simd::FusedMultiplyAdd();
  ShowProgressInit(progress, kTitleDarkInterpolation, height * planes);
  for (int p = 0; p < planes; ++p) {
    const int op = other->IsColor() ? p : 0;
    for (int y = 0; y < height; ++y) {
      LOCKHANDLE hd = nullptr, ho = nullptr;
      float* d0 = GetImageAdr(0, y, p, VM_LOCK, &hd);
      const float* d1 = other->GetImageAdr(0, y, op, VM_READONLY | VM_LOCK, &ho);
      if (fused) MixRowFused(d0, d1, width, d0, rule);
      else if (wide) MixRowWide(d0, d1, width, d0, rule);
      else MixRow(d0, d1, width, d0, rule);
      other->Unlock(ho);
      Unlock(hd);
      ShowProgress(1);
    }
  }
  ShowProgressEnd(nullptr);
}

void CImgDark::DoInterpolateByScore(COrbImage* other, double target, double mine, double others, int progress) {
  const double shift = target - mine, span = others - mine;
  Interpolate(other, progress, DivisionsFuse({{shift, span}}), [shift, span](auto zero, auto divisorOf) {
    using V = decltype(zero);
    return [vshift = V(shift), bySpan = divisorOf(span)](V d0, V d1) {
      const V r = d0 + bySpan((d1 - d0) * vshift);
      return Choose(r > d1, d1, Choose(r < d0, d0, r));
    };
  });
}

void CImgDark::DoInterpolateByProportion(COrbImage* other, double t, double t0, double t1, double e0, double e1,
                                         double e, int progress) {
  const double dt = t - t0, spanT = t1 - t0, de = e - e0, spanE = e1 - e0;
  const bool fusible = DivisionsFuse({{dt, spanT}, {de, spanE}});
  Interpolate(other, progress, fusible, [dt, spanT, de, spanE](auto zero, auto divisorOf) {
    using V = decltype(zero);
    return [vdt = V(dt), bySpanT = divisorOf(spanT), vde = V(de), bySpanE = divisorOf(spanE)](V d0, V d1) {
      return d0 + bySpanT((d1 - d0) * vdt) + bySpanE((d1 - d0) * vde);
    };
  });
}

void CImgDark::DoInterpolateByPower(COrbImage* other, double t, double t0, double t1, double a, double b, double c,
                                    double doubling, int progress) {
  const double x = std::fabs(b - c) <= std::fabs(c - a) ? b : a;
  // Only c is divided by the doubling; the order is kept on purpose.
  const double k = std::pow(2.0, x - c / doubling);
  const double dt = t - t0, spanT = t1 - t0;
  Interpolate(other, progress, DivisionsFuse({{dt, spanT}}), [dt, spanT, k](auto zero, auto divisorOf) {
    using V = decltype(zero);
    return [vdt = V(dt), bySpanT = divisorOf(spanT), vk = V(k)](V d0, V d1) {
      return d0 + bySpanT((d1 - d0) * vdt) + d0 * vk;
    };
  });
}
