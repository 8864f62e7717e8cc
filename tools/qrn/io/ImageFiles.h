// Choosing the format: by content when reading, by extension when writing.
#pragma once
#include <string>
#include <vector>

#include "io/ImageFile.h"

namespace qrnio {

enum class FileKind { Fits, Tiff, Png, Bmp };

/// Reads FITS, TIFF, PNG or BMP, recognised by the file's first bytes.
CLoadedImage ReadImage(const std::string& path);
/// The output format named by the extension (.fits .fit .fts .tif .tiff .png .bmp, any case).
FileKind KindOfOutput(const std::string& path);
/// Bits a format stores when asked for `bits`: FITS any of 8/16/32/-32/-64, TIFF 8/16/-32,
/// PNG and BMP 8.
int BitsFor(FileKind kind, int bits);

/// Writes the samples of image to target (format by extension) through a temporary file in
/// the same folder; target never replaces one of inputs.
void WriteImage(const std::string& target, const COrbImage& image, int bits, bool isSigned,
                const std::vector<std::string>& inputs);
/// Writes what the image looks like through its display levels: GetDib(dibBits) as a PNG or
/// a BMP (8-bit grey, 8-bit palette or 24-bit colour).
void WriteRendering(const std::string& target, COrbImage& image, int dibBits, const std::vector<std::string>& inputs);

}  // namespace qrnio
