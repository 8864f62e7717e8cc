// Histogram equalisation of each plane over its full range.
#include "ops/level/ImgHstEql.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <vector>

#include "kernels/Prefetch.h"
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

// Relative distance of k = (v − min)·(256/width) taken in float from the k of BinOf: three
// float roundings against BinOf's double ones, below 2^-22.3; the margin is twice that, with
// room for its own roundings.
constexpr float kFloatBinSlack = 0x1p-21f;

// The bins of n samples, V::kWidth at a time in float: the bins of k less and k plus its
// margin; where the two agree, that is BinOf's bin too (the bin rises with k). Elsewhere
// BinOf decides: a sample at a bin's edge, and one whose float steps overflow (k infinite
// gives a NaN below and 257 above); a NaN k, which comes only where BinOf's k is NaN or 0,
// gives bin 0 on both sides.
template <class V>
void FloatBins(const float* s, int n, double min, double width, int* bins) {
  const V lo(static_cast<float>(min)), scale(static_cast<float>(256.0 / width));
  const V slack(kFloatBinSlack), zero(0.0f), last(static_cast<float>(kLastBin));
  // k clamped to [0, 257] (NaN to 0) and truncated.
  const auto binOf = [&](const V& k) { return TruncToInt(V::Min(V::Max(k, zero), last)); };
  int x = 0;
  for (; x + V::kWidth <= n; x += V::kWidth) {
    qrn::simd::PrefetchRead<V::kWidth>(s + x);
    const V k = (V::Load(s + x) - lo) * scale, margin = k * slack;
    const auto below = binOf(k - margin), above = binOf(k + margin);
    std::memcpy(bins + x, &below, sizeof below);
    if (AllLanes(below == above)) continue;
    for (int j = 0; j < V::kWidth; ++j) bins[x + j] = BinOf(s[x + j], min, width);
  }
  for (; x < n; ++x) bins[x] = BinOf(s[x], min, width);
}

void Bins(const float* s, int n, double min, double width, int* bins) { FloatBins<Vec4f>(s, n, min, width, bins); }

QRN_WIDE_TARGET void BinsWide(const float* s, int n, double min, double width, int* bins) {
  FloatBins<Vec8f>(s, n, min, width, bins);
}

// d[x] = level[bins[x]], eight at a time with one gather.
QRN_WIDE_TARGET void MapWide(const float* level, const int* bins, int n, float* d) {
  int x = 0;
  for (; x + 8 <= n; x += 8) {
    qrn::simd::PrefetchWrite<8>(d + x);
    Vec8f::Mask idx;
    std::memcpy(&idx, bins + x, sizeof idx);
    GatherTo<false>(level, idx, d + x);
  }
  for (; x < n; ++x) d[x] = level[bins[x]];
}

using Histogram = std::array<long long, CImgHstEql::kBins>;

// The bins of one plane's lines, each into a buffer of the calling thread's own.
struct LineBins {
  COrbImage& src;
  int plane, width;
  double min, range;
  bool wide;

  const int* Of(int y) const {
    thread_local std::vector<int> bins;
    bins.resize(static_cast<std::size_t>(width));
    const float* s = src.GetImageAdr(0, y, plane);
    if (wide) BinsWide(s, width, min, range, bins.data());
    else Bins(s, width, min, range, bins.data());
    return bins.data();
  }
};

// The count of each bin over the lines [0, h): lines in parallel, each counted into eight
// interleaved histograms, so that runs of one bin (the sky of a star field) do not wait on one
// counter, then added to the total in any order (integer sums). A line's counts fit 32 bits.
Histogram CountBins(COrbImage& frame, const LineBins& line, int h) {
  constexpr int kWays = 8;
  Histogram count{};
  std::mutex merge;
  CLineLoop(frame).Run(0, h, [&](int y) {
    const int* bins = line.Of(y);
    std::uint32_t part[kWays][CImgHstEql::kBins] = {};
    int x = 0;
    for (; x + kWays <= line.width; x += kWays)
      for (int j = 0; j < kWays; ++j) ++part[j][bins[x + j]];
    for (; x < line.width; ++x) ++part[0][bins[x]];
    for (int j = 1; j < kWays; ++j)
      for (int k = 0; k < CImgHstEql::kBins; ++k) part[0][k] += part[j][k];
    std::lock_guard lock(merge);
    for (int k = 0; k < CImgHstEql::kBins; ++k) count[k] += part[0][k];
  });
  return count;
}

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

// Every sample of the plane's lines [0, h) in target replaced by its bin's level.
void MapBins(COrbImage& target, const LineBins& line, const std::vector<float>& level, int h) {
  CLineLoop(target).Run(0, h, [&](int y) {
    const int* bins = line.Of(y);
    float* d = target.GetImageAdr(0, y, line.plane, 0);
    if (line.wide) return MapWide(level.data(), bins, line.width, d);
    for (int x = 0; x < line.width; ++x) d[x] = level[bins[x]];
  });
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
    const LineBins line{*src, p, w, min, width, qrn::simd::WideVectors()};
    const Histogram count = CountBins(*this, line, h);
    MapBins(*this, line, EqualisedLevels(count, static_cast<double>(w) * h, min, width), h);
  }
  ShowProgressEnd(nullptr);
  return 1;
}
