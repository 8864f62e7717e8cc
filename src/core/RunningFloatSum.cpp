#include "core/RunningFloatSum.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "core/RowExtremes.h"
#include "kernels/Prefetch.h"
#include "kernels/Vec4.h"

#if QRN_HAVE_WIDE_TARGET
#include <immintrin.h>
#endif

namespace {

// Samples per block: small enough that Σ|k| stays below 2^23 (each |k| ≤ 2^13).
constexpr int kBlock = CRunningFloatSum::kBlock;
constexpr float kMaxSteps = 8192.0f;  // 2^13: the largest |v/u| a block takes
// Adding and subtracting 1.5·2^23 rounds a float below 2^22 in magnitude to the nearest
// integer, ties to even, in the default rounding mode.
constexpr float kRoundShifter = 0x1.8p23f;

// What a block's vector pass finds: whether every sample qualifies, Σk, Σ|k| and the ties.
struct BlockSteps {
  bool ok;
  long long steps, absSteps;
  int ties;
};

// The steps of a block with its extremes as the lanes hold them (a zero extreme still needs
// the in-order scan to choose between −0 and +0).
struct BlockScan {
  BlockSteps steps;
  float min = std::numeric_limits<float>::infinity(), max = -std::numeric_limits<float>::infinity();

  // Takes the lanes' extremes over in lane order, with the rule of the scan itself.
  void TakeLanes(const float* lo, const float* hi, int lanes) {
    for (int j = 0; j < lanes; ++j) {
      if (lo[j] < min) min = lo[j];
      if (hi[j] > max) max = hi[j];
    }
  }
};

// For V::kWidth samples at a time, x = v/u (`scale` = 1/u, an exact power of two) and k the
// integer nearest x, or for a tie (x halfway) the lower one, with tie[i] set. k and tie are
// stored for the tie pass. The block's extremes come from the same loads, as CRowExtremes
// finds them: min(s, lo) keeps lo for a NaN s.
template <class V>
BlockScan Scan(const float* v, int n, float scale, int* k, int* tie) {
  using Mask = typename V::Mask;
  constexpr float inf = std::numeric_limits<float>::infinity();
  const V s(scale), shifter(kRoundShifter), limit(kMaxSteps), half(0.5f), minusHalf(-0.5f), zero(0.0f);
  V lo(inf), hi(-inf);
  Mask ok = Mask{} == Mask{};
  Mask steps{}, absSteps{}, ties{};
  for (int i = 0; i + V::kWidth <= n; i += V::kWidth) {
    qrn::simd::PrefetchRead<V::kWidth>(v + i);
    const V a = V::Load(v + i);
    lo = V::Min(a, lo);
    hi = V::Max(a, hi);
    const V x = a * s;  // exact: a power-of-two scale of a small sample
    const V r = (x + shifter) - shifter;
    const V d = x - r;
    ok &= V::Abs(x) <= limit;  // false for NaN and the infinities
    const Mask isTie = V::Abs(d) == half;
    // At a tie r is the even neighbour; where that lies above x (d = −½) the lower one is
    // r − 1, which the comparison's lane of −1 adds.
    const Mask ki = TruncToInt(V::Select(ok, r, zero)) + (d == minusHalf);
    std::memcpy(k + i, &ki, sizeof ki);
    std::memcpy(tie + i, &isTie, sizeof isTie);
    steps += ki;
    absSteps += ki < Mask{} ? -ki : ki;
    ties -= isTie;  // lanes of a true mask are −1
  }
  BlockScan b{{true, 0, 0, 0}};
  float los[V::kWidth], his[V::kWidth];
  for (int j = 0; j < V::kWidth; ++j) {
    b.steps.ok = b.steps.ok && ok[j] != 0;
    b.steps.steps += steps[j];
    b.steps.absSteps += absSteps[j];
    b.steps.ties += ties[j];
    los[j] = lo[j], his[j] = hi[j];
  }
  b.TakeLanes(los, his, V::kWidth);
  return b;
}

QRN_WIDE_TARGET BlockScan ScanWide(const float* v, int n, float scale, int* k, int* tie) {
  return Scan<Vec8f>(v, n, scale, k, tie);
}

#if QRN_HAVE_WIDE_TARGET

QRN_WIDEST_INTRINSICS_BEGIN

// Scan() on sixteen samples at a time, written with intrinsics only, so that nothing compiled
// for an older instruction set is inlined into it. n is a multiple of 16. k and tie match
// Scan() wherever every sample qualifies, the only case in which they are read.
QRN_WIDEST_TARGET BlockScan ScanWidest(const float* v, int n, float scale, int* k, int* tie) {
  const __m512 s = _mm512_set1_ps(scale), shifter = _mm512_set1_ps(kRoundShifter);
  const __m512 limit = _mm512_set1_ps(kMaxSteps), half = _mm512_set1_ps(0.5f), minusHalf = _mm512_set1_ps(-0.5f);
  const __m512i one = _mm512_set1_epi32(1);
  constexpr float inf = std::numeric_limits<float>::infinity();
  __m512 lo = _mm512_set1_ps(inf), hi = _mm512_set1_ps(-inf);
  __m512i steps = _mm512_setzero_si512(), absSteps = steps, ties = steps;
  __mmask16 ok = 0xffff;
  for (int i = 0; i + 16 <= n; i += 16) {
    qrn::simd::PrefetchRead<16>(v + i);
    const __m512 a = _mm512_loadu_ps(v + i);
    lo = _mm512_min_ps(a, lo);
    hi = _mm512_max_ps(a, hi);
    const __m512 x = _mm512_mul_ps(a, s);
    const __m512 r = _mm512_sub_ps(_mm512_add_ps(x, shifter), shifter);
    const __m512 d = _mm512_sub_ps(x, r);
    const __mmask16 inRange = _mm512_cmp_ps_mask(_mm512_abs_ps(x), limit, _CMP_LE_OQ);
    ok &= inRange;
    const __mmask16 isTie = _mm512_cmp_ps_mask(_mm512_abs_ps(d), half, _CMP_EQ_OQ);
    const __mmask16 lower = _mm512_cmp_ps_mask(d, minusHalf, _CMP_EQ_OQ);
    const __m512i nearest = _mm512_maskz_cvttps_epi32(inRange, r);
    const __m512i ki = _mm512_mask_sub_epi32(nearest, lower, nearest, one);
    _mm512_storeu_si512(k + i, ki);
    _mm512_storeu_si512(tie + i, _mm512_movm_epi32(isTie));
    steps = _mm512_add_epi32(steps, ki);
    absSteps = _mm512_add_epi32(absSteps, _mm512_abs_epi32(ki));
    ties = _mm512_mask_add_epi32(ties, isTie, ties, one);
  }
  alignas(64) float los[16], his[16];
  _mm512_store_ps(los, lo);
  _mm512_store_ps(his, hi);
  BlockScan scan{{ok == 0xffff, _mm512_reduce_add_epi32(steps), _mm512_reduce_add_epi32(absSteps),
                  _mm512_reduce_add_epi32(ties)}};
  scan.TakeLanes(los, his, 16);
  return scan;
}

QRN_WIDEST_INTRINSICS_END

#endif

// The sum's grid index after a block with ties: between ties the k add up; a tie rounds to
// the even one of its two neighbours, which depends on the index it meets. Only the start's
// parity matters: a start two further on meets every tie with the same parity.
long long WithTies(long long index, const int* k, const int* tie, int n) {
  for (int i = 0; i < n; ++i) {
    index += k[i];
    if (tie[i]) index += index & 1;
  }
  return index;
}

// The power-of-two range [low, high) holding s and its float spacing u; false for tiny and
// non-finite sums, which go the plain way (1/u must be a float, and the samples must be
// small against the sum).
bool RangeOf(float s, float& low, float& high, float& u) {
  const float magnitude = std::fabs(s);
  if (!(magnitude >= 0x1p-60f && magnitude <= 0x1p100f)) return false;
  int e;
  std::frexp(magnitude, &e);  // magnitude = f·2^e with f in [0.5, 1)
  low = std::ldexp(1.0f, e - 1);
  high = std::ldexp(1.0f, e);
  u = std::ldexp(1.0f, e - 24);
  return true;
}

// Scan() of a block with the widest vectors the processor has.
BlockScan ScanOnWidestVectors(const float* v, float scale, int* k, int* tie) {
#if QRN_HAVE_WIDE_TARGET
  if (qrn::simd::WidestVectors()) return ScanWidest(v, kBlock, scale, k, tie);
#endif
  return qrn::simd::WideVectors() ? ScanWide(v, kBlock, scale, k, tie) : Scan<Vec4f>(v, kBlock, scale, k, tie);
}

// The summary of a block whose steps for spacing u were found (k and tie as Scan() stores them).
CRunningFloatSum::BlockSummary FromSteps(const BlockSteps& steps, float u, const int* k, const int* tie) {
  CRunningFloatSum::BlockSummary b;
  b.spacing = u;
  if (!steps.ok) return b;
  b.usable = true;
  b.absSteps = steps.absSteps;
  b.ties = steps.ties;
  if (steps.ties == 0) {
    b.move[0] = b.move[1] = steps.steps;
  } else {
    b.move[0] = WithTies(0, k, tie, kBlock);
    b.move[1] = WithTies(1, k, tie, kBlock) - 1;
  }
  return b;
}

}  // namespace

void CRunningFloatSum::Add(const float* v, int n) {
  for (int i = 0; i < n; i += kBlock) {
    const int m = std::min(kBlock, n - i);
    if (m == kBlock) Apply(Summarise(v + i, m_sum), v + i);
    else AddOneByOne(v + i, m);
  }
}

CRunningFloatSum::BlockSummary CRunningFloatSum::Summarise(const float* v, float guess) {
  float low, high, u, min, max;
  if (!RangeOf(guess, low, high, u)) return BlockSummary{};
  return Summarise(v, guess, min, max);
}

CRunningFloatSum::BlockSummary CRunningFloatSum::Summarise(const float* v, float guess, float& min, float& max) {
  float low, high, u;
  if (!RangeOf(guess, low, high, u)) {
    CRowExtremes::Find(v, kBlock, min, max);
    return BlockSummary{};
  }
  int k[kBlock], tie[kBlock];
  const BlockScan scan = ScanOnWidestVectors(v, 1.0f / u, k, tie);
  min = scan.min, max = scan.max;
  if (min == 0.0f || max == 0.0f) CRowExtremes::Find(v, kBlock, min, max);
  return FromSteps(scan.steps, u, k, tie);
}

void CRunningFloatSum::Apply(const BlockSummary& b, const float* v) {
  if (TryApply(b)) return;
  // Summarised for another range (the sum has crossed a power of two since the guess): the
  // block is summarised again for the present one.
  float low, high, u;
  if (RangeOf(m_sum, low, high, u) && u != b.spacing && TryApply(Summarise(v, m_sum))) return;
  AddOneByOne(v, kBlock);
}

void CRunningFloatSum::AddOneByOne(const float* v, int n) {
  float s = m_sum;
  for (int j = 0; j < n; ++j) s += v[j];
  m_sum = s;
}

bool CRunningFloatSum::TryApply(const BlockSummary& b) {
  const float s = m_sum;
  float low, high, u;
  if (!b.usable || !RangeOf(s, low, high, u) || u != b.spacing) return false;
  // Every partial sum, and every exact value it was rounded from, lies within
  // u·(Σ|k| + ties + 1) of s; all of them must stay inside the range for the spacing to hold.
  const double magnitude = std::fabs(double(s));
  const double reach = double(u) * double(b.absSteps + b.ties + 1);
  if (!(magnitude - reach >= double(low) && magnitude + reach < double(high))) return false;
  // The sum as a whole number of spacings (its significand, so its parity is that of the
  // float's last bit), moved by the block; the result is on the grid inside the range, so it
  // is a float and these conversions are exact.
  const auto index = static_cast<long long>(double(s) / double(u));
  m_sum = static_cast<float>(double(index + b.move[index & 1]) * double(u));
  ++m_fastBlocks;
  return true;
}
