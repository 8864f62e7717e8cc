// Tone reduction: each plane posterised into a given number of evenly spaced tones.
#include "ops/level/ImgReduceTone.h"

#include <algorithm>

#include "ops/level/ToneRows.h"

using namespace qrn::level;

int CImgReduceTone::BandOf(float t, int steps) {
  const float q = t * static_cast<float>(steps) / 256.0f;
  return q >= static_cast<float>(steps - 1) ? steps - 1 : q > 0.0f ? static_cast<int>(q) : 0;
}

namespace {

float ToneOf(int band, int steps) {
  return steps <= 1 ? 127.5f : static_cast<float>(band) * 255.0f / static_cast<float>(steps - 1);
}

}  // namespace

float CImgReduceTone::ReduceTonePixel(float t, int steps) { return ToneOf(BandOf(t, steps), steps); }

void CImgReduceTone::Do(int steps, COrbImage* src, CRect* rect, int progress) {
  const Region r = SourceRegion(*this, src, rect);
  if (r.IsEmpty()) return;
  steps = std::clamp(steps, 1, 256);
  const int planes = GetPlanes();
  float srcMin[kMaxPlanes], srcScale[kMaxPlanes], dstMin[kMaxPlanes], dstScale[kMaxPlanes];
  bool copy[kMaxPlanes];
  for (int p = 0; p < planes; ++p) {
    copy[p] = src->GetLevelRange(p) == 0.0 || GetLevelRange(p) == 0.0;
    srcMin[p] = static_cast<float>(src->GetLevelMin(p));
    srcScale[p] = copy[p] ? 0.0f : static_cast<float>(255.0 / src->GetLevelRange(p));
    dstMin[p] = static_cast<float>(GetLevelMin(p));
    dstScale[p] = static_cast<float>(GetLevelRange(p) / 255.0);
  }
  const bool wide = qrn::simd::WideVectors();
  ShowProgressInit(progress, 6144, r.Height() * planes);
  ForEachRow(*this, *src, r, planes, [&](int p, const float* s, float* d, int n) {
    if (copy[p]) return CopyRow(s, d, n);
    // Band and tone in the float steps of BandOf and ToneOf, lane by lane.
    auto rule = [lo = srcMin[p], k = srcScale[p], outMin = dstMin[p], outScale = dstScale[p], steps](auto zero) {
      using V = decltype(zero);
      // q / 256 as q · 2^-8: both round the same exact value, so they agree in every case.
      const V vlo(lo), vk(k), vsteps(static_cast<float>(steps)), v2m8(0x1p-8f), v255(255.0f);
      const V lastBand(static_cast<float>(steps - 1)), vmin(outMin), vscale(outScale), middle(127.5f);
      const bool single = steps <= 1;
      return [=](V v) {
        const V q = (v - vlo) * vk * vsteps * v2m8;
        const V band = ToFloat<V::kWidth>(TruncToInt(V::Min(V::Max(q, zero), lastBand)));
        const V tone = single ? middle : band * v255 / lastBand;
        return tone * vscale + vmin;
      };
    };
    MapRow(wide, s, d, n, rule);
  });
  ShowProgressEnd(nullptr);
}
