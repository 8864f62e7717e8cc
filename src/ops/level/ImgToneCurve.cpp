// Tone curves, applied by table lookup on the 0..255 scale of each plane's level window.
#include "ops/level/ImgToneCurve.h"

#include <algorithm>
#include <vector>

#include "ops/level/ToneRows.h"

using namespace qrn::level;

float CImgToneCurve::CalcToneCurve(const float* curve, int i, float v) {
  if (v < 0.0f) return 0.0f;
  const float f1 = curve[i - 1], f2 = curve[i];
  if (f1 == f2) return 255.0f * f2;
  const float d = std::max((f2 - f1) * static_cast<float>(i), 0.0f);
  return (v - 255.0f * f2) * d + 255.0f * f2;
}

void CImgToneCurve::Do(float** curves, int n, COrbImage* src, CRect* rect, int progress, int halpha) {
  const Region r = SourceRegion(*this, src, rect);
  if (r.IsEmpty() || !curves || n < 2) return;
  const int planes = GetPlanes();
  const bool color = planes > 1;
  for (int c = 0; c < (color ? 4 : 1); ++c)
    if (!curves[c]) return;
  const int last = n - 1;
  float min[kMaxPlanes], scale[kMaxPlanes];
  for (int p = 0; p < planes; ++p) {
    min[p] = static_cast<float>(GetLevelMin(p));
    scale[p] = GetLevelRange(p) == 0.0 ? 0.0f : static_cast<float>(255.0 / GetLevelRange(p));
  }
  const float* master = curves[0];
  // Inside 0..255 the result depends only on the lookup index, so each plane's raw results
  // are tabulated once per index (own curve, master, back to raw) with the same float steps.
  std::vector<float> table(static_cast<std::size_t>(planes) * n);
  for (int p = 0; p < planes; ++p)
    for (int i = 0; i < n && scale[p] != 0.0f; ++i) {
      float u = (color ? curves[p + 1] : master)[i] * 255.0f;
      if (color) u = ApplyCurve(master, last, u);
      table[static_cast<std::size_t>(p) * n + i] = u / scale[p] + min[p];
    }
  const bool wide = qrn::simd::WideVectors();
  ShowProgressInit(progress, halpha ? 6194 : 6114, r.Height() * planes);
  ForEachRow(*this, *src, r, planes, [&](int p, const float* s, float* d, int w) {
    const float lo = min[p], k = scale[p], fi = static_cast<float>(last);
    if (k == 0.0f) return CopyRow(s, d, w);
    const float* own = color ? curves[p + 1] : master;
    const float* raw = table.data() + static_cast<std::size_t>(p) * n;
    // Lookup index of a sample inside 0..255, -1 outside (and for NaN).
    auto rule = [lo, k, fi](auto zero) {
      using V = decltype(zero);
      const V vlo(lo), vk(k), vfi(fi), v255(255.0f);
      return [=](V v, int* out) {
        const V t = (v - vlo) * vk;
        const auto inside = (t >= zero) & (t <= v255);
        const V within = V::Min(V::Max(t, zero), v255);  // keeps the conversion in range
        const auto i = TruncToInt(within * vfi / v255);
        StoreLanes((i & inside) | ~inside, out);
      };
    };
    int idx[kIndexBlock];
    for (int x0 = 0; x0 < w; x0 += kIndexBlock) {
      const int m = std::min(kIndexBlock, w - x0);
      IndexRow(wide, s + x0, m, idx, rule);
      for (int i = 0; i < m; ++i) {
        if (idx[i] >= 0) {
          d[x0 + i] = raw[idx[i]];
          continue;
        }
        const float t = (s[x0 + i] - lo) * k;
        float u = CalcToneCurve(own, last, t);
        if (color) u = ApplyCurve(master, last, u);
        d[x0 + i] = u / k + lo;
      }
    }
  });
  ShowProgressEnd(nullptr);
}

void CImgToneCurve::DoHAlpha(double threshold, double brightness, COrbImage* src, CRect* rect, int progress) {
  std::vector<float> identity(256), stretched(256);
  for (int i = 0; i < 256; ++i) identity[i] = stretched[i] = static_cast<float>(i / 255.0);
  const double knee = threshold * 255.0;
  const int end = knee > 0.0 ? static_cast<int>(std::min(knee, 256.0)) : 0;
  for (int i = 0; i < end; ++i) stretched[i] = static_cast<float>(i / knee * brightness);
  float* curves[4] = {stretched.data(), stretched.data(), identity.data(), identity.data()};
  Do(curves, 256, src, rect, progress, 1);
}

void CImgToneCurve::DoHAlphaLevel(double mag, COrbImage* src) {
  if (!src || src->IsEmpty()) return;
  src->CalcMinMax();
  for (int p = 0; p < GetPlanes(); ++p) SetLevel(p, src->GetMinPixel(0), src->GetMaxPixel(0) * mag);
}
