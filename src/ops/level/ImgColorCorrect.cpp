// Colour correction: the three planes mixed through a 3 × 3 matrix about a black point.
#include "ops/level/ImgColorCorrect.h"

#include <algorithm>
#include <limits>
#include <vector>

#include "ops/level/ToneRows.h"

using namespace qrn::level;

int CImgColorCorrect::Do(tagMATRIX* matrix, double strength, int blackMode, float black, int option, int progress) {
  if (strength == 0.0) return 1;
  return Do(matrix, strength, blackMode, black, option, this, nullptr, progress);
}

int CImgColorCorrect::Do(tagMATRIX* matrix, double strength, int blackMode, float black, int option, COrbImage* src,
                         CRect* rect, int progress) {
  if (!matrix || blackMode < 0 || blackMode > 2 || GetPlanes() != 3) return 0;
  if (!src || !SameGeometry(*this, *src)) return 0;
  for (int k = 0; k < 3; ++k)
    if (src->GetLevelRange(k) == 0.0 || GetLevelRange(k) == 0.0) return 0;
  const Region r = SourceRegion(*this, src, rect);
  const double s = strength > 0.0 ? std::min(strength, 1.0) : 0.0;
  const int h = src->GetHeight(), w = src->GetWidth();
  ShowProgressInit(progress, 6179, r.Height() + (blackMode == 1 ? h : 0));

  double blackRaw = blackMode == 2 ? black : 0.0;
  if (blackMode == 1) {
    // Each line's minimum over the three planes, combined in line order after the region.
    std::vector<double> lineMin(static_cast<std::size_t>(h), std::numeric_limits<double>::max());
    CLineLoop(*this).Run(0, h, [&](int y) {
      for (int k = 0; k < 3; ++k) {
        const float* line = src->GetImageAdr(0, y, k);
        for (int x = 0; x < w; ++x) lineMin[y] = std::min(lineMin[y], static_cast<double>(line[x]));
      }
    });
    blackRaw = *std::min_element(lineMin.begin(), lineMin.end());
  }

  const double m[9] = {matrix->m0, matrix->m1, matrix->m2, matrix->m3, matrix->m4,
                       matrix->m5, matrix->m6, matrix->m7, matrix->m8};
  double srcMin[3], srcScale[3], dstMin[3], dstScale[3], b[3];
  for (int k = 0; k < 3; ++k) {
    srcMin[k] = src->GetLevelMin(k);
    srcScale[k] = 255.0 / src->GetLevelRange(k);
    dstMin[k] = GetLevelMin(k);
    dstScale[k] = GetLevelRange(k) / 255.0;
    b[k] = (blackRaw - srcMin[k]) * srcScale[k];
  }
  ForEachRgbRow(*this, *src, r, [&](const float* const* in, float* const* out, int n) {
    if (s == 0.0) {
      for (int k = 0; k < 3; ++k) CopyRow(in[k], out[k], n);
      return;
    }
    for (int x = 0; x < n; ++x) {
      double v[3], t[3], c[3];
      for (int k = 0; k < 3; ++k) {
        v[k] = in[k][x];
        t[k] = (v[k] - srcMin[k]) * srcScale[k] - b[k];
      }
      for (int i = 0; i < 3; ++i) c[i] = m[3 * i] * t[0] + m[3 * i + 1] * t[1] + m[3 * i + 2] * t[2];
      if (option & kKeepBright) {
        const double before = CalcBright(t[0], t[1], t[2]), after = CalcBright(c[0], c[1], c[2]);
        if (after != 0.0)
          for (double& ci : c) ci *= before / after;
      }
      for (int i = 0; i < 3; ++i) {
        if ((option & kClipBlack) && c[i] < 0.0) c[i] = 0.0;
        const double corrected = (c[i] + b[i]) * dstScale[i] + dstMin[i];
        out[i][x] = static_cast<float>((1.0 - s) * v[i] + s * corrected);
      }
    }
  });
  ShowProgressEnd(nullptr);
  return 1;
}
