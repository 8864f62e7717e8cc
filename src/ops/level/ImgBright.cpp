// Brightness and contrast on the 0..255 scale of each plane's level window.
#include "ops/level/ImgBright.h"

#include "kernels/Prefetch.h"
#include "kernels/Vec4.h"
#include "ops/level/ToneRows.h"

using namespace qrn::level;

void CImgBright::DoBright(const float* src, float* dst, int n, const Param& k) {
  for (int x = 0; x < n; ++x) dst[x] = BrightPixel(src[x], k);
}

namespace {

// BrightPixel on V::kWidth samples a step, the same operations in the same order.
template <class V>
void BrightRow(const float* src, float* dst, int n, const CImgBright::Param& k) {
  const V min(k.min), scale(k.scale), inverse(k.inverse), average(k.average), contrast(k.contrast),
      brightness(k.brightness);
  int x = 0;
  for (; x + V::kWidth <= n; x += V::kWidth) {
    qrn::simd::PrefetchRead<V::kWidth>(src + x);
    const V t = (V::Load(src + x) - min) * scale;
    (((t - average) * contrast + brightness + t) * inverse + min).Store(dst + x);
  }
  for (; x < n; ++x) dst[x] = CImgBright::BrightPixel(src[x], k);
}

QRN_WIDE_TARGET void BrightRowWide(const float* src, float* dst, int n, const CImgBright::Param& k) {
  BrightRow<Vec8f>(src, dst, n, k);
}

}  // namespace

void CImgBright::DoBright_x(const float* src, float* dst, int n, const Param& k) {
  if (qrn::simd::WideVectors()) BrightRowWide(src, dst, n, k);
  else BrightRow<Vec4f>(src, dst, n, k);
}

void CImgBright::Do(float* brightness, float* contrast, double average, COrbImage* src, CRect* rect, int progress) {
  const Region r = SourceRegion(*this, src, rect);
  if (r.IsEmpty() || !brightness || !contrast) return;
  const int planes = GetPlanes();
  Param param[kMaxPlanes];
  bool copy[kMaxPlanes];
  for (int p = 0; p < planes; ++p) {
    const float range = static_cast<float>(GetLevelRange(p));
    copy[p] = (brightness[p] == 0.0f && contrast[p] == 0.0f) || range == 0.0f;
    if (copy[p]) continue;
    param[p] = {static_cast<float>(GetLevelMin(p)), 255.0f / range, range / 255.0f, static_cast<float>(average),
                contrast[p] * 0.00390625f, brightness[p]};
  }
  const auto row = UseVector() ? &DoBright_x : &DoBright;
  ShowProgressInit(progress, 6115, r.Height() * planes);
  ForEachRow(*this, *src, r, planes, [&](int p, const float* s, float* d, int n) {
    if (copy[p])
      CopyRow(s, d, n);
    else
      row(s, d, n, param[p]);
  });
  ShowProgressEnd(nullptr);
}
