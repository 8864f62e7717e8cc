// Histogram equalisation of each plane over its full range.
#include "ops/level/ImgHstEql.h"

#include <algorithm>
#include <vector>

#include "ops/level/ToneRows.h"

using namespace qrn::level;

namespace {

int BinOf(float v, double min, double width) {
  const double k = (v - min) / width * 256.0;
  return k >= CImgHstEql::kBins - 1 ? CImgHstEql::kBins - 1 : k > 0.0 ? static_cast<int>(k) : 0;
}

}  // namespace

int CImgHstEql::Do(COrbImage* src) {
  if (!src || !SameGeometry(*this, *src)) return 0;
  src->CalcMinMax();
  const int planes = GetPlanes(), w = GetWidth(), h = GetHeight();
  ShowProgressInit(1, 6177, 2 * h * planes);
  for (int p = 0; p < planes; ++p) {
    const double min = src->GetMinPixel(p), max = src->GetMaxPixel(p), width = max - min;
    SetLevel(p, min, max);
    if (!(width > 0.0)) {
      CLineLoop(*this).Run(0, h, [&](int y) { CopyRow(src->GetImageAdr(0, y, p), GetImageAdr(0, y, p, 0), w); });
      continue;
    }
    std::vector<long long> count(kBins, 0);
    for (int y = 0; y < h; ++y) {
      const float* s = src->GetImageAdr(0, y, p);
      for (int x = 0; x < w; ++x) ++count[BinOf(s[x], min, width)];
      ShowProgress(1);
    }
    const auto first = std::find_if(count.begin(), count.end(), [](long long c) { return c > 0; });
    const double base = static_cast<double>(*first), total = static_cast<double>(w) * h;
    std::vector<float> raw(kBins);
    long long cumulative = 0;
    for (int k = 0; k < kBins; ++k) {
      cumulative += count[k];
      const double t = 255.0 * (static_cast<double>(cumulative) - base) / (total - base);
      raw[k] = static_cast<float>(t / 255.0 * width + min);
    }
    CLineLoop(*this).Run(0, h, [&](int y) {
      const float* s = src->GetImageAdr(0, y, p);
      float* d = GetImageAdr(0, y, p, 0);
      for (int x = 0; x < w; ++x) d[x] = raw[BinOf(s[x], min, width)];
    });
  }
  ShowProgressEnd(nullptr);
  return 1;
}
