// Small hand-written images for the calibration tests.
#pragma once
#include <initializer_list>
#include <memory>

#include "common/ImageCompare.h"
#include "core/OrbImage.h"

namespace calibtest {

/// An image with the given samples listed plane by plane, each plane row by row.
inline std::unique_ptr<COrbImage> Image(int w, int h, int planes, std::initializer_list<float> samples) {
  auto image = std::make_unique<COrbImage>(-32, w, h, planes);
  auto it = samples.begin();
  for (int p = 0; p < planes; ++p)
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) image->SetPixelGrayRaw(x, y, it == samples.end() ? 0.0f : *it++, p);
  return image;
}

/// An image whose sample (x, y, p) is f(x, y, p).
template <class F>
std::unique_ptr<COrbImage> Image(int w, int h, int planes, F f) {
  auto image = std::make_unique<COrbImage>(-32, w, h, planes);
  qrntest::Fill(*image, f);
  return image;
}

inline float At(const COrbImage& image, int x, int y, int p = 0) { return image.GetPixelGrayRaw(x, y, p); }

}  // namespace calibtest
