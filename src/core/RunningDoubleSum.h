// A double running sum of float samples or of their squares, taken in order, bit for bit,
// with the blocks whose rounding cannot depend on the order added at once.
#pragma once

/// @brief s = s + t[i] in double for every term in order, exactly as the plain loop rounds;
/// the terms are float samples widened to double, or their squares (exact in double).
///
/// The same argument as CRunningFloatSum's, on the double grid: while the sum stays within
/// one power-of-two range, whose spacing is u, adding t moves it by u·k with k the integer
/// nearest t/u, except at an exact tie, which goes to the even result. A block of terms small
/// against the sum adds u·Σk, the k found with vectors as 64-bit integers; its ties are
/// settled by an integer pass. Other blocks (a sum near zero or near a power of two, large,
/// infinite or NaN terms) are added one term at a time. This turns a chain of dependent
/// additions into work that runs at the vectors' pace.
class CRunningDoubleSum {
 public:
  /// s += double(v[i]) for i = 0 … n − 1 in that order.
  void Add(const float* v, int n);
  /// s += double(v[i]) · double(v[i]) for i = 0 … n − 1 in that order.
  void AddSquares(const float* v, int n);

  double Value() const { return m_sum; }
  /// Blocks added at once so far, for tests and diagnostics.
  int FastBlocks() const { return m_fastBlocks; }

 private:
  template <bool kSquares>
  void AddTerms(const float* v, int n);
  template <bool kSquares>
  bool AddBlock(const float* v);

  double m_sum = 0.0;
  int m_fastBlocks = 0;
};
