// Vectorised cube root in double with a known error bound, for row functions that decide
// their float results against that bound and fall back to std::pow, and for those that take
// it as their own (the L*a*b* enhancement).
#pragma once

#include "kernels/VecLogExp.h"

namespace qrn::vmath {
inline namespace QRN_VMATH_VARIANT {

/// Bound on |Cbrt(x) − ∛x| relative to ∛x.
constexpr double kCbrtError = 0x1p-50;

/// ∛x for N vectors of positive normal x below 2^1020, side by side so that their chains
/// overlap; other lanes give meaningless values. x = 2^(3q + r)·m with 0 ≤ r < 3: a degree-5
/// polynomial gives ∛m within 1.8·10^-6, 2^(r/3) and 2^q scale it, and one Halley step
/// y·((y³ + 2x)/(2y³ + x)) cubes that error away (below 2^-57). The step's own roundings (the
/// cube's two reach the result a third as strongly, the sums', the division's and the
/// product's one each) keep the result within kCbrtError.
template <class D, int N>
inline void Cbrt(const D (&x)[N], D (&out)[N]) {
  using L = MaskOf<D>;
  // ∛(1.5 + t) for |t| ≤ ½, Chebyshev fit, highest power first.
  constexpr double kPoly[] = {0.0050729533252774918, -0.010271170742079951, 0.020886322742377505,
                              -0.056436294682727444, 0.25438164562453464,   1.1447129481629710};
  constexpr double kCbrt2 = 1.2599210498948731648, kCbrt4 = 1.5874010519681994748;
  D y[N];
  for (int j = 0; j < N; ++j) {
    const L bits = (L)x[j];
    const D e = BinaryExponent(x[j]);
    const D m = (D)((bits & SplatInt<D>(0x000fffffffffffffLL)) | SplatInt<D>(0x3ff0000000000000LL));
    // q = ⌊e/3⌋: (e + ½)/3 lies at least 1/6 from an integer, so rounding it to the nearest
    // and stepping back where that went up gives the floor, whatever its own rounding.
    const D third = (e + Splat<D>(0.5)) * Splat<D>(1.0 / 3.0);
    D q = (third + Splat<D>(kRoundShifter)) - Splat<D>(kRoundShifter);
    q = q > third ? q - Splat<D>(1.0) : q;
    const D r = e - Splat<D>(3.0) * q;
    const D rootOfTwoPower =
        r == Splat<D>(0.0) ? Splat<D>(1.0) : r == Splat<D>(1.0) ? Splat<D>(kCbrt2) : Splat<D>(kCbrt4);
    const L qInt = (L)(q + Splat<D>(kRoundShifter)) - (L)Splat<D>(kRoundShifter);
    const D twoToQ = (D)((qInt + SplatInt<D>(1023)) << 52);
    const D t = m - Splat<D>(1.5);
    D p = Splat<D>(kPoly[0]);
    for (int i = 1; i < 6; ++i) p = p * t + Splat<D>(kPoly[i]);
    y[j] = p * rootOfTwoPower * twoToQ;
  }
  for (int j = 0; j < N; ++j) {
    const D cube = y[j] * y[j] * y[j];
    // The ratio first: y times the numerator would leave the range at either end.
    out[j] = y[j] * ((cube + Splat<D>(2.0) * x[j]) / (Splat<D>(2.0) * cube + x[j]));
  }
}

}  // namespace QRN_VMATH_VARIANT
}  // namespace qrn::vmath
