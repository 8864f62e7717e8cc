// Frame shared by the level operations: the checked region and the loop over its rows.
#pragma once
#include <cstring>

#include "core/LineLoop.h"
#include "core/OrbImage.h"
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

}  // namespace qrn::level
