#include "core/DisplayBytes.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

#include "kernels/Vec4.h"

#if QRN_HAVE_WIDE_TARGET
#include <immintrin.h>
#endif

namespace {

struct Window {
  double min, max, range;
};

// One sample by the rule, in the order the vector paths follow: clamps first, then the two
// end tests, the minimum test last so that it wins on an empty window.
inline int ByteOf(const Window& w, float s) {
  const double v = s;
  double t = (v - w.min) / w.range * 255.0;
  t = t > 0.0 ? t : 0.0;  // NaN too
  t = t < 255.0 ? t : 255.0;
  t = v >= w.max ? 255.0 : t;
  t = v <= w.min ? 0.0 : t;
  return static_cast<int>(t);
}

// Floats in the order of their values as unsigned integers (NaNs left out by the callers).
std::uint32_t OrderKey(float f) {
  std::uint32_t u;
  std::memcpy(&u, &f, sizeof u);
  return (u & 0x80000000u) ? ~u : u | 0x80000000u;
}

float FromOrderKey(std::uint32_t key) {
  const std::uint32_t u = (key & 0x80000000u) ? key & 0x7fffffffu : ~key;
  float f;
  std::memcpy(&f, &u, sizeof f);
  return f;
}

// The smallest float at or above x, and the largest at or below it.
float FloatAtOrAbove(double x) {
  const float f = static_cast<float>(x);
  return f < x ? std::nextafter(f, std::numeric_limits<float>::infinity()) : f;
}

float FloatAtOrBelow(double x) {
  const float f = static_cast<float>(x);
  return f > x ? std::nextafter(f, -std::numeric_limits<float>::infinity()) : f;
}

#if QRN_HAVE_WIDE_TARGET

// The step table of a window, as the wide row reads it.
struct Steps {
  float offset, scale, top;
  float certainAbove, certainBelow;  // fractions of the estimate that leave no doubt
  const float* edge;
};

// Eight samples: their estimates e, clamped to [0, 255] (NaN to 0) and forced to 255 at or
// above the top, and a mask of the lanes whose byte is certainly trunc(e).
struct Estimate8 {
  __m256 e;
  __m256 certain;
};

// The estimate lies within a known bound of the exact value, so trunc(e) is the byte unless
// e lies within that bound of an integer. Below 1 the byte cannot be less than trunc(e) = 0,
// and at or above the top it is 255 whatever e says.
QRN_WIDE_TARGET inline Estimate8 Estimate(const Steps& w, __m256 s) {
  const __m256 k255 = _mm256_set1_ps(255.0f), one = _mm256_set1_ps(1.0f);
  __m256 e = _mm256_mul_ps(_mm256_sub_ps(s, _mm256_set1_ps(w.offset)), _mm256_set1_ps(w.scale));
  e = _mm256_min_ps(_mm256_max_ps(e, _mm256_setzero_ps()), k255);
  const __m256 atTop = _mm256_cmp_ps(s, _mm256_set1_ps(w.top), _CMP_GE_OQ);
  e = _mm256_blendv_ps(e, k255, atTop);
  const __m256 f = _mm256_sub_ps(e, _mm256_round_ps(e, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC));
  const __m256 lowerSure = _mm256_or_ps(_mm256_cmp_ps(f, _mm256_set1_ps(w.certainAbove), _CMP_GT_OQ),
                                        _mm256_cmp_ps(e, one, _CMP_LT_OQ));
  const __m256 upperSure = _mm256_cmp_ps(f, _mm256_set1_ps(w.certainBelow), _CMP_LT_OQ);
  return {e, _mm256_or_ps(_mm256_and_ps(lowerSure, upperSure), atTop)};
}

// The bytes of eight samples from their estimates, every lane decided by the edge table: the
// nearest integer r of e is the byte or one above it, and the byte is r − 1 exactly when the
// sample lies below the edge of step r. A NaN sample has e = 0 and compares false.
QRN_WIDE_TARGET inline __m256i DecideByEdges(const Steps& w, __m256 s, __m256 e) {
  const __m256i r = _mm256_cvtps_epi32(e);
  const __m256 edge = _mm256_i32gather_ps(w.edge, r, 4);
  return _mm256_add_epi32(r, _mm256_castps_si256(_mm256_cmp_ps(s, edge, _CMP_LT_OQ)));
}

// One sample the way DecideByEdges takes a lane.
inline BYTE StepByte(const Steps& w, float s) {
  float e = (s - w.offset) * w.scale;
  e = e > 0.0f ? e : 0.0f;  // NaN too
  e = e < 255.0f ? e : 255.0f;
  const int r = s >= w.top ? 255 : static_cast<int>(std::nearbyint(e));
  return static_cast<BYTE>(s < w.edge[r] ? r - 1 : r);
}

QRN_WIDE_TARGET inline __m128i Pack8(__m256i v) {
  return _mm_packs_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
}

// Shuffle masks that repeat each of 16 bytes three times over 48 bytes: mask[k] fills
// output vector k (bytes 16k .. 16k + 15).
struct TripleMasks {
  alignas(16) signed char mask[3][16];
  constexpr TripleMasks() : mask{} {
    for (int k = 0; k < 3; ++k)
      for (int j = 0; j < 16; ++j) mask[k][j] = static_cast<signed char>((16 * k + j) / 3);
  }
};
constexpr TripleMasks kTriple;

// Writes 16 bytes kCopies times each: once for a plane, three times for a grey BGR pixel.
template <int kCopies>
QRN_WIDE_TARGET inline void Store16(__m128i v, BYTE* out) {
  if constexpr (kCopies == 1) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), v);
  } else {
    static_assert(kCopies == 3);
    const __m128i* m = reinterpret_cast<const __m128i*>(kTriple.mask);
    for (int k = 0; k < 3; ++k)
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 16 * k), _mm_shuffle_epi8(v, _mm_load_si128(m + k)));
  }
}

template <int kCopies>
inline void Store1(BYTE v, BYTE* out) {
  for (int c = 0; c < kCopies; ++c) out[c] = v;
}

template <int kCopies>
QRN_WIDE_TARGET void StepRowWide(const Steps& w, const float* s, int n, BYTE* out) {
  int i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m256 s0 = _mm256_loadu_ps(s + i), s1 = _mm256_loadu_ps(s + i + 8);
    const Estimate8 a = Estimate(w, s0), b = Estimate(w, s1);
    __m256i bytes0, bytes1;
    if (_mm256_movemask_ps(_mm256_and_ps(a.certain, b.certain)) == 0xff) {
      bytes0 = _mm256_cvttps_epi32(a.e);
      bytes1 = _mm256_cvttps_epi32(b.e);
    } else {
      bytes0 = DecideByEdges(w, s0, a.e);
      bytes1 = DecideByEdges(w, s1, b.e);
    }
    Store16<kCopies>(_mm_packus_epi16(Pack8(bytes0), Pack8(bytes1)), out + kCopies * i);
  }
  for (; i < n; ++i) Store1<kCopies>(StepByte(w, s[i]), out + kCopies * i);
}

// Four samples to four int32 bytes, lane for lane the operations of ByteOf. max_pd returns
// its second operand when the first is NaN, as `t > 0 ? t : 0` does.
QRN_WIDE_TARGET inline __m128i Bytes4(const Window& w, __m128 s) {
  const __m256d v = _mm256_cvtps_pd(s);
  const __m256d k255 = _mm256_set1_pd(255.0), zero = _mm256_setzero_pd();
  const __m256d min = _mm256_set1_pd(w.min);
  __m256d t = _mm256_mul_pd(_mm256_div_pd(_mm256_sub_pd(v, min), _mm256_set1_pd(w.range)), k255);
  t = _mm256_max_pd(t, zero);
  t = _mm256_min_pd(t, k255);
  t = _mm256_blendv_pd(t, k255, _mm256_cmp_pd(v, _mm256_set1_pd(w.max), _CMP_GE_OQ));
  t = _mm256_blendv_pd(t, zero, _mm256_cmp_pd(v, min, _CMP_LE_OQ));
  return _mm256_cvttpd_epi32(t);
}

template <int kCopies>
QRN_WIDE_TARGET void RuleRowWide(const Window& w, const float* s, int n, BYTE* out) {
  int i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m128i a = _mm_packs_epi32(Bytes4(w, _mm_loadu_ps(s + i)), Bytes4(w, _mm_loadu_ps(s + i + 4)));
    const __m128i b = _mm_packs_epi32(Bytes4(w, _mm_loadu_ps(s + i + 8)), Bytes4(w, _mm_loadu_ps(s + i + 12)));
    Store16<kCopies>(_mm_packus_epi16(a, b), out + kCopies * i);
  }
  for (; i < n; ++i) Store1<kCopies>(static_cast<BYTE>(ByteOf(w, s[i])), out + kCopies * i);
}

// Shuffle masks that spread 16 bytes of one channel over 48 interleaved bytes: mask[c][k]
// fills output vector k (bytes 16k .. 16k + 15) with channel c, zero elsewhere.
struct InterleaveMasks {
  alignas(16) signed char mask[3][3][16];
  constexpr InterleaveMasks() : mask{} {
    for (int c = 0; c < 3; ++c)
      for (int k = 0; k < 3; ++k)
        for (int j = 0; j < 16; ++j) {
          const int byte = 16 * k + j;
          mask[c][k][j] = static_cast<signed char>(byte % 3 == c ? byte / 3 : -128);
        }
  }
};
constexpr InterleaveMasks kInterleave;

QRN_WIDE_TARGET int InterleaveWide(const BYTE* b, const BYTE* g, const BYTE* r, int n, BYTE* out) {
  const __m128i* m = reinterpret_cast<const __m128i*>(kInterleave.mask);
  int i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m128i vb = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + i));
    const __m128i vg = _mm_loadu_si128(reinterpret_cast<const __m128i*>(g + i));
    const __m128i vr = _mm_loadu_si128(reinterpret_cast<const __m128i*>(r + i));
    for (int k = 0; k < 3; ++k) {
      const __m128i v = _mm_or_si128(_mm_or_si128(_mm_shuffle_epi8(vb, _mm_load_si128(m + k)),
                                                  _mm_shuffle_epi8(vg, _mm_load_si128(m + 3 + k))),
                                     _mm_shuffle_epi8(vr, _mm_load_si128(m + 6 + k)));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 3 * i + 16 * k), v);
    }
  }
  return i;
}

#endif

}  // namespace

CDisplayBytes::CDisplayBytes(double min, double max, double range) : m_min(min), m_max(max), m_range(range) {
  BuildSteps();
}

void CDisplayBytes::BuildSteps() {
  if (!(std::isfinite(m_min) && std::isfinite(m_max) && m_min < m_max && m_range > 0 && std::isfinite(m_range)))
    return;
  const float scale = static_cast<float>(255.0 / m_range);
  if (!std::isnormal(scale)) return;
  // Bound on |estimate − exact| for samples inside the window: the float offset is off by
  // 2^-24 |min|, and three float roundings of at most 2^-24 each act on the difference and
  // the product; the double rule's own rounding is far below 1e-9.
  const double bound = 255.0 / m_range * 0x1p-22 * (std::fabs(m_min) + (m_max - m_min)) + 1e-9;
  if (!(bound < 0.25)) return;
  m_offset = static_cast<float>(m_min);
  m_scale = scale;
  m_top = FloatAtOrAbove(m_max);
  m_certainAbove = FloatAtOrAbove(bound);
  m_certainBelow = FloatAtOrBelow(1.0 - bound);
  // Each edge by bisection over the ordered floats; the byte of +∞ is 255, so every step
  // has an edge.
  const Window w{m_min, m_max, m_range};
  m_edge[0] = -std::numeric_limits<float>::infinity();
  std::uint32_t lo = OrderKey(m_edge[0]);
  for (int k = 1; k < 256; ++k) {
    std::uint32_t hi = OrderKey(std::numeric_limits<float>::infinity());
    while (lo < hi) {
      const std::uint32_t mid = lo + (hi - lo) / 2;
      if (ByteOf(w, FromOrderKey(mid)) >= k) hi = mid;
      else lo = mid + 1;
    }
    m_edge[k] = FromOrderKey(lo);
  }
  m_steps = true;
}

BYTE CDisplayBytes::operator()(float s) const {
  return static_cast<BYTE>(ByteOf(Window{m_min, m_max, m_range}, s));
}

void CDisplayBytes::Row(const float* s, int n, BYTE* out) const {
  if (qrn::simd::WideVectors()) RowWide<1>(s, n, out);
  else RowScalar(s, n, out);
}

void CDisplayBytes::RowScalar(const float* s, int n, BYTE* out) const {
  const Window w{m_min, m_max, m_range};
  // Converted in chunks through an int buffer so that the compiler vectorises the double rule.
  constexpr int kChunk = 256;
  int bytes[kChunk];
  for (int x0 = 0; x0 < n; x0 += kChunk) {
    const int m = std::min(kChunk, n - x0);
#pragma omp simd
    for (int i = 0; i < m; ++i) bytes[i] = ByteOf(w, s[x0 + i]);
    for (int i = 0; i < m; ++i) out[x0 + i] = static_cast<BYTE>(bytes[i]);
  }
}

template <int kCopies>
void CDisplayBytes::RowWide(const float* s, int n, BYTE* out) const {
#if QRN_HAVE_WIDE_TARGET
  if (m_steps) StepRowWide<kCopies>(Steps{m_offset, m_scale, m_top, m_certainAbove, m_certainBelow, m_edge}, s, n, out);
  else RuleRowWide<kCopies>(Window{m_min, m_max, m_range}, s, n, out);
#else
  (void)s, (void)n, (void)out;
#endif
}

void CDisplayBytes::RowTriple(const float* s, int n, BYTE* out) const {
  if (qrn::simd::WideVectors()) {
    RowWide<3>(s, n, out);
    return;
  }
  constexpr int kChunk = 256;
  BYTE bytes[kChunk];
  for (int x0 = 0; x0 < n; x0 += kChunk) {
    const int m = std::min(kChunk, n - x0);
    RowScalar(s + x0, m, bytes);
    for (int i = 0; i < m; ++i, out += 3) out[0] = out[1] = out[2] = bytes[i];
  }
}

void CDisplayBytes::Interleave(const BYTE* b, const BYTE* g, const BYTE* r, int n, BYTE* out, int step) {
  int i = 0;
#if QRN_HAVE_WIDE_TARGET
  if (step == 3 && qrn::simd::WideVectors()) i = InterleaveWide(b, g, r, n, out);
#endif
  for (out += std::size_t(i) * step; i < n; ++i, out += step) {
    out[0] = b[i];
    out[1] = g[i];
    out[2] = r[i];
  }
}
