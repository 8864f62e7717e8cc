#include "ops/level/LabEnhancer.h"

#include <cmath>
#include <cstring>

#include "core/Color.h"
#include "kernels/Vec4.h"
#include "kernels/VecCbrt.h"
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

// Rounding slack of a linear combination (see Linear): 24 roundings of 2^-53 each.
constexpr double kLinearSlack = 12 * kUnit;

// A value of this path, and a bound on its distance from the value the reference computes
// at the same step.
struct Bounded {
  D4 v, d;
};

inline Bounded Exact(const D4& v) { return {v, D4{}}; }

inline Bounded operator*(const Bounded& a, const Bounded& b) {
  const D4 v = a.v * b.v;
  return {v, Abs(a.v) * b.d + Abs(b.v) * a.d + a.d * b.d + Abs(v) * kUnit};
}

// offset + Σ w[i]·a[i]. The reference reaches the same combination by its own steps: sums,
// differences, products with constants and divisions by them, in its order; this path
// takes the weights with those constants folded in, in any order, fused or not. Each
// rounding on either side moves the result by at most 2^-53 of the sum of the terms'
// magnitudes as they stand in the result, and no combination below (nor a step of Solve)
// takes more than 24 of them on the two sides together (the longest, blue's, takes nine
// there and eight here), so the results part by the inputs' bounds carried through the weights plus
// kLinearSlack of that sum.
template <int N>
inline Bounded Linear(const double (&w)[N], const Bounded (&a)[N], double offset = 0.0) {
  D4 v = Splat<D4>(offset), d{}, size = Splat<D4>(std::fabs(offset));
  for (int i = 0; i < N; ++i) {
    v += w[i] * a[i].v;
    d += std::fabs(w[i]) * a[i].d;
    size += std::fabs(w[i]) * Abs(a[i].v);
  }
  return {v, d + size * kLinearSlack};
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
// distance carried through the power's slope c·x^c/x, with 2^-e for 1/x (e: x's binary
// exponent).
template <int N>
inline void Pow(const Bounded (&x)[N], double c, Bounded (&out)[N], Mask (&usable)[N]) {
  D4 xv[N], lnx[N], t[N], power[N];
  for (int j = 0; j < N; ++j) xv[j] = x[j].v;
  Log(xv, lnx);
  for (int j = 0; j < N; ++j) t[j] = c * lnx[j];
  Exp(t, power);
  for (int j = 0; j < N; ++j) {
    const D4 slope = 1.01 * std::fabs(c) * x[j].d * InverseBinaryPower(xv[j]);
    const D4 relative = PowRelativeError(c, lnx[j], t[j]) + 2 * kUnit + slope;
    out[j] = {power[j], Abs(power[j]) * relative};
    usable[j] = (xv[j] >= 0x1p-1022) & (xv[j] <= 0x1p1000) & (Abs(t[j]) <= kMaxExponent) &
                (x[j].d <= xv[j] * 0x1p-20);
  }
}

// The cube roots std::pow(x, 1/3) of N vectors; `usable` marks the lanes inside Cbrt's
// range. The bound adds Cbrt's error, std::pow's (below one unit), the rounding of the
// exponent 1/3 (1/3·2^-54 short, which moves the power by |ln x|/3·2^-54, and |ln x| is
// below (|e| + 1)·ln 2 for x's binary exponent e), and the argument's distance through the
// root's slope ∛x/(3x), with 2^-e for 1/x.
template <int N>
inline void CubeRoots(const Bounded (&x)[N], Bounded (&out)[N], Mask (&usable)[N]) {
  D4 xv[N], root[N];
  for (int j = 0; j < N; ++j) xv[j] = x[j].v;
  Cbrt(xv, root);
  for (int j = 0; j < N; ++j) {
    const D4 exponentRounding = (Abs(BinaryExponent(xv[j])) + 1.0) * (0.2311 * 0x1p-54);
    const D4 relative = (kCbrtError + 2 * kUnit) + exponentRounding + 0.34 * x[j].d * InverseBinaryPower(xv[j]);
    out[j] = {root[j], root[j] * (relative * 1.01)};
    usable[j] = (xv[j] >= 0x1p-1022) & (xv[j] <= 0x1p1000) & (x[j].d <= xv[j] * 0x1p-20);
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
  return Select(above, root, Linear({CColor::kLinearFactor}, {t}, CColor::kOffset));
}

// Its inverse for fx and fz: the cube above the threshold, the linear segment below.
inline Bounded Expand(const Bounded& f, double threshold, Mask& ok) {
  ok &= Clear(f, threshold);
  return Select(f.v > threshold, f * f * f,
                Linear({1.0 / CColor::kLinearFactor}, {f}, -CColor::kOffset / CColor::kLinearFactor));
}

struct Mapping {
  CLabEnhancer::Levels levels;
  double cs, sn, aShift, bShift;
  double expandThreshold;  // the cube root of epsilon, as CColor computes it
};

struct Lab {
  Bounded l, a, b;
};

// The colour model's matrix rows, divided by the white.
constexpr double kToXyz[3][3] = {
    {2.7689 / CColor::kWhite, 1.7517 / CColor::kWhite, 1.1302 / CColor::kWhite},
    {1.0 / CColor::kWhite, 4.5907 / CColor::kWhite, 0.0601 / CColor::kWhite},
    {0.0, 0.0565 / CColor::kWhite, 5.5943 / CColor::kWhite}};

// x, y and z (divided by the white) of one quad's exact colours c, given their gamma factor
// f: f times a fixed combination of c, where the reference scales each component by f
// first. Every rounding on either side (nine there, seven here) stays below 2^-53 of f times
// the combination of |c|, so f's bound carried through that combination and kLinearSlack
// of it bound the result.
void Tristimulus(const D4 (&c)[3], const Bounded& f, Bounded* xyz) {
  const D4 magnitude[3] = {Abs(c[0]), Abs(c[1]), Abs(c[2])};
  const D4 perUnit = f.d + f.v * kLinearSlack;
  for (int row = 0; row < 3; ++row) {
    const double* w = kToXyz[row];
    const D4 combination = w[0] * c[0] + w[1] * c[1] + w[2] * c[2];
    const D4 size = w[0] * magnitude[0] + w[1] * magnitude[1] + w[2] * magnitude[2];
    xyz[row] = {f.v * combination, size * perUnit};
  }
}

// L*a*b* of one quad from its x, y, z and their cube roots.
Lab LabFromRoots(const Bounded* xyz, const Bounded* root, const Mask* rootUsable, Mask& ok) {
  const Bounded fx = Compand(xyz[0], root[0], rootUsable[0], ok);
  const Bounded fy = Compand(xyz[1], root[1], rootUsable[1], ok);
  const Bounded fz = Compand(xyz[2], root[2], rootUsable[2], ok);
  const Bounded l =
      Select(xyz[1].v > CColor::kEpsilon, Linear({116.0}, {fy}, -16.0), Linear({CColor::kKappa}, {xyz[1]}));
  return {l, Linear({500.0, -500.0}, {fx, fy}), Linear({200.0, -200.0}, {fy, fz})};
}

// y from L*, and y's companded value fy.
void LightnessToY(const Bounded& l, Bounded& y, Bounded& fy, Mask& ok) {
  ok &= Clear(l, CColor::kInverseLThreshold);
  const Mask cubed = l.v > CColor::kInverseLThreshold;
  const Bounded t = Linear({1.0 / 116.0}, {l}, 16.0 / 116.0);
  y = Select(cubed, t * t * t, Linear({1.0 / CColor::kKappa}, {l}));
  ok &= Clear(y, CColor::kEpsilon) & (y.d <= Abs(y.v) * 0x1p-20);
  const Mask rooted = y.v > CColor::kEpsilon;
  // The cube root of t cubed is t, to within the cube's two roundings, std::pow's unit, and
  // the rounding of the exponent 1/3 (below 2^-54·|ln y|, and |ln y| < 710). A root of the
  // linear segment's y is left to the reference: only a threshold's rounding could ask for it.
  ok &= cubed | ~rooted;
  const Bounded root = {t.v, Abs(t.v) * (80 * kUnit + 0.34 * y.d / Abs(y.v))};
  fy = Select(rooted, root, Linear({CColor::kLinearFactor}, {y}, CColor::kOffset));
}

// The solve's rows with the white folded in: blue from x, y, z; green from z and blue; red
// from y, green and blue.
constexpr double kWhite = CColor::kWhite, kSolveDivisor = CColor::kSolveDivisor;
constexpr double kBlue[3] = {kWhite * 0.0565 / kSolveDivisor, -2.7689 * kWhite * 0.0565 / kSolveDivisor,
                             -kWhite * CColor::kSolveFactor / kSolveDivisor};
constexpr double kGreen[2] = {kWhite / 0.0565, -5.5943 / 0.0565};
constexpr double kRed[3] = {kWhite, -4.5907, -0.0601};

// The same rows as weights of x, y and z alone, for carrying their bounds. Solved in steps,
// an error of blue reaches green 99-fold and red over 400-fold; but an error of x, y or z
// reaches the three through the inverse matrix, whose weights are small: the steps cancel
// most of it. Each weight takes 2^-40 to spare for the rounding of the constants that
// cancel in it.
constexpr double Magnitude(double w) { return (w < 0 ? -w : w) + 0x1p-40; }
constexpr double kGreenOf[3] = {kGreen[1] * kBlue[0], kGreen[1] * kBlue[1], kGreen[0] + kGreen[1] * kBlue[2]};
constexpr double kRedOf[3] = {kRed[1] * kGreenOf[0] + kRed[2] * kBlue[0],
                              kRed[0] + kRed[1] * kGreenOf[1] + kRed[2] * kBlue[1],
                              kRed[1] * kGreenOf[2] + kRed[2] * kBlue[2]};

// Σ |w[i]|·a[i] for weights w and vectors a: the bounds a row carries, or its terms' size.
inline D4 Weighted(const double (&w)[3], const D4& a0, const D4& a1, const D4& a2) {
  return Magnitude(w[0]) * a0 + Magnitude(w[1]) * a1 + Magnitude(w[2]) * a2;
}

// Blue, green and red from x, y and z. Each step's roundings on both sides come to at most
// kLinearSlack of its terms' magnitudes, as in Linear, and reach the later steps through
// their weights; x, y and z's bounds are carried through the inverse matrix directly.
void Solve(const Bounded (&xyz)[3], Bounded& bl, Bounded& gr, Bounded& rd) {
  const D4 &x = xyz[0].v, &y = xyz[1].v, &z = xyz[2].v;
  bl.v = kBlue[0] * x + kBlue[1] * y + kBlue[2] * z;
  const D4 blRounding = Weighted(kBlue, Abs(x), Abs(y), Abs(z)) * kLinearSlack;
  gr.v = kGreen[0] * z + kGreen[1] * bl.v;
  const D4 grRounding = Magnitude(kGreen[1]) * blRounding +
                        (Magnitude(kGreen[0]) * Abs(z) + Magnitude(kGreen[1]) * Abs(bl.v)) * kLinearSlack;
  rd.v = kRed[0] * y + kRed[1] * gr.v + kRed[2] * bl.v;
  const D4 rdRounding = Magnitude(kRed[1]) * grRounding + Magnitude(kRed[2]) * blRounding +
                        Weighted(kRed, Abs(y), Abs(gr.v), Abs(bl.v)) * kLinearSlack;
  bl.d = Weighted(kBlue, xyz[0].d, xyz[1].d, xyz[2].d) + blRounding;
  gr.d = Weighted(kGreenOf, xyz[0].d, xyz[1].d, xyz[2].d) + grRounding;
  rd.d = Weighted(kRedOf, xyz[0].d, xyz[1].d, xyz[2].d) + rdRounding;
}

// LabToRgb up to the inverse gamma: x, y, z from L*a*b*, then blue, green, red solved in that
// order and clipped.
void LinearRgb(const Mapping& mp, const Lab& lab, Bounded (&rgb)[3], Mask& ok) {
  Bounded xyz[3], fy;
  LightnessToY(lab.l, xyz[1], fy, ok);
  xyz[0] = Expand(Linear({1.0 / 500.0, 1.0}, {lab.a, fy}), mp.expandThreshold, ok);
  xyz[2] = Expand(Linear({1.0, -1.0 / 200.0}, {fy, lab.b}), mp.expandThreshold, ok);
  Bounded bl, gr, rd;
  Solve(xyz, bl, gr, rd);
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
  D4 colour[kQuads][3];
  Bounded rgb[kQuads][3], mean[kQuads], f[kQuads];
  for (int q = 0; q < kQuads; ++q) {
    ok[q] = SplatInt<D4>(-1);
    for (int k = 0; k < 3; ++k) {
      F4 s;
      std::memcpy(&s, in[k] + x + kLanes * q, sizeof s);
      // The reference's own steps, so the components are exact.
      colour[q][k] = (__builtin_convertvector(s, D4) - mp.levels.srcMin[k]) * mp.levels.srcScale[k];
    }
    // Bounded, not exact: a component's product may be fused into the sum.
    const Bounded components[3] = {Exact(colour[q][0]), Exact(colour[q][1]), Exact(colour[q][2])};
    mean[q] = Linear({1.0 / 3.0, 1.0 / 3.0, 1.0 / 3.0}, components);
  }
  // RgbToLab.
  GammaFactors(mean, CColor::kGamma, f, ok);
  Bounded xyz[3 * kQuads], root[3 * kQuads];
  Mask rootUsable[3 * kQuads];
  for (int q = 0; q < kQuads; ++q) Tristimulus(colour[q], f[q], xyz + 3 * q);
  CubeRoots(xyz, root, rootUsable);
  for (int q = 0; q < kQuads; ++q) {
    Lab lab = LabFromRoots(xyz + 3 * q, root + 3 * q, rootUsable + 3 * q, ok[q]);
    // The chroma turned, scaled and shifted.
    const Bounded a = lab.a, b = lab.b;
    lab.a = Linear({mp.cs, -mp.sn}, {a, b}, mp.aShift);
    lab.b = Linear({mp.sn, mp.cs}, {a, b}, mp.bShift);
    // LabToRgb.
    LinearRgb(mp, lab, rgb[q], ok[q]);
    mean[q] = Linear({1.0 / 3.0, 1.0 / 3.0, 1.0 / 3.0}, rgb[q]);
  }
  GammaFactors(mean, CColor::kGammaInverse, f, ok);
  for (int q = 0; q < kQuads; ++q)
    for (int k = 0; k < 3; ++k) {
      const Bounded o = Linear({mp.levels.dstScale[k]}, {rgb[q][k] * f[q]}, mp.levels.dstMin[k]);
      // Twice the bound: the roundings of the bound itself and the terms of second order.
      const D4 margin = 2.0 * o.d;
      const F4 lo = __builtin_convertvector(o.v - margin, F4), hi = __builtin_convertvector(o.v + margin, F4);
      // Bits, not values, must agree: +0 and -0 compare equal.
      ok[q] &= __builtin_convertvector((I4)lo == (I4)hi, Mask);
      out[q][k] = lo;
    }
}

// The reference for one pixel, kept out of line: inlined into the row compiled with fused
// multiply-add, its products and sums could be fused and round differently from Pixel().
__attribute__((noinline)) void ExactPixel(const CLabEnhancer& exact, const float (&in)[3], float (&out)[3]) {
  exact.Pixel(in, out);
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
    ExactPixel(exact, pixels[j], pixel);
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
    ExactPixel(exact, pixel, result);
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
