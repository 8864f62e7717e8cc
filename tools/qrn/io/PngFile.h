// PNG images through libpng.
#pragma once
#include <string>

#include "io/ImageFile.h"

/// @brief Reads PNG of 1 to 16 bits per sample, grey or colour, palettes expanded and alpha
/// dropped; writes 8-bit grey or RGB. Header keywords travel in a text chunk.
class CPngFile {
 public:
  static CLoadedImage Read(const std::string& path);
  /// Samples rounded and clamped to 0..255.
  static void Write(const std::string& path, const COrbImage& image);
  /// Writes an 8-bit image as it is stored (1 or 3 planes); used for rendered bitmaps.
  static void WriteStored(const std::string& path, const CImage& image, const CHeader* header);
};
