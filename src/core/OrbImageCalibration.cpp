// COrbImage calibration: dark subtraction, flat division and the combined dark-and-flat pass.
#include <algorithm>
#include <cassert>
#include <cmath>

#include "core/LineLoop.h"
#include "core/OrbImage.h"
#include "kernels/GammaCurve.h"
#include "kernels/Prefetch.h"
#include "kernels/Vec4.h"
#include "platform/QrnSys.h"

namespace {

constexpr int kTitleFlat = 6105;
constexpr int kTitleDark = 6106;
constexpr int kTitleDarkFlat = 6195;

// A grey calibration frame serves every plane of a colour light frame through its plane 0.
int FramePlane(const COrbImage& frame, int plane) { return frame.IsColor() ? plane : 0; }

// How the flat divides one plane: v <- m * v / (f' + add), f' the flat sample after the
// optional gamma curve. add is m * pedestal, formed once per plane in float.
struct FlatPlane {
  bool on = false;
  bool gamma = false;
  float m = 0.0f;
  float add = 0.0f;
  float hi = 0.0f;
  float bottom = 0.0f;
  CGammaCurve curve;  // the flat's gamma curve when gamma is on
};

// Dark step rule: DarkClbrtn zeroes results <= 0, the combined pass every result that is
// not > 0 (so a NaN difference becomes 0 there and stays NaN in DarkClbrtn).
enum class DarkRule { kLessEqualZero, kNotAboveZero };

struct Pass {
  const COrbImage* src = nullptr;
  const COrbImage* dark = nullptr;
  const COrbImage* flat = nullptr;
  DarkRule rule = DarkRule::kLessEqualZero;
  FlatPlane planes[CImage::kMaxPlanes];
};

inline float Where(bool c, float a, float b) { return c ? a : b; }
template <int N>
inline VecN<float, N> Where(typename VecN<float, N>::Mask c, VecN<float, N> a, VecN<float, N> b) {
  return VecN<float, N>::Select(c, a, b);
}

// One sample (float) or four (Vec4f): v the light, d the dark, g the flat after its curve.
// The quotient is formed in every lane and kept only where the divisor is positive.
template <bool kDark, DarkRule kRule, bool kFlat, class T>
inline T Calibrate(T v, T d, T g, T m, T add, T zero) {
  if constexpr (kDark) {
    v = v - d;
    v = kRule == DarkRule::kLessEqualZero ? Where(v <= zero, zero, v) : Where(v > zero, v, zero);
  }
  if constexpr (kFlat) {
    g = g + add;
    v = Where(g > zero, m * v / g, v);
  }
  return v;
}

// Scalar row: the reference.
template <bool kDark, DarkRule kRule, bool kFlat>
void CalibrateRow(float* dst, const float* s, const float* d, const float* f, int n, const FlatPlane& fp) {
  for (int x = 0; x < n; ++x) {
    const float g = kFlat ? f[x] : 0.0f;
    dst[x] = Calibrate<kDark, kRule, kFlat>(s[x], kDark ? d[x] : 0.0f, g, fp.m, fp.add, 0.0f);
  }
}

// Vector row over V: Vec4f, or Vec8f inside a QRN_WIDE_TARGET function. The tail goes
// through the per-sample rule; kStream writes the aligned part with streaming stores, the
// head before it through the per-sample rule too (the caller fences).
template <class V, bool kDark, DarkRule kRule, bool kFlat, bool kStream>
void CalibrateSpan(float* dst, const float* s, const float* d, const float* f, int n, const FlatPlane& fp) {
  constexpr int kStep = V::kWidth;
  const V m(fp.m), add(fp.add), zero(0.0f);
  int x = kStream ? UnalignedHead<kStep>(dst, n) : 0;
  CalibrateRow<kDark, kRule, kFlat>(dst, s, d, f, x, fp);
  for (; x + kStep <= n; x += kStep) {
    qrn::simd::PrefetchRead<kStep>(s + x);
    if constexpr (kDark) qrn::simd::PrefetchRead<kStep>(d + x);
    if constexpr (kFlat) qrn::simd::PrefetchRead<kStep>(f + x);
    const V dk = kDark ? V::Load(d + x) : zero, g = kFlat ? V::Load(f + x) : zero;
    Put<kStream>(dst + x, Calibrate<kDark, kRule, kFlat>(V::Load(s + x), dk, g, m, add, zero));
  }
  CalibrateRow<kDark, kRule, kFlat>(dst + x, s + x, kDark ? d + x : d, kFlat ? f + x : f, n - x, fp);
}

// CalibrateSpan compiled for 256-bit vectors, eight samples a step.
template <bool kDark, DarkRule kRule, bool kFlat, bool kStream>
QRN_WIDE_TARGET void CalibrateRowWide(float* dst, const float* s, const float* d, const float* f, int n,
                                      const FlatPlane& fp) {
  CalibrateSpan<Vec8f, kDark, kRule, kFlat, kStream>(dst, s, d, f, n, fp);
}

// The row functions: the scalar rule, four-wide rows, eight-wide rows, each vector kind
// also with streaming stores.
enum class RowKind { kScalar, kVector, kStreamed, kWide, kWideStreamed };

template <bool kDark, DarkRule kRule, bool kFlat, RowKind kKind>
void CalibrateRowOf(float* dst, const float* s, const float* d, const float* f, int n, const FlatPlane& fp) {
  constexpr bool kStream = kKind == RowKind::kStreamed || kKind == RowKind::kWideStreamed;
  if constexpr (kKind == RowKind::kScalar) CalibrateRow<kDark, kRule, kFlat>(dst, s, d, f, n, fp);
  else if constexpr (kKind == RowKind::kVector || kKind == RowKind::kStreamed)
    CalibrateSpan<Vec4f, kDark, kRule, kFlat, kStream>(dst, s, d, f, n, fp);
  else CalibrateRowWide<kDark, kRule, kFlat, kStream>(dst, s, d, f, n, fp);
}

// A gamma-curved flat: the curve runs over blocks of flat samples, then the block goes through
// the row of the kind.
template <bool kDark, DarkRule kRule, RowKind kKind>
void CalibrateGammaRow(float* dst, const float* s, const float* d, const float* f, int n, const FlatPlane& fp) {
  constexpr int kBlock = 512;
  float curved[kBlock];
  for (int x = 0; x < n; x += kBlock) {
    const int m = std::min(kBlock, n - x);
    fp.curve.RowRemembered(f + x, m, curved);
    CalibrateRowOf<kDark, kRule, true, kKind>(dst + x, s + x, kDark ? d + x : d, curved, m, fp);
  }
}

using CalibrateRowFn = void (*)(float*, const float*, const float*, const float*, int, const FlatPlane&);

template <bool kDark, DarkRule kRule, bool kFlat, bool kGamma, RowKind kKind>
CalibrateRowFn RowOf() {
  if constexpr (kGamma) return CalibrateGammaRow<kDark, kRule, kKind>;
  else return CalibrateRowOf<kDark, kRule, kFlat, kKind>;
}

template <bool kDark, DarkRule kRule, bool kFlat, bool kGamma>
CalibrateRowFn PickKind(RowKind kind) {
  switch (kind) {
    case RowKind::kScalar: return RowOf<kDark, kRule, kFlat, kGamma, RowKind::kScalar>();
    case RowKind::kVector: return RowOf<kDark, kRule, kFlat, kGamma, RowKind::kVector>();
    case RowKind::kStreamed: return RowOf<kDark, kRule, kFlat, kGamma, RowKind::kStreamed>();
    case RowKind::kWide: return RowOf<kDark, kRule, kFlat, kGamma, RowKind::kWide>();
    case RowKind::kWideStreamed: break;
  }
  return RowOf<kDark, kRule, kFlat, kGamma, RowKind::kWideStreamed>();
}

template <bool kDark, DarkRule kRule>
CalibrateRowFn PickFlatRow(const FlatPlane& fp, RowKind kind) {
  if (!fp.on) return PickKind<kDark, kRule, false, false>(kind);
  if (fp.gamma) return PickKind<kDark, kRule, true, true>(kind);
  return PickKind<kDark, kRule, true, false>(kind);
}

// The row function for one plane; the choice is made once per call.
CalibrateRowFn PickRow(const Pass& pass, const FlatPlane& fp, RowKind kind) {
  if (!pass.dark) return PickFlatRow<false, DarkRule::kLessEqualZero>(fp, kind);
  return pass.rule == DarkRule::kLessEqualZero ? PickFlatRow<true, DarkRule::kLessEqualZero>(fp, kind)
                                               : PickFlatRow<true, DarkRule::kNotAboveZero>(fp, kind);
}

// Dark and flat are read at the target's coordinates. The library makes no size check; a
// debug build asserts that a frame covers the region it is read over.
void CheckCovers([[maybe_unused]] const COrbImage* frame, [[maybe_unused]] int right, [[maybe_unused]] int bottom) {
  assert(!frame || (frame->GetWidth() >= right && frame->GetHeight() >= bottom));
}

// Runs the pass over the rectangle of every plane of target: planes in sequence, rows of a
// plane in parallel, one progress unit per row and plane.
void RunPass(COrbImage& target, const Pass& pass, const CRect* rect, int titleId, int progress) {
  int left, top, right, bottom;
  target.NormalizeRect(rect, left, top, right, bottom);
  if (right > left && bottom > top) {
    CheckCovers(pass.dark, right, bottom);
    CheckCovers(pass.flat, right, bottom);
  }
  const int planes = target.GetPlanes();
  const int width = right - left;
  target.ShowProgressInit(progress, titleId, (bottom > top ? bottom - top : 0) * planes);
  if (width > 0) {
    const bool vector = (CQrnSys::SIMD() & 2) != 0;
    const std::size_t bytes = sizeof(float) * std::size_t(width) * (bottom - top) * planes;
    const bool stream = vector && qrn::simd::StreamStores(bytes, pass.src == &target);
    const bool wide = vector && qrn::simd::WideVectors();
    const RowKind kind = !vector ? RowKind::kScalar
                         : wide  ? (stream ? RowKind::kWideStreamed : RowKind::kWide)
                                 : (stream ? RowKind::kStreamed : RowKind::kVector);
    CalibrateRowFn rows[CImage::kMaxPlanes] = {};
    for (int p = 0; p < planes; ++p) rows[p] = PickRow(pass, pass.planes[p], kind);
    CLineLoop loop(target);
    loop.RunPlanes(planes, top, bottom, [&](int p, int y) {
      LOCKHANDLE hs = nullptr, hd = nullptr, hk = nullptr, hf = nullptr;
      const FlatPlane& fp = pass.planes[p];
      const float* s = pass.src->GetImageAdr(left, y, p, VM_READONLY | VM_LOCK, &hs);
      float* dst = target.GetImageAdr(left, y, p, VM_LOCK, &hd);
      const float* d = nullptr;
      const float* f = nullptr;
      if (pass.dark) d = pass.dark->GetImageAdr(left, y, FramePlane(*pass.dark, p), VM_READONLY | VM_LOCK, &hk);
      if (fp.on) f = pass.flat->GetImageAdr(left, y, FramePlane(*pass.flat, p), VM_READONLY | VM_LOCK, &hf);
      rows[p](dst, s, d, f, width, fp);
      if (stream) qrn::simd::StreamFence();
      if (hf) pass.flat->Unlock(hf);
      if (hk) pass.dark->Unlock(hk);
      target.Unlock(hd);
      pass.src->Unlock(hs);
    });
  }
  target.ShowProgressEnd(nullptr);
}

// Fills the per-plane flat rules from the flat's minimum, maximum and mean (index 0 of each
// for a grey flat). A plane whose flat has no range switches the flat off for it and for
// every later plane.
void PrepareFlat(Pass& pass, int planes, const float* lo, const float* hi, const float* mean, float pedestal,
                 double gamma) {
  for (int p = 0; p < planes; ++p) {
    const int i = FramePlane(*pass.flat, p);
    if (lo[i] == hi[i]) break;
    FlatPlane& fp = pass.planes[p];
    fp.on = true;
    fp.gamma = gamma > 0.0;
    fp.hi = hi[i];
    fp.bottom = hi[i] - 2.0f * (hi[i] - lo[i]);
    fp.curve = CGammaCurve(fp.hi, fp.bottom, gamma);
    fp.m = fp.gamma ? fp.curve(mean[i]) : mean[i];
    fp.add = fp.m * pedestal;
  }
}

}  // namespace

// The flat's per-plane minimum, maximum (from CalcMinMax) and mean (as GetAvrGrayRaw gives
// it), all from one read of the flat.
void COrbImage::MeasureFlat(float* lo, float* hi, float* mean) {
  CalcMinMaxAndMeans(mean);
  for (int p = 0; p < GetPlanes(); ++p) {
    lo[p] = GetMinPixel(p);
    hi[p] = GetMaxPixel(p);
  }
}

float COrbImage::FlatGamma(float v, float top, float bottom, double gamma) { return CGammaCurve(top, bottom, gamma)(v); }

void COrbImage::DarkClbrtn(COrbImage* dark, int progress) {
  if (!dark) return;
  Pass pass;
  pass.src = this;
  pass.dark = dark;
  pass.rule = DarkRule::kLessEqualZero;
  RunPass(*this, pass, nullptr, kTitleDark, progress);
}

void COrbImage::FlatClbrtn(COrbImage* flat, int progress) {
  if (!flat) return;
  Pass pass;
  pass.src = this;
  pass.flat = flat;
  // One normaliser, the mean of the flat's plane 0, for every plane.
  const float m = flat->GetAvrGrayRaw(0);
  for (int p = 0; p < GetPlanes(); ++p) {
    pass.planes[p].on = true;
    pass.planes[p].m = m;
  }
  RunPass(*this, pass, nullptr, kTitleFlat, progress);
}

void COrbImage::FlatClbrtn(COrbImage* flat, float pedestal, double gamma, int progress) {
  if (!flat) return;
  float lo[kMaxPlanes] = {}, hi[kMaxPlanes] = {}, mean[kMaxPlanes] = {};
  flat->MeasureFlat(lo, hi, mean);
  Pass pass;
  pass.src = this;
  pass.flat = flat;
  PrepareFlat(pass, GetPlanes(), lo, hi, mean, pedestal, gamma);
  RunPass(*this, pass, nullptr, kTitleFlat, progress);
}

void COrbImage::DarkFlat(COrbImage* src, COrbImage* dark, COrbImage* flat, float* flatMin, float* flatMax,
                         float* flatMean, float pedestal, double gamma, CRect* rect, int progress) {
  Pass pass;
  pass.src = src ? src : this;
  pass.dark = dark;
  pass.flat = flat;
  pass.rule = DarkRule::kNotAboveZero;
  if (flat) {
    float lo[kMaxPlanes] = {}, hi[kMaxPlanes] = {}, mean[kMaxPlanes] = {};
    if (!flatMin || !flatMax || !flatMean) {
      flat->MeasureFlat(lo, hi, mean);
      flatMin = lo, flatMax = hi, flatMean = mean;
    }
    PrepareFlat(pass, GetPlanes(), flatMin, flatMax, flatMean, pedestal, gamma);
  }
  RunPass(*this, pass, rect, kTitleDarkFlat, progress);
}
