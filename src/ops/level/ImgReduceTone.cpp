// Tone reduction: each plane posterised into a given number of evenly spaced tones.
#include "ops/level/ImgReduceTone.h"

#include <algorithm>

#include "ops/level/ToneRows.h"

using namespace qrn::level;

float CImgReduceTone::ReduceTonePixel(float t, int steps) {
  if (steps <= 1) return 127.5f;
  const float q = t * static_cast<float>(steps) / 256.0f;
  const int band = q >= static_cast<float>(steps - 1) ? steps - 1 : q > 0.0f ? static_cast<int>(q) : 0;
  return static_cast<float>(band) * 255.0f / static_cast<float>(steps - 1);
}

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
  ShowProgressInit(progress, 6144, r.Height() * planes);
  ForEachRow(*this, *src, r, planes, [&](int p, const float* s, float* d, int n) {
    if (copy[p]) return CopyRow(s, d, n);
    for (int x = 0; x < n; ++x)
      d[x] = ReduceTonePixel((s[x] - srcMin[p]) * srcScale[p], steps) * dstScale[p] + dstMin[p];
  });
  ShowProgressEnd(nullptr);
}
