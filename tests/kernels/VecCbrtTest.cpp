#include "kernels/VecCbrt.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace {

using qrn::vmath::D4;

TEST(VecCbrt, CubeRootsStayWithinTheirBoundOfTheTruth) {
  // Random bit patterns over the whole range Cbrt takes, and the edges of its reduction:
  // exponents around multiples of three (where q and r change, on both sides of 2^0) with
  // mantissas at 1, just below 2 and in between; two vectors side by side. The exponent
  // helper is checked on the same arguments.
  std::mt19937_64 rng(3);
  std::uniform_int_distribution<int> exponent(-1022, 1019);
  std::uniform_real_distribution<double> mantissa(1.0, 2.0);
  std::vector<double> x;
  for (int i = 0; i < 200000; ++i) x.push_back(std::ldexp(mantissa(rng), exponent(rng)));
  for (int e = -13; e <= 13; ++e)
    for (double m : {1.0, 1.5, std::nextafter(2.0, 1.0)}) x.push_back(std::ldexp(m, e));
  for (double edge : {0x1p-1022, 0x1.fffffffffffffp1019, 27.0, 1.0 / 27.0}) x.push_back(edge);
  while (x.size() % 8 != 0) x.push_back(8.0);
  for (std::size_t i = 0; i < x.size(); i += 8) {
    D4 in[2], root[2];
    for (int j = 0; j < 8; ++j) in[j / 4][j % 4] = x[i + j];
    qrn::vmath::Cbrt(in, root);
    for (int j = 0; j < 8; ++j) {
      const double v = x[i + j];
      const long double truth = std::cbrt(static_cast<long double>(v));
      ASSERT_LE(std::fabs(root[j / 4][j % 4] - truth), qrn::vmath::kCbrtError * truth) << v;
      int e = 0;
      std::frexp(v, &e);  // v = 2^e·m with ½ ≤ m < 1
      ASSERT_EQ(qrn::vmath::BinaryExponent(in[j / 4])[j % 4], e - 1) << v;
    }
  }
}

}  // namespace
