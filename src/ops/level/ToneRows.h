// Frame shared by the level operations: the checked region and the loop over its rows.
#pragma once
#include <cstring>

#include "core/LineLoop.h"
#include "core/OrbImage.h"
#include "kernels/Vec4.h"
#include "platform/QrnSys.h"

namespace qrn::level {

/// The clipped rectangle an operation works on (right and bottom exclusive).
struct Region {
  int left = 0, top = 0, right = 0, bottom = 0;
  int Width() const { return right - left; }
  int Height() const { return bottom - top; }
  bool IsEmpty() const { return right <= left || bottom <= top; }
};

/// True when both images hold samples and have the same width, height and planes.
inline bool SameGeometry(const COrbImage& a, const COrbImage& b) {
  return !a.IsEmpty() && !b.IsEmpty() && a.GetWidth() == b.GetWidth() && a.GetHeight() == b.GetHeight() &&
         a.GetPlanes() == b.GetPlanes();
}

/// The region of an operation on dst that reads src at the same coordinates: rect clipped
/// to the image, or an empty region when src is missing or of another geometry, so that
/// nothing outside either image is ever touched.
inline Region SourceRegion(const COrbImage& dst, const COrbImage* src, const CRect* rect) {
  Region r;
  if (!src || !SameGeometry(dst, *src)) return r;
  dst.NormalizeRect(rect, r.left, r.top, r.right, r.bottom);
  return r;
}

/// The four-wide row variant is chosen once per call from the capability query.
inline bool UseVector() { return (CQrnSys::SIMD() & 2) != 0; }

/// Calls row(plane, srcLine, dstLine, width) for every line of the region in each of the
/// first `planes` planes, lines of a plane shared among threads, one progress unit per line.
template <class Row>
void ForEachRow(COrbImage& dst, const COrbImage& src, const Region& r, int planes, Row&& row) {
  if (r.IsEmpty()) return;
  CLineLoop loop(dst);
  loop.RunPlanes(planes, r.top, r.bottom, [&](int p, int y) {
    row(p, src.GetImageAdr(r.left, y, p), dst.GetImageAdr(r.left, y, p, 0), r.Width());
  });
}

/// Calls body(in, out, width) for every line of the region with the line addresses of the
/// three planes (a grey src gives its one plane three times), lines shared among threads,
/// one progress unit per line.
template <class Body>
void ForEachRgbRow(COrbImage& dst, const COrbImage& src, const Region& r, Body&& body) {
  if (r.IsEmpty()) return;
  CLineLoop(dst).Run(r.top, r.bottom, [&](int y) {
    const float* in[3];
    float* out[3];
    for (int k = 0; k < 3; ++k) {
      in[k] = src.GetImageAdr(r.left, y, src.GetPlanes() == 3 ? k : 0);
      out[k] = dst.GetImageAdr(r.left, y, k, 0);
    }
    body(in, out, r.Width());
  });
}

/// Copies n samples unless the line is being rewritten in place.
inline void CopyRow(const float* s, float* d, int n) {
  if (s != d) std::memmove(d, s, sizeof(float) * static_cast<std::size_t>(n));
}

/// Stores the int lanes of a vector mask (the index rules' results) at out.
template <class Mask>
inline void StoreLanes(const Mask& lanes, int* out) {
  std::memcpy(out, &lanes, sizeof lanes);
}

/// Fills idx[0 .. n) by an index rule, V::kWidth samples at a time. rule(V()) returns the
/// lane function for width V, which holds its constants as vectors: index(V samples, int* out)
/// writes their int indices. The tail goes through it on a zero-padded vector, so every
/// sample follows the same arithmetic.
template <class V, class Rule>
inline void IndexSpan(const float* s, int n, int* idx, const Rule& rule) {
  const auto index = rule(V());
  int i = 0;
  for (; i + V::kWidth <= n; i += V::kWidth) index(V::Load(s + i), idx + i);
  if (i == n) return;
  float pad[V::kWidth] = {};
  int out[V::kWidth];
  std::memcpy(pad, s + i, sizeof(float) * static_cast<std::size_t>(n - i));
  index(V::Load(pad), out);
  std::memcpy(idx + i, out, sizeof(int) * static_cast<std::size_t>(n - i));
}

/// d[i] = map(v) for the n samples v of s, through a zero-padded vector, so that a short
/// span follows the same arithmetic as whole vectors.
template <class V, class Map>
inline void MapPadded(const float* s, float* d, int n, const Map& map) {
  float pad[V::kWidth] = {}, out[V::kWidth];
  std::memcpy(pad, s, sizeof(float) * static_cast<std::size_t>(n));
  map(V::Load(pad)).Store(out);
  std::memcpy(d, out, sizeof(float) * static_cast<std::size_t>(n));
}

/// d[i] = map(s[i]) for i in [0, n), V::kWidth samples at a time; rule(V()) returns the lane
/// function V(V) for width V, as for IndexSpan. With kStream the whole vectors are written
/// with streaming stores (the caller fences); the unaligned head and the tail are mapped on
/// zero-padded vectors.
template <class V, bool kStream, class Rule>
inline void MapSpan(const float* s, float* d, int n, const Rule& rule) {
  const auto map = rule(V());
  int i = kStream ? UnalignedHead<V::kWidth>(d, n) : 0;
  if (i > 0) MapPadded<V>(s, d, i, map);
  for (; i + V::kWidth <= n; i += V::kWidth) Put<kStream>(d + i, map(V::Load(s + i)));
  if (i < n) MapPadded<V>(s + i, d + i, n - i, map);
}

template <bool kStream, class Rule>
QRN_WIDE_TARGET void MapSpanWide(const float* s, float* d, int n, const Rule& rule) {
  MapSpan<Vec8f, kStream>(s, d, n, rule);
}

/// MapSpan eight-wide when `wide` (chosen once per call), else four-wide; streamed when
/// `stream` (qrn::simd::StreamStores, chosen once per call), fenced before return.
template <class Rule>
void MapRow(bool wide, const float* s, float* d, int n, const Rule& rule, bool stream = false) {
  if (!stream) {
    if (wide) MapSpanWide<false>(s, d, n, rule);
    else MapSpan<Vec4f, false>(s, d, n, rule);
    return;
  }
  if (wide) MapSpanWide<true>(s, d, n, rule);
  else MapSpan<Vec4f, true>(s, d, n, rule);
  qrn::simd::StreamFence();
}

/// Number of samples a table-lookup row handles per block of indices.
constexpr int kIndexBlock = 512;

}  // namespace qrn::level
