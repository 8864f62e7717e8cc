// Left-to-right double sums of float rows, computed out of order when that cannot change them.
#pragma once

/// @brief The sum s = 0; s += double(t) for each term t of a row, left to right, bit for bit.
/// When every term is a multiple of the smallest term's unit in the last place and the sum of
/// their magnitudes stays below 2^53 such units, no partial sum rounds in any order, so the row
/// is summed with vectors; otherwise (wide dynamic range, subnormal, infinite or NaN terms) it is
/// summed in order. Typical image rows take the vector path.
class CRowSum {
 public:
  /// Terms are the samples.
  static double Sum(const float* v, int n);
  /// Terms are the samples' squares, each formed in float.
  static double SumOfSquares(const float* v, int n);
  /// Both sums over one read of the row.
  static void SumAndSumOfSquares(const float* v, int n, double& sum, double& squares);
};
