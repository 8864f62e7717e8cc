// TIFF images through libtiff.
#pragma once
#include <string>

#include "io/ImageFile.h"

/// @brief Strip-organised TIFF with 1 or 3 samples per pixel (an extra alpha sample is
/// dropped) of 8 or 16 bits (unsigned) or 32-bit float, contiguous or planar. Header keywords
/// travel in the image description.
class CTiffFile {
 public:
  static CLoadedImage Read(const std::string& path);
  /// bits 8, 16 or -32.
  static void Write(const std::string& path, const COrbImage& image, int bits);
};
