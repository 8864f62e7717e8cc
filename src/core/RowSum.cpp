#include "core/RowSum.h"

#include <cmath>
#include <cstdint>
#include <cstring>

#include "kernels/Vec4.h"

namespace {

inline float Term(float v, bool squares) { return squares ? v * v : v; }

double InOrder(const float* v, int n, bool squares) {
  double s = 0.0;
  for (int x = 0; x < n; ++x) s += static_cast<double>(Term(v[x], squares));
  return s;
}

// Running state of the unordered pass: the sum, the sum of magnitudes, and the smallest and
// largest biased exponents of the nonzero terms.
struct Pass {
  double sum = 0.0, magnitude = 0.0;
  int minExponent = 255, maxExponent = 0;

  void Add(float t) {
    std::uint32_t bits;
    std::memcpy(&bits, &t, sizeof bits);
    const int e = static_cast<int>((bits >> 23) & 0xff);
    sum += t;
    magnitude += std::fabs(t);
    if (t != 0.0f && e < minExponent) minExponent = e;
    if (e > maxExponent) maxExponent = e;
  }

  // True when the unordered sum equals the ordered one: all terms finite and normal (or zero),
  // and the magnitudes below 2^53 units of the smallest term. The computed sum of magnitudes
  // is raised by its largest relative rounding error, (n − 1) units of 2^-53, to bound it.
  bool Exact(int n) const {
    if (maxExponent == 255) return false;
    if (minExponent == 255) return true;  // every term zero
    if (minExponent == 0) return false;
    const double unit = std::ldexp(1.0, minExponent - 150);
    return magnitude * (1.0 + n * 0x1p-52) < 0x1p53 * unit;
  }
};

// Four terms at a time in double lanes; the exponents in int lanes.
Pass Unordered(const float* v, int n, bool squares) {
  Vec4d sum(0.0), magnitude(0.0);
  Vec4f::Mask minE = {255, 255, 255, 255}, maxE = {0, 0, 0, 0};
  const Vec4f::Mask absMask = {0x7fffffff, 0x7fffffff, 0x7fffffff, 0x7fffffff};
  int x = 0;
  for (; x + 4 <= n; x += 4) {
    const Vec4f s = Vec4f::Load(v + x);
    const Vec4f t = squares ? s * s : s;
    const Vec4f a = Vec4f((Vec4f::Raw)((Vec4f::Mask)t.v & absMask));
    const Vec4f::Mask e = ((Vec4f::Mask)a.v) >> 23;
    const Vec4f::Mask nonzeroE = a.v != 0.0f ? e : 255;
    minE = nonzeroE < minE ? nonzeroE : minE;
    maxE = e > maxE ? e : maxE;
    sum = sum + ToDouble(t);
    magnitude = magnitude + ToDouble(a);
  }
  Pass pass;
  pass.sum = (sum[0] + sum[1]) + (sum[2] + sum[3]);
  pass.magnitude = (magnitude[0] + magnitude[1]) + (magnitude[2] + magnitude[3]);
  for (int i = 0; i < 4; ++i) {
    if (minE[i] < pass.minExponent) pass.minExponent = minE[i];
    if (maxE[i] > pass.maxExponent) pass.maxExponent = maxE[i];
  }
  for (; x < n; ++x) pass.Add(Term(v[x], squares));
  return pass;
}

QRN_WIDE_TARGET Pass UnorderedWide(const float* v, int n, bool squares) { return Unordered(v, n, squares); }

double SumRow(const float* v, int n, bool squares) {
  const Pass pass = qrn::simd::WideVectors() ? UnorderedWide(v, n, squares) : Unordered(v, n, squares);
  return pass.Exact(n) ? pass.sum : InOrder(v, n, squares);
}

}  // namespace

double CRowSum::Sum(const float* v, int n) { return SumRow(v, n, false); }

double CRowSum::SumOfSquares(const float* v, int n) { return SumRow(v, n, true); }
