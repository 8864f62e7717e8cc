// Vectorised natural logarithm and exponential in double with a known error bound, for row
// functions that decide their float results against that bound and fall back to std::pow,
// and for those that take these functions as their own (the L*a*b* enhancement).
#pragma once

#include <cstddef>
#include <utility>

#include "kernels/Vec4.h"

// A file compiled for another instruction set than the library's baseline names its own
// variant before including this header: the templates it instantiates then carry names of
// their own, and the linker never merges them with the baseline copies.
#ifndef QRN_VMATH_VARIANT
#define QRN_VMATH_VARIANT baseline
#endif

namespace qrn::vmath {
inline namespace QRN_VMATH_VARIANT {

using D4 = Vec4d::Raw;
using L4 = Vec4d::Mask;

/// The functions below take any vector-extension type of doubles, D4 or wider: a type of
/// eight doubles is split by the compiler into independent halves, which overlap.
template <class D>
using MaskOf = decltype(D{} < D{});

/// Vectors of W lanes: doubles, floats, and the comparison masks of floats.
template <int W>
struct Lanes {
  typedef double D __attribute__((vector_size(8 * W)));
  typedef float F __attribute__((vector_size(4 * W)));
  typedef int FloatMask __attribute__((vector_size(4 * W)));
};
/// The comparison masks of W doubles.
template <int W>
using LaneMask = MaskOf<typename Lanes<W>::D>;

/// Conversion lane by lane: __builtin_convertvector in baseline code is split into 128-bit
/// pieces before it is inlined into a wide row, and stays split there, while a constructor
/// of lanes becomes one conversion.
template <class To, class From, std::size_t... I>
inline To Convert(const From& v, std::index_sequence<I...>) {
  using Lane = decltype(+To{}[0]);
  return To{static_cast<Lane>(v[I])...};
}
template <class To, class From>
inline To Convert(const From& v) {
  return Convert<To>(v, std::make_index_sequence<sizeof(To) / sizeof(To{}[0])>());
}

// One value in every lane. 512-bit vectors are built as s − 0, which the compiler sees as
// one broadcast: lanes set one by one become one masked insert each there. Narrower ones keep
// the lane loop, which was the faster of the two in the 256-bit rows measured.
template <class V, class S>
inline V Broadcast(S s) {
  if constexpr (sizeof(V) == 64) {
    return s - V{};
  } else {
    V v;
    for (int i = 0; i < int(sizeof(V) / sizeof(S)); ++i) v[i] = s;
    return v;
  }
}
template <class D = D4>
inline D Splat(double s) {
  return Broadcast<D>(s);
}
template <class D = D4>
inline MaskOf<D> SplatInt(long long s) {
  return Broadcast<MaskOf<D>>(s);
}
template <class D>
inline D Abs(D v) {
  return (D)((MaskOf<D>)v & SplatInt<D>(0x7fffffffffffffffLL));
}

/// The binary exponent e of positive normal x (x = 2^e·m, 1 ≤ m < 2), as a double.
template <class D>
inline D BinaryExponent(const D& x) {
  using L = MaskOf<D>;
  const L field = ((L)x >> 52) & SplatInt<D>(0x7ff);
  // The field's bits put into the mantissa of 2^52, minus 2^52.
  return (D)(field | SplatInt<D>(0x4330000000000000LL)) - Splat<D>(0x1p52) - Splat<D>(1023.0);
}

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

// Series coefficients: 1/(2k + 1) for the logarithm, 1/i! for the exponential. Callers
// choose how many terms to take: the full series (the defaults) truncate far below a unit of
// the result, so that the error bound is that of the roundings alone; shorter ones are faster
// and their truncation enters the bound.
constexpr int kLogTerms = 11, kExpTerms = 13;
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

// The largest |s| of the logarithm's series, (√2 − 1)/(√2 + 1), and |r| of the exponential's,
// ¼ ln 2, each rounded up.
constexpr double kMaxS = 0.17158, kMaxR = 0.17330;

/// Absolute error of ln m from stopping its series after `terms` terms: the first term left
/// out, 2·s^(2·terms + 1)/(2·terms + 1), and the geometric tail after it.
constexpr double LogTruncation(int terms) {
  double power = kMaxS;
  for (int k = 0; k < terms; ++k) power *= kMaxS * kMaxS;
  return 2 * power / (2 * terms + 1) / (1 - kMaxS * kMaxS);
}

/// Relative error of e^r from stopping its series after `terms` terms: r^terms/terms! and
/// the tail after it (below a quarter of it).
constexpr double ExpTruncation(int terms) {
  double term = 1.0;
  for (int i = 1; i <= terms; ++i) term *= kMaxR / i;
  return term * 1.25;
}

/// ln x for N vectors of positive normal x: x = 2^e·m with m in [√½, √2), ln m = 2 atanh(s),
/// s = (m−1)/(m+1), |s| ≤ 0.1716, by the first Terms terms of its series. Its error is below
/// 2^-53·(|ln x| + 2.1) from roundings (s and s² carry two and five, the series two, ln m
/// five) plus LogTruncation(Terms). Other x give meaningless lanes; callers mask them. The N vectors are evaluated
/// side by side so that their polynomial chains overlap.
template <int Terms = kLogTerms, class D, int N>
inline void Log(const D (&x)[N], D (&out)[N]) {
  using L = MaskOf<D>;
  D e[N], s[N], z[N], p[N];
  for (int j = 0; j < N; ++j) {
    const L bits = (L)x[j];
    e[j] = BinaryExponent(x[j]);
    D m = (D)((bits & SplatInt<D>(0x000fffffffffffffLL)) | SplatInt<D>(0x3ff0000000000000LL));
    const L big = m > Splat<D>(kSqrt2);
    m = big ? m * Splat<D>(0.5) : m;
    e[j] = big ? e[j] + Splat<D>(1.0) : e[j];
    s[j] = (m - Splat<D>(1.0)) / (m + Splat<D>(1.0));
    z[j] = s[j] * s[j];
    p[j] = Splat<D>(kSeries.log[Terms - 1]);
  }
  for (int k = Terms - 2; k >= 0; --k)
    for (int j = 0; j < N; ++j) p[j] = p[j] * z[j] + Splat<D>(kSeries.log[k]);
  for (int j = 0; j < N; ++j) {
    const D lnm = Splat<D>(2.0) * s[j] * p[j];
    out[j] = e[j] * Splat<D>(kLn2Hi) + (e[j] * Splat<D>(kLn2Lo) + lnm);
  }
}

/// e^t for N vectors with |t| ≤ kMaxExponent: t = k·½ ln 2 + r, |r| ≤ ¼ ln 2, e^r by its
/// series' first Terms terms, times 2^(k/2): 2^⌊k/2⌋ built in the exponent bits, and √2 for
/// odd k. Its relative error is below 2^-53·4.2 from roundings (r exact but for one, the
/// series below two units, √2 and the product one each) plus ExpTruncation(Terms).
template <int Terms = kExpTerms, class D, int N>
inline void Exp(const D (&t)[N], D (&out)[N]) {
  using L = MaskOf<D>;
  D r[N], p[N];
  L kInt[N];
  for (int j = 0; j < N; ++j) {
    const D shifted = t[j] * Splat<D>(kTwoOverLn2) + Splat<D>(kRoundShifter);
    const D k = shifted - Splat<D>(kRoundShifter);
    kInt[j] = (L)shifted - (L)Splat<D>(kRoundShifter);
    r[j] = (t[j] - k * Splat<D>(kHalfLn2Hi)) - k * Splat<D>(kHalfLn2Lo);
    p[j] = Splat<D>(kSeries.exp[Terms - 1]);
  }
  for (int i = Terms - 2; i >= 0; --i)
    for (int j = 0; j < N; ++j) p[j] = p[j] * r[j] + Splat<D>(kSeries.exp[i]);
  for (int j = 0; j < N; ++j) {
    const D half = (kInt[j] & SplatInt<D>(1)) != SplatInt<D>(0) ? Splat<D>(kSqrt2) : Splat<D>(1.0);
    out[j] = p[j] * half * (D)(((kInt[j] >> 1) + SplatInt<D>(1023)) << 52);
  }
}

/// Relative error bound of Exp<ExpTerms>(c · Log<LogTerms>(x)) against x^c, given ln x and
/// t = c·ln x as computed: the roundings, below 2^-53·(|c|·(|ln x| + 2.1) + |t| + 4.2) from
/// the logarithm carried through c, the product t and the exponential, and the truncations,
/// |c|·LogTruncation + ExpTruncation; all taken four times over. The |c|·6 also covers a few
/// roundings in x itself.
template <int LogTerms = kLogTerms, int ExpTerms = kExpTerms, class D>
inline D PowRelativeError(double c, const D& lnx, const D& t) {
  const double absC = c < 0 ? -c : c;
  constexpr double kTruncation = 4 * ExpTruncation(ExpTerms);
  return (absC * (6.0 + Abs(lnx)) + Abs(t) + 6.0) * 0x1p-51 + (absC * (4 * LogTruncation(LogTerms)) + kTruncation);
}

}  // namespace QRN_VMATH_VARIANT
}  // namespace qrn::vmath
