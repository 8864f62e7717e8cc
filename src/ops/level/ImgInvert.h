// Inversion of each plane within its level window.
#pragma once
#include "core/OrbImage.h"

/// @brief Mirrors every sample within the target's level window of its plane:
/// result = (255 − (v − min)·(1/range)·255)·0.003921569·range + min in float, that is
/// min + max − v up to rounding. Samples outside the window are mirrored as well.
///
/// Contract: src has the target's geometry (it may be the target), otherwise nothing is
/// written; a plane whose level range is 0 is copied unchanged. rect (null: whole image) is
/// clipped. Progress title 6124, one unit per line and plane; the operation cannot be cancelled.
class CImgInvert : public COrbImage {
 public:
  struct Param {
    float min, inverseRange, range;
  };

  void Do(COrbImage* src, CRect* rect, int progress);

  static float InvertPixel(float v, const Param& k) {
    return (255.0f - (v - k.min) * k.inverseRange * 255.0f) * 0.003921569f * k.range + k.min;
  }
  /// Row variants with one signature: DoInvert is the reference, DoInvert_x runs four
  /// samples per step (eight where the processor has 256-bit vectors) and gives the same values.
  static void DoInvert(const float* src, float* dst, int n, const Param& k);
  static void DoInvert_x(const float* src, float* dst, int n, const Param& k);
};
