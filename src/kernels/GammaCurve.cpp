#include "kernels/GammaCurve.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "kernels/CurveMemo.h"
#include "kernels/Vec4.h"
#include "kernels/VecLogExp.h"

namespace {

using namespace qrn::vmath;

struct Curve {
  double bottom, span, inverseSpan, gamma;
};

// Vectors evaluated side by side: their polynomial chains are independent, so the processor
// overlaps them instead of waiting on one chain's latency.
constexpr int kGroup = 4;
constexpr int kGroupSamples = 4 * kGroup;

// Shorter series than the full ones: their truncation (near 2^-46) only widens the bound a
// little, and the float results of a curve seldom fall that close to a rounding.
constexpr int kShortLog = 8, kShortExp = 10;

// kGroupSamples samples: the float result where the error bound decides it, and in
// `decided` nonzero for those lanes, 0 for the others.
inline void Group(const Curve& c, const float* v, float* out, int* decided) {
  using F4 = Vec4f::Raw;
  D4 x[kGroup], lnx[kGroup], t[kGroup], power[kGroup];
  for (int j = 0; j < kGroup; ++j) {
    // Multiplied by the reciprocal: one more rounding of x, which the error bound covers.
    F4 q;
    std::memcpy(&q, v + 4 * j, sizeof q);
    x[j] = (ToDouble(Vec4f(q)).v - Splat(c.bottom)) * Splat(c.inverseSpan);
  }
  Log<kShortLog>(x, lnx);
  for (int j = 0; j < kGroup; ++j) t[j] = Splat(c.gamma) * lnx[j];
  Exp<kShortExp>(t, power);
  for (int j = 0; j < kGroup; ++j) {
    const L4 inRange =
        (x[j] >= Splat(0x1p-1022)) & (x[j] <= Splat(0x1.fffffffffffffp1023)) & (Abs(t[j]) <= Splat(kMaxExponent));
    const D4 scaled = power[j] * Splat(c.span);
    const D4 y = scaled + Splat(c.bottom);
    // The margin's second term covers the roundings of the product and sum here and in the
    // reference, and std::pow's error below one unit.
    const D4 relative = PowRelativeError<kShortLog, kShortExp>(c.gamma, lnx[j], t[j]);
    const D4 margin = Abs(scaled) * relative + (Abs(scaled) + Splat(std::fabs(c.bottom))) * Splat(0x1p-50);
    const F4 lo = __builtin_convertvector(y - margin, F4), hi = __builtin_convertvector(y + margin, F4);
    // Equal as values and as bits: bounds that round to −0 and +0 compare equal, yet leave
    // the sign of the result open.
    const Vec4f::Mask same = (lo == hi) & ((Vec4f::Mask)lo == (Vec4f::Mask)hi);
    const Vec4f::Mask sure = same & __builtin_convertvector(inRange, Vec4f::Mask);
    std::memcpy(out + 4 * j, &lo, sizeof lo);
    std::memcpy(decided + 4 * j, &sure, sizeof sure);
  }
}

// The curve at one sample by std::pow, kept out of line: inlined into the row compiled with
// fused multiply-add, its product and sum could be fused and round differently.
__attribute__((noinline)) float ExactValue(const CGammaCurve& exact, float v) { return exact(v); }

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
      out[j] = ExactValue(exact, v[j]);
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
