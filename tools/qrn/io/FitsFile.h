// FITS images through cfitsio.
#pragma once
#include <string>

#include "io/ImageFile.h"

/// @brief Reads the first image HDU of a FITS file (primary, extension or tile-compressed):
/// BITPIX 8, 16, 32, -32, -64 with BSCALE/BZERO, two axes or a cube of 1 or 3 planes. Header
/// cards other than the structural ones go into the image's CHeader in their order and are
/// written back by Write. Line 0 of the image is the first row of the file.
class CFitsFile {
 public:
  static CLoadedImage Read(const std::string& path);
  /// Writes image as BITPIX bits (16 and 32 unsigned through BZERO when isSigned is false).
  static void Write(const std::string& path, const COrbImage& image, int bits, bool isSigned);
};
