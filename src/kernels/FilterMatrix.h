// Square convolution kernel.
#pragma once
#include <vector>

/// @brief A (2r+1) x (2r+1) kernel of float coefficients stored row by row.
class CFilterMatrix {
 public:
  CFilterMatrix() = default;
  virtual ~CFilterMatrix() = default;

  int GetRadius() const { return m_radius; }
  int GetSide() const { return m_side; }
  int GetCount() const { return m_count; }
  const float* GetData() const { return m_coef.data(); }
  float* GetData() { return m_coef.data(); }

 protected:
  std::vector<float> m_coef;
  int m_radius = 0;
  int m_side = 1;
  int m_count = 0;
};
