#include "kernels/CurveMemo.h"

#include <cstring>

#include "kernels/Prefetch.h"
#include "kernels/Vec4.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define QRN_MEMO_WIDE 1
#endif

namespace {

constexpr std::uint32_t kEmptyKey = 0xffffffffu;

std::uint32_t Bits(float v) {
  std::uint32_t b;
  std::memcpy(&b, &v, sizeof b);
  return b;
}

std::uint64_t Entry(std::uint32_t key, float value) { return key | std::uint64_t(Bits(value)) << 32; }

float Value(std::uint64_t entry) {
  const std::uint32_t high = static_cast<std::uint32_t>(entry >> 32);
  float v;
  std::memcpy(&v, &high, sizeof v);
  return v;
}

}  // namespace

void CCurveMemo::Reset(float emptyValue) {
  m_entries.assign(std::size_t(1) << kBits, Entry(kEmptyKey, emptyValue));
  m_rotate = 0;
  m_tuned = false;
}

// Samples that are all alike (a constant border, say) tell nothing about the steps between
// values: the rotation is then left for a later call. Entries placed under another rotation
// only become unreachable; a lookup never matches a key it was not given.
void CCurveMemo::Tune(const float* v, int n) {
  std::uint32_t differ = 0;
  for (int i = 1; i < n; ++i) differ |= Bits(v[i]) ^ Bits(v[0]);
  if (differ == 0) return;
  m_rotate = __builtin_ctz(differ);
  m_tuned = true;
}

int CCurveMemo::Find(const float* v, int n, float* out, int* missing) {
  if (!m_tuned) Tune(v, n);
#if QRN_HAVE_WIDE_TARGET
  if (qrn::simd::WidestVectors()) return FindWidest(v, n, out, missing);
#endif
  return qrn::simd::WideVectors() ? FindWide(v, n, out, missing) : FindNarrow(v, n, out, missing);
}

int CCurveMemo::FindNarrow(const float* v, int n, float* out, int* missing) const {
  // Branch-free: every position is written to `missing`, and the count only advances past
  // the ones whose key differs. Hits and misses interleave unpredictably in a fresh table.
  int count = 0;
  for (int i = 0; i < n; ++i) {
    const std::uint32_t key = Bits(v[i]);
    const std::uint64_t entry = m_entries[Slot(key)];
    out[i] = Value(entry);
    missing[count] = i;
    count += static_cast<std::uint32_t>(entry) != key;
  }
  return count;
}

#ifdef QRN_MEMO_WIDE
// Eight samples at a time: the hash with vectors, then eight plain loads of the entries (a
// fifth faster than two 256-bit gathers on Zen 3, a fifth slower on a recent Intel processor;
// slow gathers are the more common among processors without AVX-512); the keys and results
// are separated and put back in sample order. A group with a miss lists its missing lanes
// from the comparison's bit mask. On a Xeon with AVX-512, the 512-bit gathers of FindWidest
// take a quarter less time than these loads.
namespace {
// The entries at four slots, in slot order.
__attribute__((target("avx2"))) inline __m256 FourEntries(const long long* entries, const std::uint32_t* at) {
  return _mm256_castsi256_ps(_mm256_set_epi64x(entries[at[3]], entries[at[2]], entries[at[1]], entries[at[0]]));
}
}  // namespace

__attribute__((target("avx2"))) int CCurveMemo::FindWide(const float* v, int n, float* out, int* missing) const {
  const auto* entries = reinterpret_cast<const long long*>(m_entries.data());
  const __m256i hash = _mm256_set1_epi32(static_cast<int>(kHash));
  const __m128i right = _mm_cvtsi32_si128(m_rotate), left = _mm_cvtsi32_si128(32 - m_rotate);
  int count = 0, i = 0;
  for (; i + 8 <= n; i += 8) {
    qrn::simd::PrefetchRead<8>(v + i);
    const __m256i key = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(v + i));
    // A shift by 32 gives 0, so rotation by 0 needs no case of its own.
    const __m256i rotated = _mm256_or_si256(_mm256_srl_epi32(key, right), _mm256_sll_epi32(key, left));
    const __m256i slot = _mm256_srli_epi32(_mm256_mullo_epi32(rotated, hash), 32 - kBits);
    alignas(32) std::uint32_t at[8];
    _mm256_store_si256(reinterpret_cast<__m256i*>(at), slot);
    const __m256 low = FourEntries(entries, at), high = FourEntries(entries, at + 4);
    // Within each 128-bit half the shuffles take lanes low0 low1 high0 high1; swapping the
    // middle quarters restores the order 0..7.
    constexpr int kOrder = 0xd8;
    const __m256 keys = _mm256_shuffle_ps(low, high, 0x88), values = _mm256_shuffle_ps(low, high, 0xdd);
    const __m256i found = _mm256_castpd_si256(_mm256_permute4x64_pd(_mm256_castps_pd(keys), kOrder));
    _mm256_storeu_ps(out + i, _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(values), kOrder)));
    unsigned miss = ~unsigned(_mm256_movemask_ps(_mm256_castsi256_ps(_mm256_cmpeq_epi32(found, key)))) & 0xffu;
    for (; miss; miss &= miss - 1) missing[count++] = i + __builtin_ctz(miss);
  }
  const int rest = FindNarrow(v + i, n - i, out + i, missing + count);
  for (int k = 0; k < rest; ++k) missing[count + k] += i;
  return count + rest;
}

#if QRN_HAVE_WIDE_TARGET
// Sixteen samples at a time, the entries fetched by two 512-bit gathers of eight.
QRN_WIDEST_INTRINSICS_BEGIN
QRN_WIDEST_TARGET int CCurveMemo::FindWidest(const float* v, int n, float* out, int* missing) const {
  const auto* entries = reinterpret_cast<const long long*>(m_entries.data());
  const __m512i hash = _mm512_set1_epi32(static_cast<int>(kHash));
  const __m128i right = _mm_cvtsi32_si128(m_rotate), left = _mm_cvtsi32_si128(32 - m_rotate);
  int count = 0, i = 0;
  for (; i + 16 <= n; i += 16) {
    qrn::simd::PrefetchRead<16>(v + i);
    const __m512i key = _mm512_loadu_si512(v + i);
    const __m512i rotated = _mm512_or_si512(_mm512_srl_epi32(key, right), _mm512_sll_epi32(key, left));
    const __m512i slot = _mm512_srli_epi32(_mm512_mullo_epi32(rotated, hash), 32 - kBits);
    const __m512i low = _mm512_i32gather_epi64(_mm512_castsi512_si256(slot), entries, 8);
    const __m512i high = _mm512_i32gather_epi64(_mm512_extracti64x4_epi64(slot, 1), entries, 8);
    const __m512i found = _mm512_inserti64x4(_mm512_castsi256_si512(_mm512_cvtepi64_epi32(low)),
                                             _mm512_cvtepi64_epi32(high), 1);
    const __m512i values = _mm512_inserti64x4(_mm512_castsi256_si512(_mm512_cvtepi64_epi32(_mm512_srli_epi64(low, 32))),
                                              _mm512_cvtepi64_epi32(_mm512_srli_epi64(high, 32)), 1);
    _mm512_storeu_si512(out + i, values);
    for (unsigned miss = _mm512_cmpneq_epi32_mask(found, key); miss; miss &= miss - 1)
      missing[count++] = i + __builtin_ctz(miss);
  }
  const int rest = FindNarrow(v + i, n - i, out + i, missing + count);
  for (int k = 0; k < rest; ++k) missing[count + k] += i;
  return count + rest;
}
QRN_WIDEST_INTRINSICS_END
#endif
#else
int CCurveMemo::FindWide(const float* v, int n, float* out, int* missing) const {
  return FindNarrow(v, n, out, missing);
}
#endif

void CCurveMemo::Remember(float v, float y) {
  m_entries[Slot(Bits(v))] = Entry(Bits(v), y);
}
