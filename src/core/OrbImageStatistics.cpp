// COrbImage: plane statistics, histograms, star centroids and fits, and plane-wide rewrites.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "core/LineLoop.h"
#include "core/OrbImage.h"
#include "core/RowExtremes.h"
#include "core/RowSum.h"
#include "core/RunningFloatSum.h"
#include "kernels/Vec4.h"
#include "platform/Parallel.h"
#include "platform/QrnSys.h"

namespace {

constexpr int kDefaultHistogramTitle = 6166;
constexpr int kPreparingTitle = 6169;
// Samples a thread takes at a time for the in-order float sum of a plane.
constexpr int kSamplesPerStep = 65536;
// Bin of a value already known to lie in [low, high]: truncation, lowered to the last bin
// and raised to 0. A NaN or infinite position (zero-width range) lands in bin 0, as the
// truncation of such a value to the most negative integer would.
inline int BinIndex(double position, int count) {
  if (position >= 0.0 && position < count) return static_cast<int>(position);
  if (position >= count) return count - 1;
  return 0;
}

// trunc(log10(bin) × 10000); an empty bin gives the most negative integer.
inline int LogBin(int bin) {
  if (bin <= 0) return std::numeric_limits<int>::min();
  return static_cast<int>(std::log10(static_cast<double>(bin)) * 10000.0);
}

// A line's extremes gathered piece by piece: a piece's extreme replaces the running one only
// when strictly beyond it, as one pass over the samples in order would keep it.
struct LineExtremes {
  float min = std::numeric_limits<float>::infinity(), max = -std::numeric_limits<float>::infinity();
  void Add(const float* v, int n) {
    if (n <= 0) return;
    float lo, hi;
    CRowExtremes::Find(v, n, lo, hi);
    Take(lo, hi);
  }
  void Take(float lo, float hi) {
    if (lo < min) min = lo;
    if (hi > max) max = hi;
  }
};

// The line sums added in line order: the same total on any number of threads.
double LineOrderTotal(const std::vector<double>& lineSums) {
  double total = 0.0;
  for (double s : lineSums) total += s;
  return total;
}

// The raw mean of a plane from its total: divided by (w − 1), then by (h − 1), as float.
float RawMean(double total, int w, int h) { return static_cast<float>(total / (w - 1) / (h - 1)); }

// Σ over lines, in line order, of (a line's left-to-right double sum) / (height × width).
double TotalInLineOrder(const std::vector<double>& lineSums, const COrbImage& image) {
  const double area = double(image.GetHeight()) * double(image.GetWidth());
  double total = 0.0;
  for (double s : lineSums) total += s / area;
  return total;
}

// The line sums are independent, so they are taken in parallel; only the total keeps its order.
double SumOfLineSums(const COrbImage& image, int plane, double (*lineSum)(const float*, int)) {
  const int w = image.GetWidth(), h = image.GetHeight();
  std::vector<double> sums(static_cast<std::size_t>(h));
#pragma omp parallel for schedule(static)
  for (int y = 0; y < h; ++y) sums[y] = lineSum(image.GetImageAdr(0, y, plane), w);
  return TotalInLineOrder(sums, image);
}

// The totals of the samples and of their squares, as SumOfLineSums gives them, over one read.
void SumsOfLineSums(const COrbImage& image, int plane, double& samples, double& squares) {
  const int w = image.GetWidth(), h = image.GetHeight();
  std::vector<double> sums(static_cast<std::size_t>(h)), sumsOfSquares(sums.size());
#pragma omp parallel for schedule(static)
  for (int y = 0; y < h; ++y) CRowSum::SumAndSumOfSquares(image.GetImageAdr(0, y, plane), w, sums[y], sumsOfSquares[y]);
  samples = TotalInLineOrder(sums, image);
  squares = TotalInLineOrder(sumsOfSquares, image);
}

// Median of a copy of values (upper middle for an even count); 0 for none.
double MedianOf(std::vector<double> values) {
  if (values.empty()) return 0.0;
  auto mid = values.begin() + values.size() / 2;
  std::nth_element(values.begin(), mid, values.end());
  return *mid;
}

// Solves the n × n system a·x = b in place by Gaussian elimination with partial pivoting.
bool Solve(double* a, double* b, int n) {
  for (int c = 0; c < n; ++c) {
    int pivot = c;
    for (int r = c + 1; r < n; ++r)
      if (std::fabs(a[r * n + c]) > std::fabs(a[pivot * n + c])) pivot = r;
    if (!(std::fabs(a[pivot * n + c]) > 0.0)) return false;
    if (pivot != c) {
      for (int k = 0; k < n; ++k) std::swap(a[c * n + k], a[pivot * n + k]);
      std::swap(b[c], b[pivot]);
    }
    for (int r = c + 1; r < n; ++r) {
      const double f = a[r * n + c] / a[c * n + c];
      for (int k = c; k < n; ++k) a[r * n + k] -= f * a[c * n + k];
      b[r] -= f * b[c];
    }
  }
  for (int c = n - 1; c >= 0; --c) {
    double s = b[c];
    for (int k = c + 1; k < n; ++k) s -= a[c * n + k] * b[k];
    b[c] = s / a[c * n + c];
  }
  return true;
}

// Mask rows: a sample whose mask sample is 0 becomes 0.
inline float MaskSample(float v, float m) { return m == 0.0f ? 0.0f : v; }

void MaskRow(float* line, const float* mask, int n, bool vector) {
  int x = 0;
  if (vector) {
    const Vec4f zero(0.0f);
    for (; x + 4 <= n; x += 4) {
      const Vec4f m = Vec4f::Load(mask + x);
      // m == 0 exactly when neither m < 0 nor m > 0 holds and m is not NaN (m <= 0 && m >= 0).
      Vec4f::Select((m <= zero) & (m >= zero), zero, Vec4f::Load(line + x)).Store(line + x);
    }
  }
  for (; x < n; ++x) line[x] = MaskSample(line[x], mask[x]);
}

}  // namespace

// ---- Plane statistics ------------------------------------------------------------------

void COrbImage::CalcMinMax() { CalcMinMaxAndMeans(nullptr); }

void COrbImage::CalcMinMaxAndMeans(float* rawMeans) {
  if (IsEmpty()) return;
  const int w = GetWidth(), h = GetHeight();
  std::vector<float> lineMin(static_cast<std::size_t>(h)), lineMax(lineMin.size());
  std::vector<double> lineSums(rawMeans ? lineMin.size() : 0);
  for (int p = 0; p < GetPlanes(); ++p) {
    // One float sum in line order (its rounding is part of the result). The lines are shared
    // among the threads, each finding a line's extremes (and its double sum when the means
    // are asked for) and summarising the line's blocks for the float sum as it last stood;
    // the summaries are then applied in line order, which costs little per block. The
    // extremes are taken over in line order from the first sample afterwards, which gives
    // what one pass over the samples from that start gives.
    CRunningFloatSum sum;
    std::atomic<float> latest{0.0f};
    const int blocks = w / CRunningFloatSum::kBlock, tail = blocks * CRunningFloatSum::kBlock;
    // Lines go to the threads a few at a time, about kSamplesPerStep samples, so that the
    // threads meet in the ordered part less often than once a line.
    const int linesPerStep = std::max(1, kSamplesPerStep / w);
    const int steps = (h + linesPerStep - 1) / linesPerStep;
#pragma omp parallel for schedule(dynamic, 1) ordered
    for (int step = 0; step < steps; ++step) {
      const int y0 = step * linesPerStep, y1 = std::min(h, y0 + linesPerStep);
      thread_local std::vector<CRunningFloatSum::BlockSummary> summaries;
      summaries.resize(static_cast<std::size_t>(blocks) * (y1 - y0));
      const float guess = latest.load(std::memory_order_relaxed);
      for (int y = y0; y < y1; ++y) {
        const float* line = GetImageAdr(0, y, p);
        CRunningFloatSum::BlockSummary* lineSummaries = summaries.data() + std::size_t(y - y0) * blocks;
        // Block by block, so that each block is summarised while it is still in the nearest
        // cache and the reads from memory spread over the work.
        LineExtremes extremes;
        for (int j = 0; j < blocks; ++j) {
          float lo, hi;
          lineSummaries[j] = CRunningFloatSum::Summarise(line + j * CRunningFloatSum::kBlock, guess, lo, hi);
          extremes.Take(lo, hi);
        }
        extremes.Add(line + tail, w - tail);
        lineMin[y] = extremes.min, lineMax[y] = extremes.max;
        if (rawMeans) lineSums[y] = CRowSum::Interleaved(line, w);
      }
#pragma omp ordered
      {
        for (int y = y0; y < y1; ++y) {
          const float* line = GetImageAdr(0, y, p);
          const CRunningFloatSum::BlockSummary* lineSummaries = summaries.data() + std::size_t(y - y0) * blocks;
          for (int j = 0; j < blocks; ++j) sum.Apply(lineSummaries[j], line + j * CRunningFloatSum::kBlock);
          sum.Add(line + tail, w - tail);
        }
        latest.store(sum.Value(), std::memory_order_relaxed);
      }
    }
    float mn = *GetImageAdr(0, 0, p), mx = mn;
    for (int y = 0; y < h; ++y) {
      if (lineMin[y] < mn) mn = lineMin[y];
      if (lineMax[y] > mx) mx = lineMax[y];
    }
    m_minPixel[p] = mn;
    m_maxPixel[p] = mx;
    // (w - 1)(h - 1), not the pixel count: GetAvrGrayRaw divides the same way.
    m_avrPixel[p] = sum.Value() / static_cast<float>((w - 1) * (h - 1));
    if (rawMeans) rawMeans[p] = RawMean(LineOrderTotal(lineSums), w, h);
  }
}

void COrbImage::CalcMinMax(int margin) {
  if (IsEmpty()) return;
  margin = std::max(margin, 0);  // a negative margin would reach outside the image
  const int w = GetWidth(), h = GetHeight();
  const int x0 = std::min(margin, w - 1), x1 = std::max(w - margin, 0);
  const int y0 = std::min(margin, h - 1), y1 = std::max(h - margin, 0);
  for (int p = 0; p < GetPlanes(); ++p) {
    float mn = *GetImageAdr(x0, y0, p), mx = mn;
    float sum = 0.0f;
    int count = 0;
    for (int y = y0; y < y1; ++y) {
      const float* line = GetImageAdr(0, y, p);
      for (int x = x0; x < x1; ++x) {
        const float v = line[x];
        if (v == 0.0f) continue;
        if (v < mn) mn = v;
        if (v > mx) mx = v;
        sum += v;
        ++count;
      }
    }
    m_minPixel[p] = mn;
    m_maxPixel[p] = mx;
    m_avrPixel[p] = sum / static_cast<float>(count);
  }
}

float COrbImage::CalcAvr(int plane) {
  if (IsEmpty() || plane < 0 || plane >= GetPlanes() || GetHeight() < 1) return 0.0f;
  return static_cast<float>(SumOfLineSums(*this, plane, &CRowSum::Sum));
}

float COrbImage::CalcStdDev(int plane, const float* mean) {
  if (IsEmpty() || plane < 0 || plane >= GetPlanes()) return 0.0f;
  float m;
  double total;
  if (mean) {
    m = *mean;
    total = SumOfLineSums(*this, plane, &CRowSum::SumOfSquares);
  } else {
    // The mean of CalcAvr and the squares' total from one read of the plane.
    double samples;
    SumsOfLineSums(*this, plane, samples, total);
    m = static_cast<float>(samples);
  }
  const float m2 = m * m;
  return static_cast<float>(std::sqrt(total - static_cast<double>(m2)));
}

float COrbImage::GetAvrGrayRaw(int plane) {
  if (IsEmpty() || plane < 0 || plane >= GetPlanes()) return 0.0f;
  const int w = GetWidth(), h = GetHeight();
  std::vector<double> lineSums(static_cast<std::size_t>(h));
#pragma omp parallel for schedule(static)
  for (int y = 0; y < h; ++y) lineSums[y] = CRowSum::Interleaved(GetImageAdr(0, y, plane), w);
  return RawMean(LineOrderTotal(lineSums), w, h);
}

float COrbImage::GetAvrGray(int plane) {
  if (plane < 0 || plane >= GetPlanes()) return 0.0f;
  return GetAvrGrayRaw(plane) - static_cast<float>(GetLevelMin(plane));
}

float COrbImage::GetAvrGray256f(int plane) {
  if (plane < 0 || plane >= GetPlanes()) return 0.0f;
  return static_cast<float>((GetAvrGrayRaw(plane) - GetLevelMin(plane)) / GetLevelRange(plane) * 255.0);
}

int COrbImage::GetHeightOfHistogram(const int* bins, int count) {
  if (!bins) return 0;
  if (count < 1) return bins[0];
  return *std::max_element(bins, bins + count);
}

float COrbImage::GetMaxPixel(int plane, CRect* rect, int& x, int& y) {
  constexpr float kNoMax = -2147483648.0f;
  if (IsEmpty() || plane < 0 || plane >= GetPlanes()) return kNoMax;
  int left, top, right, bottom;
  NormalizeRect(rect, left, top, right, bottom);
  if (top >= bottom) return kNoMax;
  float mx = kNoMax, runningMin = 2147483648.0f;
  for (int yy = top; yy < bottom; ++yy) {
    const float* line = GetImageAdr(0, yy, plane);
    for (int xx = left; xx < right; ++xx) {
      const float v = line[xx];
      if (v > mx) {
        mx = v;
        x = xx;
        y = yy;
      } else if (v < runningMin) {
        runningMin = v;
      }
    }
  }
  // A flat area has no distinct peak.
  if (mx == runningMin) x = y = -1;
  return mx;
}

void COrbImage::GetLuminanceScale(double* factor, double* offset) const {
  for (int p = 0; p < 3; ++p) {
    const double range = GetLevelRange(p);
    factor[p] = range != 0.0 ? GetLevelRange(0) / range : 1.0;
    offset[p] = GetLevelMin(0) - GetLevelMin(p) * factor[p];
    if (factor[p] == 1.0 && GetLevelMin(p) == GetLevelMin(0)) offset[p] = 0.0;
  }
}

// ---- Histograms ------------------------------------------------------------------------

namespace {

// Bins are counted a chunk of a line at a time: first every sample's bin (in vectors), then
// the counts. A sample outside [low, high] gets the spare bin `count`, so the counting loop
// has no branches.
constexpr int kBinChunk = 512;

// Bin of each value for a finite range and scale: every in-range position is finite and in
// [0, count], so truncation of the position capped at count − 1 is the bin of BinIndex. The
// tests are selects (and the comparisons made for every sample) so that the loop vectorises.
template <class Value>
void ChunkBins(int n, double low, double high, double scale, int count, int* index, Value value) {
  const double last = count - 1;
#pragma omp simd
  for (int i = 0; i < n; ++i) {
    const double v = value(i);
    const double position = (v - low) * scale;
    const double capped = last < position ? last : position;
    const bool in = (v >= low) & (v <= high);
    index[i] = static_cast<int>(in ? capped : double(count));
  }
}

// The same chunk compiled for 256-bit vectors: four doubles a step.
template <class Value>
QRN_WIDE_TARGET void ChunkBinsWide(int n, double low, double high, double scale, int count, int* index, Value value) {
  ChunkBins(n, low, high, scale, count, index, value);
}

template <class Value>
void ChunkBinsOn(bool wide, int n, double low, double high, double scale, int count, int* index, Value value) {
  if (wide) ChunkBinsWide(n, low, high, scale, count, index, value);
  else ChunkBins(n, low, high, scale, count, index, value);
}

// What one histogram pass samples and how: the area's columns, the container's cull step
// along a line, the range and the luminance scale.
struct BinSampling {
  int left, right, stepX, count;
  double low, high, scale;
  bool finite, wide;
  double factor[3], offset[3];
};

// Counts the samples of line y into hist (count bins and a spare one): plane `source`, or the
// luminance of a colour image for -1.
void CountLine(const COrbImage& img, const BinSampling& b, int source, int y, int* hist) {
  if (b.finite && b.stepX == 1) {
    int index[kBinChunk];
    for (int x0 = b.left; x0 < b.right; x0 += kBinChunk) {
      const int n = std::min(kBinChunk, b.right - x0);
      if (source >= 0) {
        const float* line = img.GetImageAdr(x0, y, source);
        ChunkBinsOn(b.wide, n, b.low, b.high, b.scale, b.count, index,
                    [line](int i) { return static_cast<double>(line[i]); });
      } else {
        const float* r = img.GetImageAdr(x0, y, 0);
        const float* g = img.GetImageAdr(x0, y, 1);
        const float* bl = img.GetImageAdr(x0, y, 2);
        const double f0 = b.factor[0], f1 = b.factor[1], f2 = b.factor[2];
        const double o0 = b.offset[0], o1 = b.offset[1], o2 = b.offset[2];
        // COrbImage::CalcLuminance with the scale held in registers.
        ChunkBinsOn(b.wide, n, b.low, b.high, b.scale, b.count, index, [=](int i) {
          return COrbImage::CalcBright(f0 * r[i] + o0, f1 * g[i] + o1, f2 * bl[i] + o2);
        });
      }
      // Unrolled: as a five-instruction loop it ran a fifth slower whenever the build placed
      // it across a 64-byte line of code.
#pragma GCC unroll 4
      for (int i = 0; i < n; ++i) ++hist[index[i]];
    }
    return;
  }
  auto tally = [&](double v) {
    if (v >= b.low && v <= b.high) ++hist[BinIndex((v - b.low) * b.scale, b.count)];
  };
  if (source >= 0) {
    const float* line = img.GetImageAdr(0, y, source);
    for (int x = b.left; x < b.right; x += b.stepX) tally(line[x]);
  } else {
    const float* r = img.GetImageAdr(0, y, 0);
    const float* g = img.GetImageAdr(0, y, 1);
    const float* bl = img.GetImageAdr(0, y, 2);
    for (int x = b.left; x < b.right; x += b.stepX)
      tally(COrbImage::CalcLuminance(b.factor, b.offset, r[x], g[x], bl[x]));
  }
}

// Adds the threads' counts of one slot into bins, scales them up by the share of samples the
// cull skipped and takes the log scale when asked.
void MergeCounts(const std::vector<int>& local, int threads, int slots, int slot, std::size_t stride, double upscale,
                 int logScale, int* bins, int count) {
  for (int t = 0; t < threads; ++t) {
    const int* part = local.data() + (std::size_t(t) * slots + slot) * stride;
    for (int i = 0; i < count; ++i) bins[i] += part[i];
  }
  if (upscale != 1.0)
    for (int i = 0; i < count; ++i) bins[i] = static_cast<int>(std::llround(bins[i] * upscale));
  if (logScale)
    for (int i = 0; i < count; ++i) bins[i] = LogBin(bins[i]);
}

// One pass over the area filling up to three histograms. source[s] is the plane read into
// bins[s] (-1: luminance of a colour image); a null bins[s] is skipped.
int HistogramPass(COrbImage& img, int* const* bins, const int* source, int slots, int count, double low, double high,
                  int logScale, int peakHeight, int useCull, CRect* rect, int showProgress, int titleId) {
  int left, top, right, bottom;
  img.NormalizeRect(rect, left, top, right, bottom);
  img.ShowProgressInit(showProgress, titleId ? titleId : kDefaultHistogramTitle, std::max(bottom - top, 0));
  bool any = false;
  for (int s = 0; s < slots; ++s) {
    if (bins[s] && count > 0) std::fill(bins[s], bins[s] + count, 0);
    any = any || bins[s];
  }
  if (count < 1 || !any || img.IsEmpty()) {
    img.ShowProgressEnd(nullptr);
    return 0;  // nothing to bin into, and no mean height of zero bins
  }

  // The container's reduced sampling: every stepX-th column of every stepY-th line.
  int stepX = 1, stepY = 1, cx = 1, cy = 1;
  if (useCull && img.IsHistogramCullParam() && img.GetHistogramCull(&cx, &cy) && (cx > 1 || cy > 1)) {
    stepX = cx;
    stepY = cy;
  }
  const int lines = bottom > top ? (bottom - top + stepY - 1) / stepY : 0;
  const int columns = right > left ? (right - left + stepX - 1) / stepX : 0;
  BinSampling sampling{left, right, stepX, count, low, high, count / (high - low),
                       false, qrn::simd::WideVectors(), {}, {}};
  sampling.finite = std::isfinite(low) && std::isfinite(high) && std::isfinite(sampling.scale);
  img.GetLuminanceScale(sampling.factor, sampling.offset);

  const int threads = CParallel::GetMaxThreads();
  // Per thread and slot: count bins and the spare one of the chunked counting.
  const std::size_t stride = std::size_t(count) + 1;
  std::vector<int> local(std::size_t(threads) * slots * stride, 0);
  CLineLoop(img).Run(0, lines, [&](int k) {
    const int y = top + k * stepY;
    int* own = local.data() + std::size_t(CParallel::GetThreadNum()) * slots * stride;
    for (int s = 0; s < slots; ++s)
      if (bins[s]) CountLine(img, sampling, source[s], y, own + std::size_t(s) * stride);
    // The loop reports one line; account for the lines the cull skipped.
    const int skipped = std::min(stepY, bottom - y) - 1;
    if (skipped > 0) img.ShowProgress(skipped);
  });

  const double upscale = (stepX > 1 || stepY > 1) && lines > 0 && columns > 0
                             ? double(bottom - top) * double(right - left) / (double(lines) * double(columns))
                             : 1.0;
  int height = std::numeric_limits<int>::min();
  for (int s = 0; s < slots; ++s) {
    if (!bins[s]) continue;
    MergeCounts(local, threads, slots, s, stride, upscale, logScale, bins[s], count);
    height = std::max(height, COrbImage::GetHeightOfHistogram(bins[s], count));
  }
  img.ShowProgressEnd(nullptr);
  if (peakHeight) return height;
  return static_cast<int>(2 * std::int64_t(img.GetWidth()) * img.GetHeight() / count);
}

}  // namespace

int COrbImage::GetHistogram(int* bins, int count, double low, double high, int plane, int logScale,
                            int peakHeight, int useCull, CRect* rect, int showProgress, int titleId) {
  if (GetPlanes() < 3 && plane == -1) plane = 0;
  // A plane that does not exist counts nothing: its bins stay zero.
  const bool valid = plane == -1 || (plane >= 0 && plane < GetPlanes());
  int* target[1] = {bins};
  if (!valid && bins && count > 0) {
    std::fill(bins, bins + count, 0);
    target[0] = nullptr;
  }
  const int source[1] = {plane};
  return HistogramPass(*this, target, source, 1, count, low, high, logScale, peakHeight, useCull, rect, showProgress,
                       titleId);
}

int COrbImage::GetHistogramRGB(int* binsR, int* binsG, int* binsB, int count, double low, double high, int logScale,
                               int peakHeight, int useCull, CRect* rect, int showProgress, int titleId) {
  int* target[3] = {binsR, binsG, binsB};
  int source[3] = {0, 1, 2};
  if (GetPlanes() < 3) source[1] = source[2] = 0;
  return HistogramPass(*this, target, source, 3, count, low, high, logScale, peakHeight, useCull, rect, showProgress,
                       titleId);
}

// ---- Plane-wide rewrites -----------------------------------------------------------------

namespace {

// Replaces the samples of plane 0 that pass test by value. The plane argument only says how
// often the walk is made (once per plane when negative); the walk always acts on plane 0.
template <class Test>
void ThresholdWalk(COrbImage& img, int plane, float value, Test test) {
  if (img.IsEmpty()) return;
  const int walks = plane < 0 ? img.GetPlanes() : 1;
  const int w = img.GetWidth();
  for (int k = 0; k < walks; ++k)
    for (int y = 0; y < img.GetHeight(); ++y) {
      float* line = img.GetImageAdr(0, y, 0, 0);
      for (int x = 0; x < w; ++x)
        if (test(line[x])) line[x] = value;
    }
}

}  // namespace

void COrbImage::ThresholdLessThan(int plane, float threshold, float value) {
  ThresholdWalk(*this, plane, value, [threshold](float s) { return s < threshold; });
}
void COrbImage::ThresholdLessThanEqual(int plane, float threshold, float value) {
  ThresholdWalk(*this, plane, value, [threshold](float s) { return s <= threshold; });
}
void COrbImage::ThresholdGreaterThan(int plane, float threshold, float value) {
  ThresholdWalk(*this, plane, value, [threshold](float s) { return s > threshold; });
}
void COrbImage::ThresholdGreaterThanEqual(int plane, float threshold, float value) {
  ThresholdWalk(*this, plane, value, [threshold](float s) { return s >= threshold; });
}
void COrbImage::ThresholdEqual(int plane, float threshold, float value) {
  ThresholdWalk(*this, plane, value, [threshold](float s) { return s == threshold; });
}
void COrbImage::ThresholdNotEqual(int plane, float threshold, float value) {
  ThresholdWalk(*this, plane, value, [threshold](float s) { return s != threshold; });
}

void COrbImage::CutOutOfLevel() {
  if (IsEmpty()) return;
  const int w = GetWidth();
  CLineLoop loop(*this);
  loop.RunPlanes(GetPlanes(), 0, GetHeight(), [&](int p, int y) {
    const float lo = static_cast<float>(GetLevelMin(p)), hi = static_cast<float>(GetLevelMax(p));
    float* line = GetImageAdr(0, y, p, 0);
    for (int x = 0; x < w; ++x) {
      if (line[x] < lo) line[x] = lo;
      else if (line[x] > hi) line[x] = hi;
    }
  });
}

void COrbImage::LiftUp(int lines) {
  if (lines == 0 || IsEmpty()) return;
  const int h = GetHeight();
  const std::size_t bytes = std::size_t(std::abs(GetBitsPixel() * GetWidth())) / 8;
  for (int p = 0; p < GetPlanes(); ++p)
    for (int y = 0; y < h; ++y) {
      const int to = y - lines;
      if (to < 0 || to >= h) continue;  // a negative count must not write below the image
      std::memmove(GetImageAdr(0, to, p, 0), GetImageAdr(0, y, p), bytes);
    }
}

// ---- Star centres and profiles ---------------------------------------------------------------

namespace {

// The samples of a rectangle as one plane (or the luminance), for the star measurements.
struct CPatch {
  int left = 0, top = 0, width = 0, height = 0;
  std::vector<double> v;

  double At(int x, int y) const { return v[std::size_t(y) * width + x]; }

  bool Load(const COrbImage& img, int plane, CRect* rect) {
    if (img.IsEmpty()) return false;
    if (img.GetPlanes() < 3 && plane == -1) plane = 0;
    if (plane < -1 || plane >= img.GetPlanes()) return false;
    int right, bottom;
    img.NormalizeRect(rect, left, top, right, bottom);
    width = right - left;
    height = bottom - top;
    if (width <= 0 || height <= 0) return false;
    double factor[3], offset[3];
    img.GetLuminanceScale(factor, offset);
    v.resize(std::size_t(width) * height);
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) {
        const int ix = left + x, iy = top + y;
        v[std::size_t(y) * width + x] =
            plane >= 0 ? img.GetPixelGrayRaw(ix, iy, plane)
                       : COrbImage::CalcLuminance(factor, offset, img.GetPixelGrayRaw(ix, iy, 0),
                                                  img.GetPixelGrayRaw(ix, iy, 1), img.GetPixelGrayRaw(ix, iy, 2));
      }
    return true;
  }

  // Median of the one-pixel frame: the sky around a star that the rectangle encloses.
  double FrameMedian() const {
    std::vector<double> frame;
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x)
        if (y == 0 || y == height - 1 || x == 0 || x == width - 1) frame.push_back(At(x, y));
    return MedianOf(std::move(frame));
  }

  // Weighted centre of the samples above background (in image coordinates).
  bool Centre(double background, double& cx, double& cy) const {
    double sw = 0, sx = 0, sy = 0;
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) {
        const double w = At(x, y) - background;
        if (!(w > 0)) continue;  // also drops NaN samples
        sw += w;
        sx += w * x;
        sy += w * y;
      }
    if (!(sw > 0) || !std::isfinite(sw)) return false;
    cx = left + sx / sw;
    cy = top + sy / sw;
    return true;
  }
};

int DefaultPlane(const COrbImage& img) { return img.GetPlanes() >= 3 ? -1 : 0; }

}  // namespace

int COrbImage::GetCentroid(double& x, double& y, CRect* rect) {
  CPatch patch;
  if (!patch.Load(*this, DefaultPlane(*this), rect)) return 0;
  return patch.Centre(patch.FrameMedian(), x, y) ? 1 : 0;
}

int COrbImage::GetCentroid(int& x, int& y, CRect* rect) {
  double fx, fy;
  if (!GetCentroid(fx, fy, rect)) return 0;
  x = static_cast<int>(std::floor(fx + 0.5));
  y = static_cast<int>(std::floor(fy + 0.5));
  return 1;
}

int COrbImage::GetCentroid2(double& x, double& y, CRect* rect) {
  int left, top, right, bottom;
  NormalizeRect(rect, left, top, right, bottom);
  double cx, cy;
  CRect window(left, top, right, bottom);
  if (!GetCentroid(cx, cy, &window)) return 0;
  const int w = right - left, h = bottom - top;
  for (int step = 0; step < 10; ++step) {
    const int l = static_cast<int>(std::floor(cx + 0.5)) - w / 2, t = static_cast<int>(std::floor(cy + 0.5)) - h / 2;
    window = CRect(l, t, l + w, t + h);
    double nx, ny;
    if (!GetCentroid(nx, ny, &window)) break;
    const bool settled = std::fabs(nx - cx) < 0.01 && std::fabs(ny - cy) < 0.01;
    cx = nx;
    cy = ny;
    if (settled) break;
  }
  x = cx;
  y = cy;
  return 1;
}

int COrbImage::GetCentroidRaw(double& x, double& y, int plane, CRect* rect) {
  CPatch patch;
  if (!patch.Load(*this, plane, rect)) return 0;
  return patch.Centre(0.0, x, y) ? 1 : 0;
}

int COrbImage::GetFitPrmFromCentroid(double* prm, double cx, double cy, int plane, CRect* rect) {
  CPatch patch;
  if (!prm || !patch.Load(*this, plane, rect) || patch.width * patch.height < 6) return 0;
  const double bg = patch.FrameMedian();
  double sw = 0, sr2 = 0;
  for (int y = 0; y < patch.height; ++y)
    for (int x = 0; x < patch.width; ++x) {
      const double w = patch.At(x, y) - bg;
      if (!(w > 0)) continue;
      const double dx = patch.left + x - cx, dy = patch.top + y - cy;
      sw += w;
      sr2 += w * (dx * dx + dy * dy);
    }
  if (!(sw > 0) || !(sr2 > 0)) return 0;
  // For a circular Gaussian the weighted mean of r^2 is 2 sigma^2.
  const double sigma = std::sqrt(sr2 / sw / 2.0);
  double sgv = 0, sgg = 0;
  for (int y = 0; y < patch.height; ++y)
    for (int x = 0; x < patch.width; ++x) {
      const double dx = patch.left + x - cx, dy = patch.top + y - cy;
      const double g = std::exp(-(dx * dx + dy * dy) / (2 * sigma * sigma));
      sgv += g * (patch.At(x, y) - bg);
      sgg += g * g;
    }
  prm[kFitX] = cx;
  prm[kFitY] = cy;
  prm[kFitSigma] = sigma;
  prm[kFitPeak] = sgg > 0 ? sgv / sgg : 0.0;
  prm[kFitBackground] = bg;
  prm[kFitFwhm] = 2.0 * std::sqrt(2.0 * std::log(2.0)) * sigma;
  return 1;
}

namespace {

// The model A·exp(−r²/2s²) + B fitted to a patch, its parameters in the order x, y, s, A, B.
struct CGaussModel {
  static constexpr int kParams = 5;
  const CPatch& patch;

  // The residual sum of squares at q; with jtj and jtr, also the normal equations JᵀJ and Jᵀr.
  double Evaluate(const double* q, double* jtj, double* jtr) const {
    double rss = 0;
    if (jtj) std::fill(jtj, jtj + kParams * kParams, 0.0), std::fill(jtr, jtr + kParams, 0.0);
    for (int y = 0; y < patch.height; ++y)
      for (int x = 0; x < patch.width; ++x) {
        const double v = patch.At(x, y);
        if (!std::isfinite(v)) continue;
        const double dx = patch.left + x - q[0], dy = patch.top + y - q[1];
        const double r2 = dx * dx + dy * dy, s2 = q[2] * q[2];
        const double g = std::exp(-r2 / (2 * s2));
        const double res = v - (q[3] * g + q[4]);
        rss += res * res;
        if (!jtj) continue;
        const double j[kParams] = {q[3] * g * dx / s2, q[3] * g * dy / s2, q[3] * g * r2 / (s2 * q[2]), g, 1.0};
        for (int a = 0; a < kParams; ++a) {
          jtr[a] += j[a] * res;
          for (int b = 0; b < kParams; ++b) jtj[a * kParams + b] += j[a] * j[b];
        }
      }
    return rss;
  }

  // Levenberg–Marquardt from p, at most 100 steps: a step that lowers the residual is taken
  // and the damping eased; one that does not raises the damping. Stops when the residual
  // stalls, the damping runs away or the equations become singular.
  void Refine(double* p) const {
    constexpr int n = kParams;
    double lambda = 1e-3;
    double jtj[n * n], jtr[n];
    double rss = Evaluate(p, jtj, jtr);
    for (int iter = 0; iter < 100; ++iter) {
      double a[n * n], b[n], q[n];
      std::copy(jtj, jtj + n * n, a);
      std::copy(jtr, jtr + n, b);
      for (int k = 0; k < n; ++k) a[k * n + k] *= 1.0 + lambda;
      if (!Solve(a, b, n)) break;
      for (int k = 0; k < n; ++k) q[k] = p[k] + b[k];
      q[2] = std::fabs(q[2]);
      const double next = q[2] > 0 ? Evaluate(q, nullptr, nullptr) : rss + 1;
      if (next < rss) {
        const bool converged = rss - next <= 1e-12 * rss;
        std::copy(q, q + n, p);
        rss = Evaluate(p, jtj, jtr);
        lambda = std::max(lambda * 0.1, 1e-12);
        if (converged) break;
      } else {
        lambda *= 10;
        if (lambda > 1e12) break;
      }
    }
  }
};

}  // namespace

int COrbImage::GetFitPrm(double* prm, int plane, CRect* rect) {
  CPatch patch;
  if (!prm || !patch.Load(*this, plane, rect) || patch.width * patch.height < 6) return 0;
  double cx, cy;
  if (!patch.Centre(patch.FrameMedian(), cx, cy)) return 0;
  double start[kFitCount];
  if (!GetFitPrmFromCentroid(start, cx, cy, plane, rect)) return 0;
  double p[CGaussModel::kParams] = {start[kFitX], start[kFitY], start[kFitSigma], start[kFitPeak],
                                    start[kFitBackground]};
  CGaussModel{patch}.Refine(p);
  prm[kFitX] = p[0];
  prm[kFitY] = p[1];
  prm[kFitSigma] = p[2];
  prm[kFitPeak] = p[3];
  prm[kFitBackground] = p[4];
  prm[kFitFwhm] = 2.0 * std::sqrt(2.0 * std::log(2.0)) * p[2];
  return 1;
}

int COrbImage::Get1stBrighterPixel(int plane, CRect* rect, double level, int& x, int& y) {
  x = y = -1;
  if (IsEmpty()) return 0;
  if (GetPlanes() < 3 && plane == -1) plane = 0;
  if (plane < -1 || plane >= GetPlanes()) return 0;
  int left, top, right, bottom;
  NormalizeRect(rect, left, top, right, bottom);
  double factor[3], offset[3];
  GetLuminanceScale(factor, offset);
  for (int yy = top; yy < bottom; ++yy)
    for (int xx = left; xx < right; ++xx) {
      const double v = plane >= 0 ? GetPixelGrayRaw(xx, yy, plane)
                                  : CalcLuminance(factor, offset, GetPixelGrayRaw(xx, yy, 0),
                                                  GetPixelGrayRaw(xx, yy, 1), GetPixelGrayRaw(xx, yy, 2));
      if (v > level) {
        x = xx;
        y = yy;
        return 1;
      }
    }
  return 0;
}

int COrbImage::ApplyMask_Do0_x(const COrbImage* mask, int showProgress) {
  if (!mask || IsEmpty() || mask->IsEmpty() || mask->GetWidth() != GetWidth() || mask->GetHeight() != GetHeight())
    return 0;
  const bool vector = (CQrnSys::SIMD() & 2) != 0;
  const int w = GetWidth(), h = GetHeight(), planes = GetPlanes();
  ShowProgressInit(showProgress, kPreparingTitle, h * planes);
  CLineLoop loop(*this);
  loop.RunPlanes(planes, 0, h, [&](int p, int y) {
    const int mp = mask->GetPlanes() == planes ? p : 0;
    MaskRow(GetImageAdr(0, y, p, 0), mask->GetImageAdr(0, y, mp), w, vector);
  });
  ShowProgressEnd(nullptr);
  return 1;
}
