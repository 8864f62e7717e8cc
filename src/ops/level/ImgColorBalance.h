// Colour balance: a constant shift of each plane, given on the 0..255 display scale.
#pragma once
#include "core/OrbImage.h"

/// @brief Adds an offset to every sample of each plane of a colour image. The offsets are on
/// the 0..255 scale and are all converted to raw units with plane 0's level range
/// (offset[p] = value[p]·range0/255 in float), green and blue included, so one display step
/// is the same raw amount on every plane.
///
/// Contract: the target and src are three-plane images of one geometry (src may be the
/// target); a grey image or a mismatched src is left unchanged. rect (null: whole image) is
/// clipped. Progress title 6118, one unit per line and plane.
class CImgColorBalance : public COrbImage {
 public:
  void Do(double red, double green, double blue, COrbImage* src, CRect* rect, int progress);

  /// Row variants with one signature: DoColorBalance is the reference, DoColorBalance_x
  /// adds four samples per step (eight where the processor has 256-bit vectors) and gives
  /// the same sums.
  static void DoColorBalance(const float* src, float* dst, int n, float offset);
  static void DoColorBalance_x(const float* src, float* dst, int n, float offset);
};
