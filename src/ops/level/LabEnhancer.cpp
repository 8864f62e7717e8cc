#include "ops/level/LabEnhancer.h"

#include <cstring>

#include "core/Color.h"
#include "kernels/Vec4.h"
#include "kernels/VecCbrt.h"
#include "kernels/VecLogExp.h"

namespace {

using namespace qrn::vmath;

// Four pixels per vector of doubles: 256-bit on the wide path, two 128-bit halves on the
// four-wide one. Every step is a lane-wise IEEE operation, so both give the same bits.
using Mask = MaskOf<D4>;
using F4 = Vec4f::Raw;
constexpr int kLanes = 4;

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

Mapping MakeMapping(const CLabEnhancer::Levels& levels, double cs, double sn, double aShift, double bShift) {
  return {levels, cs, sn, aShift, bShift, 0.4 * sn, aShift / 500.0, 2.5 * sn, bShift / 200.0};
}

inline D4 Row3(const double (&w)[3], const D4& a, const D4& b, const D4& c) { return w[0] * a + w[1] * b + w[2] * c; }

// The colour model's gamma factors of N vectors: m^c from the floor up, 1 below it.
template <int N>
inline void GammaFactors(const D4 (&m)[N], double c, D4 (&f)[N]) {
  D4 t[N], power[N];
  Log(m, t);
  for (int j = 0; j < N; ++j) t[j] *= c;
  Exp(t, power);
  for (int j = 0; j < N; ++j) f[j] = m[j] >= CColor::kGammaFloor ? power[j] : Splat<D4>(1.0);
}

// The L*a*b* companding of N vectors t: the cube root above epsilon, the linear segment below.
template <int N>
inline void Compand(const D4 (&t)[N], D4 (&f)[N]) {
  D4 root[N];
  Cbrt(t, root);
  for (int j = 0; j < N; ++j)
    f[j] = t[j] > CColor::kEpsilon ? root[j] : CColor::kLinearFactor * t[j] + CColor::kOffset;
}

// Its inverse for fx and fz: the cube above the threshold, the linear segment below.
inline D4 Expand(const D4& f) {
  return f > kExpandThreshold ? f * f * f : (f - CColor::kOffset) * (1.0 / CColor::kLinearFactor);
}

// The mapping of N quads of pixels: `in` and `out` hold red, green and blue samples;
// `inRange` marks the lanes that stayed inside the vector functions' range.
template <int N>
void Enhance(const Mapping& mp, const F4 (&in)[N][3], F4 (&out)[N][3], Mask (&inRange)[N]) {
  const CLabEnhancer::Levels& lv = mp.levels;
  D4 colour[N][3], mean[N], f[N];
  for (int j = 0; j < N; ++j) {
    inRange[j] = SplatInt<D4>(-1);
    for (int k = 0; k < 3; ++k) {
      colour[j][k] = (__builtin_convertvector(in[j][k], D4) - lv.srcMin[k]) * lv.srcScale[k];
      inRange[j] &= Abs(colour[j][k]) <= kMaxColour;
    }
    mean[j] = (colour[j][0] + colour[j][1] + colour[j][2]) * (1.0 / 3.0);
  }
  // Into L*a*b*: the gamma factor, x, y and z, and their companded values fx, fy and fz.
  GammaFactors(mean, CColor::kGamma, f);
  D4 xyz[3 * N], companded[3 * N];
  for (int j = 0; j < N; ++j)
    for (int row = 0; row < 3; ++row)
      xyz[3 * j + row] = f[j] * Row3(kToXyz[row], colour[j][0], colour[j][1], colour[j][2]);
  Compand(xyz, companded);
  // Back, with L* and so y and fy unchanged: x and z from the new a* and b*, then linear RGB
  // clipped at zero.
  D4 rgb[N][3];
  for (int j = 0; j < N; ++j) {
    const D4 &fx = companded[3 * j], &fy = companded[3 * j + 1], &fz = companded[3 * j + 2];
    const D4 dx = fx - fy, dz = fy - fz;
    const D4 x = Expand(fy + mp.cs * dx - mp.snToX * dz + mp.aOffset);
    const D4 z = Expand(fy - mp.snToZ * dx - mp.cs * dz - mp.bOffset);
    for (int k = 0; k < 3; ++k) {
      const D4 v = Row3(*kToRgb[k], x, xyz[3 * j + 1], z);
      rgb[j][k] = v < 0.0 ? D4{} : v;
    }
    mean[j] = (rgb[j][0] + rgb[j][1] + rgb[j][2]) * (1.0 / 3.0);
    inRange[j] &= mean[j] <= kMaxLinearMean;
  }
  // Out of linear RGB: the inverse gamma, then onto the target's level windows.
  GammaFactors(mean, CColor::kGammaInverse, f);
  for (int j = 0; j < N; ++j)
    for (int k = 0; k < 3; ++k) {
      const D4 v = rgb[j][k] * f[j] * lv.dstScale[k] + lv.dstMin[k];
      inRange[j] &= Abs(v) <= 0x1.fffffffffffffp1023;  // finite
      out[j][k] = __builtin_convertvector(v, F4);
    }
}

// CColor's conversion of one pixel, for pixels outside the vector functions' range. Out of
// line so that the wide row's code generation cannot change how its steps round.
__attribute__((noinline)) void ThroughColor(const Mapping& mp, const float (&in)[3], float (&out)[3]) {
  const CLabEnhancer::Levels& lv = mp.levels;
  CColor color;
  color.RgbToLab((in[0] - lv.srcMin[0]) * lv.srcScale[0], (in[1] - lv.srcMin[1]) * lv.srcScale[1],
                 (in[2] - lv.srcMin[2]) * lv.srcScale[2]);
  const double a = color.Geta(), b = color.Getb();
  color.LabToRgb(color.GetL(), a * mp.cs - b * mp.sn + mp.aShift, a * mp.sn + b * mp.cs + mp.bShift);
  const double rgb[3] = {color.GetR(), color.GetG(), color.GetB()};
  for (int k = 0; k < 3; ++k) out[k] = static_cast<float>(rgb[k] * lv.dstScale[k] + lv.dstMin[k]);
}

// One pixel, in every lane of a quad; returns 1 when it went through CColor.
int MapPixel(const Mapping& mp, const float (&in)[3], float (&out)[3]) {
  F4 pixel[1][3], result[1][3];
  for (int k = 0; k < 3; ++k) pixel[0][k] = F4{in[k], in[k], in[k], in[k]};
  Mask inRange[1];
  Enhance(mp, pixel, result, inRange);
  if (inRange[0][0] == 0) {
    ThroughColor(mp, in, out);
    return 1;
  }
  for (int k = 0; k < 3; ++k) out[k] = result[0][k][0];
  return 0;
}

// Quads taken together: each step runs over all of them before the next, so that the long
// chains of dependent steps (a power, a cube root, a power) of different pixels overlap.
// Twelve was as fast as eight and 4 % faster than sixteen on one processor; sixteen had been
// the best of 8, 12, 16 and 24 on another.
constexpr int kGroupQuads = 12;

// Groups of N quads from x on while they fit in the row; advances x and returns the pixels
// that went through CColor.
template <int N>
int Groups(const Mapping& mp, const float* const* in, float* const* out, int& x, int n) {
  int outside = 0;
  for (; x + kLanes * N <= n; x += kLanes * N) {
    F4 samples[N][3], result[N][3];
    for (int j = 0; j < N; ++j)
      for (int k = 0; k < 3; ++k) std::memcpy(&samples[j][k], in[k] + x + kLanes * j, sizeof(F4));
    Mask inRange[N];
    Enhance(mp, samples, result, inRange);
    for (int j = 0; j < N; ++j) {
      const int at = x + kLanes * j;
      for (int k = 0; k < 3; ++k) std::memcpy(out[k] + at, &result[j][k], sizeof(F4));
      for (int i = 0; i < kLanes; ++i) {
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

int RowWith(const Mapping& mp, const float* const* in, float* const* out, int n) {
  int x = 0;
  int outside = Groups<kGroupQuads>(mp, in, out, x, n);
  outside += Groups<1>(mp, in, out, x, n);
  for (; x < n; ++x) {
    const float pixel[3] = {in[0][x], in[1][x], in[2][x]};
    float mapped[3];
    outside += MapPixel(mp, pixel, mapped);
    for (int k = 0; k < 3; ++k) out[k][x] = mapped[k];
  }
  return outside;
}

// The same row in 256-bit vectors. Without fused multiply-add: a fused step would round once
// where the four-wide path and Pixel() round twice.
QRN_WIDE_TARGET int RowWithWide(const Mapping& mp, const float* const* in, float* const* out, int n) {
  return RowWith(mp, in, out, n);
}

}  // namespace

CLabEnhancer::CLabEnhancer(const Levels& levels, double cs, double sn, double aShift, double bShift)
    : m_levels(levels), m_cs(cs), m_sn(sn), m_aShift(aShift), m_bShift(bShift) {}

void CLabEnhancer::Pixel(const float (&in)[3], float (&out)[3]) const {
  MapPixel(MakeMapping(m_levels, m_cs, m_sn, m_aShift, m_bShift), in, out);
}

int CLabEnhancer::Row(const float* const* in, float* const* out, int n) const {
  const Mapping mp = MakeMapping(m_levels, m_cs, m_sn, m_aShift, m_bShift);
  return qrn::simd::WideVectors() ? RowWithWide(mp, in, out, n) : RowWith(mp, in, out, n);
}
