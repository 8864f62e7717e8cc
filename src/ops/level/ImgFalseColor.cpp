// False colour: a brightness mapped through one of six colour maps.
#include "ops/level/ImgFalseColor.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "ops/level/ToneRows.h"

using namespace qrn::level;

namespace {

double Unit(double v) { return std::clamp(v, 0.0, 1.0); }

// Fully saturated colour of hue h in degrees [0, 360).
void Hue(double h, double* c) {
  const double sector = h / 60.0;
  const int i = std::clamp(static_cast<int>(sector), 0, 5);
  const double f = sector - i;
  const double rgb[6][3] = {{1, f, 0}, {1 - f, 1, 0}, {0, 1, f}, {0, 1 - f, 1}, {f, 0, 1}, {1, 0, 1 - f}};
  for (int k = 0; k < 3; ++k) c[k] = rgb[i][k];
}

// The colour map of f in [0, 1], components in [0, 1].
void ColorMap(int scheme, double f, double* c) {
  switch (scheme) {
    case 0:
      Hue((1.0 - f) * 240.0, c);
      return;
    case 1:
      c[0] = Unit(3 * f), c[1] = Unit(3 * f - 1), c[2] = Unit(3 * f - 2);
      return;
    case 2:
      c[0] = Unit(3 * f - 2), c[1] = Unit(3 * f - 1), c[2] = Unit(3 * f);
      return;
    case 3:
      c[0] = Unit(1.5 - std::fabs(4 * f - 3)), c[1] = Unit(1.5 - std::fabs(4 * f - 2)),
      c[2] = Unit(1.5 - std::fabs(4 * f - 1));
      return;
    case 4:
      if (f < 0.5)
        c[0] = c[1] = 2 * f, c[2] = 1;
      else
        c[0] = 1, c[1] = c[2] = 2 * (1 - f);
      return;
    case 5: {
      // Start 0.5, rotations −1.5, hue 1, gamma 1.
      const double amp = f * (1 - f) / 2, phi = 2 * std::numbers::pi * (0.5 / 3 - 1.5 * f);
      const double cs = std::cos(phi), sn = std::sin(phi);
      c[0] = Unit(f + amp * (-0.14861 * cs + 1.78277 * sn));
      c[1] = Unit(f + amp * (-0.29227 * cs - 0.90649 * sn));
      c[2] = Unit(f + amp * (1.97294 * cs));
      return;
    }
    default:
      c[0] = c[1] = c[2] = f;
  }
}

}  // namespace

void CImgFalseColor::GetFalseColor(double v, int scheme, int cycles, double* r, double* g, double* b) {
  v = std::clamp(std::isnan(v) ? 0.0 : v, 0.0, 255.0);
  if (cycles > 0) v = std::clamp(std::fmod(cycles * v, 256.0), 0.0, 255.0);
  double c[3];
  ColorMap(scheme, v / 255.0, c);
  *r = c[0] * 255.0;
  *g = c[1] * 255.0;
  *b = c[2] * 255.0;
}

void CImgFalseColor::Do(double low, double high, int scheme, int cycles, COrbImage* src, CRect* rect, int progress) {
  if (!src || src->IsEmpty() || IsEmpty() || src->GetWidth() != GetWidth() || src->GetHeight() != GetHeight()) return;
  const int srcPlanes = src->GetPlanes();
  float srcMin[kMaxPlanes], srcScale[kMaxPlanes];
  for (int k = 0; k < srcPlanes; ++k) {
    if (src->GetLevelRange(k) == 0.0) return;
    srcMin[k] = static_cast<float>(src->GetLevelMin(k));
    srcScale[k] = static_cast<float>(255.0 / src->GetLevelRange(k));
  }
  if (GetPlanes() < 3) {
    const double min = GetLevelMin(0), max = GetLevelMax(0);
    if (!ChangePlanes(3)) return;
    for (int k = 0; k < 3; ++k) SetLevel(k, min, max);
  }
  if (!(high > low)) low = 0.0, high = 255.0;
  const double stretch = 255.0 / (high - low);
  Region r;
  NormalizeRect(rect, r.left, r.top, r.right, r.bottom);
  if (r.IsEmpty()) return;
  ShowProgressInit(progress, 6117, r.Height());
  ForEachRgbRow(*this, *src, r, [&](const float* const* in, float* const* out, int n) {
    for (int x = 0; x < n; ++x) {
      const float t = srcPlanes == 3
                          ? CalcBright((in[0][x] - srcMin[0]) * srcScale[0], (in[1][x] - srcMin[1]) * srcScale[1],
                                       (in[2][x] - srcMin[2]) * srcScale[2])
                          : (in[0][x] - srcMin[0]) * srcScale[0];
      double c[3];
      GetFalseColor((t - low) * stretch, scheme, cycles, &c[0], &c[1], &c[2]);
      for (int k = 0; k < 3; ++k) out[k][x] = static_cast<float>(c[k] / 255.0 * GetLevelRange(k) + GetLevelMin(k));
    }
  });
  ShowProgressEnd(nullptr);
}
