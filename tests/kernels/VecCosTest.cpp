#include "kernels/VecCos.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace {

using qrn::vmath::D4;

// Cos() over the given arguments, two vectors side by side.
std::vector<double> VectorCos(const std::vector<double>& u) {
  std::vector<double> out(u.size());
  for (std::size_t i = 0; i + 8 <= u.size(); i += 8) {
    D4 in[2], c[2];
    for (int j = 0; j < 8; ++j) in[j / 4][j % 4] = u[i + j];
    qrn::vmath::Cos(in, c);
    for (int j = 0; j < 8; ++j) out[i + j] = c[j / 4][j % 4];
  }
  return out;
}

TEST(VecCos, StaysWithinItsBoundOfTheTrueCosine) {
  // Random arguments over the whole range, and the quadrant edges k·π/4 with their
  // neighbours, where the reduction changes polynomial and sign.
  std::mt19937_64 rng(7);
  std::uniform_real_distribution<double> any(0.0, 4.0);
  std::vector<double> u;
  for (int i = 0; i < 200000; ++i) u.push_back(any(rng));
  for (int k = 0; k <= 5; ++k)
    for (double step : {-2e-16, 0.0, 2e-16, 1e-9}) u.push_back(std::max(0.0, k * 0.78539816339744830962 + step));
  u.push_back(0.0);
  while (u.size() % 8 != 0) u.push_back(std::acos(-1.0));
  const std::vector<double> c = VectorCos(u);
  for (std::size_t i = 0; i < u.size(); ++i) {
    const long double truth = std::cos(static_cast<long double>(u[i]));
    ASSERT_LE(std::fabs(static_cast<long double>(c[i]) - truth), qrn::vmath::kCosError) << "u = " << u[i];
  }
}

}  // namespace
