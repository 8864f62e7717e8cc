// Colour enhancement in L*a*b*: chroma gain, hue rotation and a colour-cast shift.
#include "ops/level/ImgLabColorEnhance.h"

#include <cmath>
#include <numbers>

#include "core/Color.h"
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
  double srcMin[3], srcScale[3], dstMin[3], dstScale[3];
  for (int k = 0; k < 3; ++k) {
    srcMin[k] = src->GetLevelMin(k);
    srcScale[k] = 255.0 / src->GetLevelRange(k);
    dstMin[k] = GetLevelMin(k);
    dstScale[k] = GetLevelRange(k) / 255.0;
  }
  ShowProgressInit(progress, 6134, r.Height());
  ForEachRgbRow(*this, *src, r, [&](const float* const* in, float* const* out, int n) {
    if (neutral) {
      for (int k = 0; k < 3; ++k) CopyRow(in[k], out[k], n);
      return;
    }
    CColor color;
    for (int x = 0; x < n; ++x) {
      color.RgbToLab((in[0][x] - srcMin[0]) * srcScale[0], (in[1][x] - srcMin[1]) * srcScale[1],
                     (in[2][x] - srcMin[2]) * srcScale[2]);
      const double a = color.Geta(), b = color.Getb();
      color.LabToRgb(color.GetL(), a * cs - b * sn + aShift, a * sn + b * cs + bShift);
      const double rgb[3] = {color.GetR(), color.GetG(), color.GetB()};
      for (int k = 0; k < 3; ++k) out[k][x] = static_cast<float>(rgb[k] * dstScale[k] + dstMin[k]);
    }
  });
  ShowProgressEnd(nullptr);
  return 1;
}
