// The per-pixel colour mapping of CImgLabColorEnhance, for single pixels and whole rows.
#pragma once

/// @brief Takes a pixel from src's level windows to the 0..255 scale, through CColor's
/// RgbToLab, turns and scales its chroma (a*, b*) and adds the shift, back through LabToRgb,
/// and onto the target's level windows; each sample rounded to float at the end.
///
/// Pixel() is that computation as written, through CColor. Row() gives the same floats bit for
/// bit, faster: it runs the same steps four or eight pixels at a time with vectorised powers,
/// carrying beside every intermediate value a bound on its distance from the value Pixel()
/// computes. Where the bound cannot decide a float rounding or a branch (a threshold of the
/// colour model, the clipping of a negative component), or a power's argument lies outside
/// the vector path's range, the pixel goes through Pixel().
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
  /// that went through Pixel().
  int Row(const float* const* in, float* const* out, int n) const;

 private:
  Levels m_levels;
  double m_cs, m_sn, m_aShift, m_bShift;
};
