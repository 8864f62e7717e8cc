// One colour held as RGB, XYZ and L*a*b*, with the library's own conversions between them.
#pragma once

/// @brief One colour as nine doubles: R, G, B, X, Y, Z, L, a, b.
///
/// The colour model: RGB passes through an intensity gamma that scales all three components
/// by the same factor (so hue and saturation are kept and the mean becomes m^2.2), then the
/// unnormalised CIE 1931 RGB-to-XYZ matrix with an equal-energy white of 5.6508; L*a*b* uses
/// slightly rounded constants. Other operations that work in L*a*b* depend on these exact
/// numbers, so they are part of the contract.
///
/// The setters store without converting. The conversions store every value they compute;
/// RgbToXyz (and so RgbToLab) replaces the stored R, G, B by the linearised values. RGB may
/// be on any scale; only the gamma factor depends on it.
class CColor {
 public:
  static constexpr double kGamma = 1.2000000000000002;
  static constexpr double kGammaInverse = -0.5454545454545454;
  static constexpr double kGammaFloor = 1e-7;
  static constexpr double kWhite = 5.6508;
  static constexpr double kEpsilon = 0.008856;
  static constexpr double kKappa = 903.29;
  static constexpr double kLinearFactor = 7.78;
  static constexpr double kOffset = 0.13793103448275862;
  static constexpr double kInverseLThreshold = 7.999536239999999;
  static constexpr double kSolveDivisor = 61.365124684103996;
  static constexpr double kSolveFactor = -10.95948923;

  CColor() = default;
  CColor(const CColor&) = default;
  CColor& operator=(const CColor&) = default;
  virtual ~CColor() = default;

  double GetR() const { return m_r; }
  double GetG() const { return m_g; }
  double GetB() const { return m_b; }
  double GetX() const { return m_x; }
  double GetY() const { return m_y; }
  double GetZ() const { return m_z; }
  double GetL() const { return m_l; }
  double Geta() const { return m_a; }
  double Getb() const { return m_bb; }

  void SetRgb(double r, double g, double b) { m_r = r; m_g = g; m_b = b; }
  void SetXyz(double x, double y, double z) { m_x = x; m_y = y; m_z = z; }
  void SetLab(double l, double a, double b) { m_l = l; m_a = a; m_bb = b; }

  /// Gamma then matrix; stores the linearised RGB and the XYZ.
  void RgbToXyz(double r, double g, double b);
  /// Inverse matrix solved blue, green, red in that order; negative components are clipped
  /// only after all three are solved, then the inverse gamma is applied. Stores XYZ and RGB.
  void XyzToRgb(double x, double y, double z);
  /// Stores RGB (then linearised by RgbToXyz), XYZ and L*a*b*.
  void RgbToLab(double r, double g, double b);
  /// Stores L*a*b*, then XYZ and RGB through XyzToRgb.
  void LabToRgb(double l, double a, double b);

 private:
  double m_r = 0, m_g = 0, m_b = 0;
  double m_x = 0, m_y = 0, m_z = 0;
  double m_l = 0, m_a = 0, m_bb = 0;
};
