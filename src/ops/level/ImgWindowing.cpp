// Windowing: a radial taper about the image centre, as used before a Fourier transform.
#include "ops/level/ImgWindowing.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <vector>

#include "kernels/Vec4.h"
#include "kernels/VecLogExp.h"
#include "ops/level/ToneRows.h"

using namespace qrn::level;

namespace {

using namespace qrn::vmath;

// The taper's weight at offsets dx, dy from the centre.
inline double Weight(double dx, double dy, double radius) {
  const double r = std::sqrt(dx * dx + dy * dy);
  return r < radius ? 0.5 * std::cos(std::numbers::pi * r / radius) + 0.5 : 0.0;
}

// One row's taper: dy from the centre column cx. Columns [inside, insideEnd) lie within the
// radius; their weights come from a series and differ from Weight()'s by a few units, so
// each product is checked before it is stored. The others weigh exactly 0.
struct RowTaper {
  int cx;
  double dy, radius;
  int inside, insideEnd;
};

// cos(π·√z) for 0 ≤ z ≤ 1, where z = (r/radius)²: the Taylor series of cos is even, so at
// π·√z it is a power series in z, and the taper needs neither a root nor a range reduction.
// The coefficients are (−1)^n·π^(2n)/(2n)! for n = 0..14, rounded to double; the terms left
// out are below 2^-58 for z ≤ 1.
constexpr double kCosPiRoot[] = {0x1.0000000000000p+0,  -0x1.3bd3cc9be45dep+2, 0x1.03c1f081b5ac4p+2,
                                 -0x1.55d3c7e3cbffap+0, 0x1.e1f506891babbp-3,  -0x1.a6d1f2a204a8cp-6,
                                 0x1.f9d38a3763cc3p-10, -0x1.b6e24f44b128fp-14, 0x1.20c62c2f2d7f5p-18,
                                 -0x1.2a0c591af8314p-23, 0x1.ef6e308d6d1c4p-29, -0x1.52ae4120fde27p-34,
                                 0x1.838d8f4321800p-40, -0x1.789d662bb5482p-46, 0x1.3aab85bac2365p-52};
constexpr int kSeriesTerms = sizeof kCosPiRoot / sizeof kCosPiRoot[0];

// Bound on the distance of the series' cosine from std::cos(π·r/radius), absolute, in units
// of 2^-53; Σ|a_n|·z^n ≤ cosh π < 11.6 for z ≤ 1:
//  - Horner's roundings, two per step without fused steps: 28 units times that sum;
//  - the coefficients' roundings: one unit times the same sum;
//  - z's three roundings, through the slope of cos(π√z) times z (below π/2): 5 units;
//  - the reference's argument π·r/radius, off by its three roundings and π's own (10.6 units
//    of the argument, taken through a slope of at most 1);
//  - std::cos's error and the series' truncation: 2 units.
constexpr double kSeriesError = (29 * 11.6 + 5 + 10.6 + 2) * 0x1p-53;

// Bound on the distance of s·weight from the product with Weight()'s weight, per unit of
// |s|: half of the cosine's distance, then the weight's two roundings and the product's two;
// all taken four times over.
constexpr double kProductError = 4 * (0.5 * kSeriesError + 0x1p-53 + 0x1p-52);

// The first column offset at or beyond the radius: the distance grows with |dx|, so a
// binary search over the exact distances finds it.
int OutsideOffset(int maxOffset, double dy, double radius) {
  int lo = 0, hi = maxOffset;  // the answer lies in [lo, hi]
  while (lo < hi) {
    const int mid = lo + (hi - lo) / 2;
    if (std::sqrt(double(mid) * mid + dy * dy) < radius) lo = mid + 1;
    else hi = mid;
  }
  return lo;
}

// Vectors of four columns taken together in RightHalf, so that their series overlap.
constexpr int kGroup = 4;

// The weights of N vectors of four columns from x on, through the series.
template <int N>
inline void SeriesWeights(int x, int cx, const D4& dy2, const D4& inverseRadius2, double* weight) {
  D4 z[N], c[N];
  for (int j = 0; j < N; ++j) {
    const double dx0 = x + 4 * j - cx;
    const D4 dx = D4{dx0, dx0 + 1, dx0 + 2, dx0 + 3};
    z[j] = (dx * dx + dy2) * inverseRadius2;  // the squares and their sum are exact integers
    c[j] = Splat(kCosPiRoot[kSeriesTerms - 1]);
  }
  for (int n = kSeriesTerms - 2; n >= 0; --n)
    for (int j = 0; j < N; ++j) c[j] = c[j] * z[j] + Splat(kCosPiRoot[n]);
  for (int j = 0; j < N; ++j) {
    const D4 taper = Splat(0.5) * c[j] + Splat(0.5);
    std::memcpy(weight + x + 4 * j, &taper, sizeof taper);
  }
}

// The weights of the columns from the centre rightwards: those inside the radius through the
// series, four columns at a time, the last few through Weight(); 0 beyond. A series runs
// only where four columns lie inside, so the radius is above 1 there and 1/radius² is
// finite.
void RightHalf(int w, const RowTaper& t, double* weight) {
  const int begin = std::max(t.cx, t.inside), end = t.insideEnd;
  std::fill(weight + t.cx, weight + begin, 0.0);
  const D4 dy2 = Splat(t.dy * t.dy), inverseRadius2 = Splat(1.0 / (t.radius * t.radius));
  int x = begin;
  for (; x + 4 * kGroup <= end; x += 4 * kGroup) SeriesWeights<kGroup>(x, t.cx, dy2, inverseRadius2, weight);
  for (; x + 4 <= end; x += 4) SeriesWeights<1>(x, t.cx, dy2, inverseRadius2, weight);
  for (; x < end; ++x) weight[x] = Weight(x - t.cx, t.dy, t.radius);
  std::fill(weight + std::max(begin, end), weight + w, 0.0);
}

// The weights of a row into weight[0, w). A column left of the centre has the weight of its
// mirror 2·cx − x: both offsets are exact and opposite, so their distances are the same bit
// for bit, and only the columns from the centre rightwards take a cosine.
void TaperRow(int w, const RowTaper& t, double* weight) {
  RightHalf(w, t, weight);
  const int cx = t.cx;
  // Columns whose mirror lies beyond the row (column 0 of an even width) take their own.
  const int firstMirrored = std::max(0, 2 * cx - w + 1);
  for (int x = 0; x < firstMirrored; ++x) weight[x] = Weight(x - cx, t.dy, t.radius);
  int x = firstMirrored;
  for (; x + 4 <= cx; x += 4) {
    D4 mirror;
    std::memcpy(&mirror, weight + 2 * cx - x - 3, sizeof mirror);
    const D4 reversed = __builtin_shufflevector(mirror, mirror, 3, 2, 1, 0);
    std::memcpy(weight + x, &reversed, sizeof reversed);
  }
  for (; x < cx; ++x) weight[x] = weight[2 * cx - x];
}

// d = s · weight in double, stored as float, for exact weights.
void ExactProducts(const float* s, const double* weight, float* d, int from, int to) {
  for (int x = from; x < to; ++x) d[x] = static_cast<float>(s[x] * weight[x]);
}

// The same for the vector weights: a product whose float the bound cannot decide is
// recomputed with Weight().
void CheckedProducts(const float* s, const double* weight, float* d, const RowTaper& t) {
  int x = t.inside;
  for (; x + 4 <= t.insideEnd; x += 4) {
    Vec4f::Raw in;
    std::memcpy(&in, s + x, sizeof in);
    D4 wt;
    std::memcpy(&wt, weight + x, sizeof wt);
    const D4 sample = ToDouble(Vec4f(in)).v;
    const D4 product = sample * wt, margin = Abs(sample) * kProductError;
    const Vec4f::Raw lo = __builtin_convertvector(product - margin, Vec4f::Raw);
    const Vec4f::Raw hi = __builtin_convertvector(product + margin, Vec4f::Raw);
    // Bits, not values, must agree: +0 and −0 compare equal.
    const Vec4f::Mask same = (Vec4f::Mask)lo == (Vec4f::Mask)hi;
    std::memcpy(d + x, &lo, sizeof lo);
    if (AllLanes(same)) continue;
    for (int j = 0; j < 4; ++j)
      if (!same[j]) d[x + j] = static_cast<float>(in[j] * Weight(x + j - t.cx, t.dy, t.radius));
  }
  for (; x < t.insideEnd; ++x) d[x] = static_cast<float>(s[x] * Weight(x - t.cx, t.dy, t.radius));
}

void ApplyRow(const float* s, const double* weight, float* d, int w, const RowTaper& t) {
  ExactProducts(s, weight, d, 0, t.inside);
  CheckedProducts(s, weight, d, t);
  ExactProducts(s, weight, d, t.insideEnd, w);
}

QRN_WIDE_TARGET void TaperRowWide(int w, const RowTaper& t, double* weight) { TaperRow(w, t, weight); }

// The series' bound holds however its steps round, so fused steps may take them.
QRN_WIDE_FMA_TARGET void TaperRowFma(int w, const RowTaper& t, double* weight) { TaperRow(w, t, weight); }

QRN_WIDE_TARGET void ApplyRowWide(const float* s, const double* weight, float* d, int w, const RowTaper& t) {
  ApplyRow(s, weight, d, w, t);
}

}  // namespace

int CImgWindowing::Do(int type, double radius, COrbImage* src, int progress) {
  if (!src || !SameGeometry(*this, *src)) return 1;
  const int w = src->GetWidth(), h = src->GetHeight(), cx = w / 2, cy = h / 2, planes = GetPlanes();
  const bool wide = qrn::simd::WideVectors(), fused = qrn::simd::FusedMultiplyAdd();
  ShowProgressInit(progress, 6191, h * planes);
  // Rows y and 2·cy − y lie at the same distance from the centre and share their weights, so
  // one pass handles both: the rows from the top to the centre, each with its mirror below.
  CLineLoop(*this).Run(0, h > 0 ? cy + 1 : 0, [&](int y) {
    thread_local std::vector<double> weight;
    weight.resize(static_cast<std::size_t>(w));
    RowTaper taper{cx, double(y - cy), radius, 0, 0};
    if (type == 0) {
      const int outside = OutsideOffset(w - cx, taper.dy, radius);
      taper.inside = std::max(0, cx - outside + 1);
      taper.insideEnd = std::max(taper.inside, cx + outside);
      if (fused) TaperRowFma(w, taper, weight.data());
      else if (wide) TaperRowWide(w, taper, weight.data());
      else TaperRow(w, taper, weight.data());
    } else {
      std::fill(weight.begin(), weight.end(), 1.0);
    }
    const int mirror = 2 * cy - y;
    const int rows = mirror != y && mirror < h ? 2 : 1;
    for (int i = 0; i < rows; ++i) {
      const int line = i == 0 ? y : mirror;
      if (line >= h) continue;
      for (int p = 0; p < planes; ++p) {
        const float* s = src->GetImageAdr(0, line, p);
        float* d = GetImageAdr(0, line, p, 0);
        if (wide) ApplyRowWide(s, weight.data(), d, w, taper);
        else ApplyRow(s, weight.data(), d, w, taper);
      }
    }
    // The loop reports one unit per pass; the others of these rows and planes follow here.
    const int units = rows * planes - 1;
    if (units > 0) ShowProgress(units);
  });
  ShowProgressEnd(nullptr);
  return 1;
}
