// The gamma curve's vector row, written once for any vector width and compiled by each file
// that runs it on one instruction set.
#pragma once

#include <cmath>
#include <cstring>

#include "kernels/GammaCurve.h"
#include "kernels/VecLogExp.h"

namespace qrn::gamma {

/// The curve's numbers as the rows use them.
struct CurveNumbers {
  double bottom, span, inverseSpan, gamma;
};

/// The curve at one sample by std::pow, kept out of line: inlined into a row compiled with
/// fused multiply-add, its product and sum could be fused and round differently.
float ExactValue(const CGammaCurve& exact, float v);

/// The row on 512-bit vectors, eight doubles a step, compiled in a file of its own for that
/// instruction set. Call it only when qrn::simd::WidestVectors() is true.
int RowWidest(const CurveNumbers& c, const CGammaCurve& exact, const float* v, int n, float* out);

// The row's templates live in the variant namespace of the vector functions, so that a file
// compiled for another instruction set makes copies of its own and never shares them.
inline namespace QRN_VMATH_VARIANT {

using namespace qrn::vmath;

// Vectors evaluated side by side: their polynomial chains are independent, so the processor
// overlaps them instead of waiting on one chain's latency.
constexpr int kGroup = 4;

// Shorter series than the full ones: their truncation (near 2^-46) only widens the bound a
// little, and the float results of a curve seldom fall that close to a rounding.
constexpr int kShortLog = 8, kShortExp = 10;

// W·kGroup samples: the float result where the error bound decides it, and in `decided`
// nonzero for those lanes, 0 for the others.
template <int W>
inline void Group(const CurveNumbers& c, const float* v, float* out, int* decided) {
  using D = typename Lanes<W>::D;
  using F = typename Lanes<W>::F;
  using FloatMask = typename Lanes<W>::FloatMask;
  D x[kGroup], lnx[kGroup], t[kGroup], power[kGroup];
  for (int j = 0; j < kGroup; ++j) {
    // Multiplied by the reciprocal: one more rounding of x, which the error bound covers.
    F q;
    std::memcpy(&q, v + W * j, sizeof q);
    x[j] = (Convert<D>(q) - Splat<D>(c.bottom)) * Splat<D>(c.inverseSpan);
  }
  Log<kShortLog>(x, lnx);
  for (int j = 0; j < kGroup; ++j) t[j] = Splat<D>(c.gamma) * lnx[j];
  Exp<kShortExp>(t, power);
  for (int j = 0; j < kGroup; ++j) {
    const MaskOf<D> inRange = (x[j] >= Splat<D>(0x1p-1022)) & (x[j] <= Splat<D>(0x1.fffffffffffffp1023)) &
                              (Abs(t[j]) <= Splat<D>(kMaxExponent));
    const D scaled = power[j] * Splat<D>(c.span);
    const D y = scaled + Splat<D>(c.bottom);
    // The margin's second term covers the roundings of the product and sum here and in the
    // reference, and std::pow's error below one unit.
    const D relative = PowRelativeError<kShortLog, kShortExp>(c.gamma, lnx[j], t[j]);
    const D margin = Abs(scaled) * relative + (Abs(scaled) + Splat<D>(std::fabs(c.bottom))) * Splat<D>(0x1p-50);
    const F lo = Convert<F>(y - margin), hi = Convert<F>(y + margin);
    // Equal as values and as bits: bounds that round to −0 and +0 compare equal, yet leave
    // the sign of the result open.
    const FloatMask same = (lo == hi) & ((FloatMask)lo == (FloatMask)hi);
    const FloatMask sure = same & Convert<FloatMask>(inRange);
    std::memcpy(out + W * j, &lo, sizeof lo);
    std::memcpy(decided + W * j, &sure, sizeof sure);
  }
}

// One group of m ≤ W·kGroup samples into out; the undecided ones through std::pow.
template <int W>
inline int GroupWith(const CurveNumbers& c, const CGammaCurve& exact, const float* v, int m, float* out) {
  constexpr int kSamples = W * kGroup;
  int decided[kSamples];
  if (m == kSamples) {
    Group<W>(c, v, out, decided);
  } else {
    float in[kSamples], res[kSamples];
    for (int j = 0; j < kSamples; ++j) in[j] = j < m ? v[j] : 1.0f;
    Group<W>(c, in, res, decided);
    std::memcpy(out, res, sizeof(float) * m);
  }
  int fallbacks = 0;
  for (int j = 0; j < m; ++j)
    if (!decided[j]) {
      out[j] = ExactValue(exact, v[j]);
      ++fallbacks;
    }
  return fallbacks;
}

// The row: out[i] = curve at v[i]; returns the number of samples that needed std::pow.
template <int W>
inline int RowWith(const CurveNumbers& c, const CGammaCurve& exact, const float* v, int n, float* out) {
  constexpr int kSamples = W * kGroup;
  int fallbacks = 0;
  for (int i = 0; i < n; i += kSamples)
    fallbacks += GroupWith<W>(c, exact, v + i, n - i < kSamples ? n - i : kSamples, out + i);
  return fallbacks;
}

}  // namespace QRN_VMATH_VARIANT
}  // namespace qrn::gamma
