// False colour: a brightness mapped through one of six colour maps.
#include "ops/level/ImgFalseColor.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <type_traits>

#include "kernels/Vec4.h"
#include "ops/level/CubehelixRow.h"
#include "ops/level/ToneRows.h"

using namespace qrn::level;
using qrn::falsecolor::Paint;

namespace {

// v clamped to [0, 1] as std::clamp does it (a NaN stays NaN), written with value selects so
// that rows of it vectorise.
inline double Unit(double v) {
  const double low = v < 0.0 ? 0.0 : v;
  return 1.0 < low ? 1.0 : low;
}

// Fully saturated colour of hue h in degrees [0, 360).
void Hue(double h, double* c) {
  const double sector = h / 60.0;
  const int i = std::clamp(static_cast<int>(sector), 0, 5);
  const double f = sector - i;
  const double rgb[6][3] = {{1, f, 0}, {1 - f, 1, 0}, {0, 1, f}, {0, 1 - f, 1}, {f, 0, 1}, {1, 0, 1 - f}};
  for (int k = 0; k < 3; ++k) c[k] = rgb[i][k];
}

// The colour map kScheme of f in [0, 1], components in [0, 1]; schemes outside 0..5 are grey.
// The scheme is a template argument so that a row's loop holds no switch and the piecewise
// linear maps vectorise.
template <int kScheme>
inline void SchemeColor(double f, double* c) {
  static_assert(kScheme >= 0 && kScheme <= 5, "grey is taken before the maps");
  if constexpr (kScheme == 0) {
    Hue((1.0 - f) * 240.0, c);
  } else if constexpr (kScheme == 1) {
    c[0] = Unit(3 * f), c[1] = Unit(3 * f - 1), c[2] = Unit(3 * f - 2);
  } else if constexpr (kScheme == 2) {
    c[0] = Unit(3 * f - 2), c[1] = Unit(3 * f - 1), c[2] = Unit(3 * f);
  } else if constexpr (kScheme == 3) {
    c[0] = Unit(1.5 - std::fabs(4 * f - 3)), c[1] = Unit(1.5 - std::fabs(4 * f - 2)),
    c[2] = Unit(1.5 - std::fabs(4 * f - 1));
  } else if constexpr (kScheme == 4) {
    const bool lower = f < 0.5;
    c[0] = lower ? 2 * f : 1.0;
    c[1] = lower ? 2 * f : 2 * (1 - f);
    c[2] = lower ? 1.0 : 2 * (1 - f);
  } else if constexpr (kScheme == 5) {
    // Start 0.5, rotations −1.5, hue 1, gamma 1.
    const double amp = f * (1 - f) / 2, phi = 2 * std::numbers::pi * (0.5 / 3 - 1.5 * f);
    const double cs = std::cos(phi), sn = std::sin(phi);
    c[0] = Unit(f + amp * (-0.14861 * cs + 1.78277 * sn));
    c[1] = Unit(f + amp * (-0.29227 * cs - 0.90649 * sn));
    c[2] = Unit(f + amp * (1.97294 * cs));
  }
}

// The colour of v as GetFalseColor gives it, into c[0..2] on the 0..255 scale.
template <int kScheme, bool kCycles = true>
inline void FalseColorOf(double v, int cycles, double* c) {
  v = v != v ? 0.0 : v;  // NaN
  v = v < 0.0 ? 0.0 : 255.0 < v ? 255.0 : v;
  if (kCycles && cycles > 0) v = std::clamp(std::fmod(cycles * v, 256.0), 0.0, 255.0);
  if constexpr (kScheme < 0 || kScheme > 5) {
    c[0] = c[1] = c[2] = v;  // grey is v itself, not v through /255 and ·255
  } else {
    SchemeColor<kScheme>(v / 255.0, c);
    for (int k = 0; k < 3; ++k) c[k] *= 255.0;
  }
}

// The piecewise linear maps (and grey) four samples at a time, with selects where the scalar
// map compares, so that the same values come out.
template <int kScheme>
constexpr bool kLinearScheme = (kScheme >= 0 && kScheme <= 4) || kScheme == -1;

inline Vec4d UnitV(const Vec4d& v) {
  const Vec4d zero(0.0), one(1.0);
  const Vec4d low = Vec4d::Select(v < zero, zero, v);
  return Vec4d::Select(one < low, one, low);
}

// |x|, except that −0 stays −0: every use subtracts it from 1.5, which gives the same.
inline Vec4d AbsV(const Vec4d& x) { return Vec4d::Select(x < Vec4d(0.0), Vec4d(0.0) - x, x); }

// Hue() for four hues: the sector found by rounding (exact below 2^51) and stepping down
// where that rounded up, which is truncation for the hues the rainbow gives (0 to 240).
inline void HueV(const Vec4d& h, Vec4d* c) {
  const Vec4d zero(0.0), one(1.0), five(5.0), shifter(0x1.8p52);
  const Vec4d sector = h / Vec4d(60.0);
  const Vec4d nearest = (sector + shifter) - shifter;
  Vec4d i = Vec4d::Select(sector < nearest, nearest - one, nearest);
  i = Vec4d::Select(i < zero, zero, Vec4d::Select(five < i, five, i));
  const Vec4d f = sector - i, rising = f, falling = one - f;
  // The six sectors' components, as Hue()'s table lists them.
  const auto is = [&](double k) { return i == Vec4d(k); };
  c[0] = Vec4d::Select(is(1), falling, Vec4d::Select(is(2) | is(3), zero, Vec4d::Select(is(4), rising, one)));
  c[1] = Vec4d::Select(is(0), rising, Vec4d::Select(is(3), falling, Vec4d::Select(is(4) | is(5), zero, one)));
  c[2] = Vec4d::Select(is(0) | is(1), zero, Vec4d::Select(is(2), rising, Vec4d::Select(is(5), falling, one)));
}

template <int kScheme>
inline void SchemeColorV(const Vec4d& f, Vec4d* c) {
  static_assert(kScheme >= 0 && kScheme <= 4, "grey is taken before the maps");
  const Vec4d one(1.0), two(2.0), three(3.0), four(4.0), onePointFive(1.5);
  if constexpr (kScheme == 0) {
    HueV((one - f) * Vec4d(240.0), c);
  } else if constexpr (kScheme == 1) {
    c[0] = UnitV(three * f), c[1] = UnitV(three * f - one), c[2] = UnitV(three * f - two);
  } else if constexpr (kScheme == 2) {
    c[0] = UnitV(three * f - two), c[1] = UnitV(three * f - one), c[2] = UnitV(three * f);
  } else if constexpr (kScheme == 3) {
    c[0] = UnitV(onePointFive - AbsV(four * f - three)), c[1] = UnitV(onePointFive - AbsV(four * f - two)),
    c[2] = UnitV(onePointFive - AbsV(four * f - one));
  } else if constexpr (kScheme == 4) {
    const auto lower = f < Vec4d(0.5);
    c[0] = Vec4d::Select(lower, two * f, one);
    c[1] = Vec4d::Select(lower, two * f, two * (one - f));
    c[2] = Vec4d::Select(lower, one, two * (one - f));
  }
}

// Four colours from the brightness t: the steps of FalseColorOf without cycles.
template <int kScheme>
inline void FalseColorsV(const float* t, double low, double stretch, double* c0, double* c1, double* c2) {
  const Vec4d zero(0.0), top(255.0);
  Vec4d v = (ToDouble(Vec4f::Load(t)) - Vec4d(low)) * Vec4d(stretch);
  v = Vec4d::Select(v >= v, v, zero);  // NaN
  v = Vec4d::Select(v < zero, zero, Vec4d::Select(top < v, top, v));
  if constexpr (kScheme < 0 || kScheme > 5) {
    v.Store(c0), v.Store(c1), v.Store(c2);
  } else {
    Vec4d c[3];
    SchemeColorV<kScheme>(v / top, c);
    (c[0] * top).Store(c0);
    (c[1] * top).Store(c1);
    (c[2] * top).Store(c2);
  }
}

}  // namespace

// Pixel i's raw values from its brightness t as GetFalseColor and the target's levels give
// them, into raw[k][i]. Out of line: the 512-bit blocks call it too.
void qrn::falsecolor::ExactHelix(const Paint& p, float t, float* const* raw, int i) {
  double colour[3];
  FalseColorOf<5, false>((t - p.low) * p.stretch, 0, colour);
  for (int k = 0; k < 3; ++k) raw[k][i] = p.Raw(k, colour[k]);
}


namespace {

// Colours c (0..255) of m pixels to plane k's raw values, four at a time, the whole vectors
// streamed when kStream; the head before the first aligned address and the tail one by one,
// with the same steps.
template <bool kStream>
inline void ToRaw(const Paint& p, int k, const double* c, int m, float* o) {
  int i = 0;
  for (const int head = kStream ? UnalignedHead<4>(o, m) : 0; i < head; ++i) o[i] = p.Raw(k, c[i]);
  const Vec4d top(255.0), scale(p.dstRange[k]), offset(p.dstMin[k]);
  for (; i + 4 <= m; i += 4) Put<kStream>(o + i, ToFloat(Vec4d::Load(c + i) / top * scale + offset));
  for (; i < m; ++i) o[i] = p.Raw(k, c[i]);
}

// m raw values to o, streamed as ToRaw streams them.
template <bool kStream>
inline void PutRaw(const float* r, int m, float* o) {
  int i = kStream ? UnalignedHead<4>(o, m) : m;
  std::memcpy(o, r, sizeof(float) * static_cast<std::size_t>(i));
  for (; i + 4 <= m; i += 4) StoreStream(o + i, Vec4f::Load(r + i));
  std::memcpy(o + i, r + i, sizeof(float) * static_cast<std::size_t>(m - i));
}

// One row: blocks of colours first, then each plane's conversion to raw values in a loop of
// its own, whose divisions the processor can take several at a time.
template <int kScheme, bool kCycles, bool kStream>
void PaintRow(const Paint& p, const float* const* in, float* const* out, int n) {
  constexpr int kBlock = 256;
  float t[kBlock];
  double c[3][kBlock];
  for (int x0 = 0; x0 < n; x0 += kBlock) {
    const int m = std::min(kBlock, n - x0);
    // Each step in a loop of its own, with no branch inside: the source's brightness on the
    // 0..255 scale, the colours, then the raw values.
    if (p.srcPlanes == 3) {
      for (int i = 0; i < m; ++i)
        t[i] = COrbImage::CalcBright((in[0][x0 + i] - p.srcMin[0]) * p.srcScale[0],
                                     (in[1][x0 + i] - p.srcMin[1]) * p.srcScale[1],
                                     (in[2][x0 + i] - p.srcMin[2]) * p.srcScale[2]);
    } else {
      for (int i = 0; i < m; ++i) t[i] = (in[0][x0 + i] - p.srcMin[0]) * p.srcScale[0];
    }
    // Cubehelix checks each raw value as it computes it, so its block gives them directly.
    if constexpr (!kCycles && kScheme == 5) {
      float raw[3][kBlock];
      if (p.widest) qrn::falsecolor::CubehelixBlockWidest(p, t, m, raw);
      else qrn::falsecolor::CubehelixBlock<4>(p, t, m, raw);
      for (int k = 0; k < 3; ++k) PutRaw<kStream>(raw[k], m, out[k] + x0);
      continue;
    }
    int i = 0;
    if constexpr (!kCycles && kLinearScheme<kScheme>)
      for (; i + 4 <= m; i += 4) FalseColorsV<kScheme>(t + i, p.low, p.stretch, c[0] + i, c[1] + i, c[2] + i);
    for (; i < m; ++i) {
      double colour[3];
      FalseColorOf<kScheme, kCycles>((t[i] - p.low) * p.stretch, p.cycles, colour);
      for (int k = 0; k < 3; ++k) c[k][i] = colour[k];
    }
    for (int k = 0; k < 3; ++k) ToRaw<kStream>(p, k, c[k], m, out[k] + x0);
  }
  if constexpr (kStream) qrn::simd::StreamFence();
}

// The same row compiled for 256-bit vectors.
template <int kScheme, bool kCycles, bool kStream>
QRN_WIDE_TARGET void PaintRowWide(const Paint& p, const float* const* in, float* const* out, int n) {
  PaintRow<kScheme, kCycles, kStream>(p, in, out, n);
}

using PaintRowFn = void (*)(const Paint&, const float* const*, float* const*, int);

template <int kScheme, bool kCycles>
PaintRowFn PickWidth(bool wide, bool stream) {
  if (stream) return wide ? PaintRowWide<kScheme, kCycles, true> : PaintRow<kScheme, kCycles, true>;
  return wide ? PaintRowWide<kScheme, kCycles, false> : PaintRow<kScheme, kCycles, false>;
}

// Rows without cycles have no fmod call in their loop, which lets the loop vectorise.
template <int kScheme>
PaintRowFn PickCycles(bool wide, bool cycles, bool stream) {
  return cycles ? PickWidth<kScheme, true>(wide, stream) : PickWidth<kScheme, false>(wide, stream);
}

// f(std::integral_constant<int, scheme>()) for the six schemes; any other scheme is grey (−1).
template <class F>
decltype(auto) WithScheme(int scheme, F&& f) {
  switch (scheme) {
    case 0: return f(std::integral_constant<int, 0>());
    case 1: return f(std::integral_constant<int, 1>());
    case 2: return f(std::integral_constant<int, 2>());
    case 3: return f(std::integral_constant<int, 3>());
    case 4: return f(std::integral_constant<int, 4>());
    case 5: return f(std::integral_constant<int, 5>());
    default: return f(std::integral_constant<int, -1>());
  }
}

PaintRowFn PickRow(int scheme, bool wide, bool cycles, bool stream) {
  return WithScheme(scheme, [&](auto s) { return PickCycles<decltype(s)::value>(wide, cycles, stream); });
}

// GetFalseColor's map for a scheme known only at run time.
void ColorOf(double v, int scheme, int cycles, double* c) {
  WithScheme(scheme, [&](auto s) { FalseColorOf<decltype(s)::value>(v, cycles, c); });
}

}  // namespace

void CImgFalseColor::GetFalseColor(double v, int scheme, int cycles, double* r, double* g, double* b) {
  double c[3];
  ColorOf(v, scheme, cycles, c);
  *r = c[0];
  *g = c[1];
  *b = c[2];
}

void CImgFalseColor::Do(double low, double high, int scheme, int cycles, COrbImage* src, CRect* rect, int progress) {
  if (!src || src->IsEmpty() || IsEmpty() || src->GetWidth() != GetWidth() || src->GetHeight() != GetHeight()) return;
  Paint paint{};
  paint.srcPlanes = src->GetPlanes();
  paint.cycles = cycles;
  paint.widest = qrn::simd::WidestVectors();
  for (int k = 0; k < paint.srcPlanes; ++k) {
    if (src->GetLevelRange(k) == 0.0) return;
    paint.srcMin[k] = static_cast<float>(src->GetLevelMin(k));
    paint.srcScale[k] = static_cast<float>(255.0 / src->GetLevelRange(k));
  }
  if (GetPlanes() < 3) {
    const double min = GetLevelMin(0), max = GetLevelMax(0);
    if (!ChangePlanes(3)) return;
    for (int k = 0; k < 3; ++k) SetLevel(k, min, max);
  }
  if (!(high > low)) low = 0.0, high = 255.0;
  paint.low = low;
  paint.stretch = 255.0 / (high - low);
  for (int k = 0; k < 3; ++k) paint.dstMin[k] = GetLevelMin(k), paint.dstRange[k] = GetLevelRange(k);
  Region r;
  NormalizeRect(rect, r.left, r.top, r.right, r.bottom);
  if (r.IsEmpty()) return;
  ShowProgressInit(progress, 6117, r.Height());
  const std::size_t bytes = 3 * sizeof(float) * std::size_t(r.Width()) * r.Height();
  const PaintRowFn row = PickRow(scheme, qrn::simd::WideVectors(), cycles > 0, qrn::simd::StreamStores(bytes, src == this));
  ForEachRgbRow(*this, *src, r, [&](const float* const* in, float* const* out, int n) { row(paint, in, out, n); });
  ShowProgressEnd(nullptr);
}
