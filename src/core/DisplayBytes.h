// The display byte of a sample through a plane's level window, for whole rows at a time.
#pragma once
#include "platform/Types.h"

/// @brief Maps samples to display bytes: 0 at or below the level minimum, 255 at or above the
/// maximum, else (s − min) / range × 255 truncated, evaluated in double. NaN samples and
/// degenerate windows give 0. On processors with 256-bit vectors, rows of an ordinary window
/// run sixteen samples at a time without a division: the byte is a non-decreasing step function
/// of the sample, so a float estimate with a known error bound gives the byte wherever it is
/// not within that bound of an integer, and a table of the exact step edges decides the rest.
/// Every path gives the bytes of the rule.
class CDisplayBytes {
 public:
  CDisplayBytes() = default;
  CDisplayBytes(double min, double max, double range);

  /// The byte of one sample.
  BYTE operator()(float s) const;

  /// out[i] = byte of s[i] for i in [0, n).
  void Row(const float* s, int n, BYTE* out) const;
  /// out[3i], out[3i + 1] and out[3i + 2] = byte of s[i] for i in [0, n): grey samples as
  /// blue, green, red pixels.
  void RowTriple(const float* s, int n, BYTE* out) const;

  /// Writes n pixels of `step` bytes (3 or more) whose first three bytes are b[i], g[i], r[i];
  /// bytes past the third are left as they are.
  static void Interleave(const BYTE* b, const BYTE* g, const BYTE* r, int n, BYTE* out, int step);

 private:
  void RowScalar(const float* s, int n, BYTE* out) const;
  template <int kCopies>
  void RowWide(const float* s, int n, BYTE* out) const;  // each byte written kCopies times
  void BuildSteps();

  double m_min = 0, m_max = 0, m_range = 0;
  // The step table, when the window allows the float estimate: m_edge[k] is the smallest
  // sample whose byte is at least k (m_edge[0] = −∞); the estimate is (s − m_offset) × m_scale,
  // forced to 255 from m_top (the smallest float at or above the maximum) on. Its fraction
  // strictly between m_certainAbove and m_certainBelow leaves no doubt about the byte.
  bool m_steps = false;
  float m_offset = 0, m_scale = 0, m_top = 0;
  float m_certainAbove = 0, m_certainBelow = 0;
  float m_edge[256] = {};
};
