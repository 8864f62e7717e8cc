// The flat-field gamma curve, evaluated for whole rows with a vectorised power function.
#pragma once

/// @brief pow((v − bottom)/(top − bottom), gamma)·(top − bottom) + bottom, computed in double
/// and rounded to float. Row() evaluates the power through a vectorised logarithm and
/// exponential whose error bound is known; where that bound cannot decide the float rounding,
/// or the argument lies outside the vector path's range (zero, negative, NaN, infinite, or a
/// power that would overflow), the sample goes through std::pow. Every result therefore equals
/// the per-sample expression bit for bit; only the time differs.
class CGammaCurve {
 public:
  CGammaCurve() = default;
  CGammaCurve(float top, float bottom, double gamma);

  /// The curve at one sample, with std::pow.
  float operator()(float v) const;

  /// out[i] = curve at v[i] for i in [0, n); returns the number of samples that needed std::pow.
  int Row(const float* v, int n, float* out) const;

  /// The same results as Row(), with each calling thread remembering the curve's values
  /// for the samples it has seen (a CCurveMemo per thread, kept while the curve's numbers
  /// stay the same): a flat of integer counts or quantised levels then costs one lookup per
  /// sample and one evaluation per distinct value. Returns the number of samples evaluated.
  int RowRemembered(const float* v, int n, float* out) const;

 private:
  double m_bottom = 0.0, m_span = 1.0, m_gamma = 1.0;
};
