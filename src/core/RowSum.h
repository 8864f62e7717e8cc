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

  /// A double sum of the samples for callers whose order of addition is free: sixteen partial
  /// sums, lane j taking the samples x ≡ j (mod 16) in order, combined as
  /// t_j = (s_j + s_j+4) + (s_j+8 + s_j+12), then (t_0 + t_1) + (t_2 + t_3). The association is
  /// fixed, so every processor and vector width gives the same bits; the partial sums are
  /// independent chains, so the additions overlap.
  static double Interleaved(const float* v, int n);
};
