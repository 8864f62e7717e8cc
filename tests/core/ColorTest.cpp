// CColor: the gamma, matrix and L*a*b* conversions against hand values and round trips.
#include <gtest/gtest.h>

#include <cmath>

#include "core/Color.h"

namespace {

TEST(ColorTest, BlackUsesUnitGammaAndMapsToZero) {
  CColor c;
  c.RgbToXyz(0, 0, 0);
  EXPECT_EQ(c.GetX(), 0.0);
  EXPECT_EQ(c.GetY(), 0.0);
  EXPECT_EQ(c.GetZ(), 0.0);
  c.XyzToRgb(0, 0, 0);
  EXPECT_EQ(c.GetR(), 0.0);
  EXPECT_EQ(c.GetG(), 0.0);
  EXPECT_EQ(c.GetB(), 0.0);
}

TEST(ColorTest, UnitGreyIsTheWhitePoint) {
  CColor c;
  c.RgbToLab(1, 1, 1);
  // Each matrix row sums to 5.6508 within one rounding of the three products.
  EXPECT_NEAR(c.GetX(), 5.6508, 1e-14);
  EXPECT_NEAR(c.GetY(), 5.6508, 1e-14);
  EXPECT_NEAR(c.GetZ(), 5.6508, 1e-14);
  // L = 116 * cbrt(1) - 16; the cube root via pow may be one ulp off.
  EXPECT_NEAR(c.GetL(), 100.0, 1e-12);
  EXPECT_NEAR(c.Geta(), 0.0, 1e-12);
  EXPECT_NEAR(c.Getb(), 0.0, 1e-12);
}

TEST(ColorTest, GammaScalesAllComponentsByOneFactor) {
  CColor c;
  c.RgbToXyz(0.2, 0.5, 0.8);
  // m = 0.5: the linear values are the inputs times 0.5^1.2, worked out here by hand.
  const double f = std::pow(0.5, 1.2);
  // Relative tolerance: the stored exponent differs from 1.2 by one ulp.
  EXPECT_NEAR(c.GetR(), 0.2 * f, 1e-15);
  EXPECT_NEAR(c.GetG(), 0.5 * f, 1e-15);
  EXPECT_NEAR(c.GetB(), 0.8 * f, 1e-15);
  EXPECT_NEAR(c.GetY(), (0.2 + 4.5907 * 0.5 + 0.0601 * 0.8) * f, 1e-14);
  EXPECT_NEAR(c.GetZ(), (0.0565 * 0.5 + 5.5943 * 0.8) * f, 1e-14);
}

TEST(ColorTest, XyzRoundTripRecoversTheColour) {
  const double colours[][3] = {{0.2, 0.5, 0.8}, {100, 50, 20}, {1e-3, 2e-3, 5e-4}, {7, 7, 7}};
  for (const auto& rgb : colours) {
    CColor c;
    c.RgbToXyz(rgb[0], rgb[1], rgb[2]);
    c.XyzToRgb(c.GetX(), c.GetY(), c.GetZ());
    for (int k = 0; k < 3; ++k) {
      const double got = k == 0 ? c.GetR() : k == 1 ? c.GetG() : c.GetB();
      // The inverse solve and gamma undo the forward steps up to a few roundings.
      EXPECT_NEAR(got, rgb[k], 1e-13 * rgb[k]) << "component " << k;
    }
  }
}

TEST(ColorTest, LabRoundTripRecoversTheColour) {
  // Includes a dark colour whose L falls on the linear segment and saturated colours.
  const double colours[][3] = {{0.2, 0.5, 0.8}, {0.9, 0.1, 0.1}, {0.01, 0.012, 0.008}, {200, 120, 30}, {0.5, 0.5, 0.5}};
  for (const auto& rgb : colours) {
    CColor c;
    c.RgbToLab(rgb[0], rgb[1], rgb[2]);
    CColor back;
    back.LabToRgb(c.GetL(), c.Geta(), c.Getb());
    // Cube roots and cubes each lose an ulp or two; 1e-10 relative is far below a display step.
    EXPECT_NEAR(back.GetR(), rgb[0], 1e-10 * rgb[0] + 1e-14);
    EXPECT_NEAR(back.GetG(), rgb[1], 1e-10 * rgb[1] + 1e-14);
    EXPECT_NEAR(back.GetB(), rgb[2], 1e-10 * rgb[2] + 1e-14);
  }
}

TEST(ColorTest, LabOfPrimariesHasTheExpectedHueSigns) {
  CColor red, blue, grey;
  red.RgbToLab(1, 0, 0);
  blue.RgbToLab(0, 0, 1);
  grey.RgbToLab(0.3, 0.3, 0.3);
  EXPECT_GT(red.Geta(), 0);   // red lies on the +a side
  EXPECT_GT(blue.GetL(), 0);
  EXPECT_LT(blue.Getb(), 0);  // blue lies on the -b side
  // A grey of any level is neutral: x = y = z, so a = b = 0 up to rounding of the rows.
  EXPECT_NEAR(grey.Geta(), 0, 1e-12);
  EXPECT_NEAR(grey.Getb(), 0, 1e-12);
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

TEST(ColorTest, CopyKeepsAllNineValues) {
  CColor c;
  c.SetRgb(1, 2, 3);
  c.SetXyz(4, 5, 6);
  c.SetLab(7, 8, 9);
  CColor d(c), e;
  e = c;
  for (const CColor* p : {&d, &e}) {
    EXPECT_EQ(p->GetR(), 1); EXPECT_EQ(p->GetG(), 2); EXPECT_EQ(p->GetB(), 3);
    EXPECT_EQ(p->GetX(), 4); EXPECT_EQ(p->GetY(), 5); EXPECT_EQ(p->GetZ(), 6);
    EXPECT_EQ(p->GetL(), 7); EXPECT_EQ(p->Geta(), 8); EXPECT_EQ(p->Getb(), 9);
  }
}

}  // namespace
