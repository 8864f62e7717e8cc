// RGB, XYZ and L*a*b* conversions of one colour.
#include "core/Color.h"

#include <cmath>

namespace {

// Cube-root companding of a normalised tristimulus value (linear near black).
double LabCompand(double t) {
  return t > CColor::kEpsilon ? std::pow(t, 1.0 / 3.0) : CColor::kLinearFactor * t + CColor::kOffset;
}

// Inverse of LabCompand for fx, fz: threshold at the cube root of epsilon.
double LabExpand(double f) {
  static const double threshold = std::pow(CColor::kEpsilon, 1.0 / 3.0);
  return f > threshold ? f * f * f : (f - CColor::kOffset) / CColor::kLinearFactor;
}

}  // namespace

void CColor::RgbToXyz(double r, double g, double b) {
  const double m = (r + g + b) / 3.0;
  const double f = m >= kGammaFloor ? std::pow(m, kGamma) : 1.0;
  m_r = f * r;
  m_g = f * g;
  m_b = f * b;
  m_x = 2.7689 * m_r + 1.7517 * m_g + 1.1302 * m_b;
  m_y = m_r + 4.5907 * m_g + 0.0601 * m_b;
  m_z = 0.0565 * m_g + 5.5943 * m_b;
}

void CColor::XyzToRgb(double x, double y, double z) {
  m_x = x;
  m_y = y;
  m_z = z;
  // Solve blue from the X and Y rows, then green from Z, then red from Y.
  double bl = ((x - 2.7689 * y) * 0.0565 - z * kSolveFactor) / kSolveDivisor;
  double gr = (z - 5.5943 * bl) / 0.0565;
  double rd = y - 4.5907 * gr - 0.0601 * bl;
  // Out-of-gamut colours lose their negative parts only after all three solves.
  if (rd < 0) rd = 0;
  if (gr < 0) gr = 0;
  if (bl < 0) bl = 0;
  const double m = (rd + gr + bl) / 3.0;
  const double f = m >= kGammaFloor ? std::pow(m, kGammaInverse) : 1.0;
  m_r = rd * f;
  m_g = gr * f;
  m_b = bl * f;
}

void CColor::RgbToLab(double r, double g, double b) {
  SetRgb(r, g, b);
  RgbToXyz(r, g, b);
  const double x = m_x / kWhite;
  const double y = m_y / kWhite;
  const double z = m_z / kWhite;
  // y's cube root serves L and fy alike: one power for both.
  const double fy = LabCompand(y);
  m_l = y > kEpsilon ? 116.0 * fy - 16.0 : kKappa * y;
  const double fx = LabCompand(x);
  const double fz = LabCompand(z);
  m_a = 500.0 * (fx - fy);
  m_bb = 200.0 * (fy - fz);
}

void CColor::LabToRgb(double l, double a, double b) {
  SetLab(l, a, b);
  double y;
  if (l > kInverseLThreshold) {
    const double t = (l + 16.0) / 116.0;
    y = t * t * t;
  } else {
    y = l / kKappa;
  }
  const double fy = LabCompand(y);
  const double fx = a / 500.0 + fy;
  const double fz = fy - b / 200.0;
  const double x = LabExpand(fx);
  const double z = LabExpand(fz);
  XyzToRgb(x * kWhite, y * kWhite, z * kWhite);
}
