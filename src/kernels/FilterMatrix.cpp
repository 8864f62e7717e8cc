// Square convolution kernel and its builders.
#include "kernels/FilterMatrix.h"

#include <algorithm>
#include <cmath>

void CFilterMatrix::Resize(int radius, int count) {
  m_radius = radius < 0 ? 0 : radius;
  m_side = 2 * m_radius + 1;
  m_count = count > 0 ? count : m_side * m_side;
  m_coef.assign(static_cast<size_t>(m_count), 0.0f);
}

CFilterMatrix::CFilterMatrix(int radius, int count, int /*clear*/) {
  // Always zeroed: "not cleared" only means the caller will overwrite every value.
  Resize(radius, count);
}

CFilterMatrix::CFilterMatrix(int radius, const int values[], int count) {
  Resize(radius, count);
  for (int i = 0; i < m_count; ++i) m_coef[static_cast<size_t>(i)] = static_cast<float>(values[i]);
}

CFilterMatrix::CFilterMatrix(int radius, const double values[], int count) {
  Resize(radius, count);
  for (int i = 0; i < m_count; ++i) m_coef[static_cast<size_t>(i)] = static_cast<float>(values[i]);
}

void CFilterMatrix::Gaussian(int radius, double sigma) {
  Resize(radius, 0);
  if (sigma == 0.0) {
    m_coef[static_cast<size_t>(m_count / 2)] = 1.0f;
    return;
  }
  const double twoS2 = 2.0 * sigma * sigma;
  float* c = m_coef.data();
  for (int y = -m_radius; y <= m_radius; ++y)
    for (int x = -m_radius; x <= m_radius; ++x) *c++ = static_cast<float>(std::exp(-(x * x + y * y) / twoS2));
  Normalize();
}

void CFilterMatrix::Gaussian(double sigma) {
  Gaussian(static_cast<int>(std::max(1.0, 2.8 * sigma + 1.0)), sigma);
}

void CFilterMatrix::Disc(int radius) {
  Resize(radius, 0);
  float* c = m_coef.data();
  for (int y = -m_radius; y <= m_radius; ++y)
    for (int x = -m_radius; x <= m_radius; ++x) *c++ = (x * x + y * y <= m_radius * m_radius) ? 1.0f : 0.0f;
  Normalize();
}

void CFilterMatrix::Normalize() {
  double sum = 0.0;
  for (float v : m_coef) sum += v;
  if (sum == 0.0) return;
  for (float& v : m_coef) v = static_cast<float>(v / sum);
}
