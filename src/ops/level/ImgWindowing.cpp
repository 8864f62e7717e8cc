// Windowing: a radial taper about the image centre, as used before a Fourier transform.
#include "ops/level/ImgWindowing.h"

#include <cmath>
#include <numbers>
#include <vector>

#include "kernels/Vec4.h"
#include "ops/level/ToneRows.h"

using namespace qrn::level;

namespace {

// The taper's weight at offsets dx, dy from the centre.
inline double Weight(double dx, double dy, double radius) {
  const double r = std::sqrt(dx * dx + dy * dy);
  return r < radius ? 0.5 * std::cos(std::numbers::pi * r / radius) + 0.5 : 0.0;
}

// The weights of a row dy from the centre into weight[0, w). A column left of the centre has
// the weight of its mirror 2·cx − x: both offsets are exact and opposite, so their distances
// are the same bit for bit, and only the columns from the centre rightwards take a cosine.
void TaperRow(int w, int cx, double dy, double radius, double* weight) {
  for (int x = cx; x < w; ++x) weight[x] = Weight(x - cx, dy, radius);
  for (int x = 0; x < cx; ++x) weight[x] = 2 * cx - x < w ? weight[2 * cx - x] : Weight(x - cx, dy, radius);
}

// d = s · weight in double, stored as float.
void ApplyRow(const float* s, const double* weight, float* d, int w) {
  for (int x = 0; x < w; ++x) d[x] = static_cast<float>(s[x] * weight[x]);
}

QRN_WIDE_TARGET void ApplyRowWide(const float* s, const double* weight, float* d, int w) { ApplyRow(s, weight, d, w); }

}  // namespace

int CImgWindowing::Do(int type, double radius, COrbImage* src, int progress) {
  if (!src || !SameGeometry(*this, *src)) return 1;
  const int w = src->GetWidth(), h = src->GetHeight(), cx = w / 2, cy = h / 2, planes = GetPlanes();
  const bool wide = qrn::simd::WideVectors();
  ShowProgressInit(progress, 6191, h * planes);
  // Rows y and 2·cy − y lie at the same distance from the centre and share their weights, so
  // one pass handles both: the rows from the top to the centre, each with its mirror below.
  CLineLoop(*this).Run(0, h > 0 ? cy + 1 : 0, [&](int y) {
    thread_local std::vector<double> weight;
    weight.resize(static_cast<std::size_t>(w));
    if (type == 0) TaperRow(w, cx, y - cy, radius, weight.data());
    else std::fill(weight.begin(), weight.end(), 1.0);
    const int mirror = 2 * cy - y;
    const int rows = mirror != y && mirror < h ? 2 : 1;
    for (int i = 0; i < rows; ++i) {
      const int line = i == 0 ? y : mirror;
      if (line >= h) continue;
      for (int p = 0; p < planes; ++p) {
        const float* s = src->GetImageAdr(0, line, p);
        float* d = GetImageAdr(0, line, p, 0);
        if (wide) ApplyRowWide(s, weight.data(), d, w);
        else ApplyRow(s, weight.data(), d, w);
      }
    }
    // The loop reports one unit per pass; the others of these rows and planes follow here.
    const int units = rows * planes - 1;
    if (units > 0) ShowProgress(units);
  });
  ShowProgressEnd(nullptr);
  return 1;
}
