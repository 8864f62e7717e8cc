// Helpers shared by the core tests: images built from a formula, bit-exact comparison and
// runs on every vector width.
#pragma once
#include <cmath>
#include <cstring>
#include <memory>

#include "common/ImageCompare.h"
#include "core/OrbImage.h"
#include "kernels/Vec4.h"

namespace coretest {

/// A float image whose sample (x, y, p) is f(x, y, p), every plane on the window [min, max].
template <class F>
std::unique_ptr<COrbImage> Image(int w, int h, int planes, F f, double min = 0.0, double max = 255.0) {
  auto image = std::make_unique<COrbImage>(-32, w, h, planes);
  qrntest::Fill(*image, f);
  for (int p = 0; p < planes; ++p) image->SetLevel(p, min, max);
  return image;
}

/// The same bits, or NaN on both sides.
template <class T>
bool SameBits(T a, T b) {
  return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b));
}

/// Runs f(wide) on the 512-bit (wide 2, where the processor has it), the eight-wide (1) and
/// the four-wide (0) row code, then restores the default.
template <class F>
void OnEveryWidth(F f) {
  for (int wide : {2, 1, 0}) {
    qrn::simd::SetWideVectors(wide > 0);
    qrn::simd::SetWidestVectors(wide > 1);
    f(wide);
  }
  qrn::simd::SetWideVectors(1);
  qrn::simd::SetWidestVectors(1);
}

}  // namespace coretest
