// Auto-stretch: planes brought to a common spread with their own gain, offset and base.
#pragma once
#include "core/OrbImage.h"

/// @brief With M the largest of spread[0..2], every pixel of the rectangle becomes
/// (src − offset[p])·(M/spread[p])·gain[p] + base[p] in double (base taken as float first),
/// stored as float. The plane with the largest spread keeps its gain; the others are stretched
/// in proportion so that all planes reach the same spread.
///
/// Contract: gain, offset, spread and base hold three doubles each; rect is required (null:
/// nothing is done) and is used as given (left and top inclusive, right and bottom exclusive)
/// except that parts outside the image are skipped. src has the target's geometry (it may be
/// the target), otherwise nothing is written. A plane whose spread is 0 keeps its own gain
/// (factor 1). No progress is reported.
class CImgAutoStretch : public COrbImage {
 public:
  void DoStretch(COrbImage* src, double* gain, double* offset, double* spread, double* base, tagRECT* rect);
};
