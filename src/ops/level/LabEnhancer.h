// The per-pixel colour mapping of CImgLabColorEnhance, for single pixels and whole rows.
#pragma once

/// @brief Takes a pixel from src's level windows to the 0..255 scale, into L*a*b* by CColor's
/// colour model, turns and scales its chroma (a*, b*) and adds the shift, back to RGB, and
/// onto the target's level windows; each sample rounded to float at the end.
///
/// The steps run in double precision, four pixels to a vector, with the library's own
/// vector logarithm, exponential and cube root (within a few units of 2^-53). L* is not
/// changed by the chroma, so y and its cube root are carried back rather than recomputed,
/// and the three solves for blue, green and red are taken as one inverse matrix. The results
/// equal CColor's RgbToLab and LabToRgb rounded to float in all but about one sample in a
/// million; those are one float unit away, or, where the solve cancels a component to almost
/// nothing, less than 10^-12 of the pixel's brightest sample. Pixel() and Row() run the same
/// steps with plain (unfused) IEEE operations, so they give the same bits on every
/// instruction set. Pixels outside the vector functions' range (colours beyond ±2^100 on the
/// 0..255 scale, NaN, infinities) go through CColor itself.
class CLabEnhancer {
 public:
  struct Levels {
    double srcMin[3], srcScale[3];  // raw = srcMin + 0..255 value / srcScale
    double dstMin[3], dstScale[3];  // raw = dstMin + 0..255 value · dstScale
  };

  /// cs and sn: cos and sin of the hue turn, each times the saturation.
  CLabEnhancer(const Levels& levels, double cs, double sn, double aShift, double bShift);

  /// One pixel: in and out hold red, green and blue.
  void Pixel(const float (&in)[3], float (&out)[3]) const;

  /// n pixels of three planes; in and out may be the same rows. Returns the number of pixels
  /// that went through CColor.
  int Row(const float* const* in, float* const* out, int n) const;

 private:
  Levels m_levels;
  double m_cs, m_sn, m_aShift, m_bShift;
};
