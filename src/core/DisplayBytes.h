// The display byte of a sample through a plane's level window, for whole rows at a time.
#pragma once
#include "platform/Types.h"

/// @brief Maps samples to display bytes: 0 at or below the level minimum, 255 at or above the
/// maximum, else (s − min) / range × 255 truncated, evaluated in double. NaN samples and
/// degenerate windows give 0. Rows run eight or sixteen samples at a time on processors with
/// 256-bit vectors; every path performs the same IEEE operations, so all give the same bytes.
class CDisplayBytes {
 public:
  CDisplayBytes() = default;
  CDisplayBytes(double min, double max, double range) : m_min(min), m_max(max), m_range(range) {}

  /// The byte of one sample.
  BYTE operator()(float s) const;

  /// out[i] = byte of s[i] for i in [0, n).
  void Row(const float* s, int n, BYTE* out) const;

  /// Writes n pixels of `step` bytes (3 or more) whose first three bytes are b[i], g[i], r[i];
  /// bytes past the third are left as they are.
  static void Interleave(const BYTE* b, const BYTE* g, const BYTE* r, int n, BYTE* out, int step);

 private:
  void RowScalar(const float* s, int n, BYTE* out) const;
  void RowWide(const float* s, int n, BYTE* out) const;

  double m_min = 0, m_max = 0, m_range = 0;
};
