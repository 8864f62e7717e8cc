// CColor: the gamma, matrix and L*a*b* conversions against hand values and round trips.
#include <gtest/gtest.h>

#include <cmath>

#include "core/Color.h"

namespace {

TEST(ColorTest, BlackGreyAndGammaByHand) {
  // Black uses unit gamma and maps to zero both ways.
  CColor c, d;
  c.RgbToXyz(0, 0, 0);
  d.XyzToRgb(0, 0, 0);
  for (double v : {c.GetX(), c.GetY(), c.GetZ(), d.GetR(), d.GetG(), d.GetB()}) EXPECT_EQ(v, 0.0);

  // Unit grey is the white point: each matrix row sums to 5.6508 within one rounding of the
  // three products; L = 116 * cbrt(1) - 16, the cube root via pow maybe one ulp off.
  c.RgbToLab(1, 1, 1);
  for (double v : {c.GetX(), c.GetY(), c.GetZ()}) EXPECT_NEAR(v, 5.6508, 1e-14);
  EXPECT_NEAR(c.GetL(), 100.0, 1e-12);
  for (double v : {c.Geta(), c.Getb()}) EXPECT_NEAR(v, 0.0, 1e-12);

  // Gamma scales all components by one factor: m = 0.5, so the linear values are the inputs
  // times 0.5^1.2. Relative tolerance: the stored exponent differs from 1.2 by one ulp.
  c.RgbToXyz(0.2, 0.5, 0.8);
  const double f = std::pow(0.5, 1.2);
  EXPECT_NEAR(c.GetR(), 0.2 * f, 1e-15);
  EXPECT_NEAR(c.GetG(), 0.5 * f, 1e-15);
  EXPECT_NEAR(c.GetB(), 0.8 * f, 1e-15);
  EXPECT_NEAR(c.GetY(), (0.2 + 4.5907 * 0.5 + 0.0601 * 0.8) * f, 1e-14);
  EXPECT_NEAR(c.GetZ(), (0.0565 * 0.5 + 5.5943 * 0.8) * f, 1e-14);
}

TEST(ColorTest, XyzAndLabRoundTripsRecoverTheColour) {
  // Includes a dark colour whose L falls on the linear segment, saturated colours and values above 1.
  const double colours[][3] = {{0.2, 0.5, 0.8},    {100, 50, 20},    {1e-3, 2e-3, 5e-4}, {7, 7, 7},
                               {0.9, 0.1, 0.1},    {0.01, 0.012, 0.008}, {200, 120, 30}};
  for (const auto& rgb : colours) {
    CColor xyz, lab, back;
    xyz.RgbToXyz(rgb[0], rgb[1], rgb[2]);
    xyz.XyzToRgb(xyz.GetX(), xyz.GetY(), xyz.GetZ());
    lab.RgbToLab(rgb[0], rgb[1], rgb[2]);
    back.LabToRgb(lab.GetL(), lab.Geta(), lab.Getb());
    const double viaXyz[3] = {xyz.GetR(), xyz.GetG(), xyz.GetB()}, viaLab[3] = {back.GetR(), back.GetG(), back.GetB()};
    for (int k = 0; k < 3; ++k) {
      // The inverse solve and gamma undo the forward steps up to a few roundings.
      EXPECT_NEAR(viaXyz[k], rgb[k], 1e-13 * rgb[k]) << rgb[0] << " component " << k;
      // Cube roots and cubes each lose an ulp or two; 1e-10 relative is far below a display step.
      EXPECT_NEAR(viaLab[k], rgb[k], 1e-10 * rgb[k] + 1e-14) << rgb[0] << " component " << k;
    }
  }
  CColor red, blue;
  red.RgbToLab(1, 0, 0);
  blue.RgbToLab(0, 0, 1);
  EXPECT_GT(red.Geta(), 0);   // red lies on the +a side
  EXPECT_GT(blue.GetL(), 0);
  EXPECT_LT(blue.Getb(), 0);  // blue lies on the -b side
}

TEST(ColorTest, OutOfGamutXyzIsClippedAfterAllSolves) {
  // X alone: the solve gives negative green; red and blue come from the unclipped values.
  CColor c;
  c.XyzToRgb(1, 0, 0);
  EXPECT_EQ(c.GetG(), 0.0);
  EXPECT_GE(c.GetR(), 0.0);
  EXPECT_GE(c.GetB(), 0.0);
  // Recompute by hand with the unclipped green (Cramer's rule on the 3x3 matrix).
  const double bl = (1 * 0.0565) / 61.365124684103996;
  const double gr = (0 - 5.5943 * bl) / 0.0565;
  const double rd = 0 - 4.5907 * gr - 0.0601 * bl;
  const double m = (rd + bl) / 3;
  const double f = std::pow(m, -1.2 / 2.2);
  // Several roundings of mid-sized terms.
  EXPECT_NEAR(c.GetR(), rd * f, 1e-12 * rd * f);
  EXPECT_NEAR(c.GetB(), bl * f, 1e-12 * bl * f);
}

}  // namespace
