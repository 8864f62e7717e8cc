// Automatic display levels from image statistics, their inverses, and the statistics they use.
#include "ops/level/ImgAutoLevel.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "core/RowExtremes.h"

namespace {

constexpr int kNormalBins = 5000;
constexpr int kMedianBlocks = 50000;

// Where a value of a pixel comes from: a plane (>= 0), the luminance of the three planes,
// or the bright value of the display scale brought back to plane 0's raw units.
constexpr int kLuma = -1;
constexpr int kBright = -2;

struct Region {
  int left = 0, top = 0, right = 0, bottom = 0;
  Region(const COrbImage& img, CRect* rect) { img.NormalizeRect(rect, left, top, right, bottom); }
  int Width() const { return std::max(right - left, 0); }
  int Height() const { return std::max(bottom - top, 0); }
  std::int64_t Area() const { return std::int64_t(Width()) * Height(); }
};

// Calls f(v) for every value of line y of the region, left to right.
class CValueReader {
 public:
  CValueReader(const COrbImage& img, int source) : m_img(img), m_source(source) {
    img.GetLuminanceScale(m_factor, m_offset);
    for (int p = 0; p < 3 && p < img.GetPlanes(); ++p) {
      m_min[p] = img.GetLevelMin(p);
      m_range[p] = img.GetLevelRange(p);
    }
  }
  template <class F>
  void Line(int y, int left, int right, F&& f) const {
    if (m_source >= 0) {
      const float* line = m_img.GetImageAdr(0, y, m_source);
      for (int x = left; x < right; ++x) f(static_cast<double>(line[x]));
      return;
    }
    if (m_img.GetPlanes() < 3) {  // the bright value of a grey image is its plane 0
      for (int x = left; x < right; ++x) {
        const float* p = m_img.GetImageAdr(x, y, 0);
        f(static_cast<double>(m_img.GetPixelBrightRaw(p, p, p)));
      }
      return;
    }
    const float* r = m_img.GetImageAdr(0, y, 0);
    const float* g = m_img.GetImageAdr(0, y, 1);
    const float* b = m_img.GetImageAdr(0, y, 2);
    if (m_source == kLuma) {
      for (int x = left; x < right; ++x) f(COrbImage::CalcLuminance(m_factor, m_offset, r[x], g[x], b[x]));
    } else {
      for (int x = left; x < right; ++x) f(static_cast<double>(BrightRaw(r[x], g[x], b[x])));
    }
  }

 private:
  // COrbImage::GetPixelBrightRaw of a colour pixel with the level window read once: each
  // plane on its 0..255 scale as float, their bright value as float, back to plane 0's units.
  float BrightRaw(float r, float g, float b) const {
    const float r256 = static_cast<float>((r - m_min[0]) / m_range[0] * 255.0);
    const float g256 = static_cast<float>((g - m_min[1]) / m_range[1] * 255.0);
    const float b256 = static_cast<float>((b - m_min[2]) / m_range[2] * 255.0);
    const float bright = static_cast<float>(
        COrbImage::CalcBright(static_cast<double>(r256), static_cast<double>(g256), static_cast<double>(b256)));
    return static_cast<float>(bright / 255.0 * m_range[0] + m_min[0]);
  }

  const COrbImage& m_img;
  int m_source;
  double m_factor[3], m_offset[3];
  double m_min[3] = {}, m_range[3] = {};
};

struct Sums {
  double sum = 0;
  std::int64_t count = 0;
};

// Sum and count over the region of what f adds per value; lines share the thread team and
// the partial sums are combined by reduction.
template <class F>
Sums Reduce(const COrbImage& img, const Region& r, int source, F f) {
  const CValueReader reader(img, source);
  double sum = 0;
  std::int64_t count = 0;
#pragma omp parallel for schedule(static) reduction(+ : sum, count)
  for (int y = r.top; y < r.bottom; ++y) {
    Sums line;
    reader.Line(y, r.left, r.right, [&](double v) { f(v, line); });
    sum += line.sum;
    count += line.count;
  }
  return {sum, count};
}

// Smallest and largest value over the region; NaN takes part in no comparison. With
// fromFirst the search starts at the region's first value, otherwise at +inf and -inf.
void RegionMinMax(const COrbImage& img, const Region& r, int source, bool fromFirst, double& mn, double& mx) {
  const CValueReader reader(img, source);
  double lo = std::numeric_limits<double>::infinity(), hi = -lo;
  if (fromFirst) {
    if (r.Area() == 0) {
      mn = mx = 0;
      return;
    }
    reader.Line(r.top, r.left, r.left + 1, [&](double v) { lo = hi = v; });
  }
#pragma omp parallel
  {
    double tlo = lo, thi = hi;
#pragma omp for schedule(static)
    for (int y = r.top; y < r.bottom; ++y) {
      if (source >= 0 && r.right > r.left) {
        // A plane's samples: each line's extremes with vectors, taken over by the same rule.
        float lineMin, lineMax;
        CRowExtremes::Find(img.GetImageAdr(r.left, y, source), r.right - r.left, lineMin, lineMax);
        if (lineMin < tlo) tlo = lineMin;
        if (lineMax > thi) thi = lineMax;
        continue;
      }
      reader.Line(y, r.left, r.right, [&](double v) {
        if (v < tlo) tlo = v;
        if (v > thi) thi = v;
      });
    }
#pragma omp critical
    {
      if (tlo < lo) lo = tlo;
      if (thi > hi) hi = thi;
    }
  }
  mn = lo;
  mx = hi;
}

// The whole plane's minimum and maximum (the container's GetMinMax, read in parallel).
void PlaneMinMax(const COrbImage& img, int plane, double& mn, double& mx) {
  RegionMinMax(img, Region(img, nullptr), plane, false, mn, mx);
}

// Mean and population deviation of the region's values (two passes).
bool MeanDeviation(const COrbImage& img, const Region& r, int source, double& mean, double& sd) {
  const Sums s = Reduce(img, r, source, [](double v, Sums& a) { a.sum += v, ++a.count; });
  if (s.count == 0) return false;
  mean = s.sum / s.count;
  const double m = mean;
  const Sums d = Reduce(img, r, source, [m](double v, Sums& a) { a.sum += (v - m) * (v - m), ++a.count; });
  sd = std::sqrt(d.sum / d.count);
  return true;
}

// Root-mean-square deviation of the region's values about m.
bool DeviationAbout(const COrbImage& img, const Region& r, int source, double m, double& sd) {
  const Sums d = Reduce(img, r, source, [m](double v, Sums& a) { a.sum += (v - m) * (v - m), ++a.count; });
  if (d.count == 0) return false;
  sd = std::sqrt(d.sum / d.count);
  return true;
}

// Sorted-position value n/2 of the k × k block sums of a lattice of samples at
// (x0 + i·sx, y0 + j·sy), i < nx, j < ny. Block sums add rows top to bottom, each left to
// right. Returns false when no whole block fits.
template <class Value>
bool BlockMedian(int x0, int y0, int nx, int ny, int sx, int sy, int k, Value value, double& result) {
  const int bw = nx / k, bh = ny / k;
  if (bw <= 0 || bh <= 0) return false;
  std::vector<double> sums(std::size_t(bw) * bh, 0.0);
#pragma omp parallel for schedule(static)
  for (int by = 0; by < bh; ++by) {
    double* row = sums.data() + std::size_t(by) * bw;
    for (int j = 0; j < k; ++j) {
      const int y = y0 + (by * k + j) * sy;
      for (int bx = 0; bx < bw; ++bx)
        for (int i = 0; i < k; ++i) row[bx] += value(x0 + (bx * k + i) * sx, y);
    }
  }
  auto mid = sums.begin() + sums.size() / 2;
  std::nth_element(sums.begin(), mid, sums.end());
  result = *mid;
  return true;
}

// Upper level from the mode m, the lower level mn and the width scale low/(high+low)·255.
// The division keeps the rounding of this form; with low = 0 the scale is 0 and the closed
// form mn + width·high (the window the formula approaches) avoids dividing by zero.
float UpperLevel(float m, float mn, float scale, double width, double high) {
  if (scale == 0.0f || !std::isfinite(scale)) return static_cast<float>(mn + width * high);
  return (m - mn) / scale * 255 + mn;
}

int BinsFor(const COrbImage& img) {
  const int bits = img.GetOrgBitsPixel();
  return bits == 8 || bits == 24 ? 256 : kNormalBins;
}

bool IsCombined(const COrbImage& img, int separate) { return img.GetPlanes() >= 3 && img.GetDimension() > 2 && !separate; }

// Range and 5000-bin histogram of DoByNormal and GetByNormal for one pass.
struct NormalHistogram {
  std::vector<int> bins = std::vector<int>(kNormalBins, 0);
  double min = 0, max = 0, span = 0;
  std::int64_t total = 0;

  NormalHistogram(COrbImage& img, int plane, CRect* rect) {
    const Region r(img, rect);
    if (plane >= 0) {
      PlaneMinMax(img, plane, min, max);
    } else {
      // The bright values of the display scale (0..255) brought back to plane 0's raw units.
      RegionMinMax(img, r, kBright, false, min, max);
      if (r.Area() == 0) min = max = 0;
    }
    img.GetHistogram(bins.data(), kNormalBins, min, max, plane, 0, 0, 0, rect, 0, 0);
    span = max - min;
    total = r.Area() + kNormalBins;
  }
};

}  // namespace

// ---- Range statistics --------------------------------------------------------------------

void CImgAutoLevel::GetLevelRangeNum(float lo, float hi, int* count, int plane, CRect* rect) {
  if (!count) return;
  *count = 0;
  if (IsEmpty() || plane < 0 || plane >= GetPlanes()) return;
  const Sums s = Reduce(*this, Region(*this, rect), plane, [lo, hi](double v, Sums& a) {
    const float f = static_cast<float>(v);
    if (lo <= f && f <= hi) ++a.count;
  });
  *count = static_cast<int>(s.count);
}

void CImgAutoLevel::GetLevelRangeStd(float lo, float hi, double* sd, int plane, CRect* rect) {
  if (!sd) return;
  *sd = 0;
  if (IsEmpty() || plane < 0 || plane >= GetPlanes()) return;
  const Region r(*this, rect);
  const Sums s = Reduce(*this, r, plane, [lo, hi](double v, Sums& a) {
    if (lo <= v && v <= hi) a.sum += v, ++a.count;
  });
  if (s.count == 0) return;
  const double mean = s.sum / s.count;
  const Sums d = Reduce(*this, r, plane, [lo, hi, mean](double v, Sums& a) {
    if (lo <= v && v <= hi) a.sum += (v - mean) * (v - mean), ++a.count;
  });
  *sd = std::sqrt(d.sum / d.count);
}

void CImgAutoLevel::GetLevelDoubleRangeStd(float lo, float hi, double* sd, int luminance, int plane, CRect* rect) {
  if (!sd) return;
  *sd = 0;
  if (IsEmpty()) return;
  const int source = luminance && GetPlanes() >= 3 ? kLuma : (luminance ? 0 : plane);
  if (source >= GetPlanes() || source < kLuma) return;
  const Sums s = Reduce(*this, Region(*this, rect), source, [lo, hi](double v, Sums& a) {
    if (lo <= v && v <= hi) a.sum += (v - hi) * (v - hi), ++a.count;
  });
  if (s.count > 0) *sd = std::sqrt(s.sum / s.count);
}

// ---- Mode and medians ----------------------------------------------------------------------

void CImgAutoLevel::GetMode(float* mode, float* low, float* high, int luminance, int plane, CRect* rect) {
  if (!mode || IsEmpty()) return;
  const bool luma = luminance && GetPlanes() >= 3;
  if (GetPlanes() == 1) plane = 0;  // a grey image always takes its single plane
  if (!luma && (plane < 0 || plane >= GetPlanes())) return;
  const Region r(*this, rect);
  const int count = BinsFor(*this);
  std::vector<int> bins(count, 0);
  double mn, mx;
  if (luma) RegionMinMax(*this, r, kLuma, true, mn, mx);
  else PlaneMinMax(*this, plane, mn, mx);
  GetHistogram(bins.data(), count, mn, mx, luma ? -1 : plane, 0, 0, 0, rect, 0, 0);

  int best = 0;
  for (int i = 1; i < count; ++i)
    if (bins[i] > bins[best]) best = i;
  const float m = static_cast<float>(best * (mx - mn) / count + mn);
  *mode = m;

  if (low) {
    double sd;
    GetLevelDoubleRangeStd(0.0f, m, &sd, luminance, plane, rect);
    *low = static_cast<float>(m - 6.0 * sd);
  }
  if (high) {
    // A bin is sparse below this count; eleven sparse bins in a row end the background.
    const std::int64_t area = r.Area();
    const std::int64_t threshold = area < 1100000 ? 10 : area / 100000;
    int stop = best, run = 0;
    for (; stop < count; ++stop) {
      run = bins[stop] < threshold ? run + 1 : 0;
      if (run > 10) break;
    }
    *high = static_cast<float>((stop - best) * (mx - mn) / count + m);
  }
}

void CImgAutoLevel::GetMedian(float* median, int sample, int luminance, int plane, CRect* rect) {
  if (!median || IsEmpty()) return;
  const bool color = GetPlanes() >= 3 && GetDimension() > 2;
  const int source = !color ? 0 : (luminance ? kLuma : plane);
  if (source >= GetPlanes() || source < kLuma) return;
  const Region r(*this, rect);
  int k = 1;
  if (sample && r.Area() > kMedianBlocks) {
    const std::int64_t q = r.Area() / kMedianBlocks;
    k = static_cast<int>(std::sqrt(static_cast<double>(q)) + 0.5);
  }
  double factor[3], offset[3];
  GetLuminanceScale(factor, offset);
  auto value = [&](int x, int y) -> double {
    if (source >= 0) return *GetImageAdr(x, y, source);
    return CalcLuminance(factor, offset, *GetImageAdr(x, y, 0), *GetImageAdr(x, y, 1), *GetImageAdr(x, y, 2));
  };
  double v;
  if (!BlockMedian(r.left, r.top, r.Width(), r.Height(), 1, 1, k, value, v)) {
    *median = 0.0f;
    return;
  }
  *median = static_cast<float>(v) / static_cast<float>(k * k);
}

void CImgAutoLevel::GetMedianBayer(float* medians, int sample) {
  if (!medians) return;
  std::fill(medians, medians + 4, 0.0f);
  if (IsEmpty()) return;
  const int w = GetWidth(), h = GetHeight();
  int k = 1;
  const std::int64_t area = std::int64_t(w) * h;
  if (sample && area > kMedianBlocks) {
    const std::int64_t q = area / kMedianBlocks;
    k = std::max(static_cast<int>(static_cast<int>(std::sqrt(static_cast<double>(q)) + 0.5) * 0.5), 1);
  }
  auto value = [&](int x, int y) -> double { return *GetImageAdr(x, y, 0); };
  for (int cell = 0; cell < 4; ++cell) {
    const int row = cell / 2, col = cell % 2;
    double v;
    if (BlockMedian(col, row, (w - col + 1) / 2, (h - row + 1) / 2, 2, 2, k, value, v))
      medians[cell] = static_cast<float>(v) / static_cast<float>(k * k);
  }
}

void CImgAutoLevel::GetMedianHoneyComb(double* medians, int sample) {
  if (!medians) return;
  std::fill(medians, medians + 8, 0.0);
  if (IsEmpty()) return;
  int left = 0, top = 0, w = GetWidth(), h = GetHeight();
  CString model = GetHeader().GetCameraModel();
  if (model.MakeLower().Find(L"finepixs2pro") >= 0) {
    left = 48, top = 30;
    w -= 96, h -= 60;
  }
  if (w <= 0 || h <= 0) return;
  constexpr double kLatticeShare = 1.0 / 8.0;  // each sub-lattice holds an eighth of the area
  const std::int64_t area = std::int64_t(w) * h;
  int k = 1;
  if (sample && area > kMedianBlocks)
    k = std::max(static_cast<int>(std::lround(std::sqrt(area * kLatticeShare / kMedianBlocks))), 1);
  auto value = [&](int x, int y) -> double { return *GetImageAdr(x, y, 0); };
  for (int cell = 0; cell < 8; ++cell) {
    const int row = cell / 4, col = cell % 4;
    double v;
    if (BlockMedian(left + col, top + row, (w - col + 3) / 4, (h - row + 1) / 2, 4, 2, k, value, v))
      medians[cell] = v / (double(k) * k);
  }
}

// ---- Estimators --------------------------------------------------------------------------------

void CImgAutoLevel::DoByHistogram(double low, double high, int separate, int balance, CRect* rect) {
  if (balance == 3 || IsEmpty()) return;
  const float scale = static_cast<float>(low / (high + low) * 255.0);
  if (IsCombined(*this, separate)) {
    float m, lo, hi;
    GetMode(&m, &lo, &hi, 1, -1, rect);
    const float base = static_cast<float>(double(m) - (double(m) - lo) * low);
    float mc[3];
    for (int p = 0; p < 3; ++p) GetMode(&mc[p], nullptr, nullptr, 0, p, rect);
    for (int p = 0; p < 3; ++p) {
      const float d = mc[0] - mc[p];
      float mn, mx;
      if (balance == 0) {
        mn = base - d;
        mx = UpperLevel(mc[p], mn, scale, m - lo, high) - d;
      } else if (balance == 2) {
        mn = static_cast<float>(GetLevelMin(0) - d);
        mx = static_cast<float>(GetLevelMax(0) - d);
      } else {
        mn = base;
        mx = UpperLevel(mc[p], base, scale, m - lo, high);
      }
      SetLevel(p, mn, mx);
    }
    return;
  }
  float m[kMaxPlanes], lo[kMaxPlanes], hi[kMaxPlanes];
  int a[kMaxPlanes], b[kMaxPlanes];
  for (int p = 0; p < GetPlanes(); ++p) {
    GetMode(&m[p], &lo[p], &hi[p], 0, p, rect);
    double ra = 1.0, rb = 1.0;
    if (balance == 0 || balance == 2) {
      // Each plane's share of samples below and above its mode, against plane 0's.
      double pmin, pmax;
      PlaneMinMax(*this, p, pmin, pmax);
      GetLevelRangeNum(0.0f, m[p], &a[p], p, rect);
      GetLevelRangeNum(m[p], static_cast<float>(pmax), &b[p], p, rect);
      if (a[0] != 0) ra = double(a[p]) / a[0];
      if (b[0] != 0 && ra != 0.0) rb = (double(b[p]) / b[0]) / ra;
    }
    float mn, mx;
    if (balance == 2) {
      const float e = m[0] - m[p];
      mn = static_cast<float>((GetLevelMin(p) - e) - (m[0] - GetLevelMin(0)) * ra * rb);
      mx = static_cast<float>((GetLevelMax(0) - m[0]) * ra * rb + (GetLevelMax(p) - e));
    } else {
      const double d = balance == 0 ? (m[0] - lo[0]) * ra * rb : double(m[p] - lo[p]);
      mn = static_cast<float>(m[p] - d * low);
      mx = UpperLevel(m[p], mn, scale, d, high);
    }
    SetLevel(p, mn, mx);
  }
}

void CImgAutoLevel::DoByMean(double low, double high, int separate, CRect* rect) {
  if (IsEmpty()) return;
  const Region r(*this, rect);
  double m, s;
  if (IsCombined(*this, separate) || GetPlanes() < 3) {
    if (MeanDeviation(*this, r, GetPlanes() < 3 ? 0 : kBright, m, s)) SetLevel(-1, m - s * low, m + s * high);
    return;
  }
  for (int p = 0; p < GetPlanes(); ++p)
    if (MeanDeviation(*this, r, p, m, s)) SetLevel(p, m - s * low, m + s * high);
}

void CImgAutoLevel::DoByMedian(double low, double high, int separate, CRect* rect) {
  if (IsEmpty()) return;
  const Region r(*this, rect);
  float m = 0;
  double s;
  if (IsCombined(*this, separate) || GetPlanes() < 3) {
    const bool combined = GetPlanes() >= 3;
    GetMedian(&m, 1, combined ? 1 : 0, 0, rect);
    // The luminance median with the deviation of the bright values: kept as it is.
    if (DeviationAbout(*this, r, combined ? kBright : 0, m, s)) SetLevel(-1, m - s * low, m + s * high);
    return;
  }
  for (int p = 0; p < GetPlanes(); ++p) {
    GetMedian(&m, 1, 0, p, rect);
    if (DeviationAbout(*this, r, p, m, s)) SetLevel(p, m - s * low, m + s * high);
  }
}

void CImgAutoLevel::DoByNormal(double low, double high, int separate, CRect* rect) {
  if (IsEmpty()) return;
  const bool combined = IsCombined(*this, separate);
  const int passes = combined ? 1 : (GetPlanes() >= 3 ? GetPlanes() : 1);
  for (int pass = 0; pass < passes; ++pass) {
    const int plane = combined ? -1 : pass;
    const NormalHistogram hist(*this, plane, rect);
    double lowOffset = hist.span * low, highOffset = hist.span * high;
    if (low > 0 && low < 1) {
      const std::int64_t limit = static_cast<std::int64_t>(hist.total * low);
      std::int64_t sum = 0;
      int i = 0;
      for (; i < kNormalBins; ++i) {
        sum += hist.bins[i] + 1;
        if (sum > limit) break;
      }
      lowOffset = i * hist.span / kNormalBins;
    }
    if (high > 0 && high < 1) {
      const std::int64_t limit = static_cast<std::int64_t>((1 - high) * hist.total);
      std::int64_t sum = 0;
      int j = kNormalBins - 1;
      for (; j >= 0; --j) {
        sum += hist.bins[j] + 1;
        if (sum > limit) break;
      }
      highOffset = (j + 1) * hist.span / kNormalBins;
    }
    SetLevel(combined || GetPlanes() < 3 ? -1 : plane, hist.min + lowOffset, hist.min + highOffset);
  }
}

// ---- Inverses --------------------------------------------------------------------------------

void CImgAutoLevel::Get(double& low, double& high, int method, CRect* rect) {
  if (method == 1) GetByMean(low, high, rect);
  else if (method == 2) GetByMedian(low, high, rect);
  else GetByNormal(low, high, rect);
}

void CImgAutoLevel::GetByMean(double& low, double& high, CRect* rect) {
  low = high = 0;
  if (IsEmpty()) return;
  double m, s;
  if (!MeanDeviation(*this, Region(*this, rect), GetPlanes() >= 3 ? kBright : 0, m, s) || !(s != 0)) return;
  low = (m - GetLevelMin(0)) / s;
  high = (GetLevelMax(0) - m) / s;
}

void CImgAutoLevel::GetByMedian(double& low, double& high, CRect* rect) {
  low = high = 0;
  if (IsEmpty()) return;
  const bool color = GetPlanes() >= 3;
  float m = 0;
  GetMedian(&m, 1, color ? 1 : 0, 0, rect);
  double s;
  if (!DeviationAbout(*this, Region(*this, rect), color ? kBright : 0, m, s) || !(s != 0)) return;
  low = (m - GetLevelMin(0)) / s;
  high = (GetLevelMax(0) - m) / s;
}

void CImgAutoLevel::GetByNormal(double& low, double& high, CRect* rect) {
  low = 0;
  high = 1;
  if (IsEmpty()) return;
  const NormalHistogram hist(*this, GetPlanes() >= 3 ? -1 : 0, rect);
  if (!(hist.span > 0)) return;  // a flat image has no percentiles to read back
  const double total = static_cast<double>(hist.total);
  const double lmin = GetLevelMin(0), lmax = GetLevelMax(0);
  if (lmin <= hist.min || lmin >= hist.max) {
    low = (lmin - hist.min) / hist.span;
  } else {
    std::int64_t prev = 0, cum = 0;
    for (int i = 0; i < kNormalBins; ++i) {
      prev = cum;
      cum += hist.bins[i] + 1;
      if (lmin < double(i) / kNormalBins * hist.span + hist.min) {
        low = (cum + prev) * 0.5 / total;
        break;
      }
    }
  }
  if (lmax >= hist.max || lmax <= hist.min) {
    high = (lmax - hist.min) / hist.span;
  } else {
    std::int64_t prev = 0, cum = 0;
    for (int j = kNormalBins - 1; j >= 1; --j) {
      prev = cum;
      cum += hist.bins[j] + 1;
      if (double(j) / kNormalBins * hist.span + hist.min < lmax) {
        high = 1 - (cum + prev) * 0.5 / total;
        break;
      }
    }
  }
}
