// Header keywords as text, for formats that carry them in a text field (TIFF, PNG).
#pragma once
#include <string>

#include "container/Header.h"

namespace qrnio {
/// Marker that starts a TIFF description or names a PNG text chunk holding keywords.
inline constexpr const char* kHeaderTextKey = "qrn header";
/// One line per keyword: name, value and comment separated by tabs.
std::string HeaderToText(const CHeader& header);
/// Adds the keywords of text made by HeaderToText; other lines are skipped.
void HeaderFromText(const std::string& text, CHeader& header);
}  // namespace qrnio
