// Colour enhancement in L*a*b*: chroma gain, hue rotation and a colour-cast shift.
#pragma once
#include "core/OrbImage.h"

/// @brief Enhances the colour of a three-plane image while keeping its lightness. Each pixel
/// is taken to the 0..255 scale with src's level windows and converted to L*a*b* with CColor;
/// the chroma (a*, b*) is rotated by `hue` degrees (positive turns red towards yellow) and
/// multiplied by `saturation` (1 keeps it, 0 gives grey of the same L*, above 1 strengthens
/// the colours); the four-argument form then adds aShift and bShift to a* and b* to remove a
/// colour cast (for example sky glow). L* is unchanged. The colour goes back through CColor
/// and the target's level windows.
///
/// Contract: returns 0 without change for an image that is not three-plane, a src of another
/// geometry, or a level range of 0; otherwise 1. saturation 1, hue 0 and no shift copy the
/// region unchanged. Samples below a level minimum carry no light in this colour model and come
/// out at or above it. rect (null: whole image) is clipped; rows run in parallel. Progress title
/// 6134, one unit per line.
class CImgLabColorEnhance : public COrbImage {
 public:
  int Do(double saturation, double hue, COrbImage* src, CRect* rect, int progress);
  int Do(double saturation, double hue, double aShift, double bShift, COrbImage* src, CRect* rect, int progress);
};
