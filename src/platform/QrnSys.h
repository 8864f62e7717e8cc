// Processor capability query with a test override.
#pragma once

/// @brief Processor capabilities. Bit 1 (value 2) of SIMD() means four-wide single-precision
/// vectors are native; operations with two variants choose the vector one then.
class CQrnSys {
 public:
  static int SIMD();
  /// Overrides SIMD() with mask so tests can run both variants; a negative mask restores detection.
  static void SetSIMD(int mask);
};
