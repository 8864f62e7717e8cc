// Auto-stretch: planes brought to a common spread with their own gain, offset and base.
#include "ops/level/ImgAutoStretch.h"

#include <algorithm>

#include "ops/level/ToneRows.h"

using namespace qrn::level;

namespace {

// One plane's mapping, all in double: v ← float((v − offset) · ratio · gain + shift).
struct StretchLine {
  double offset, ratio, gain, shift;
};

inline float Stretch(float v, const StretchLine& k) {
  return static_cast<float>((v - k.offset) * k.ratio * k.gain + k.shift);
}

// Stretch() four samples a step, in double lanes (256-bit ones where the processor has them).
inline void StretchRow(const float* s, float* d, int n, StretchLine k) {
  const Vec4d offset(k.offset), ratio(k.ratio), gain(k.gain), shift(k.shift);
  int x = 0;
  for (; x + 4 <= n; x += 4) ToFloat((ToDouble(Vec4f::Load(s + x)) - offset) * ratio * gain + shift).Store(d + x);
  for (; x < n; ++x) d[x] = Stretch(s[x], k);
}

QRN_WIDE_TARGET void StretchRowWide(const float* s, float* d, int n, StretchLine k) { StretchRow(s, d, n, k); }

}  // namespace

void CImgAutoStretch::DoStretch(COrbImage* src, double* gain, double* offset, double* spread, double* base,
                                tagRECT* rect) {
  if (!rect || !gain || !offset || !spread || !base) return;
  const CRect whole(0, 0, GetWidth(), GetHeight());
  Region r = SourceRegion(*this, src, &whole);
  r = {std::max(r.left, rect->left), std::max(r.top, rect->top), std::min(r.right, rect->right),
       std::min(r.bottom, rect->bottom)};
  const double top = std::max({spread[0], spread[1], spread[2]});
  StretchLine line[kMaxPlanes];
  for (int p = 0; p < GetPlanes(); ++p)
    line[p] = {offset[p], spread[p] != 0.0 ? top / spread[p] : 1.0, gain[p], static_cast<float>(base[p])};
  const auto row = qrn::simd::WideVectors() ? &StretchRowWide : &StretchRow;
  ForEachRow(*this, *src, r, GetPlanes(), [&](int p, const float* s, float* d, int n) { row(s, d, n, line[p]); });
}
