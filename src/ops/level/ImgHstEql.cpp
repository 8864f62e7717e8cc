// Histogram equalisation of each plane over its full range.
#include "ops/level/ImgHstEql.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <mutex>
#include <vector>

#include "kernels/Vec4.h"
#include "ops/level/ToneRows.h"

using namespace qrn::level;

namespace {

constexpr int kLastBin = CImgHstEql::kBins - 1;

// The bin of v: trunc((v − min)/width·256) in double, kept in [0, 257]; NaN counts in bin 0.
inline int BinOf(float v, double min, double width) {
  const double k = (v - min) / width * 256.0;
  return k >= kLastBin ? kLastBin : k > 0.0 ? static_cast<int>(k) : 0;
}

// The bins of n samples, four at a time with the same steps and the same clamping order.
void Bins(const float* s, int n, double min, double width, int* bins) {
  const Vec4d lo(min), w(width), scale(256.0), last(kLastBin), zero(0.0);
  int x = 0;
  for (; x + 4 <= n; x += 4) {
    const Vec4d k = (ToDouble(Vec4f::Load(s + x)) - lo) / w * scale;
    const Vec4d clamped = Vec4d::Select(k >= last, last, Vec4d::Select(k > zero, k, zero));
    const auto lanes = __builtin_convertvector(clamped.v, Vec4f::Mask);
    std::memcpy(bins + x, &lanes, sizeof lanes);
  }
  for (; x < n; ++x) bins[x] = BinOf(s[x], min, width);
}

QRN_WIDE_TARGET void BinsWide(const float* s, int n, double min, double width, int* bins) {
  Bins(s, n, min, width, bins);
}

// Counts are kept in four interleaved histograms, so that runs of one bin (the sky of a star
// field) do not wait on one counter; they are added together at the end.
using Histogram = std::array<long long, CImgHstEql::kBins>;

// Each bin's raw value: its share of the cumulative count, beyond the first bin's, on the
// window min .. min + width.
std::vector<float> EqualisedLevels(const Histogram& count, double total, double min, double width) {
  const auto first = std::find_if(count.begin(), count.end(), [](long long c) { return c > 0; });
  const double base = static_cast<double>(*first);
  std::vector<float> raw(CImgHstEql::kBins);
  long long cumulative = 0;
  for (int k = 0; k < CImgHstEql::kBins; ++k) {
    cumulative += count[k];
    const double t = 255.0 * (static_cast<double>(cumulative) - base) / (total - base);
    raw[k] = static_cast<float>(t / 255.0 * width + min);
  }
  return raw;
}

}  // namespace

int CImgHstEql::Do(COrbImage* src) {
  if (!src || !SameGeometry(*this, *src)) return 0;
  src->CalcMinMax();
  const int planes = GetPlanes(), w = GetWidth(), h = GetHeight();
  const bool wide = qrn::simd::WideVectors();
  auto binsOf = [&](const float* s, int n, double min, double width, int* bins) {
    if (wide) BinsWide(s, n, min, width, bins);
    else Bins(s, n, min, width, bins);
  };
  ShowProgressInit(1, 6177, 2 * h * planes);
  for (int p = 0; p < planes; ++p) {
    const double min = src->GetMinPixel(p), max = src->GetMaxPixel(p), width = max - min;
    SetLevel(p, min, max);
    if (!(width > 0.0)) {
      CLineLoop(*this).Run(0, h, [&](int y) { CopyRow(src->GetImageAdr(0, y, p), GetImageAdr(0, y, p, 0), w); });
      continue;
    }
    // Lines counted in parallel into per-thread histograms; integer sums in any order.
    Histogram count{};
    std::mutex merge;
    CLineLoop(*this).Run(0, h, [&](int y) {
      thread_local std::vector<int> bins;
      bins.resize(static_cast<std::size_t>(w));
      binsOf(src->GetImageAdr(0, y, p), w, min, width, bins.data());
      Histogram part[4] = {};
      int x = 0;
      for (; x + 4 <= w; x += 4)
        for (int j = 0; j < 4; ++j) ++part[j][bins[x + j]];
      for (; x < w; ++x) ++part[0][bins[x]];
      std::lock_guard lock(merge);
      for (int k = 0; k < kBins; ++k) count[k] += part[0][k] + part[1][k] + part[2][k] + part[3][k];
    });
    const std::vector<float> raw = EqualisedLevels(count, static_cast<double>(w) * h, min, width);
    CLineLoop(*this).Run(0, h, [&](int y) {
      thread_local std::vector<int> bins;
      bins.resize(static_cast<std::size_t>(w));
      binsOf(src->GetImageAdr(0, y, p), w, min, width, bins.data());
      float* d = GetImageAdr(0, y, p, 0);
      for (int x = 0; x < w; ++x) d[x] = raw[bins[x]];
    });
  }
  ShowProgressEnd(nullptr);
  return 1;
}
