#include "kernels/FilterMatrix.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {
double Sum(const CFilterMatrix& m) {
  double s = 0;
  for (int i = 0; i < m.GetCount(); ++i) s += m.GetData()[i];
  return s;
}
}  // namespace

TEST(FilterMatrix, ConstructorsAndNormalise) {
  const int ints[9] = {1, 2, 1, 2, 4, 2, 1, 2, 1};
  CFilterMatrix m(1, ints, 0);  // count 0 means (2r+1)^2
  EXPECT_EQ(m.GetSide(), 3);
  ASSERT_EQ(m.GetCount(), 9);
  EXPECT_EQ(m.At(-1, -1), 1.0f);
  EXPECT_EQ(m.At(1, 0), 2.0f);
  m.Normalize();
  EXPECT_FLOAT_EQ(m.At(0, 0), 0.25f);
  EXPECT_NEAR(Sum(m), 1.0, 1e-6);  // nine float quotients

  const double zeroSum[9] = {1, -1, 0, 0, 0, 0, 0, 0, 0};
  CFilterMatrix z(1, zeroSum, 9);
  z.Normalize();
  EXPECT_EQ(z.At(-1, -1), 1.0f);  // a zero sum leaves the kernel unchanged
  EXPECT_EQ(z.At(0, -1), -1.0f);

  CFilterMatrix cleared(2, 7, 1);
  EXPECT_EQ(cleared.GetCount(), 7);
  EXPECT_EQ(cleared.GetSide(), 5);
  for (int i = 0; i < 7; ++i) EXPECT_EQ(cleared.GetData()[i], 0.0f);
}

TEST(FilterMatrix, GaussianAndDisc) {
  CFilterMatrix id;
  id.Gaussian(2, 0.0);
  EXPECT_EQ(id.At(0, 0), 1.0f);
  EXPECT_NEAR(Sum(id), 1.0, 0.0);  // identity: exactly one coefficient

  CFilterMatrix g;
  g.Gaussian(3, 1.2);
  EXPECT_EQ(g.GetSide(), 7);
  EXPECT_NEAR(Sum(g), 1.0, 1e-6);  // 49 float quotients of a double sum
  // Ratio to the centre is exp(-(x^2 + y^2) / (2 s^2)), whatever the normalisation.
  EXPECT_NEAR(g.At(2, -1) / g.At(0, 0), std::exp(-5.0 / (2 * 1.44)), 1e-6);  // float coefficients
  EXPECT_EQ(g.At(2, -1), g.At(-1, 2));

  CFilterMatrix bySigma;
  bySigma.Gaussian(2.0);
  EXPECT_EQ(bySigma.GetRadius(), 6);  // trunc(2.8 * 2 + 1)
  bySigma.Gaussian(0.1);
  EXPECT_EQ(bySigma.GetRadius(), 1);  // at least 1

  CFilterMatrix d;
  d.Disc(2);
  EXPECT_EQ(d.At(2, 2), 0.0f);  // corners are outside the disc
  EXPECT_FLOAT_EQ(d.At(2, 0), 1.0f / 13.0f);  // 13 lattice points within radius 2
  EXPECT_EQ(d.At(1, 1), d.At(0, 0));
}
