#include "core/RunningFloatSum.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "kernels/Vec4.h"

namespace {

// Samples per block: small enough that Σ|k| stays below 2^23 (each |k| ≤ 2^13).
constexpr int kBlock = 1024;
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

// For V::kWidth samples at a time, x = v/u (`scale` = 1/u, an exact power of two) and k the
// integer nearest x, or for a tie (x halfway) the lower one, with tie[i] set. k and tie are
// stored for the tie pass.
template <class V>
BlockSteps Steps(const float* v, int n, float scale, int* k, int* tie) {
  using Mask = typename V::Mask;
  const V s(scale), shifter(kRoundShifter), limit(kMaxSteps), half(0.5f), minusHalf(-0.5f);
  Mask ok = Mask{} == Mask{};
  Mask steps{}, absSteps{}, ties{};
  for (int i = 0; i + V::kWidth <= n; i += V::kWidth) {
    const V x = V::Load(v + i) * s;  // exact: a power-of-two scale of a small sample
    const V r = (x + shifter) - shifter;
    const V d = x - r;
    // NaN fails the first test, an infinity one of the first two.
    ok &= (x <= limit) & (x >= V(-kMaxSteps));
    const Mask isTie = (d >= half) | (d <= minusHalf);
    const V lower = V::Select(isTie, x - half, r);
    const Mask ki = TruncToInt(V::Select(ok, lower, V(0.0f)));
    std::memcpy(k + i, &ki, sizeof ki);
    std::memcpy(tie + i, &isTie, sizeof isTie);
    steps += ki;
    absSteps += ki < Mask{} ? -ki : ki;
    ties -= isTie;  // lanes of a true mask are −1
  }
  BlockSteps b{true, 0, 0, 0};
  for (int j = 0; j < V::kWidth; ++j) {
    b.ok = b.ok && ok[j] != 0;
    b.steps += steps[j];
    b.absSteps += absSteps[j];
    b.ties += ties[j];
  }
  return b;
}

QRN_WIDE_TARGET BlockSteps StepsWide(const float* v, int n, float scale, int* k, int* tie) {
  return Steps<Vec8f>(v, n, scale, k, tie);
}

// The sum's grid index after a block with ties: between ties the k add up; a tie rounds to
// the even one of its two neighbours, which depends on the index it meets.
long long WithTies(long long index, const int* k, const int* tie, int n) {
  for (int i = 0; i < n; ++i) {
    index += k[i];
    if (tie[i]) index += index & 1;
  }
  return index;
}

}  // namespace

void CRunningFloatSum::Add(const float* v, int n) {
  int i = 0;
  while (i < n) {
    const int m = std::min(kBlock, n - i);
    if (m == kBlock && AddBlock(v + i, m)) {
      i += m;
      continue;
    }
    float s = m_sum;
    for (int j = 0; j < m; ++j) s += v[i + j];
    m_sum = s;
    i += m;
  }
}

bool CRunningFloatSum::AddBlock(const float* v, int n) {
  const float s = m_sum;
  const float magnitude = std::fabs(s);
  // The power-of-two range [low, high) holding the sum and its float spacing u; tiny and
  // non-finite sums go the plain way (1/u must be a float, and the samples must be small
  // against the sum).
  if (!(magnitude >= 0x1p-60f && magnitude <= 0x1p100f)) return false;
  int e;
  std::frexp(magnitude, &e);  // magnitude = f·2^e with f in [0.5, 1)
  const float low = std::ldexp(1.0f, e - 1), high = std::ldexp(1.0f, e);
  const float u = std::ldexp(1.0f, e - 24);
  int k[kBlock], tie[kBlock];
  const BlockSteps b =
      qrn::simd::WideVectors() ? StepsWide(v, n, 1.0f / u, k, tie) : Steps<Vec4f>(v, n, 1.0f / u, k, tie);
  if (!b.ok) return false;
  // Every partial sum, and every exact value it was rounded from, lies within
  // u·(Σ|k| + ties + 1) of s; all of them must stay inside the range for the spacing to hold.
  const double reach = double(u) * double(b.absSteps + b.ties + 1);
  if (!(double(magnitude) - reach >= double(low) && double(magnitude) + reach < double(high))) return false;
  // The sum as a whole number of spacings (its significand, so its parity is that of the
  // float's last bit), moved by the block; the result is on the grid inside the range, so it
  // is a float and these conversions are exact.
  const auto index = static_cast<long long>(double(s) / double(u));
  const long long end = b.ties == 0 ? index + b.steps : WithTies(index, k, tie, n);
  m_sum = static_cast<float>(double(end) * double(u));
  ++m_fastBlocks;
  return true;
}
