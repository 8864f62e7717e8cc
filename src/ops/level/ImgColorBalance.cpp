// Colour balance: a constant shift of each plane, given on the 0..255 display scale.
#include "ops/level/ImgColorBalance.h"

#include "kernels/Vec4.h"
#include "ops/level/ToneRows.h"

using namespace qrn::level;

void CImgColorBalance::DoColorBalance(const float* src, float* dst, int n, float offset) {
  for (int x = 0; x < n; ++x) dst[x] = src[x] + offset;
}

void CImgColorBalance::DoColorBalance_x(const float* src, float* dst, int n, float offset) {
  const Vec4f add(offset);
  int x = 0;
  for (; x + 4 <= n; x += 4) (Vec4f::Load(src + x) + add).Store(dst + x);
  for (; x < n; ++x) dst[x] = src[x] + offset;
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
