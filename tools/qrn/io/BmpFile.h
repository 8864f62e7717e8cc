// Windows bitmap files: a file header in front of a packed bitmap.
#pragma once
#include <string>

#include "io/ImageFile.h"

/// @brief Uncompressed 8-bit (palette) and 24-bit bitmaps, read through the image container's
/// packed-bitmap import and written from a packed bitmap such as GetDib returns.
class CBmpFile {
 public:
  static CLoadedImage Read(const std::string& path);
  /// Writes the packed bitmap dib (header, palette, rows) behind a 14-byte file header.
  static void WriteDib(const std::string& path, HGLOBAL dib);
  /// Samples rounded and clamped to 0..255, as an 8-bit grey or 24-bit colour bitmap.
  static void Write(const std::string& path, const COrbImage& image);
};
