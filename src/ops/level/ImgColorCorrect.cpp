// Colour correction: the three planes mixed through a 3 × 3 matrix about a black point.
#include "ops/level/ImgColorCorrect.h"

#include <algorithm>
#include <limits>
#include <vector>

#include "ops/level/ToneRows.h"

using namespace qrn::level;

namespace {

// The constants of one call, per plane k (and the matrix row-major).
struct Mix {
  double m[9], srcMin[3], srcScale[3], dstMin[3], dstScale[3], b[3], s;
};

// The stored value: the corrected one at full strength (where the blend's 0·v would turn an
// infinite sample into NaN and −0 into +0), the blend with the source value below it.
template <bool full>
inline double Blend(const Mix& c, double v, double corrected) {
  if constexpr (full) return corrected;
  return (1.0 - c.s) * v + c.s * corrected;
}

// One line of the three planes. The tests are written as selects so that the loop has no
// branches and the compiler can run it on vectors of doubles; the arithmetic is that of the
// per-pixel rule in the same order.
template <bool keepBright, bool clipBlack, bool full>
void MixRow(const Mix& k, const float* const* in, float* const* out, int n) {
  const Mix c = k;  // local constants: the stores below cannot reach them
  const float *r = in[0], *g = in[1], *bl = in[2];
  float *o0 = out[0], *o1 = out[1], *o2 = out[2];
  // The iterations are independent (a line rewritten in place reads each sample before
  // writing it), which lets the compiler use vectors despite the six line pointers.
#pragma omp simd
  for (int x = 0; x < n; ++x) {
    const double v0 = r[x], v1 = g[x], v2 = bl[x];
    const double t0 = (v0 - c.srcMin[0]) * c.srcScale[0] - c.b[0];
    const double t1 = (v1 - c.srcMin[1]) * c.srcScale[1] - c.b[1];
    const double t2 = (v2 - c.srcMin[2]) * c.srcScale[2] - c.b[2];
    double c0 = c.m[0] * t0 + c.m[1] * t1 + c.m[2] * t2;
    double c1 = c.m[3] * t0 + c.m[4] * t1 + c.m[5] * t2;
    double c2 = c.m[6] * t0 + c.m[7] * t1 + c.m[8] * t2;
    if constexpr (keepBright) {
      const double before = CImgColorCorrect::CalcBright(t0, t1, t2);
      const double after = CImgColorCorrect::CalcBright(c0, c1, c2);
      // A zero bright value leaves c alone; multiplying by exactly 1 does the same.
      const double quotient = before / after;
      const double ratio = after != 0.0 ? quotient : 1.0;
      c0 *= ratio;
      c1 *= ratio;
      c2 *= ratio;
    }
    if constexpr (clipBlack) {
      c0 = c0 < 0.0 ? 0.0 : c0;
      c1 = c1 < 0.0 ? 0.0 : c1;
      c2 = c2 < 0.0 ? 0.0 : c2;
    }
    o0[x] = static_cast<float>(Blend<full>(c, v0, (c0 + c.b[0]) * c.dstScale[0] + c.dstMin[0]));
    o1[x] = static_cast<float>(Blend<full>(c, v1, (c1 + c.b[1]) * c.dstScale[1] + c.dstMin[1]));
    o2[x] = static_cast<float>(Blend<full>(c, v2, (c2 + c.b[2]) * c.dstScale[2] + c.dstMin[2]));
  }
}

// The same row compiled for 256-bit vectors: four doubles a step.
template <bool keepBright, bool clipBlack, bool full>
QRN_WIDE_TARGET void MixRowWide(const Mix& k, const float* const* in, float* const* out, int n) {
  MixRow<keepBright, clipBlack, full>(k, in, out, n);
}

using MixRowFn = void (*)(const Mix&, const float* const*, float* const*, int);

template <bool keepBright, bool clipBlack>
MixRowFn MixRowFor(bool wide, bool full) {
  if (full) return wide ? &MixRowWide<keepBright, clipBlack, true> : &MixRow<keepBright, clipBlack, true>;
  return wide ? &MixRowWide<keepBright, clipBlack, false> : &MixRow<keepBright, clipBlack, false>;
}

}  // namespace

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
  const Mix mix{{m[0], m[1], m[2], m[3], m[4], m[5], m[6], m[7], m[8]},
                {srcMin[0], srcMin[1], srcMin[2]},
                {srcScale[0], srcScale[1], srcScale[2]},
                {dstMin[0], dstMin[1], dstMin[2]},
                {dstScale[0], dstScale[1], dstScale[2]},
                {b[0], b[1], b[2]},
                s};
  // The options and the strength are fixed for the call, so each combination gets its own
  // branch-free row.
  const bool wide = qrn::simd::WideVectors(), full = s == 1.0;
  const MixRowFn row =
      (option & kKeepBright)
          ? ((option & kClipBlack) ? MixRowFor<true, true>(wide, full) : MixRowFor<true, false>(wide, full))
          : ((option & kClipBlack) ? MixRowFor<false, true>(wide, full) : MixRowFor<false, false>(wide, full));
  ForEachRgbRow(*this, *src, r, [&](const float* const* in, float* const* out, int n) {
    if (s == 0.0) {
      for (int k = 0; k < 3; ++k) CopyRow(in[k], out[k], n);
      return;
    }
    row(mix, in, out, n);
  });
  ShowProgressEnd(nullptr);
  return 1;
}
