// What a reader hands back and what the format classes share.
#pragma once
#include <memory>
#include <string>

#include "core/OrbImage.h"

/// @brief An image read from a file: the float image the library works on, and the sample
/// format it was stored in (bits 8, 16, 32, -32, -64 and signedness), so a writer can put the
/// samples back in the same form.
struct CLoadedImage {
  std::unique_ptr<COrbImage> image;
  int bits = -32;
  bool isSigned = true;
  std::string format;  // "FITS", "TIFF", "PNG", "BMP"
};

namespace qrnio {
/// A native-format image of the given layout, ready for a reader to fill sample by sample.
std::unique_ptr<COrbImage> MakeStoredImage(const std::string& path, int bits, bool isSigned, int width, int height,
                                           int planes, double bscale = 1.0, double bzero = 0.0);
/// Turns a filled native image into the library's float form with levels from min to max
/// (of the finite samples, when a NaN or an infinity would make them meaningless).
void FinishRead(const std::string& path, COrbImage& image);

/// The smallest, largest and mean value of a plane's finite samples and their count (all 0
/// when there are none): NaN marks an undefined pixel, which counts nowhere.
struct CFiniteStats {
  double min = 0, max = 0, mean = 0;
  long long count = 0;
};
CFiniteStats FiniteStats(const COrbImage& image, int plane);
/// A copy of image stored as bits (rounded and clamped for integers, bscale 1, bzero 0).
std::unique_ptr<CImage> ToStored(const std::string& path, const COrbImage& image, int bits, bool isSigned);
}  // namespace qrnio
