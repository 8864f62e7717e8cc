// Cut-off: samples outside the source's level window replaced by substitute values.
#include "ops/level/ImgCutOff.h"

#include "ops/level/ToneRows.h"

using namespace qrn::level;

void CImgCutOff::Do(COrbImage* src, float low, float high, CRect* rect, int progress) {
  const Region r = SourceRegion(*this, src, rect);
  if (r.IsEmpty()) return;
  const int planes = GetPlanes(), width = r.Width();
  const bool wide = qrn::simd::WideVectors();
  // One thread writes every line, so the lines skip the cache when the image is large.
  const bool stream = qrn::simd::StreamStores(sizeof(float) * std::size_t(width) * r.Height() * planes, src == this);
  ShowProgressInit(progress, 6198, r.Height() * planes);
  for (int p = 0; p < planes; ++p) {
    const float lo = static_cast<float>(src->GetLevelMin(p)), hi = static_cast<float>(src->GetLevelMax(p));
    // The lower test first: a sample equal to both bounds becomes low; NaN is copied.
    auto rule = [=](auto zero) {
      using V = decltype(zero);
      const V vlo(lo), vhi(hi), vlow(low), vhigh(high);
      return [=](V v) { return V::Select(v <= vlo, vlow, V::Select(v >= vhi, vhigh, v)); };
    };
    for (int y = r.top; y < r.bottom; ++y) {
      const float* s = src->GetImageAdr(r.left, y, p);
      float* d = GetImageAdr(r.left, y, p, 0);
      MapRow(wide, s, d, width, rule, stream);
      ShowProgress(1);
    }
  }
  ShowProgressEnd(nullptr);
}
