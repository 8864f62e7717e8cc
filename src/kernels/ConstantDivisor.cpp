// Division of many dividends by one divisor without a division instruction.
#include "kernels/ConstantDivisor.h"

#include <cmath>

namespace {
// Magnitudes of divisors and scales kept well inside the normal range, so that quotients
// and remainders of dividends up to 2^450 neither overflow nor underflow.
bool NormalWithin300Octaves(double v) {
  const double m = std::fabs(v);
  return m >= std::ldexp(1.0, -300) && m <= std::ldexp(1.0, 300);
}
}  // namespace

bool CConstantDivisor::Takes(double divisor) { return NormalWithin300Octaves(divisor); }

// A nonzero difference of two finite floats has a magnitude within [2^-149, 2^129), so
// scaled by at most 2^±300 it stays within [2^-449, 2^429].
bool CConstantDivisor::TakesScaledFloatDifferences(double scale) {
  return scale == 0.0 || NormalWithin300Octaves(scale);
}
