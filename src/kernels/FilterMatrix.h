// Square convolution kernel.
#pragma once
#include <cstddef>
#include <vector>

/// @brief A (2r+1) x (2r+1) kernel of float coefficients stored row by row from y = -r,
/// each row from x = -r. The kernel owns its coefficients.
///
/// Contract: a kernel built with a coefficient count smaller than (2r+1)^2 is valid as a
/// container, but At() and the evaluators read (2r+1)^2 values; CFilterProc uses only the
/// centre row, so it needs at least (r+1)(2r+1) coefficients.
class CFilterMatrix {
 public:
  CFilterMatrix() = default;
  /// count coefficients (0: (2r+1)^2), zeroed when clear is nonzero; otherwise their values
  /// are unspecified until written.
  CFilterMatrix(int radius, int count, int clear);
  /// Copies count values (0: (2r+1)^2) converted to float.
  CFilterMatrix(int radius, const int values[], int count);
  CFilterMatrix(int radius, const double values[], int count);
  virtual ~CFilterMatrix() = default;

  /// Gaussian of the given radius: sigma 0 gives the identity kernel (1 at the centre),
  /// otherwise exp(-(x^2 + y^2) / (2 sigma^2)) normalised to sum 1.
  void Gaussian(int radius, double sigma);
  /// Gaussian whose radius follows from sigma: trunc(max(1, 2.8 sigma + 1)).
  void Gaussian(double sigma);
  /// Flat disc of the given radius: 1 where x^2 + y^2 <= radius^2 (the square's corners are
  /// 0), normalised to sum 1. Radius 0 is the identity.
  void Disc(int radius);
  /// Divides every coefficient by the sum of all of them; a zero sum leaves them unchanged.
  void Normalize();

  /// Coefficient at offset (x, y), both in -r..r.
  float At(int x, int y) const { return m_coef[static_cast<std::size_t>((y + m_radius) * m_side + x + m_radius)]; }
  int GetRadius() const { return m_radius; }
  int GetSide() const { return m_side; }
  int GetCount() const { return m_count; }
  const float* GetData() const { return m_coef.data(); }
  float* GetData() { return m_coef.data(); }

 protected:
  void Resize(int radius, int count);

  std::vector<float> m_coef;
  int m_radius = 0;
  int m_side = 1;
  int m_count = 0;
};
