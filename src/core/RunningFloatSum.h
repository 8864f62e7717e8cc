// A float running sum taken in order, bit for bit, with the blocks whose rounding cannot
// depend on the order added at once.
#pragma once

/// @brief s = s + v[i] in float for every sample in order, exactly as the plain loop rounds.
///
/// Once the sum is large against the samples, every addition rounds to the sum's own grid:
/// while the sum stays within one power-of-two range [2^e, 2^(e+1)), whose float spacing is
/// u = 2^(e−23), adding v gives s + u·k with k the integer nearest v/u, whatever s is, unless
/// v/u lies exactly halfway (then the tie goes to the even result, which depends on s). So a
/// block of samples all small enough that the sum cannot leave its range adds u·Σk, the k
/// found and summed with vectors as integers; where a block has ties (integer data does,
/// about one sample in u), an integer pass over its k settles each tie. Any other block (a
/// sum near zero or near a power of two, large, infinite or NaN samples) is added one sample
/// at a time.
class CRunningFloatSum {
 public:
  /// Samples per block.
  static constexpr int kBlock = 1024;

  /// What a block of kBlock samples adds when the sum lies in the power-of-two range of
  /// `guess`. It needs no sum, so blocks can be summarised on any thread in any order and
  /// applied in order afterwards.
  struct BlockSummary {
    float spacing = 0.0f;  // u of the guess's range; 0 for a guess out of the fast range
    bool usable = false;   // the block can be added at once in that range
    long long absSteps = 0;
    int ties = 0;
    long long move[2] = {0, 0};  // what the sum's grid index gains from an even, an odd start
  };

  /// Adds v[0], v[1], …, v[n − 1] in that order.
  void Add(const float* v, int n);

  /// Summarises the block v[0, kBlock) for a sum in the range of guess.
  static BlockSummary Summarise(const float* v, float guess);
  /// The same, also finding the block's extremes as CRowExtremes::Find does, from the same
  /// read where the guess is in range.
  static BlockSummary Summarise(const float* v, float guess, float& min, float& max);

  /// Adds the block v[0, kBlock) summarised by b, exactly as Add() would: at once where b
  /// was found for the sum's present range and the block cannot leave it, otherwise as Add()
  /// adds a block.
  void Apply(const BlockSummary& b, const float* v);

  float Value() const { return m_sum; }
  /// Blocks added at once so far, for tests and diagnostics.
  int FastBlocks() const { return m_fastBlocks; }

 private:
  bool TryApply(const BlockSummary& b);
  void AddOneByOne(const float* v, int n);

  float m_sum = 0.0f;
  int m_fastBlocks = 0;
};
