// Vectorised natural logarithm and exponential in double with a known error bound, for row
// functions that decide their float results against that bound and fall back to std::pow.
#pragma once

#include "kernels/Vec4.h"

namespace qrn::vmath {

using D4 = Vec4d::Raw;
using L4 = Vec4d::Mask;

inline D4 Splat(double s) { return D4{s, s, s, s}; }
inline L4 SplatInt(long long s) { return L4{s, s, s, s}; }
inline D4 Abs(D4 v) { return (D4)((L4)v & SplatInt(0x7fffffffffffffffLL)); }

// ln 2 split so that k·kLn2Hi is exact for |k| < 2^21, and the same halved for the
// exponential's steps of half a power of two.
constexpr double kLn2Hi = 6.93147180369123816490e-01;
constexpr double kLn2Lo = 1.90821492927058770002e-10;
constexpr double kHalfLn2Hi = kLn2Hi / 2, kHalfLn2Lo = kLn2Lo / 2;
constexpr double kTwoOverLn2 = 2 * 1.44269504088896338700e+00;
constexpr double kSqrt2 = 1.41421356237309514547;
// Adding 1.5·2^52 rounds a double below 2^51 in magnitude to an integer held in the low
// mantissa bits.
constexpr double kRoundShifter = 0x1.8p52;
/// Largest |t| Exp() takes: e^t stays a normal double.
constexpr double kMaxExponent = 700.0;

// Series coefficients: 1/(2k + 1) for the logarithm, 1/i! for the exponential. The series
// stop where their truncation falls below 2^-46: the results only have to decide a float
// rounding, and the callers' error bounds account for what is left out.
constexpr int kLogTerms = 8, kExpTerms = 10;
struct Coefficients {
  double log[kLogTerms], exp[kExpTerms];
  constexpr Coefficients() : log{}, exp{} {
    for (int k = 0; k < kLogTerms; ++k) log[k] = 1.0 / (2 * k + 1);
    double factorial = 1.0;
    for (int i = 0; i < kExpTerms; ++i) {
      factorial *= i > 0 ? i : 1;
      exp[i] = 1.0 / factorial;
    }
  }
};
inline constexpr Coefficients kSeries;

/// ln x for N vectors of positive normal x: x = 2^e·m with m in [√½, √2), ln m = 2 atanh(s),
/// s = (m−1)/(m+1), |s| ≤ 0.1716, by its series to s^15 (truncation below 1.2e-14
/// absolute). Other x give meaningless lanes; callers mask them. The N vectors are evaluated
/// side by side so that their polynomial chains overlap.
template <int N>
inline void Log(const D4 (&x)[N], D4 (&out)[N]) {
  D4 e[N], s[N], z[N], p[N];
  for (int j = 0; j < N; ++j) {
    const L4 bits = (L4)x[j];
    const L4 exponentField = (bits >> 52) & SplatInt(0x7ff);
    // The biased exponent as a double: its bits put into the mantissa of 2^52, minus 2^52.
    e[j] = (D4)(exponentField | SplatInt(0x4330000000000000LL)) - Splat(0x1p52) - Splat(1023.0);
    D4 m = (D4)((bits & SplatInt(0x000fffffffffffffLL)) | SplatInt(0x3ff0000000000000LL));
    const L4 big = m > Splat(kSqrt2);
    m = big ? m * Splat(0.5) : m;
    e[j] = big ? e[j] + Splat(1.0) : e[j];
    s[j] = (m - Splat(1.0)) / (m + Splat(1.0));
    z[j] = s[j] * s[j];
    p[j] = Splat(kSeries.log[kLogTerms - 1]);
  }
  for (int k = kLogTerms - 2; k >= 0; --k)
    for (int j = 0; j < N; ++j) p[j] = p[j] * z[j] + Splat(kSeries.log[k]);
  for (int j = 0; j < N; ++j) {
    const D4 lnm = Splat(2.0) * s[j] * p[j];
    out[j] = e[j] * Splat(kLn2Hi) + (e[j] * Splat(kLn2Lo) + lnm);
  }
}

/// e^t for N vectors with |t| ≤ kMaxExponent: t = k·½ ln 2 + r, |r| ≤ ¼ ln 2, e^r by its
/// series to r^9 (truncation below 7e-15 relative), times 2^(k/2): 2^⌊k/2⌋ built in the
/// exponent bits, and √2 for odd k.
template <int N>
inline void Exp(const D4 (&t)[N], D4 (&out)[N]) {
  D4 r[N], p[N];
  L4 kInt[N];
  for (int j = 0; j < N; ++j) {
    const D4 shifted = t[j] * Splat(kTwoOverLn2) + Splat(kRoundShifter);
    const D4 k = shifted - Splat(kRoundShifter);
    kInt[j] = (L4)shifted - (L4)Splat(kRoundShifter);
    r[j] = (t[j] - k * Splat(kHalfLn2Hi)) - k * Splat(kHalfLn2Lo);
    p[j] = Splat(kSeries.exp[kExpTerms - 1]);
  }
  for (int i = kExpTerms - 2; i >= 0; --i)
    for (int j = 0; j < N; ++j) p[j] = p[j] * r[j] + Splat(kSeries.exp[i]);
  for (int j = 0; j < N; ++j) {
    const D4 half = (kInt[j] & SplatInt(1)) != SplatInt(0) ? Splat(kSqrt2) : Splat(1.0);
    out[j] = p[j] * half * (D4)(((kInt[j] >> 1) + SplatInt(1023)) << 52);
  }
}

/// Relative error bound of Exp(c · Log(x)) against x^c, given ln x and t = c·ln x as
/// computed: a few units of 2^-53 from x and ln m, from |c|·|ln x| through the product t,
/// and from |t| through the exponential, taken 32 times over; and the series' truncations,
/// |c|·1.2e-14 through t and 7e-15 in e^r, taken 4 times over.
inline D4 PowRelativeError(double c, const D4& lnx, const D4& t) {
  const D4 absC = Splat(c < 0 ? -c : c);
  return (absC * (Splat(2.0) + Abs(lnx)) + Abs(t) + Splat(4.0)) * Splat(0x1p-48) +
         (absC + Splat(1.0)) * Splat(0x1p-44);
}

}  // namespace qrn::vmath
