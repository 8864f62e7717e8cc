// Brightness and contrast on the 0..255 scale of each plane's level window.
#pragma once
#include "core/OrbImage.h"

/// @brief Brightness and contrast. For plane p with b = brightness[p], c = contrast[p] and
/// pivot a, each sample moves on the 0..255 scale of the target's level window p away from a
/// by c/256 of its distance and is raised by b: t = (v − min)·255/range,
/// result = ((t − a)·c/256 + b + t)·range/255 + min, all in float, not clamped.
///
/// Contract: brightness and contrast hold one float per plane of the image; src has the
/// target's geometry (it may be the target itself), otherwise nothing is written. A plane with
/// b = c = 0, or whose level range is 0, is copied bit for bit. rect (null: whole image) is
/// clipped to the image. Progress title 6115, one unit per line and plane.
class CImgBright : public COrbImage {
 public:
  /// Per-plane constants of the mapping, all in float.
  struct Param {
    float min, scale, inverse, average, contrast, brightness;
  };

  void Do(float* brightness, float* contrast, double average, COrbImage* src, CRect* rect, int progress);

  /// The mapping of one sample.
  static float BrightPixel(float v, const Param& k) {
    const float t = (v - k.min) * k.scale;
    return ((t - k.average) * k.contrast + k.brightness + t) * k.inverse + k.min;
  }
  /// Row variants with one signature: DoBright is the reference, DoBright_x runs four
  /// samples per step (eight where the processor has 256-bit vectors) and gives the same values.
  static void DoBright(const float* src, float* dst, int n, const Param& k);
  static void DoBright_x(const float* src, float* dst, int n, const Param& k);
};
