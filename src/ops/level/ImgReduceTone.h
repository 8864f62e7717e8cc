// Tone reduction: each plane posterised into a given number of evenly spaced tones.
#pragma once
#include "core/OrbImage.h"

/// @brief Cuts the 0..255 scale of each plane into `steps` equal bands and replaces every
/// sample by its band's tone. With t = (v − min)·255/range on src's level window, band
/// k = floor(t·steps/256) kept in [0, steps − 1] (values below the window fall in the first
/// band, above it in the last); the tone is k·255/(steps − 1), so the first band is the level
/// minimum and the last the level maximum (steps = 256 truncates to the display's 8-bit
/// values). A single step gives the middle tone 127.5 everywhere. The tone goes back to raw
/// units with the target's level window.
///
/// Contract: steps is clamped to [1, 256]; src has the target's geometry (it may be the
/// target), otherwise nothing is written; a plane with level range 0 (in either image) is
/// copied unchanged; NaN samples fall in the first band. rect (null: whole image) is clipped;
/// rows run in parallel. Progress title 6144, one unit per line and plane.
class CImgReduceTone : public COrbImage {
 public:
  void Do(int steps, COrbImage* src, CRect* rect, int progress);
  /// The tone (0..255 scale) of a value t on that scale.
  static float ReduceTonePixel(float t, int steps);
  /// The band, 0 .. steps − 1, of a value t on the 0..255 scale.
  static int BandOf(float t, int steps);
};
