#include "kernels/VecCos.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace {

using qrn::vmath::D4;

// SinCos() over the given arguments, two vectors side by side.
void VectorSinCos(const std::vector<double>& u, std::vector<double>& sines, std::vector<double>& cosines) {
  sines.resize(u.size());
  cosines.resize(u.size());
  for (std::size_t i = 0; i + 8 <= u.size(); i += 8) {
    D4 in[2], s[2], c[2];
    for (int j = 0; j < 8; ++j) in[j / 4][j % 4] = u[i + j];
    qrn::vmath::SinCos(in, s, c);
    for (int j = 0; j < 8; ++j) {
      sines[i + j] = s[j / 4][j % 4];
      cosines[i + j] = c[j / 4][j % 4];
    }
  }
}

TEST(VecCos, SineAndCosineStayWithinTheirBoundOfTheTruth) {
  // Random arguments over the whole range, and the quadrant edges k·π/4 with their
  // neighbours, where the reduction changes polynomial and sign, on both sides of 0.
  std::mt19937_64 rng(7);
  std::uniform_real_distribution<double> any(-16.0, 16.0);
  std::vector<double> u;
  for (int i = 0; i < 200000; ++i) u.push_back(any(rng));
  for (int k = -20; k <= 20; ++k)
    for (double step : {-2e-16, 0.0, 2e-16, 1e-9}) u.push_back(k * 0.78539816339744830962 + step);
  u.push_back(0.0);
  u.push_back(-0.0);
  while (u.size() % 8 != 0) u.push_back(std::acos(-1.0));
  std::vector<double> s, c;
  VectorSinCos(u, s, c);
  std::vector<double> cosOnly(u.size());
  for (std::size_t i = 0; i + 8 <= u.size(); i += 8) {
    D4 in[2], out[2];
    for (int j = 0; j < 8; ++j) in[j / 4][j % 4] = u[i + j];
    qrn::vmath::Cos(in, out);
    for (int j = 0; j < 8; ++j) cosOnly[i + j] = out[j / 4][j % 4];
  }
  for (std::size_t i = 0; i < u.size(); ++i) {
    const long double x = u[i];
    ASSERT_LE(std::fabs(static_cast<long double>(c[i]) - std::cos(x)), qrn::vmath::kCosError) << "cos " << u[i];
    ASSERT_LE(std::fabs(static_cast<long double>(s[i]) - std::sin(x)), qrn::vmath::kCosError) << "sin " << u[i];
    ASSERT_EQ(cosOnly[i], c[i]);
  }
}

}  // namespace
