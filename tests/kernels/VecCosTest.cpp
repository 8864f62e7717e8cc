#include "kernels/VecCos.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace {

using qrn::vmath::D4;

TEST(VecCos, SineAndCosineStayWithinTheirBoundOfTheTruth) {
  // Random arguments over the whole range, and the quadrant edges k·π/4 with their
  // neighbours, where the reduction changes polynomial and sign, on both sides of 0; two
  // vectors side by side. Cos alone gives the cosines of SinCos.
  std::mt19937_64 rng(7);
  std::uniform_real_distribution<double> any(-16.0, 16.0);
  std::vector<double> u;
  for (int i = 0; i < 200000; ++i) u.push_back(any(rng));
  for (int k = -20; k <= 20; ++k)
    for (double step : {-2e-16, 0.0, 2e-16, 1e-9}) u.push_back(k * 0.78539816339744830962 + step);
  u.push_back(0.0);
  u.push_back(-0.0);
  while (u.size() % 8 != 0) u.push_back(std::acos(-1.0));
  for (std::size_t i = 0; i < u.size(); i += 8) {
    D4 in[2], s[2], c[2], cosOnly[2];
    for (int j = 0; j < 8; ++j) in[j / 4][j % 4] = u[i + j];
    qrn::vmath::SinCos(in, s, c);
    qrn::vmath::Cos(in, cosOnly);
    for (int j = 0; j < 8; ++j) {
      const long double x = u[i + j];
      const double sine = s[j / 4][j % 4], cosine = c[j / 4][j % 4];
      ASSERT_LE(std::fabs(static_cast<long double>(cosine) - std::cos(x)), qrn::vmath::kCosError) << "cos " << u[i + j];
      ASSERT_LE(std::fabs(static_cast<long double>(sine) - std::sin(x)), qrn::vmath::kCosError) << "sin " << u[i + j];
      ASSERT_EQ(cosOnly[j / 4][j % 4], cosine);
    }
  }
}

}  // namespace
