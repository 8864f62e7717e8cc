#include "core/DisplayBytes.h"

#include <algorithm>
#include <cstddef>

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

#if QRN_HAVE_WIDE_TARGET

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

QRN_WIDE_TARGET void RowWide(const Window& w, const float* s, int n, BYTE* out) {
  int i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m128i a = _mm_packs_epi32(Bytes4(w, _mm_loadu_ps(s + i)), Bytes4(w, _mm_loadu_ps(s + i + 4)));
    const __m128i b = _mm_packs_epi32(Bytes4(w, _mm_loadu_ps(s + i + 8)), Bytes4(w, _mm_loadu_ps(s + i + 12)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_packus_epi16(a, b));
  }
  for (; i < n; ++i) out[i] = static_cast<BYTE>(ByteOf(w, s[i]));
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

BYTE CDisplayBytes::operator()(float s) const {
  return static_cast<BYTE>(ByteOf(Window{m_min, m_max, m_range}, s));
}

void CDisplayBytes::Row(const float* s, int n, BYTE* out) const {
  if (qrn::simd::WideVectors()) RowWide(s, n, out);
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

void CDisplayBytes::RowWide(const float* s, int n, BYTE* out) const {
#if QRN_HAVE_WIDE_TARGET
  ::RowWide(Window{m_min, m_max, m_range}, s, n, out);
#else
  RowScalar(s, n, out);
#endif
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
