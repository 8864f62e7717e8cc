#include "core/RowSum.h"

#include <cmath>
#include <cstdint>
#include <cstring>

#include "kernels/Vec4.h"

#if QRN_HAVE_WIDE_TARGET
#include <immintrin.h>
#endif

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

// The running vectors of the unordered pass: sums and magnitudes in double lanes, the
// exponents in int lanes.
struct Lanes {
  Vec4d sum{0.0}, magnitude{0.0};
  Vec4f::Mask minE = {255, 255, 255, 255}, maxE = {0, 0, 0, 0};

  void Add(const float* v, bool squares) {
    const Vec4f::Mask absMask = {0x7fffffff, 0x7fffffff, 0x7fffffff, 0x7fffffff};
    const Vec4f s = Vec4f::Load(v);
    const Vec4f t = squares ? s * s : s;
    const Vec4f a = Vec4f((Vec4f::Raw)((Vec4f::Mask)t.v & absMask));
    const Vec4f::Mask e = ((Vec4f::Mask)a.v) >> 23;
    const Vec4f::Mask nonzeroE = a.v != 0.0f ? e : 255;
    minE = nonzeroE < minE ? nonzeroE : minE;
    maxE = e > maxE ? e : maxE;
    sum = sum + ToDouble(t);
    magnitude = magnitude + ToDouble(a);
  }

  void MergeInto(Pass& pass) const {
    pass.sum += (sum[0] + sum[1]) + (sum[2] + sum[3]);
    pass.magnitude += (magnitude[0] + magnitude[1]) + (magnitude[2] + magnitude[3]);
    for (int i = 0; i < 4; ++i) {
      if (minE[i] < pass.minExponent) pass.minExponent = minE[i];
      if (maxE[i] > pass.maxExponent) pass.maxExponent = maxE[i];
    }
  }
};

// Sixteen terms at a time into four independent sets of lanes, so that the additions do not
// wait on one another. The order is free: the result is used only when no partial sum can
// round, and the bound on the magnitudes' rounding holds for any order.
Pass Unordered(const float* v, int n, bool squares) {
  Lanes lanes[4];
  int x = 0;
  for (; x + 16 <= n; x += 16)
    for (int j = 0; j < 4; ++j) lanes[j].Add(v + x + 4 * j, squares);
  for (; x + 4 <= n; x += 4) lanes[0].Add(v + x, squares);
  Pass pass;
  for (const Lanes& l : lanes) l.MergeInto(pass);
  for (; x < n; ++x) pass.Add(Term(v[x], squares));
  return pass;
}

#if QRN_HAVE_WIDE_TARGET

// The wide pass: eight terms a step, widened to double in two halves, with two sets of
// accumulators so that the additions overlap. Written with intrinsics because the generic
// widening of a float vector to double compiles to stack round trips.
struct WideLanes {
  __m256d sum[4], magnitude[4];
  __m256i minE, maxE;
};

template <bool squares>
QRN_WIDE_TARGET inline void AddWide(WideLanes& l, __m256 s, int set) {
  const __m256 t = squares ? _mm256_mul_ps(s, s) : s;
  const __m256 a = _mm256_and_ps(t, _mm256_castsi256_ps(_mm256_set1_epi32(0x7fffffff)));
  const __m256i e = _mm256_srli_epi32(_mm256_castps_si256(a), 23);
  const __m256 zero = _mm256_cmp_ps(a, _mm256_setzero_ps(), _CMP_EQ_OQ);
  const __m256i nonzeroE = _mm256_blendv_epi8(e, _mm256_set1_epi32(255), _mm256_castps_si256(zero));
  l.minE = _mm256_min_epi32(l.minE, nonzeroE);
  l.maxE = _mm256_max_epi32(l.maxE, e);
  const int k = 2 * set;
  l.sum[k] = _mm256_add_pd(l.sum[k], _mm256_cvtps_pd(_mm256_castps256_ps128(t)));
  l.sum[k + 1] = _mm256_add_pd(l.sum[k + 1], _mm256_cvtps_pd(_mm256_extractf128_ps(t, 1)));
  l.magnitude[k] = _mm256_add_pd(l.magnitude[k], _mm256_cvtps_pd(_mm256_castps256_ps128(a)));
  l.magnitude[k + 1] = _mm256_add_pd(l.magnitude[k + 1], _mm256_cvtps_pd(_mm256_extractf128_ps(a, 1)));
}

QRN_WIDE_TARGET inline double SumOf(const __m256d* v) {
  alignas(32) double d[4][4];
  for (int i = 0; i < 4; ++i) _mm256_store_pd(d[i], v[i]);
  double total = 0.0;
  for (const auto& lane : d) total += (lane[0] + lane[1]) + (lane[2] + lane[3]);
  return total;
}

QRN_WIDE_TARGET inline WideLanes Start() {
  WideLanes l;
  for (int i = 0; i < 4; ++i) l.sum[i] = l.magnitude[i] = _mm256_setzero_pd();
  l.minE = _mm256_set1_epi32(255);
  l.maxE = _mm256_setzero_si256();
  return l;
}

QRN_WIDE_TARGET inline Pass Finish(const WideLanes& l) {
  Pass pass;
  pass.sum = SumOf(l.sum);
  pass.magnitude = SumOf(l.magnitude);
  alignas(32) int minE[8], maxE[8];
  _mm256_store_si256(reinterpret_cast<__m256i*>(minE), l.minE);
  _mm256_store_si256(reinterpret_cast<__m256i*>(maxE), l.maxE);
  for (int i = 0; i < 8; ++i) {
    if (minE[i] < pass.minExponent) pass.minExponent = minE[i];
    if (maxE[i] > pass.maxExponent) pass.maxExponent = maxE[i];
  }
  return pass;
}

template <bool squares>
QRN_WIDE_TARGET Pass UnorderedWide(const float* v, int n) {
  WideLanes l = Start();
  int x = 0;
  for (; x + 16 <= n; x += 16) {
    AddWide<squares>(l, _mm256_loadu_ps(v + x), 0);
    AddWide<squares>(l, _mm256_loadu_ps(v + x + 8), 1);
  }
  for (; x + 8 <= n; x += 8) AddWide<squares>(l, _mm256_loadu_ps(v + x), 0);
  Pass pass = Finish(l);
  for (; x < n; ++x) pass.Add(Term(v[x], squares));
  return pass;
}

// Both passes over one read of the row, each with one set of lanes.
QRN_WIDE_TARGET void BothWide(const float* v, int n, Pass& plain, Pass& squares) {
  WideLanes p = Start(), q = Start();
  int x = 0;
  for (; x + 8 <= n; x += 8) {
    const __m256 s = _mm256_loadu_ps(v + x);
    AddWide<false>(p, s, 0);
    AddWide<true>(q, s, 0);
  }
  plain = Finish(p);
  squares = Finish(q);
  for (; x < n; ++x) {
    plain.Add(v[x]);
    squares.Add(v[x] * v[x]);
  }
}

Pass UnorderedWide(const float* v, int n, bool squares) {
  return squares ? UnorderedWide<true>(v, n) : UnorderedWide<false>(v, n);
}

#else

Pass UnorderedWide(const float* v, int n, bool squares) { return Unordered(v, n, squares); }

#endif

constexpr int kInterleave = 16;

// The tail of the interleaved sum and its fixed combination; x is where the vector part ended
// (a multiple of kInterleave).
double FinishInterleaved(double (&lane)[kInterleave], const float* v, int x, int n) {
  for (; x < n; ++x) lane[x % kInterleave] += v[x];
  double t[4];
  for (int j = 0; j < 4; ++j) t[j] = (lane[j] + lane[j + 4]) + (lane[j + 8] + lane[j + 12]);
  return (t[0] + t[1]) + (t[2] + t[3]);
}

double InterleavedNarrow(const float* v, int n) {
  Vec4d s[4];
  int x = 0;
  for (; x + kInterleave <= n; x += kInterleave)
    for (int j = 0; j < 4; ++j) s[j] = s[j] + ToDouble(Vec4f::Load(v + x + 4 * j));
  double lane[kInterleave];
  for (int j = 0; j < 4; ++j) s[j].Store(lane + 4 * j);
  return FinishInterleaved(lane, v, x, n);
}

#if QRN_HAVE_WIDE_TARGET
QRN_WIDE_TARGET double InterleavedWide(const float* v, int n) {
  __m256d s[4];
  for (auto& a : s) a = _mm256_setzero_pd();
  int x = 0;
  for (; x + kInterleave <= n; x += kInterleave)
    for (int j = 0; j < 4; ++j) s[j] = _mm256_add_pd(s[j], _mm256_cvtps_pd(_mm_loadu_ps(v + x + 4 * j)));
  double lane[kInterleave];
  for (int j = 0; j < 4; ++j) _mm256_storeu_pd(lane + 4 * j, s[j]);
  return FinishInterleaved(lane, v, x, n);
}
#endif

double SumRow(const float* v, int n, bool squares) {
  const Pass pass = qrn::simd::WideVectors() ? UnorderedWide(v, n, squares) : Unordered(v, n, squares);
  return pass.Exact(n) ? pass.sum : InOrder(v, n, squares);
}

}  // namespace

double CRowSum::Sum(const float* v, int n) { return SumRow(v, n, false); }

double CRowSum::SumOfSquares(const float* v, int n) { return SumRow(v, n, true); }

double CRowSum::Interleaved(const float* v, int n) {
#if QRN_HAVE_WIDE_TARGET
  if (qrn::simd::WideVectors()) return InterleavedWide(v, n);
#endif
  return InterleavedNarrow(v, n);
}

void CRowSum::SumAndSumOfSquares(const float* v, int n, double& sum, double& squares) {
#if QRN_HAVE_WIDE_TARGET
  if (qrn::simd::WideVectors()) {
    Pass plain, sq;
    BothWide(v, n, plain, sq);
    sum = plain.Exact(n) ? plain.sum : InOrder(v, n, false);
    squares = sq.Exact(n) ? sq.sum : InOrder(v, n, true);
    return;
  }
#endif
  sum = Sum(v, n);
  squares = SumOfSquares(v, n);
}
