// Colour correction: the three planes mixed through a 3 × 3 matrix about a black point.
#pragma once
#include "core/OrbImage.h"

/// A colour matrix in row-major order: output plane i (0 red, 1 green, 2 blue) is
/// m(3i)·R + m(3i+1)·G + m(3i+2)·B.
struct tagMATRIX {
  double m0, m1, m2, m3, m4, m5, m6, m7, m8;
};

/// @brief Mixes the planes of a colour image through a matrix, blended with the unchanged
/// values by a strength in [0, 1]: stored = (1 − strength)·source + strength·corrected.
///
/// Each plane's source sample is taken to the 0..255 scale with src's level window, the
/// matrix acts on the distance from the black point B (a raw value, also taken to that scale
/// per plane as b_k): c_i = Σ_j m_ij·(t_j − b_j) + b_i, and c_i goes back to raw units with the
/// target's level window of plane i. So the black point stays black whatever the matrix, and
/// with B = 0 the matrix acts on the linear signal itself.
///
/// blackMode: 0 uses B = 0; 1 the smallest sample of src's three planes; 2 the given black.
/// option bits: kKeepBright (2) rescales c − b so its bright value 0.299 R + 0.587 G + 0.114 B
/// equals that of t − b (colour changes, luminance kept), applied first; kClipBlack (1) then
/// raises any c_i below b_i to b_i (no value is pushed under the black point).
///
/// Contract: returns 0 without change for a null matrix, blackMode outside 0..2, an image
/// that is not three-plane, a src of another geometry, or a level range of 0; otherwise 1.
/// rect (null: whole image) is clipped; rows run in parallel. Progress title 6179, one unit
/// per line (plus one per line of the black-point search).
class CImgColorCorrect : public COrbImage {
 public:
  static constexpr int kClipBlack = 1;
  static constexpr int kKeepBright = 2;

  int Do(tagMATRIX* matrix, double strength, int blackMode, float black, int option, COrbImage* src, CRect* rect,
         int progress);
  /// In place on the whole target; strength 0 returns 1 at once.
  int Do(tagMATRIX* matrix, double strength, int blackMode, float black, int option, int progress);
};
