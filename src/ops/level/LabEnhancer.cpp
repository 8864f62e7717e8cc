#include "ops/level/LabEnhancer.h"

#include <cmath>
#include <cstring>

#include "core/Color.h"
#include "kernels/Vec4.h"
#include "kernels/VecLogExp.h"

namespace {

using namespace qrn::vmath;

// Four pixels at a time, in 256-bit vectors of doubles. (Eight-double vectors, split by the
// compiler, ran out of registers and were twice as slow.)
using Mask = MaskOf<D4>;
using F4 = Vec4f::Raw;
using I4 = Vec4f::Mask;
constexpr int kLanes = 4;

// Rounding slack per operation: this path and the reference each round the result once,
// so they may part by up to 2^-52 of the operands' magnitudes. Taking the terms'
// magnitudes also covers a product that one of them fuses into the following sum.
constexpr double kUnit = 0x1p-52;

// A value of this path, and a bound on its distance from the value the reference computes
// at the same step.
struct Bounded {
  D4 v, d;
};

inline Bounded Exact(const D4& v) { return {v, D4{}}; }

inline Bounded operator+(const Bounded& a, const Bounded& b) {
  return {a.v + b.v, a.d + b.d + (Abs(a.v) + Abs(b.v)) * kUnit};
}
inline Bounded operator-(const Bounded& a, const Bounded& b) {
  return {a.v - b.v, a.d + b.d + (Abs(a.v) + Abs(b.v)) * kUnit};
}
inline Bounded operator+(const Bounded& a, double c) { return {a.v + c, a.d + (Abs(a.v) + std::fabs(c)) * kUnit}; }
inline Bounded operator-(const Bounded& a, double c) { return {a.v - c, a.d + (Abs(a.v) + std::fabs(c)) * kUnit}; }
inline Bounded operator*(double c, const Bounded& a) {
  const D4 v = c * a.v;
  return {v, std::fabs(c) * a.d + Abs(v) * kUnit};
}
inline Bounded operator*(const Bounded& a, double c) { return c * a; }
// A division by a constant is taken as a product with its reciprocal: no divider, and a
// rounding more than the reference's division, which the slack covers.
inline Bounded operator/(const Bounded& a, double c) {
  const double inverse = 1.0 / c;
  const D4 v = a.v * inverse;
  return {v, a.d * std::fabs(inverse) * (1 + 2 * kUnit) + Abs(v) * (2 * kUnit)};
}
inline Bounded operator*(const Bounded& a, const Bounded& b) {
  const D4 v = a.v * b.v;
  return {v, Abs(a.v) * b.d + Abs(b.v) * a.d + a.d * b.d + Abs(v) * kUnit};
}

inline Bounded Select(const Mask& take, const Bounded& a, const Bounded& b) {
  return {take ? a.v : b.v, take ? a.d : b.d};
}

// Set where x lies clearly on one side of thr, so that this path and the reference take the
// same branch there (with a factor of two for the roundings of the distance and the bound).
inline Mask Clear(const Bounded& x, double thr) { return Abs(x.v - thr) > 2.0 * x.d; }

inline Bounded ClipNegative(const Bounded& x) { return {x.v < 0.0 ? D4{} : x.v, x.d}; }

inline bool AllSet(const Mask& mask) {
  long long lanes[kLanes];
  std::memcpy(lanes, &mask, sizeof lanes);
  for (long long lane : lanes)
    if (lane == 0) return false;
  return true;
}

// x^c for N vectors at once; `usable` marks the lanes inside the vector power's range. The
// bound adds the approximation's own error, std::pow's (below one unit) and the argument's
// distance carried through the power's slope c·x^c/x.
template <int N>
inline void Pow(const Bounded (&x)[N], double c, Bounded (&out)[N], Mask (&usable)[N]) {
  D4 xv[N], lnx[N], t[N], power[N];
  for (int j = 0; j < N; ++j) xv[j] = x[j].v;
  Log(xv, lnx);
  for (int j = 0; j < N; ++j) t[j] = c * lnx[j];
  Exp(t, power);
  for (int j = 0; j < N; ++j) {
    const D4 relative = PowRelativeError(c, lnx[j], t[j]) + 2 * kUnit + 1.01 * std::fabs(c) * x[j].d / xv[j];
    out[j] = {power[j], Abs(power[j]) * relative};
    usable[j] = (xv[j] >= 0x1p-1022) & (xv[j] <= 0x1p1000) & (Abs(t[j]) <= kMaxExponent) &
                (x[j].d <= xv[j] * 0x1p-20);
  }
}

// The colour model's gamma factors of N vectors: m^c from the floor up, 1 below it.
template <int N>
inline void GammaFactors(const Bounded (&m)[N], double c, Bounded (&f)[N], Mask* ok) {
  Bounded power[N];
  Mask usable[N];
  Pow(m, c, power, usable);
  for (int j = 0; j < N; ++j) {
    const Mask above = m[j].v >= CColor::kGammaFloor;
    ok[j] &= Clear(m[j], CColor::kGammaFloor) & (usable[j] | ~above);
    f[j] = Select(above, power[j], Exact(Splat<D4>(1.0)));
  }
}

// The L*a*b* companding of t given its cube root: the root above epsilon, the linear
// segment below.
inline Bounded Compand(const Bounded& t, const Bounded& root, const Mask& rootUsable, Mask& ok) {
  const Mask above = t.v > CColor::kEpsilon;
  ok &= Clear(t, CColor::kEpsilon) & (rootUsable | ~above);
  return Select(above, root, CColor::kLinearFactor * t + CColor::kOffset);
}

// Its inverse for fx and fz: the cube above the threshold, the linear segment below.
inline Bounded Expand(const Bounded& f, double threshold, Mask& ok) {
  ok &= Clear(f, threshold);
  return Select(f.v > threshold, f * f * f, (f - CColor::kOffset) / CColor::kLinearFactor);
}

struct Mapping {
  CLabEnhancer::Levels levels;
  double cs, sn, aShift, bShift;
  double expandThreshold;  // the cube root of epsilon, as CColor computes it
};

struct Lab {
  Bounded l, a, b;
};

// x, y and z (divided by the white) of one quad's colours, given their gamma factor.
void Tristimulus(const Bounded (&c)[3], const Bounded& f, Bounded* xyz) {
  const Bounded r = f * c[0], g = f * c[1], b = f * c[2];
  xyz[0] = (2.7689 * r + 1.7517 * g + 1.1302 * b) / CColor::kWhite;
  xyz[1] = (r + 4.5907 * g + 0.0601 * b) / CColor::kWhite;
  xyz[2] = (0.0565 * g + 5.5943 * b) / CColor::kWhite;
}

// L*a*b* of one quad from its x, y, z and their cube roots.
Lab LabFromRoots(const Bounded* xyz, const Bounded* root, const Mask* rootUsable, Mask& ok) {
  const Bounded fx = Compand(xyz[0], root[0], rootUsable[0], ok);
  const Bounded fy = Compand(xyz[1], root[1], rootUsable[1], ok);
  const Bounded fz = Compand(xyz[2], root[2], rootUsable[2], ok);
  const Bounded l = Select(xyz[1].v > CColor::kEpsilon, 116.0 * fy - 16.0, CColor::kKappa * xyz[1]);
  return {l, 500.0 * (fx - fy), 200.0 * (fy - fz)};
}

// y from L*, and y's companded value fy.
void LightnessToY(const Bounded& l, Bounded& y, Bounded& fy, Mask& ok) {
  ok &= Clear(l, CColor::kInverseLThreshold);
  const Mask cubed = l.v > CColor::kInverseLThreshold;
  const Bounded t = (l + 16.0) / 116.0;
  y = Select(cubed, t * t * t, l / CColor::kKappa);
  ok &= Clear(y, CColor::kEpsilon) & (y.d <= Abs(y.v) * 0x1p-20);
  const Mask rooted = y.v > CColor::kEpsilon;
  // The cube root of t cubed is t, to within the cube's two roundings, std::pow's unit, and
  // the rounding of the exponent 1/3 (below 2^-54·|ln y|, and |ln y| < 710). A root of the
  // linear segment's y is left to the reference: only a threshold's rounding could ask for it.
  ok &= cubed | ~rooted;
  const Bounded root = {t.v, Abs(t.v) * (80 * kUnit + 0.34 * y.d / Abs(y.v))};
  fy = Select(rooted, root, CColor::kLinearFactor * y + CColor::kOffset);
}

// LabToRgb up to the inverse gamma: x, y, z from L*a*b*, then blue, green, red solved in that
// order and clipped.
void LinearRgb(const Mapping& mp, const Lab& lab, Bounded (&rgb)[3], Mask& ok) {
  Bounded y, fy;
  LightnessToY(lab.l, y, fy, ok);
  const Bounded x = Expand(lab.a / 500.0 + fy, mp.expandThreshold, ok) * CColor::kWhite;
  const Bounded z = Expand(fy - lab.b / 200.0, mp.expandThreshold, ok) * CColor::kWhite;
  y = y * CColor::kWhite;
  const Bounded bl = ((x - 2.7689 * y) * 0.0565 - z * CColor::kSolveFactor) / CColor::kSolveDivisor;
  const Bounded gr = (z - 5.5943 * bl) / 0.0565;
  const Bounded rd = y - 4.5907 * gr - 0.0601 * bl;
  rgb[0] = ClipNegative(rd);
  rgb[1] = ClipNegative(gr);
  rgb[2] = ClipNegative(bl);
}

// Quads taken together: each stage runs over all of them before the next, so that their
// long chains of dependent steps (three powers in a row) overlap.
constexpr int kQuads = 2;
constexpr int kGroupPixels = kLanes * kQuads;

// kQuads quads of pixels from x on: out receives the float results, and ok marks the lanes
// whose results are sure to equal the reference's.
void Group(const Mapping& mp, const float* const* in, int x, F4 (&out)[kQuads][3], Mask (&ok)[kQuads]) {
  Bounded rgb[kQuads][3], mean[kQuads], f[kQuads];
  for (int q = 0; q < kQuads; ++q) {
    ok[q] = SplatInt<D4>(-1);
    for (int k = 0; k < 3; ++k) {
      F4 s;
      std::memcpy(&s, in[k] + x + kLanes * q, sizeof s);
      rgb[q][k] = Exact((__builtin_convertvector(s, D4) - mp.levels.srcMin[k]) * mp.levels.srcScale[k]);
    }
    mean[q] = (rgb[q][0] + rgb[q][1] + rgb[q][2]) / 3.0;
  }
  // RgbToLab.
  GammaFactors(mean, CColor::kGamma, f, ok);
  Bounded xyz[3 * kQuads], root[3 * kQuads];
  Mask rootUsable[3 * kQuads];
  for (int q = 0; q < kQuads; ++q) Tristimulus(rgb[q], f[q], xyz + 3 * q);
  Pow(xyz, 1.0 / 3.0, root, rootUsable);
  for (int q = 0; q < kQuads; ++q) {
    Lab lab = LabFromRoots(xyz + 3 * q, root + 3 * q, rootUsable + 3 * q, ok[q]);
    // The chroma turned, scaled and shifted.
    const Bounded a = lab.a, b = lab.b;
    lab.a = a * mp.cs - b * mp.sn + mp.aShift;
    lab.b = a * mp.sn + b * mp.cs + mp.bShift;
    // LabToRgb.
    LinearRgb(mp, lab, rgb[q], ok[q]);
    mean[q] = (rgb[q][0] + rgb[q][1] + rgb[q][2]) / 3.0;
  }
  GammaFactors(mean, CColor::kGammaInverse, f, ok);
  for (int q = 0; q < kQuads; ++q)
    for (int k = 0; k < 3; ++k) {
      const Bounded o = rgb[q][k] * f[q] * mp.levels.dstScale[k] + mp.levels.dstMin[k];
      // Twice the bound: the roundings of the bound itself and the terms of second order.
      const D4 margin = 2.0 * o.d;
      const F4 lo = __builtin_convertvector(o.v - margin, F4), hi = __builtin_convertvector(o.v + margin, F4);
      // Bits, not values, must agree: +0 and -0 compare equal.
      ok[q] &= __builtin_convertvector((I4)lo == (I4)hi, Mask);
      out[q][k] = lo;
    }
}

// One quad's results into out at x; the lanes not in ok through the reference, from the
// pixels saved in `pixels` (the rows may be the same).
int StoreQuad(const CLabEnhancer& exact, const F4 (&res)[3], const Mask& ok, const float (&pixels)[kLanes][3],
              float* const* out, int x) {
  for (int k = 0; k < 3; ++k) std::memcpy(out[k] + x, &res[k], sizeof res[k]);
  if (AllSet(ok)) return 0;
  int fallbacks = 0;
  for (int j = 0; j < kLanes; ++j) {
    if (ok[j] != 0) continue;
    float pixel[3];
    exact.Pixel(pixels[j], pixel);
    for (int k = 0; k < 3; ++k) out[k][x + j] = pixel[k];
    ++fallbacks;
  }
  return fallbacks;
}

int RowWith(const Mapping& mp, const CLabEnhancer& exact, const float* const* in, float* const* out, int n) {
  int fallbacks = 0;
  int x = 0;
  for (; x + kGroupPixels <= n; x += kGroupPixels) {
    F4 res[kQuads][3];
    Mask ok[kQuads];
    Group(mp, in, x, res, ok);
    for (int q = 0; q < kQuads; ++q) {
      const int at = x + kLanes * q;
      float pixels[kLanes][3];
      if (!AllSet(ok[q]))
        for (int j = 0; j < kLanes; ++j)
          for (int k = 0; k < 3; ++k) pixels[j][k] = in[k][at + j];
      fallbacks += StoreQuad(exact, res[q], ok[q], pixels, out, at);
    }
  }
  for (; x < n; ++x) {
    const float pixel[3] = {in[0][x], in[1][x], in[2][x]};
    float result[3];
    exact.Pixel(pixel, result);
    for (int k = 0; k < 3; ++k) out[k][x] = result[k];
  }
  return fallbacks;
}

// The same row for 256-bit vectors, and with fused multiply-add: the bounds hold however the
// steps round.
QRN_WIDE_TARGET int RowWithWide(const Mapping& mp, const CLabEnhancer& exact, const float* const* in,
                                float* const* out, int n) {
  return RowWith(mp, exact, in, out, n);
}

QRN_WIDE_FMA_TARGET int RowWithFma(const Mapping& mp, const CLabEnhancer& exact, const float* const* in,
                                   float* const* out, int n) {
  return RowWith(mp, exact, in, out, n);
}

}  // namespace

CLabEnhancer::CLabEnhancer(const Levels& levels, double cs, double sn, double aShift, double bShift)
    : m_levels(levels), m_cs(cs), m_sn(sn), m_aShift(aShift), m_bShift(bShift) {}

void CLabEnhancer::Pixel(const float (&in)[3], float (&out)[3]) const {
  CColor color;
  color.RgbToLab((in[0] - m_levels.srcMin[0]) * m_levels.srcScale[0], (in[1] - m_levels.srcMin[1]) * m_levels.srcScale[1],
                 (in[2] - m_levels.srcMin[2]) * m_levels.srcScale[2]);
  const double a = color.Geta(), b = color.Getb();
  color.LabToRgb(color.GetL(), a * m_cs - b * m_sn + m_aShift, a * m_sn + b * m_cs + m_bShift);
  const double rgb[3] = {color.GetR(), color.GetG(), color.GetB()};
  for (int k = 0; k < 3; ++k) out[k] = static_cast<float>(rgb[k] * m_levels.dstScale[k] + m_levels.dstMin[k]);
}

int CLabEnhancer::Row(const float* const* in, float* const* out, int n) const {
  const Mapping mp{m_levels, m_cs, m_sn, m_aShift, m_bShift, std::pow(CColor::kEpsilon, 1.0 / 3.0)};
  if (qrn::simd::FusedMultiplyAdd()) return RowWithFma(mp, *this, in, out, n);
  return qrn::simd::WideVectors() ? RowWithWide(mp, *this, in, out, n) : RowWith(mp, *this, in, out, n);
}
