// Tone curves, applied by table lookup on the 0..255 scale of each plane's level window.
#pragma once
#include <algorithm>

#include "core/OrbImage.h"

/// @brief Tone curves. A curve is n floats; point i gives the output, as a fraction of 255,
/// for the input i·255/(n − 1) on the 0..255 scale of the target's level window. Inside
/// 0..255 the curve is read by truncating lookup (no interpolation between points); outside
/// it CalcToneCurve extends it. A grey image goes through curves[0]; in a colour image plane p
/// goes through its own curve curves[p + 1] and then the master curve curves[0].
///
/// Contract: curves holds one (grey) or four (colour) arrays of n ≥ 2 floats and src has the
/// target's geometry (it may be the target), otherwise nothing is written. A plane whose level
/// range is 0 is copied unchanged. Progress title 6114, or 6194 when halpha is nonzero.
class CImgToneCurve : public COrbImage {
 public:
  void Do(float** curves, int n, COrbImage* src, CRect* rect, int progress, int halpha);
  /// H-alpha curve: inputs below threshold (a fraction of 255) are stretched linearly so the
  /// threshold maps to brightness. The red plane of a colour image passes the stretched curve
  /// twice (its own and the master), green and blue once.
  void DoHAlpha(double threshold, double brightness, COrbImage* src, CRect* rect, int progress);
  /// Level window of every plane: src's plane-0 minimum to its plane-0 maximum × mag
  /// (runs CalcMinMax on src).
  void DoHAlphaLevel(double mag, COrbImage* src);
  /// The curve's value beyond its ends, on the 0..255 scale: 0 below 0; above 255 the last
  /// segment (points i − 1 and i) continued with a slope of at least 0, or flat when the two
  /// points are equal.
  static float CalcToneCurve(const float* curve, int i, float v);
  /// One sample on the 0..255 scale through a curve of i + 1 points.
  static float ApplyCurve(const float* curve, int i, float t) {
    // Beyond 2^23 points the float index can reach past point i; it is then read as point i.
    if (t >= 0.0f && t <= 255.0f) {
      const int index = std::min(static_cast<int>(t * static_cast<float>(i) / 255.0f), i);
      return curve[index] * 255.0f;
    }
    return CalcToneCurve(curve, i, t);
  }
};
