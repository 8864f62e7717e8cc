// Cut-off: samples outside the source's level window replaced by substitute values.
#include "ops/level/ImgCutOff.h"

#include "ops/level/ToneRows.h"

using namespace qrn::level;

void CImgCutOff::Do(COrbImage* src, float low, float high, CRect* rect, int progress) {
  const Region r = SourceRegion(*this, src, rect);
  if (r.IsEmpty()) return;
  ShowProgressInit(progress, 6198, r.Height() * GetPlanes());
  for (int p = 0; p < GetPlanes(); ++p) {
    const float lo = static_cast<float>(src->GetLevelMin(p)), hi = static_cast<float>(src->GetLevelMax(p));
    for (int y = r.top; y < r.bottom; ++y) {
      const float* s = src->GetImageAdr(r.left, y, p);
      float* d = GetImageAdr(r.left, y, p, 0);
      for (int x = 0; x < r.Width(); ++x) {
        const float v = s[x];
        d[x] = v <= lo ? low : v >= hi ? high : v;
      }
      ShowProgress(1);
    }
  }
  ShowProgressEnd(nullptr);
}
