// Windowing: a radial taper about the image centre, as used before a Fourier transform.
#pragma once
#include "core/OrbImage.h"

/// @brief Multiplies every sample of every plane by a weight of its distance r from the
/// centre (width/2, height/2) (integer division): for type 0 a raised cosine,
/// 0.5·cos(π·r/radius) + 0.5 inside r < radius and 0 outside; for any other type 1.
/// Arithmetic in double, results stored as float.
///
/// Contract: src has the target's geometry (it may be the target), otherwise nothing is
/// written; radius ≤ 0 with type 0 gives an all-zero image. Progress title 6191, one unit per
/// line and plane. Returns 1.
class CImgWindowing : public COrbImage {
 public:
  int Do(int type, double radius, COrbImage* src, int progress);
};
