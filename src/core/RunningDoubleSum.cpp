#include "core/RunningDoubleSum.h"

#include <cmath>
#include <cstring>

#include "kernels/Vec4.h"
#include "kernels/VecLogExp.h"

namespace {

using qrn::vmath::Abs;
using qrn::vmath::D4;
using qrn::vmath::Splat;
using qrn::vmath::SplatInt;
using L4 = qrn::vmath::MaskOf<D4>;

constexpr int kBlock = 1024;
// The largest |t/u| a block takes: its k stay within the shifter's exact range, and Σ|k|
// within a 64-bit integer.
constexpr double kMaxSteps = 0x1p50;
// Adding and subtracting 1.5·2^52 rounds a double below 2^51 in magnitude to the nearest
// integer, ties to even, and leaves that integer in the low mantissa bits.
constexpr double kRoundShifter = 0x1.8p52;

// What a block's vector pass finds: whether every term qualifies, Σk, Σ|k| and the ties.
struct BlockSteps {
  bool ok;
  long long steps, absSteps;
  int ties;
};

template <bool kSquares>
inline D4 Terms(const float* v) {
  Vec4f::Raw f;
  std::memcpy(&f, v, sizeof f);
  const D4 d = __builtin_convertvector(f, D4);
  if constexpr (kSquares) return d * d;  // exact: 24 by 24 bits
  return d;
}

// For four terms at a time, x = t/u (`scale` = 1/u, an exact power of two) and k the integer
// nearest x, or for a tie (x halfway) the lower one, with tie[i] set. k and tie are stored for
// the tie pass.
template <bool kSquares>
BlockSteps Steps(const float* v, double scale, long long* k, long long* tie) {
  const D4 s = Splat(scale), shifter = Splat(kRoundShifter), limit = Splat(kMaxSteps), half = Splat(0.5);
  L4 ok = SplatInt<D4>(-1), steps{}, absSteps{}, ties{};
  for (int i = 0; i < kBlock; i += 4) {
    const D4 x = Terms<kSquares>(v + i) * s;  // exact: a power-of-two scale
    const D4 r = (x + shifter) - shifter;
    ok &= Abs(x) <= limit;  // NaN and infinities fail
    const L4 isTie = Abs(x - r) == half;
    const D4 lower = isTie ? x - half : r;
    const L4 ki = (L4)(lower + shifter) - (L4)shifter;
    std::memcpy(k + i, &ki, sizeof ki);
    std::memcpy(tie + i, &isTie, sizeof isTie);
    steps += ki;
    absSteps += ki < L4{} ? -ki : ki;
    ties -= isTie;  // lanes of a true mask are −1
  }
  BlockSteps b{true, 0, 0, 0};
  for (int j = 0; j < 4; ++j) {
    b.ok = b.ok && ok[j] != 0;
    b.steps += steps[j];
    b.absSteps += absSteps[j];
    b.ties += static_cast<int>(ties[j]);
  }
  return b;
}

QRN_WIDE_TARGET BlockSteps StepsWide(const float* v, double scale, long long* k, long long* tie) {
  return Steps<false>(v, scale, k, tie);
}

QRN_WIDE_TARGET BlockSteps SquareStepsWide(const float* v, double scale, long long* k, long long* tie) {
  return Steps<true>(v, scale, k, tie);
}

// The sum's grid index after a block with ties: between ties the k add up; a tie rounds to
// the even one of its two neighbours, which depends on the index it meets.
long long WithTies(long long index, const long long* k, const long long* tie) {
  for (int i = 0; i < kBlock; ++i) {
    index += k[i];
    if (tie[i]) index += index & 1;
  }
  return index;
}

}  // namespace

void CRunningDoubleSum::Add(const float* v, int n) { AddTerms<false>(v, n); }

void CRunningDoubleSum::AddSquares(const float* v, int n) { AddTerms<true>(v, n); }

template <bool kSquares>
void CRunningDoubleSum::AddTerms(const float* v, int n) {
  for (int i = 0; i < n; i += kBlock) {
    if (n - i >= kBlock && AddBlock<kSquares>(v + i)) continue;
    double s = m_sum;
    for (int j = i; j < n && j < i + kBlock; ++j) {
      const double t = v[j];
      if constexpr (kSquares) s += t * t;
      else s += t;
    }
    m_sum = s;
  }
}

template <bool kSquares>
bool CRunningDoubleSum::AddBlock(const float* v) {
  const double s = m_sum, magnitude = std::fabs(s);
  // The power-of-two range [low, high) holding the sum and its spacing u; tiny and huge sums
  // go the plain way (1/u must be a double, and the terms small against the sum).
  if (!(magnitude >= 0x1p-900 && magnitude <= 0x1p900)) return false;
  int e;
  std::frexp(magnitude, &e);  // magnitude = f·2^e with f in [0.5, 1)
  const double low = std::ldexp(1.0, e - 1), high = std::ldexp(1.0, e), u = std::ldexp(1.0, e - 53);
  long long k[kBlock], tie[kBlock];
  const BlockSteps b = qrn::simd::WideVectors() ? (kSquares ? SquareStepsWide(v, 1.0 / u, k, tie)
                                                            : StepsWide(v, 1.0 / u, k, tie))
                                                : Steps<kSquares>(v, 1.0 / u, k, tie);
  if (!b.ok) return false;
  // Every partial sum, and every exact value it was rounded from, lies within
  // u·(Σ|k| + ties + 1) of s; all of them must stay inside the range for the spacing to hold.
  // The distances to the range's ends are exact (Sterbenz); the reach is taken a little
  // larger than its rounded value.
  const double reach = u * double(b.absSteps + b.ties + 1) * (1 + 0x1p-40);
  if (!(reach <= magnitude - low && reach < high - magnitude)) return false;
  // The sum as a whole number of spacings (its significand, so its parity is that of the
  // double's last bit), moved by the block; the result is on the grid inside the range.
  const auto index = static_cast<long long>(s / u);
  const long long end = b.ties == 0 ? index + b.steps : WithTies(index, k, tie);
  m_sum = double(end) * u;
  ++m_fastBlocks;
  return true;
}
