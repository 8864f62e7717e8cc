// Vectorised cosine in double with a known error bound, for row functions that decide their
// float results against that bound and fall back to std::cos.
#pragma once

#include "kernels/VecLogExp.h"

namespace qrn::vmath {
inline namespace QRN_VMATH_VARIANT {

/// Bound on |Cos(u) − cos u| and on the same for SinCos for |u| ≤ 16, absolute.
constexpr double kCosError = 0x1p-51;

/// sin u and cos u for N vectors with |u| ≤ 16, side by side so that their polynomial chains
/// overlap; other lanes give meaningless values. u = k·π/2 + v with k = round(u·2/π) and
/// |v| ≤ π/4: π/2 is split into a 33-bit head, whose multiples by k are exact, and a tail,
/// so v carries one rounding. sin v and cos v come from minimax polynomials of degree 13 and
/// 14 (their own error below 2^-58), and the quadrant k mod 4 picks ±sin v or ±cos v. The
/// roundings of v and of the polynomials' last sums stay below kCosError for either result.
template <class D, int N>
inline void SinCos(const D (&u)[N], D (&sinU)[N], D (&cosU)[N]) {
  using L = MaskOf<D>;
  constexpr double kTwoOverPi = 6.36619772367581382433e-01;
  constexpr double kHalfPiHead = 1.57079632673412561417e+00, kHalfPiTail = 6.07710050650619224932e-11;
  constexpr double kSin[] = {-1.66666666666666324348e-01, 8.33333333332248946124e-03,  -1.98412698298579493134e-04,
                             2.75573137070700676789e-06,  -2.50507602534068634195e-08, 1.58969099521155010221e-10};
  constexpr double kCos[] = {4.16666666666666019037e-02,  -1.38888888888741095749e-03, 2.48015872894767294178e-05,
                             -2.75573143513906633035e-07, 2.08757232129817482790e-09,  -1.13596475577881948265e-11};
  constexpr int kTerms = 6;
  D v[N], z[N], sinTail[N], cosTail[N];
  L quadrant[N];
  for (int j = 0; j < N; ++j) {
    const D shifted = u[j] * Splat<D>(kTwoOverPi) + Splat<D>(kRoundShifter);
    const D k = shifted - Splat<D>(kRoundShifter);
    quadrant[j] = ((L)shifted - (L)Splat<D>(kRoundShifter)) & SplatInt<D>(3);  // k mod 4, also for k < 0
    v[j] = (u[j] - k * Splat<D>(kHalfPiHead)) - k * Splat<D>(kHalfPiTail);
    z[j] = v[j] * v[j];
    sinTail[j] = Splat<D>(kSin[kTerms - 1]);
    cosTail[j] = Splat<D>(kCos[kTerms - 1]);
  }
  for (int i = kTerms - 2; i >= 0; --i)
    for (int j = 0; j < N; ++j) {
      sinTail[j] = sinTail[j] * z[j] + Splat<D>(kSin[i]);
      cosTail[j] = cosTail[j] * z[j] + Splat<D>(kCos[i]);
    }
  for (int j = 0; j < N; ++j) {
    const D sinV = v[j] + v[j] * z[j] * sinTail[j];
    const D cosV = (Splat<D>(1.0) - Splat<D>(0.5) * z[j]) + z[j] * z[j] * cosTail[j];
    // Quadrants 0..3: cos u is cos v, −sin v, −cos v, sin v; sin u is sin v, cos v, −sin v,
    // −cos v.
    const L odd = (quadrant[j] & SplatInt<D>(1)) != SplatInt<D>(0);
    const D cosMagnitude = odd ? sinV : cosV, sinMagnitude = odd ? cosV : sinV;
    const L cosNegative = (quadrant[j] == SplatInt<D>(1)) | (quadrant[j] == SplatInt<D>(2));
    const L sinNegative = quadrant[j] >= SplatInt<D>(2);
    cosU[j] = cosNegative ? -cosMagnitude : cosMagnitude;
    sinU[j] = sinNegative ? -sinMagnitude : sinMagnitude;
  }
}

/// cos u alone, as SinCos gives it.
template <class D, int N>
inline void Cos(const D (&u)[N], D (&out)[N]) {
  D unused[N];
  SinCos(u, unused, out);
}

}  // namespace QRN_VMATH_VARIANT
}  // namespace qrn::vmath
