// The L*a*b* enhancement's vector row, written once for any vector width and compiled by each
// file that runs it on one instruction set.
#pragma once

#include <cstring>

#include "core/Color.h"
#include "kernels/VecCbrt.h"
#include "kernels/VecLogExp.h"
#include "ops/level/LabEnhancer.h"

namespace qrn::lab {

// The colour model's constants as the mapping uses them.
constexpr double kWhite = CColor::kWhite;
// x, y and z (divided by the white) of a linear colour.
constexpr double kToXyz[3][3] = {{2.7689 / kWhite, 1.7517 / kWhite, 1.1302 / kWhite},
                                 {1.0 / kWhite, 4.5907 / kWhite, 0.0601 / kWhite},
                                 {0.0, 0.0565 / kWhite, 5.5943 / kWhite}};
// The inverse: blue, green and red of x, y and z (times the white). CColor solves blue, then
// green from blue, then red from both; composed into one matrix, the rounding of blue does
// not reach green 99-fold.
constexpr double kBlueOf[3] = {kWhite * 0.0565 / CColor::kSolveDivisor, -2.7689 * kWhite * 0.0565 / CColor::kSolveDivisor,
                               -kWhite * CColor::kSolveFactor / CColor::kSolveDivisor};
constexpr double kGreenOf[3] = {-5.5943 / 0.0565 * kBlueOf[0], -5.5943 / 0.0565 * kBlueOf[1],
                                kWhite / 0.0565 - 5.5943 / 0.0565 * kBlueOf[2]};
constexpr double kRedOf[3] = {-4.5907 * kGreenOf[0] - 0.0601 * kBlueOf[0],
                              kWhite - 4.5907 * kGreenOf[1] - 0.0601 * kBlueOf[1],
                              -4.5907 * kGreenOf[2] - 0.0601 * kBlueOf[2]};
constexpr const double (*kToRgb[3])[3] = {&kRedOf, &kGreenOf, &kBlueOf};
// The threshold of the cube on the way back: ∛epsilon as std::pow gives it.
constexpr double kExpandThreshold = 0.20689303442296383;
// The vector steps' range: colours within ±2^100 on the 0..255 scale keep the gamma's power
// and the cube roots inside that of the vector functions; a linear mean below 2^900 keeps
// the inverse gamma's.
constexpr double kMaxColour = 0x1p100, kMaxLinearMean = 0x1p900;

struct Mapping {
  const CLabEnhancer::Levels& levels;
  double cs, sn, aShift, bShift;
  // fx' = fy + cs·(fx − fy) − ⅖ sn·(fy − fz) + aShift/500 and
  // fz' = fy − 5⁄2 sn·(fx − fy) − cs·(fy − fz) − bShift/200: the chroma turned, scaled and
  // shifted, with a* = 500(fx − fy) and b* = 200(fy − fz) taken there and back.
  double snToX, aOffset, snToZ, bOffset;
};

/// CColor's conversion of one pixel, for pixels outside the vector functions' range. Out of
/// line, in the baseline file, so that no row's code generation can change how its steps
/// round.
void ThroughColor(const Mapping& mp, const float (&in)[3], float (&out)[3]);

/// One pixel through the four-lane steps, in every lane of a vector; returns 1 when it went
/// through CColor. In the baseline file, for the last pixels of every row.
int MapPixel(const Mapping& mp, const float (&in)[3], float (&out)[3]);

/// The row on 512-bit vectors, eight pixels a vector, compiled in a file of its own for that
/// instruction set. Call it only when qrn::simd::WidestVectors() is true.
int RowWidest(const Mapping& mp, const float* const* in, float* const* out, int n);

// The row's templates live in the variant namespace of the vector functions, so that a file
// compiled for another instruction set makes copies of its own and never shares them.
inline namespace QRN_VMATH_VARIANT {

using namespace qrn::vmath;

template <class D>
inline D Row3(const double (&w)[3], const D& a, const D& b, const D& c) {
  return w[0] * a + w[1] * b + w[2] * c;
}

// The colour model's gamma factors of N vectors: m^c from the floor up, 1 below it.
template <class D, int N>
inline void GammaFactors(const D (&m)[N], double c, D (&f)[N]) {
  D t[N], power[N];
  Log(m, t);
  for (int j = 0; j < N; ++j) t[j] *= c;
  Exp(t, power);
  for (int j = 0; j < N; ++j) f[j] = m[j] >= CColor::kGammaFloor ? power[j] : Splat<D>(1.0);
}

// The L*a*b* companding of N vectors t: the cube root above epsilon, the linear segment below.
template <class D, int N>
inline void Compand(const D (&t)[N], D (&f)[N]) {
  D root[N];
  Cbrt(t, root);
  for (int j = 0; j < N; ++j)
    f[j] = t[j] > CColor::kEpsilon ? root[j] : CColor::kLinearFactor * t[j] + CColor::kOffset;
}

// Its inverse for fx and fz: the cube above the threshold, the linear segment below.
template <class D>
inline D Expand(const D& f) {
  return f > kExpandThreshold ? f * f * f : (f - CColor::kOffset) * (1.0 / CColor::kLinearFactor);
}

// The mapping of N vectors of W pixels: `in` and `out` hold red, green and blue samples;
// `inRange` marks the lanes that stayed inside the vector functions' range.
template <int W, int N>
inline void Enhance(const Mapping& mp, const typename Lanes<W>::F (&in)[N][3], typename Lanes<W>::F (&out)[N][3],
                    LaneMask<W> (&inRange)[N]) {
  using D = typename Lanes<W>::D;
  using F = typename Lanes<W>::F;
  const CLabEnhancer::Levels& lv = mp.levels;
  D colour[N][3], mean[N], f[N];
  for (int j = 0; j < N; ++j) {
    inRange[j] = SplatInt<D>(-1);
    for (int k = 0; k < 3; ++k) {
      colour[j][k] = (Convert<D>(in[j][k]) - lv.srcMin[k]) * lv.srcScale[k];
      inRange[j] &= Abs(colour[j][k]) <= kMaxColour;
    }
    mean[j] = (colour[j][0] + colour[j][1] + colour[j][2]) * (1.0 / 3.0);
  }
  // Into L*a*b*: the gamma factor, x, y and z, and their companded values fx, fy and fz.
  GammaFactors(mean, CColor::kGamma, f);
  D xyz[3 * N], companded[3 * N];
  for (int j = 0; j < N; ++j)
    for (int row = 0; row < 3; ++row)
      xyz[3 * j + row] = f[j] * Row3(kToXyz[row], colour[j][0], colour[j][1], colour[j][2]);
  Compand(xyz, companded);
  // Back, with L* and so y and fy unchanged: x and z from the new a* and b*, then linear RGB
  // clipped at zero.
  D rgb[N][3];
  for (int j = 0; j < N; ++j) {
    const D &fx = companded[3 * j], &fy = companded[3 * j + 1], &fz = companded[3 * j + 2];
    const D dx = fx - fy, dz = fy - fz;
    const D x = Expand(fy + mp.cs * dx - mp.snToX * dz + mp.aOffset);
    const D z = Expand(fy - mp.snToZ * dx - mp.cs * dz - mp.bOffset);
    for (int k = 0; k < 3; ++k) {
      const D v = Row3(*kToRgb[k], x, xyz[3 * j + 1], z);
      rgb[j][k] = v < 0.0 ? D{} : v;
    }
    mean[j] = (rgb[j][0] + rgb[j][1] + rgb[j][2]) * (1.0 / 3.0);
    inRange[j] &= mean[j] <= kMaxLinearMean;
  }
  // Out of linear RGB: the inverse gamma, then onto the target's level windows.
  GammaFactors(mean, CColor::kGammaInverse, f);
  for (int j = 0; j < N; ++j)
    for (int k = 0; k < 3; ++k) {
      const D v = rgb[j][k] * f[j] * lv.dstScale[k] + lv.dstMin[k];
      inRange[j] &= Abs(v) <= 0x1.fffffffffffffp1023;  // finite
      out[j][k] = Convert<F>(v);
    }
}

// Vectors taken together: each step runs over all of them before the next, so that the long
// chains of dependent steps (a power, a cube root, a power) of different pixels overlap.
// Twelve quads were as fast as eight and 4 % faster than sixteen on one processor; sixteen
// had been the best of 8, 12, 16 and 24 on another. On 512-bit vectors the same 48 pixels (six
// vectors) were a few per cent faster than four or twelve vectors.
constexpr int kGroupPixels = 48;

// Groups of N vectors of W pixels from x on while they fit in the row; advances x and
// returns the pixels that went through CColor.
template <int W, int N>
inline int Groups(const Mapping& mp, const float* const* in, float* const* out, int& x, int n) {
  using F = typename Lanes<W>::F;
  int outside = 0;
  for (; x + W * N <= n; x += W * N) {
    F samples[N][3], result[N][3];
    for (int j = 0; j < N; ++j)
      for (int k = 0; k < 3; ++k) std::memcpy(&samples[j][k], in[k] + x + W * j, sizeof(F));
    LaneMask<W> inRange[N];
    Enhance<W>(mp, samples, result, inRange);
    for (int j = 0; j < N; ++j) {
      const int at = x + W * j;
      for (int k = 0; k < 3; ++k) std::memcpy(out[k] + at, &result[j][k], sizeof(F));
      for (int i = 0; i < W; ++i) {
        if (inRange[j][i] != 0) continue;
        const float pixel[3] = {samples[j][0][i], samples[j][1][i], samples[j][2][i]};
        float mapped[3];
        ThroughColor(mp, pixel, mapped);
        for (int k = 0; k < 3; ++k) out[k][at + i] = mapped[k];
        ++outside;
      }
    }
  }
  return outside;
}

// The row on vectors of W pixels: whole groups, then single vectors, then the last pixels
// one at a time. Returns the pixels that went through CColor.
template <int W>
inline int RowWith(const Mapping& mp, const float* const* in, float* const* out, int n) {
  int x = 0;
  int outside = Groups<W, kGroupPixels / W>(mp, in, out, x, n);
  outside += Groups<W, 1>(mp, in, out, x, n);
  for (; x < n; ++x) {
    const float pixel[3] = {in[0][x], in[1][x], in[2][x]};
    float mapped[3];
    outside += MapPixel(mp, pixel, mapped);
    for (int k = 0; k < 3; ++k) out[k][x] = mapped[k];
  }
  return outside;
}

}  // namespace QRN_VMATH_VARIANT
}  // namespace qrn::lab
