#include "kernels/GammaCurve.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "kernels/CurveMemo.h"
#include "kernels/GammaCurveRow.h"
#include "kernels/Vec4.h"

namespace {

using qrn::gamma::CurveNumbers;
using qrn::gamma::RowWith;

// The same row compiled for 256-bit vectors, and with fused multiply-add as well: the bound
// holds however the steps round, and the float results are decided against it either way.
QRN_WIDE_TARGET int RowWithWide(const CurveNumbers& c, const CGammaCurve& exact, const float* v, int n,
                                float* out) {
  return RowWith<4>(c, exact, v, n, out);
}

QRN_WIDE_FMA_TARGET int RowWithFma(const CurveNumbers& c, const CGammaCurve& exact, const float* v, int n,
                                   float* out) {
  return RowWith<4>(c, exact, v, n, out);
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

// Out of line (see its declaration), and compiled without fused multiply-add.
__attribute__((noinline)) float qrn::gamma::ExactValue(const CGammaCurve& exact, float v) { return exact(v); }

CGammaCurve::CGammaCurve(float top, float bottom, double gamma)
    : m_bottom(bottom), m_span(double(top) - double(bottom)), m_gamma(gamma) {}

float CGammaCurve::operator()(float v) const {
  return static_cast<float>(std::pow((double(v) - m_bottom) / m_span, m_gamma) * m_span + m_bottom);
}

int CGammaCurve::Row(const float* v, int n, float* out) const {
  const CurveNumbers c{m_bottom, m_span, 1.0 / m_span, m_gamma};
  if (qrn::simd::WidestVectors()) return qrn::gamma::RowWidest(c, *this, v, n, out);
  if (qrn::simd::FusedMultiplyAdd()) return RowWithFma(c, *this, v, n, out);
  return qrn::simd::WideVectors() ? RowWithWide(c, *this, v, n, out) : RowWith<4>(c, *this, v, n, out);
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
