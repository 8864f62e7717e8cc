// Helpers shared by the format classes: native images, float conversion, header text.
#include "io/ImageFile.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <sstream>

#include "Error.h"
#include "io/HeaderText.h"

namespace qrnio {

std::unique_ptr<COrbImage> MakeStoredImage(const std::string& path, int bits, bool isSigned, int width, int height,
                                           int planes, double bscale, double bzero) {
  auto img = std::make_unique<COrbImage>(bits, width, height, planes, bscale, bzero, 1);
  if (img->IsEmpty()) throw CQrnError(path, "image too large for memory (" + std::to_string(width) + " x " +
                                                std::to_string(height) + " x " + std::to_string(planes) + ")");
  img->SetSigned(isSigned ? 1 : 0);
  return img;
}

void FinishRead(const std::string& path, COrbImage& image) {
  const int bits = image.GetBitsPixel();
  image.SetOrgBitsPixel(bits);
  image.SetOrgPlanes(image.GetPlanes());
  image.SetOrgWidth(image.GetWidth());
  image.SetOrgHeight(image.GetHeight());
  image.SetOrgFileName(CString::FromUtf8(path));
  if (!image.ChangeBits(-32, 0, 1)) throw CQrnError(path, "not enough memory to convert the samples");
  image.CalcMinMax();
  for (int p = 0; p < image.GetPlanes(); ++p) {
    double lo = image.GetMinPixel(p), hi = image.GetMaxPixel(p);
    if (!std::isfinite(lo) || !std::isfinite(hi)) {
      const CFiniteStats finite = FiniteStats(image, p);
      lo = finite.min, hi = finite.max;
    }
    if (!(hi > lo)) hi = lo + 1.0;
    image.SetLevel(p, lo, hi);
  }
}

CFiniteStats FiniteStats(const COrbImage& image, int plane) {
  CFiniteStats s;
  double lo = std::numeric_limits<double>::infinity(), hi = -lo, sum = 0.0;
  for (int y = 0; y < image.GetHeight(); ++y) {
    const float* line = image.GetImageAdr(0, y, plane);
    for (int x = 0; x < image.GetWidth(); ++x) {
      if (!std::isfinite(line[x])) continue;
      lo = std::min(lo, double(line[x]));
      hi = std::max(hi, double(line[x]));
      sum += line[x];
      ++s.count;
    }
  }
  if (s.count > 0) s.min = lo, s.max = hi, s.mean = sum / double(s.count);
  return s;
}

std::unique_ptr<CImage> ToStored(const std::string& path, const COrbImage& image, int bits, bool isSigned) {
  auto copy = std::make_unique<CImage>(image);
  if (copy->IsEmpty() || !copy->ChangeBits(bits, 0, isSigned ? 1 : 0))
    throw CQrnError(path, "not enough memory to convert the samples");
  return copy;
}

std::string HeaderToText(const CHeader& header) {
  std::string text;
  for (const auto& k : header.GetKeywords())
    text += k.name.ToUtf8() + "\t" + k.value.ToUtf8() + "\t" + k.comment.ToUtf8() + "\n";
  return text;
}

void HeaderFromText(const std::string& text, CHeader& header) {
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) {
    const auto a = line.find('\t');
    if (a == std::string::npos || a == 0) continue;
    const auto b = line.find('\t', a + 1);
    const std::string value = line.substr(a + 1, b == std::string::npos ? std::string::npos : b - a - 1);
    const std::string comment = b == std::string::npos ? std::string() : line.substr(b + 1);
    header.SetKeyword(CString::FromUtf8(line.substr(0, a)), CString::FromUtf8(value), CString::FromUtf8(comment));
  }
}

}  // namespace qrnio
