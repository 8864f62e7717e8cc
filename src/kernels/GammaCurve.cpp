#include "kernels/GammaCurve.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "kernels/CurveMemo.h"
#include "kernels/Vec4.h"

namespace {

using D4 = Vec4d::Raw;
using L4 = Vec4d::Mask;

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
// Largest |gamma · ln x| the exponential takes: the power stays a normal double.
constexpr double kMaxExponent = 700.0;

// Series coefficients: 1/(2k + 1) for the logarithm, 1/i! for the exponential. The series
// stop where their truncation falls below 2^-46: the result only has to decide a float
// rounding, and the error bound below accounts for what is left out.
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
constexpr Coefficients kSeries;

struct Curve {
  double bottom, span, inverseSpan, gamma;
};

inline D4 Splat(double s) { return D4{s, s, s, s}; }
inline L4 SplatInt(long long s) { return L4{s, s, s, s}; }
inline D4 Abs(D4 v) { return (D4)((L4)v & SplatInt(0x7fffffffffffffffLL)); }

// Vectors evaluated side by side: their polynomial chains are independent, so the processor
// overlaps them instead of waiting on one chain's latency.
constexpr int kGroup = 4;
constexpr int kGroupSamples = 4 * kGroup;

// ln x for positive normal x: x = 2^e·m with m in [√½, √2), ln m = 2 atanh(s), s = (m−1)/(m+1),
// |s| ≤ 0.1716, by its series to s^15 (truncation below 1.2e-14 absolute).
inline void Log(const D4 (&x)[kGroup], D4 (&out)[kGroup]) {
  D4 e[kGroup], s[kGroup], z[kGroup], p[kGroup];
  for (int j = 0; j < kGroup; ++j) {
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
    for (int j = 0; j < kGroup; ++j) p[j] = p[j] * z[j] + Splat(kSeries.log[k]);
  for (int j = 0; j < kGroup; ++j) {
    const D4 lnm = Splat(2.0) * s[j] * p[j];
    out[j] = e[j] * Splat(kLn2Hi) + (e[j] * Splat(kLn2Lo) + lnm);
  }
}

// e^t for |t| ≤ kMaxExponent: t = k·½ ln 2 + r, |r| ≤ ¼ ln 2, e^r by its series to r^9
// (truncation below 7e-15 relative), times 2^(k/2): 2^⌊k/2⌋ built in the exponent bits,
// and √2 for odd k.
inline void Exp(const D4 (&t)[kGroup], D4 (&out)[kGroup]) {
  D4 r[kGroup], p[kGroup];
  L4 kInt[kGroup];
  for (int j = 0; j < kGroup; ++j) {
    const D4 shifted = t[j] * Splat(kTwoOverLn2) + Splat(kRoundShifter);
    const D4 k = shifted - Splat(kRoundShifter);
    kInt[j] = (L4)shifted - (L4)Splat(kRoundShifter);
    r[j] = (t[j] - k * Splat(kHalfLn2Hi)) - k * Splat(kHalfLn2Lo);
    p[j] = Splat(kSeries.exp[kExpTerms - 1]);
  }
  for (int i = kExpTerms - 2; i >= 0; --i)
    for (int j = 0; j < kGroup; ++j) p[j] = p[j] * r[j] + Splat(kSeries.exp[i]);
  for (int j = 0; j < kGroup; ++j) {
    const D4 half = (kInt[j] & SplatInt(1)) != SplatInt(0) ? Splat(kSqrt2) : Splat(1.0);
    out[j] = p[j] * half * (D4)(((kInt[j] >> 1) + SplatInt(1023)) << 52);
  }
}

// kGroupSamples samples: the float result where the error bound decides it, and in
// `decided` nonzero for those lanes, 0 for the others.
inline void Group(const Curve& c, const float* v, float* out, int* decided) {
  using F4 = Vec4f::Raw;
  D4 x[kGroup], lnx[kGroup], t[kGroup], power[kGroup];
  for (int j = 0; j < kGroup; ++j) {
    // Multiplied by the reciprocal: one more rounding of x, which the error bound covers.
    F4 q;
    std::memcpy(&q, v + 4 * j, sizeof q);
    x[j] = (__builtin_convertvector(q, D4) - Splat(c.bottom)) * Splat(c.inverseSpan);
  }
  Log(x, lnx);
  for (int j = 0; j < kGroup; ++j) t[j] = Splat(c.gamma) * lnx[j];
  Exp(t, power);
  for (int j = 0; j < kGroup; ++j) {
    const L4 inRange =
        (x[j] >= Splat(0x1p-1022)) & (x[j] <= Splat(0x1.fffffffffffffp1023)) & (Abs(t[j]) <= Splat(kMaxExponent));
    const D4 scaled = power[j] * Splat(c.span);
    const D4 y = scaled + Splat(c.bottom);
    // Relative error of the power: a few units of 2^-53 from x and ln m, from |gamma|·|ln x|
    // through the product t, and from |t| through the exponential, taken 32 times over; and
    // the series' truncations, |gamma|·1.2e-14 through t and 7e-15 in e^r, taken 4 times
    // over. The margin's second term covers the roundings of the product and sum here and in
    // the reference, and std::pow's error below one unit.
    const D4 gamma = Abs(Splat(c.gamma));
    const D4 relative = (gamma * (Splat(2.0) + Abs(lnx[j])) + Abs(t[j]) + Splat(4.0)) * Splat(0x1p-48) +
                        (gamma + Splat(1.0)) * Splat(0x1p-44);
    const D4 margin = Abs(scaled) * relative + (Abs(scaled) + Splat(std::fabs(c.bottom))) * Splat(0x1p-50);
    const F4 lo = __builtin_convertvector(y - margin, F4), hi = __builtin_convertvector(y + margin, F4);
    const Vec4f::Mask same = lo == hi;
    const Vec4f::Mask sure = same & __builtin_convertvector(inRange, Vec4f::Mask);
    std::memcpy(out + 4 * j, &lo, sizeof lo);
    std::memcpy(decided + 4 * j, &sure, sizeof sure);
  }
}

// One group of m ≤ kGroupSamples samples into out; the undecided ones through std::pow.
inline int GroupWith(const Curve& c, const CGammaCurve& exact, const float* v, int m, float* out) {
  int decided[kGroupSamples];
  if (m == kGroupSamples) {
    Group(c, v, out, decided);
  } else {
    float in[kGroupSamples], res[kGroupSamples];
    std::fill(in + m, in + kGroupSamples, 1.0f);
    std::memcpy(in, v, sizeof(float) * m);
    Group(c, in, res, decided);
    std::memcpy(out, res, sizeof(float) * m);
  }
  int fallbacks = 0;
  for (int j = 0; j < m; ++j)
    if (!decided[j]) {
      out[j] = exact(v[j]);
      ++fallbacks;
    }
  return fallbacks;
}

int RowWith(const Curve& c, const CGammaCurve& exact, const float* v, int n, float* out) {
  int fallbacks = 0;
  for (int i = 0; i < n; i += kGroupSamples)
    fallbacks += GroupWith(c, exact, v + i, std::min(kGroupSamples, n - i), out + i);
  return fallbacks;
}

// The same row compiled for 256-bit vectors, and with fused multiply-add as well: the bound
// holds however the steps round, and the float results are decided against it either way.
QRN_WIDE_TARGET int RowWithWide(const Curve& c, const CGammaCurve& exact, const float* v, int n, float* out) {
  return RowWith(c, exact, v, n, out);
}

QRN_WIDE_FMA_TARGET int RowWithFma(const Curve& c, const CGammaCurve& exact, const float* v, int n, float* out) {
  return RowWith(c, exact, v, n, out);
}

// One thread's memory of one curve, told apart by the curve's three numbers.
struct ThreadMemo {
  CCurveMemo memo;
  double bottom = 0.0, span = 0.0, gamma = 0.0;
  // Blocks still to evaluate directly: once the memory has been filled about once over, a
  // block that mostly misses makes it stand aside for a while, since remembering nearly
  // all-distinct values costs more than it saves. It is tried again afterwards, in case the
  // samples start to repeat.
  int skipBlocks = 0;
  long long remembered = 0;
  bool Holds(double b, double s, double g) const {
    return !memo.Empty() && b == bottom && s == span && g == gamma;
  }
};

}  // namespace

CGammaCurve::CGammaCurve(float top, float bottom, double gamma)
    : m_bottom(bottom), m_span(double(top) - double(bottom)), m_gamma(gamma) {}

float CGammaCurve::operator()(float v) const {
  return static_cast<float>(std::pow((double(v) - m_bottom) / m_span, m_gamma) * m_span + m_bottom);
}

int CGammaCurve::Row(const float* v, int n, float* out) const {
  const Curve c{m_bottom, m_span, 1.0 / m_span, m_gamma};
  if (qrn::simd::FusedMultiplyAdd()) return RowWithFma(c, *this, v, n, out);
  return qrn::simd::WideVectors() ? RowWithWide(c, *this, v, n, out) : RowWith(c, *this, v, n, out);
}

int CGammaCurve::RowRemembered(const float* v, int n, float* out) const {
  thread_local ThreadMemo local;
  if (!local.Holds(m_bottom, m_span, m_gamma)) {
    float emptyKey;
    const std::uint32_t allOnes = 0xffffffffu;
    std::memcpy(&emptyKey, &allOnes, sizeof emptyKey);
    local.memo.Reset((*this)(emptyKey));
    local.bottom = m_bottom, local.span = m_span, local.gamma = m_gamma;
    local.skipBlocks = 0;
    local.remembered = 0;
  }
  constexpr int kColdBlocks = 63;
  constexpr long long kWarm = 1LL << CCurveMemo::kBits;
  // Blocks small enough for the stack: the missing samples are gathered, evaluated together
  // as one row, then remembered and put in place.
  constexpr int kBlock = 512;
  int missing[kBlock];
  float in[kBlock], res[kBlock];
  int evaluated = 0;
  for (int x = 0; x < n; x += kBlock) {
    const int m = std::min(kBlock, n - x);
    if (local.skipBlocks > 0) {
      --local.skipBlocks;
      Row(v + x, m, out + x);
      evaluated += m;
      continue;
    }
    const int count = local.memo.Find(v + x, m, out + x, missing);
    if (count == 0) continue;
    local.remembered += count;
    if (2 * count > m && local.remembered >= kWarm) local.skipBlocks = kColdBlocks;
    for (int k = 0; k < count; ++k) in[k] = v[x + missing[k]];
    Row(in, count, res);
    for (int k = 0; k < count; ++k) {
      out[x + missing[k]] = res[k];
      local.memo.Remember(in[k], res[k]);
    }
    evaluated += count;
  }
  return evaluated;
}
