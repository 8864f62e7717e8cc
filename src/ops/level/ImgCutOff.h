// Cut-off: samples outside the source's level window replaced by substitute values.
#pragma once
#include "core/OrbImage.h"

/// @brief Per plane, with lo and hi src's level minimum and maximum (as float): a sample
/// v ≤ lo becomes low, v ≥ hi becomes high, others are copied. The lower test comes first, so
/// a sample equal to both bounds becomes low.
///
/// Contract: src has the target's geometry (it may be the target), otherwise nothing is
/// written. rect (null: whole image) is clipped. Planes and lines run in order on the calling
/// thread. Progress title 6198, one unit per line and plane.
class CImgCutOff : public COrbImage {
 public:
  void Do(COrbImage* src, float low, float high, CRect* rect, int progress);
};
