// Histogram equalisation of each plane over its full range.
#pragma once
#include "core/OrbImage.h"

/// @brief Equalises each plane: the level window becomes the plane's minimum and maximum
/// (from CalcMinMax of src), the samples are counted into 258 bins of width (max − min)/256,
/// bin trunc((v − min)/(max − min)·256) kept in [0, 257], and each sample is replaced by its
/// bin's place in the cumulative count: on the 0..255 scale of the new window,
/// 255·(C(k) − C₀)/(N − C₀), where C(k) counts the samples in bins 0..k and C₀ those in the
/// first bin. The darkest samples become the level minimum, the brightest the maximum, and
/// equal counts of samples fall in equal steps of display value.
///
/// Contract: src has the target's geometry (it may be the target), otherwise 0 is returned
/// and nothing changes. A constant plane keeps its samples. Progress title 6177 is always
/// shown, one unit per line and plane for counting and again for mapping. Returns 1.
class CImgHstEql : public COrbImage {
 public:
  static constexpr int kBins = 258;

  int Do(COrbImage* src);
};
