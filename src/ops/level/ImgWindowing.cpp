// Windowing: a radial taper about the image centre, as used before a Fourier transform.
#include "ops/level/ImgWindowing.h"

#include <cmath>
#include <numbers>

#include "ops/level/ToneRows.h"

using namespace qrn::level;

int CImgWindowing::Do(int type, double radius, COrbImage* src, int progress) {
  if (!src || !SameGeometry(*this, *src)) return 1;
  const int w = src->GetWidth(), h = src->GetHeight(), cx = w / 2, cy = h / 2;
  ShowProgressInit(progress, 6191, h * GetPlanes());
  CLineLoop(*this).RunPlanes(GetPlanes(), 0, h, [&](int p, int y) {
    const float* s = src->GetImageAdr(0, y, p);
    float* d = GetImageAdr(0, y, p, 0);
    const double dy = y - cy;
    for (int x = 0; x < w; ++x) {
      double weight = 1.0;
      if (type == 0) {
        const double dx = x - cx, r = std::sqrt(dx * dx + dy * dy);
        weight = r < radius ? 0.5 * std::cos(std::numbers::pi * r / radius) + 0.5 : 0.0;
      }
      d[x] = static_cast<float>(s[x] * weight);
    }
  });
  ShowProgressEnd(nullptr);
  return 1;
}
