// Auto-stretch: planes brought to a common spread with their own gain, offset and base.
#include "ops/level/ImgAutoStretch.h"

#include <algorithm>

#include "ops/level/ToneRows.h"

using namespace qrn::level;

void CImgAutoStretch::DoStretch(COrbImage* src, double* gain, double* offset, double* spread, double* base,
                                tagRECT* rect) {
  if (!rect || !gain || !offset || !spread || !base) return;
  const CRect whole(0, 0, GetWidth(), GetHeight());
  Region r = SourceRegion(*this, src, &whole);
  r = {std::max(r.left, rect->left), std::max(r.top, rect->top), std::min(r.right, rect->right),
       std::min(r.bottom, rect->bottom)};
  const double top = std::max({spread[0], spread[1], spread[2]});
  double ratio[kMaxPlanes], shift[kMaxPlanes];
  for (int p = 0; p < GetPlanes(); ++p) {
    ratio[p] = spread[p] != 0.0 ? top / spread[p] : 1.0;
    shift[p] = static_cast<float>(base[p]);
  }
  ForEachRow(*this, *src, r, GetPlanes(), [&](int p, const float* s, float* d, int n) {
    for (int x = 0; x < n; ++x) d[x] = static_cast<float>((s[x] - offset[p]) * ratio[p] * gain[p] + shift[p]);
  });
}
