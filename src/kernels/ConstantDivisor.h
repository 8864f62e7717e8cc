// Division of many dividends by one divisor without a division instruction.
#pragma once
#include "kernels/Vec4.h"

/// @brief a / b for one divisor b and many dividends a, four doubles at a time, with exactly
/// the results of the division (rounded to nearest) at the cost of one multiplication and
/// two fused multiply-adds, which keep pace where the divider does not: q = a·y with
/// y = 1/b rounded once, then q + (a − q·b)·y, the remainder a − q·b taken exactly by the
/// first fused multiply-add. A product with the correctly rounded reciprocal followed by
/// one such correction is known to give the correctly rounded quotient as long as nothing
/// overflows or underflows on the way; the tests check it on quotients built to lie next to
/// a rounding midpoint.
///
/// Range that keeps every step clear of overflow and underflow: the divisor must pass
/// Takes(), and every dividend must be 0, infinite, NaN or of magnitude within
/// [2^-450, 2^450]. A zero, infinite or NaN dividend is given a·y, which is what the
/// division gives it (a signed zero, a signed infinity, the same quiet NaN).
class CConstantDivisor {
 public:
  explicit CConstantDivisor(double divisor) : m_divisor(divisor), m_reciprocal(1.0 / divisor) {}

  /// True when the divisor is normal with 2^-300 ≤ |b| ≤ 2^300.
  static bool Takes(double divisor);
  /// True when every dividend of the form (f1 − f0)·scale, f0 and f1 finite floats, lies in
  /// the dividend range: scale is 0, or normal with 2^-300 ≤ |scale| ≤ 2^300.
  static bool TakesScaledFloatDifferences(double scale);

#if QRN_HAVE_WIDE_TARGET
  /// q = a / b, lane by lane. Only for functions compiled for AVX2 with fused multiply-add
  /// (QRN_WIDE_FMA_TARGET), called when qrn::simd::FusedMultiplyAdd() is true.
  __attribute__((target("avx2,fma"))) void Divide(const Vec4d& a, Vec4d& q) const {
    const __m256d va = a.v, b = _mm256_set1_pd(m_divisor), y = _mm256_set1_pd(m_reciprocal);
    // a·y is already the division's result for a zero, infinite or NaN dividend.
    const __m256d q0 = _mm256_mul_pd(va, y);
    // The correction adds ±r·y. For a zero dividend the remainder is +0, and the term must
    // then be −0 to leave q0's sign as it is: so r = q0·b − a and q0 − r·y for a positive
    // divisor, r = a − q0·b and q0 + r·y for a negative one. An infinite or NaN dividend
    // gives a NaN remainder, made +0 so that q0 stands.
    if (m_divisor > 0) {
      const __m256d r = Ordered(_mm256_fmsub_pd(q0, b, va));
      q.v = _mm256_fnmadd_pd(r, y, q0);
    } else {
      const __m256d r = Ordered(_mm256_fnmadd_pd(q0, b, va));
      q.v = _mm256_fmadd_pd(r, y, q0);
    }
  }
#endif

 private:
#if QRN_HAVE_WIDE_TARGET
  /// The lanes of v, with NaN lanes made +0.
  __attribute__((target("avx2"))) static __m256d Ordered(__m256d v) {
    return _mm256_and_pd(v, _mm256_cmp_pd(v, v, _CMP_ORD_Q));
  }
#endif
  double m_divisor, m_reciprocal;
};
