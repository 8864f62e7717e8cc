// Statistical normalisation: each plane moved to a given mean and standard deviation.
#include "ops/level/ImgNormalize.h"

#include <cmath>

#include "kernels/Vec4.h"
#include "ops/level/ToneRows.h"

using namespace qrn::level;

namespace {

// d[x] = f(s[x]) in double, stored as float.
template <class F>
void MapRow(const float* s, float* d, int w, const F& f) {
  for (int x = 0; x < w; ++x) d[x] = static_cast<float>(f(static_cast<double>(s[x])));
}

// The same row compiled for 256-bit vectors (without fused multiply-add: each step rounds as
// in the plain row).
template <class F>
QRN_WIDE_TARGET void MapRowWide(const float* s, float* d, int w, const F& f) {
  MapRow(s, d, w, f);
}

// Writes f(v) of every sample of a plane of src into the same plane of dst, in line order,
// `units` progress units per line.
template <class F>
void MapPlane(COrbImage& dst, const COrbImage& src, int plane, F f, int units = 1) {
  const int w = src.GetWidth();
  const bool wide = qrn::simd::WideVectors();
  for (int y = 0; y < src.GetHeight(); ++y) {
    const float* s = src.GetImageAdr(0, y, plane);
    float* d = dst.GetImageAdr(0, y, plane, 0);
    if (wide) MapRowWide(s, d, w, f);
    else MapRow(s, d, w, f);
    dst.ShowProgress(units);
  }
}

}  // namespace

void CImgNormalize::NormalizeAve(const COrbImage* src, int plane, double shift) {
  MapPlane(*this, *src, plane, [shift](double v) { return v + shift; });
}

void CImgNormalize::NormalizeSigma(const COrbImage* src, int plane, double center, double factor) {
  MapPlane(*this, *src, plane, [center, factor](double v) { return (v - center) * factor + center; });
}

void CImgNormalize::Do(COrbImage* src, float* mean, float* sigma, int progress) {
  if ((!mean && !sigma) || !src || !SameGeometry(*this, *src)) return;
  const int planes = src->GetPlanes(), w = src->GetWidth(), h = src->GetHeight();
  const double count = static_cast<double>(w) * h;
  ShowProgressInit(progress, 6197, planes * h * (mean && sigma ? 3 : 2));
  for (int p = 0; p < planes; ++p) {
    double sum = 0.0, squares = 0.0;
    for (int y = 0; y < h; ++y) {
      const float* s = src->GetImageAdr(0, y, p);
      for (int x = 0; x < w; ++x) {
        const double v = s[x];
        sum += v;
        squares += v * v;
      }
      ShowProgress(1);
    }
    const double mu = sum / count;
    // Rounding can leave a constant plane's variance slightly negative.
    const double sd = std::sqrt(std::fmax(squares / count - mu * mu, 0.0));
    const double factor = sigma && sd > 0.0 ? sigma[p] / sd : 1.0;
    if (mean && sigma) {
      // The shift, stored as float, then the scaling: both steps on each sample in one pass,
      // which gives the bits of the two passes one after the other.
      const double shift = mean[p] - mu, center = mean[p];
      MapPlane(*this, *src, p, [shift, center, factor](double v) {
        return (static_cast<double>(static_cast<float>(v + shift)) - center) * factor + center;
      }, 2);
    } else if (mean) {
      NormalizeAve(src, p, mean[p] - mu);
    } else {
      NormalizeSigma(src, p, mu, factor);
    }
  }
  ShowProgressEnd(nullptr);
}
