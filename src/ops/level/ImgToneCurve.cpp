// Tone curves, applied by table lookup on the 0..255 scale of each plane's level window.
#include "ops/level/ImgToneCurve.h"

#include <algorithm>
#include <vector>

#include "ops/level/ToneRows.h"

using namespace qrn::level;

namespace {

// The lookup index of samples on one plane: t = (v − lo)·k on the 0..255 scale, index
// trunc(t·last/255). Lanes outside 0..255 (and NaN) are flagged and given index 0, so that
// every index read lies inside the table.
struct ToneIndex {
  float lo, k, last;
  // The curve's last point. Beyond 2^23 points, `last` as a float and the rounding of
  // t·last/255 can reach past it, and the lookup then takes the last point.
  int lastIndex;

  // The index function for vectors V, its constants held in registers (so that stores into
  // a float row cannot be taken to change them): index(v, inside).
  template <class V>
  auto Lanes() const {
    using Mask = typename V::Mask;
    return [vlo = V(lo), vk = V(k), vlast = V(last), vlastIndex = Mask{} + lastIndex](const V& v, Mask& inside) {
      const V zero(0.0f), full(255.0f);
      const V t = (v - vlo) * vk;
      inside = (t >= zero) & (t <= full);
      const V within = V::Min(V::Max(t, zero), full);
      const auto i = TruncToInt(within * vlast / full);
      return (i < vlastIndex ? i : vlastIndex) & inside;
    };
  }

  // One sample by the same float steps: its index, or -1 outside 0..255.
  int Of(float v) const {
    const float t = (v - lo) * k;
    return t >= 0.0f && t <= 255.0f ? std::min(static_cast<int>(t * last / 255.0f), lastIndex) : -1;
  }
};

// out[i] = raw[index] for samples inside 0..255, outside(v) for the rest. The indices are
// found four at a time a block ahead, then read one by one.
template <class Outside>
void LookupRow(const ToneIndex& index, const float* raw, const float* s, int n, float* out, const Outside& outside) {
  auto rule = [&index](auto zero) {
    using V = decltype(zero);
    return [lanes = index.Lanes<V>()](const V& v, int* idx) {
      typename V::Mask inside;
      const auto i = lanes(v, inside);
      StoreLanes(i | ~inside, idx);
    };
  };
  int idx[kIndexBlock];
  for (int b = 0; b < n; b += kIndexBlock) {
    const int count = std::min(kIndexBlock, n - b);
    IndexSpan<Vec4f>(s + b, count, idx, rule);
    for (int i = 0; i < count; ++i) out[b + i] = idx[i] >= 0 ? raw[idx[i]] : outside(s[b + i]);
  }
}

// out[j] = outside(v[j]) for the lanes j of an eight-sample step that are not inside 0..255;
// a call of its own, so that the row loop keeps its vectors in registers (a call inside it
// would clobber them).
template <class Outside>
__attribute__((noinline)) void PatchOutside(const float* v, const int* inside, float* out, const Outside& outside) {
  for (int j = 0; j < 8; ++j)
    if (!inside[j]) out[j] = outside(v[j]);
}

// Sample x by ToneIndex::Of: its table entry inside 0..255, outside(v) otherwise.
template <class Outside>
inline void LookupOne(const ToneIndex& index, const float* raw, const float* s, int x, float* out,
                      const Outside& outside) {
  const int i = index.Of(s[x]);
  out[x] = i >= 0 ? raw[i] : outside(s[x]);
}

// The eight-wide row: eight samples a step, their table entries read with one gather and
// written to out (streamed when kStream: the aligned part, the caller fences); the lanes
// outside 0..255 are then recomputed out of line.
template <bool kStream, class Outside>
void LookupSpan8(const ToneIndex& index, const float* raw, const float* s, int n, float* out, const Outside& outside) {
  const auto one = [&](int x) { LookupOne(index, raw, s, x, out, outside); };
  int x = 0;
  if constexpr (kStream)
    for (const int head = UnalignedHead<8>(out, n); x < head; ++x) one(x);
  const auto lanes = index.Lanes<Vec8f>();
  for (; x + 8 <= n; x += 8) {
    const Vec8f v = Vec8f::Load(s + x);  // read before out is written: the row may be in place
    Vec8f::Mask inside;
    const auto i = lanes(v, inside);
    if (AllLanes(inside)) {
      GatherTo<kStream>(raw, i, out + x);
      continue;
    }
    // Patched in a buffer and written once: a second store into a line just streamed out
    // would fetch it back.
    float samples[8], patched[8];
    int flags[8];
    v.Store(samples);
    StoreLanes(inside, flags);
    GatherTo<false>(raw, i, patched);
    PatchOutside(samples, flags, patched, outside);
    Put<kStream>(out + x, Vec8f::Load(patched));
  }
  for (; x < n; ++x) one(x);
}

// LookupSpan8 compiled for 256-bit vectors.
template <bool kStream, class Outside>
QRN_WIDE_TARGET void LookupRowWide(const ToneIndex& index, const float* raw, const float* s, int n, float* out,
                                   const Outside& outside) {
  LookupSpan8<kStream>(index, raw, s, n, out, outside);
}

#if QRN_HAVE_WIDE_TARGET
// The 512-bit row: sixteen samples a step, by ToneIndex's float steps in intrinsics, their
// table entries read with one gather. A step with any sample outside 0..255 is done sample
// by sample, which gives the same values (ToneIndex::Of follows the same steps).
QRN_WIDEST_INTRINSICS_BEGIN
template <bool kStream, class Outside>
QRN_WIDEST_TARGET void LookupRowWidest(const ToneIndex& index, const float* raw, const float* s, int n, float* out,
                                       const Outside& outside) {
  const auto one = [&](int x) { LookupOne(index, raw, s, x, out, outside); };
  int x = 0;
  if constexpr (kStream)
    for (const int head = UnalignedHead<16>(out, n); x < head; ++x) one(x);
  const __m512 lo = _mm512_set1_ps(index.lo), k = _mm512_set1_ps(index.k), last = _mm512_set1_ps(index.last);
  const __m512 zero = _mm512_setzero_ps(), full = _mm512_set1_ps(255.0f);
  const __m512i lastIndex = _mm512_set1_epi32(index.lastIndex);
  for (; x + 16 <= n; x += 16) {
    const __m512 t = _mm512_mul_ps(_mm512_sub_ps(_mm512_loadu_ps(s + x), lo), k);
    const __mmask16 inside = _mm512_cmp_ps_mask(t, zero, _CMP_GE_OQ) & _mm512_cmp_ps_mask(t, full, _CMP_LE_OQ);
    if (inside != 0xffff) {
      for (int j = 0; j < 16; ++j) one(x + j);
      continue;
    }
    const __m512i i = _mm512_min_epi32(_mm512_cvttps_epi32(_mm512_div_ps(_mm512_mul_ps(t, last), full)), lastIndex);
    const __m512 entries = _mm512_i32gather_ps(i, raw, 4);
    if constexpr (kStream) _mm512_stream_ps(out + x, entries);
    else _mm512_storeu_ps(out + x, entries);
  }
  for (; x < n; ++x) one(x);
}
QRN_WIDEST_INTRINSICS_END
#endif

}  // namespace

float CImgToneCurve::CalcToneCurve(const float* curve, int i, float v) {
  if (v < 0.0f) return 0.0f;
  const float f1 = curve[i - 1], f2 = curve[i];
  if (f1 == f2) return 255.0f * f2;
  const float d = std::max((f2 - f1) * static_cast<float>(i), 0.0f);
  return (v - 255.0f * f2) * d + 255.0f * f2;
}

void CImgToneCurve::Do(float** curves, int n, COrbImage* src, CRect* rect, int progress, int halpha) {
  const Region r = SourceRegion(*this, src, rect);
  if (r.IsEmpty() || !curves || n < 2) return;
  const int planes = GetPlanes();
  const bool color = planes > 1;
  for (int c = 0; c < (color ? 4 : 1); ++c)
    if (!curves[c]) return;
  const int last = n - 1;
  float min[kMaxPlanes], scale[kMaxPlanes];
  for (int p = 0; p < planes; ++p) {
    min[p] = static_cast<float>(GetLevelMin(p));
    scale[p] = GetLevelRange(p) == 0.0 ? 0.0f : static_cast<float>(255.0 / GetLevelRange(p));
  }
  const float* master = curves[0];
  // Inside 0..255 the result depends only on the lookup index, so each plane's raw results
  // are tabulated once per index (own curve, master, back to raw) with the same float steps.
  std::vector<float> table(static_cast<std::size_t>(planes) * n);
  for (int p = 0; p < planes; ++p)
    for (int i = 0; i < n && scale[p] != 0.0f; ++i) {
      float u = (color ? curves[p + 1] : master)[i] * 255.0f;
      if (color) u = ApplyCurve(master, last, u);
      table[static_cast<std::size_t>(p) * n + i] = u / scale[p] + min[p];
    }
  const bool wide = qrn::simd::WideVectors();
#if QRN_HAVE_WIDE_TARGET
  const bool widest = qrn::simd::WidestVectors();
#endif
  // Eight-wide rows of large images skip the cache on the way out.
  const bool stream = qrn::simd::StreamStores(sizeof(float) * std::size_t(r.Width()) * r.Height() * planes, src == this);
  ShowProgressInit(progress, halpha ? 6194 : 6114, r.Height() * planes);
  ForEachRow(*this, *src, r, planes, [&](int p, const float* s, float* d, int w) {
    if (scale[p] == 0.0f) return CopyRow(s, d, w);
    const float lo = min[p], k = scale[p];
    const float* own = color ? curves[p + 1] : master;
    const ToneIndex index{lo, k, static_cast<float>(last), last};
    const float* raw = table.data() + static_cast<std::size_t>(p) * n;
    // A sample outside 0..255 (or NaN) through the curves' extensions.
    auto outside = [&](float v) {
      float u = CalcToneCurve(own, last, (v - lo) * k);
      if (color) u = ApplyCurve(master, last, u);
      return u / k + lo;
    };
    if (!wide) return LookupRow(index, raw, s, w, d, outside);
#if QRN_HAVE_WIDE_TARGET
    if (widest) {
      if (!stream) return LookupRowWidest<false>(index, raw, s, w, d, outside);
      LookupRowWidest<true>(index, raw, s, w, d, outside);
      return qrn::simd::StreamFence();
    }
#endif
    if (!stream) return LookupRowWide<false>(index, raw, s, w, d, outside);
    LookupRowWide<true>(index, raw, s, w, d, outside);
    qrn::simd::StreamFence();
  });
  ShowProgressEnd(nullptr);
}

void CImgToneCurve::DoHAlpha(double threshold, double brightness, COrbImage* src, CRect* rect, int progress) {
  std::vector<float> identity(256), stretched(256);
  for (int i = 0; i < 256; ++i) identity[i] = stretched[i] = static_cast<float>(i / 255.0);
  const double knee = threshold * 255.0;
  const int end = knee > 0.0 ? static_cast<int>(std::min(knee, 256.0)) : 0;
  for (int i = 0; i < end; ++i) stretched[i] = static_cast<float>(i / knee * brightness);
  float* curves[4] = {stretched.data(), stretched.data(), identity.data(), identity.data()};
  Do(curves, 256, src, rect, progress, 1);
}

void CImgToneCurve::DoHAlphaLevel(double mag, COrbImage* src) {
  if (!src || src->IsEmpty()) return;
  src->CalcMinMax();
  for (int p = 0; p < GetPlanes(); ++p) SetLevel(p, src->GetMinPixel(0), src->GetMaxPixel(0) * mag);
}
