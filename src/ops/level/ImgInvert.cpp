// Inversion of each plane within its level window.
#include "ops/level/ImgInvert.h"

#include "kernels/Prefetch.h"
#include "kernels/Vec4.h"
#include "ops/level/ToneRows.h"

using namespace qrn::level;

void CImgInvert::DoInvert(const float* src, float* dst, int n, const Param& k) {
  for (int x = 0; x < n; ++x) dst[x] = InvertPixel(src[x], k);
}

namespace {

// InvertPixel on V::kWidth samples a step, the same operations in the same order.
template <class V>
void InvertRow(const float* src, float* dst, int n, const CImgInvert::Param& k) {
  const V min(k.min), inverseRange(k.inverseRange), range(k.range), full(255.0f), step(0.003921569f);
  int x = 0;
  for (; x + V::kWidth <= n; x += V::kWidth) {
    qrn::simd::PrefetchRead<V::kWidth>(src + x);
    ((full - (V::Load(src + x) - min) * inverseRange * full) * step * range + min).Store(dst + x);
  }
  for (; x < n; ++x) dst[x] = CImgInvert::InvertPixel(src[x], k);
}

QRN_WIDE_TARGET void InvertRowWide(const float* src, float* dst, int n, const CImgInvert::Param& k) {
  InvertRow<Vec8f>(src, dst, n, k);
}

}  // namespace

void CImgInvert::DoInvert_x(const float* src, float* dst, int n, const Param& k) {
  if (qrn::simd::WideVectors()) InvertRowWide(src, dst, n, k);
  else InvertRow<Vec4f>(src, dst, n, k);
}

void CImgInvert::Do(COrbImage* src, CRect* rect, int progress) {
  const Region r = SourceRegion(*this, src, rect);
  if (r.IsEmpty()) return;
  const int planes = GetPlanes();
  Param param[kMaxPlanes] = {};
  for (int p = 0; p < planes; ++p) {
    const double range = GetLevelRange(p);
    if (range != 0.0)
      param[p] = {static_cast<float>(GetLevelMin(p)), static_cast<float>(1.0 / range), static_cast<float>(range)};
  }
  const auto row = UseVector() ? &DoInvert_x : &DoInvert;
  ShowProgressInit(progress, 6124, r.Height() * planes);
  ForEachRow(*this, *src, r, planes, [&](int p, const float* s, float* d, int n) {
    if (param[p].range == 0.0f)
      CopyRow(s, d, n);
    else
      row(s, d, n, param[p]);
  });
  ShowProgressEnd(nullptr);
}
