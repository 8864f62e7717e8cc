// Colour balance: a constant shift of each plane, given on the 0..255 display scale.
#include "ops/level/ImgColorBalance.h"

#include "kernels/Prefetch.h"
#include "kernels/Vec4.h"
#include "ops/level/ToneRows.h"

using namespace qrn::level;

void CImgColorBalance::DoColorBalance(const float* src, float* dst, int n, float offset) {
  for (int x = 0; x < n; ++x) dst[x] = src[x] + offset;
}

namespace {

template <class V>
void BalanceRow(const float* src, float* dst, int n, float offset) {
  const V add(offset);
  int x = 0;
  for (; x + V::kWidth <= n; x += V::kWidth) {
    qrn::simd::PrefetchRead<V::kWidth>(src + x);
    (V::Load(src + x) + add).Store(dst + x);
  }
  for (; x < n; ++x) dst[x] = src[x] + offset;
}

QRN_WIDE_TARGET void BalanceRowWide(const float* src, float* dst, int n, float offset) {
  BalanceRow<Vec8f>(src, dst, n, offset);
}

}  // namespace

void CImgColorBalance::DoColorBalance_x(const float* src, float* dst, int n, float offset) {
  if (qrn::simd::WideVectors()) BalanceRowWide(src, dst, n, offset);
  else BalanceRow<Vec4f>(src, dst, n, offset);
}

void CImgColorBalance::Do(double red, double green, double blue, COrbImage* src, CRect* rect, int progress) {
  if (GetPlanes() < 3) return;
  const Region r = SourceRegion(*this, src, rect);
  if (r.IsEmpty()) return;
  const float f = static_cast<float>(GetLevelRange(0)) / 255.0f;
  const float offset[3] = {static_cast<float>(red) * f, static_cast<float>(green) * f, static_cast<float>(blue) * f};
  const auto row = UseVector() ? &DoColorBalance_x : &DoColorBalance;
  ShowProgressInit(progress, 6118, r.Height() * 3);
  ForEachRow(*this, *src, r, 3, [&](int p, const float* s, float* d, int n) { row(s, d, n, offset[p]); });
  ShowProgressEnd(nullptr);
}
