// Colour enhancement in L*a*b*: chroma gain, hue rotation and a colour-cast shift.
#include "ops/level/ImgLabColorEnhance.h"

#include <cmath>
#include <numbers>

#include "ops/level/LabEnhancer.h"
#include "ops/level/ToneRows.h"

using namespace qrn::level;

int CImgLabColorEnhance::Do(double saturation, double hue, COrbImage* src, CRect* rect, int progress) {
  return Do(saturation, hue, 0.0, 0.0, src, rect, progress);
}

int CImgLabColorEnhance::Do(double saturation, double hue, double aShift, double bShift, COrbImage* src, CRect* rect,
                            int progress) {
  if (GetPlanes() != 3 || !src || !SameGeometry(*this, *src)) return 0;
  for (int k = 0; k < 3; ++k)
    if (src->GetLevelRange(k) == 0.0 || GetLevelRange(k) == 0.0) return 0;
  const Region r = SourceRegion(*this, src, rect);
  const bool neutral = saturation == 1.0 && hue == 0.0 && aShift == 0.0 && bShift == 0.0;
  const double angle = hue * std::numbers::pi / 180.0, cs = std::cos(angle) * saturation,
               sn = std::sin(angle) * saturation;
  CLabEnhancer::Levels levels;
  for (int k = 0; k < 3; ++k) {
    levels.srcMin[k] = src->GetLevelMin(k);
    levels.srcScale[k] = 255.0 / src->GetLevelRange(k);
    levels.dstMin[k] = GetLevelMin(k);
    levels.dstScale[k] = GetLevelRange(k) / 255.0;
  }
  const CLabEnhancer enhancer(levels, cs, sn, aShift, bShift);
  ShowProgressInit(progress, 6134, r.Height());
  ForEachRgbRow(*this, *src, r, [&](const float* const* in, float* const* out, int n) {
    if (neutral) {
      for (int k = 0; k < 3; ++k) CopyRow(in[k], out[k], n);
      return;
    }
    enhancer.Row(in, out, n);
  });
  ShowProgressEnd(nullptr);
  return 1;
}
