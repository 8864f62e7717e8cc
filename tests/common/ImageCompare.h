// Comparison of two images that reports the worst pixel.
#pragma once
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "core/OrbImage.h"

namespace qrntest {

/// Succeeds when every sample of a and b differs by at most tolerance (NaN equals NaN);
/// otherwise names the worst pixel.
inline ::testing::AssertionResult ImagesNear(const COrbImage& a, const COrbImage& b, double tolerance) {
  if (a.GetWidth() != b.GetWidth() || a.GetHeight() != b.GetHeight() || a.GetPlanes() != b.GetPlanes())
    return ::testing::AssertionFailure() << "geometry differs";
  double worst = -1;
  int wx = 0, wy = 0, wp = 0;
  for (int p = 0; p < a.GetPlanes(); ++p)
    for (int y = 0; y < a.GetHeight(); ++y)
      for (int x = 0; x < a.GetWidth(); ++x) {
        const double u = a.GetPixelGrayRaw(x, y, p), v = b.GetPixelGrayRaw(x, y, p);
        const double d = (std::isnan(u) && std::isnan(v)) ? 0.0 : std::fabs(u - v);
        if (!(d <= worst)) worst = std::isnan(d) ? INFINITY : d, wx = x, wy = y, wp = p;
      }
  if (worst <= tolerance) return ::testing::AssertionSuccess();
  std::ostringstream out;
  out << "worst pixel (" << wx << ", " << wy << ") plane " << wp << ": " << a.GetPixelGrayRaw(wx, wy, wp) << " vs "
      << b.GetPixelGrayRaw(wx, wy, wp) << " (difference " << worst << ", tolerance " << tolerance << ")";
  return ::testing::AssertionFailure() << out.str();
}

/// Fills every sample with f(x, y, plane).
template <class F>
void Fill(COrbImage& image, F f) {
  for (int p = 0; p < image.GetPlanes(); ++p)
    for (int y = 0; y < image.GetHeight(); ++y)
      for (int x = 0; x < image.GetWidth(); ++x) image.SetPixelGrayRaw(x, y, static_cast<float>(f(x, y, p)), p);
}

}  // namespace qrntest
