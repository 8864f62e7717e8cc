// Dark-frame synthesis from two measured darks.
#include "ops/calibration/ImgDark.h"

#include <cmath>

#include "kernels/Vec4.h"

namespace {
constexpr int kTitleDarkInterpolation = 6183;

// Per-lane choice with the same rule for a double and for four doubles.
inline double Choose(bool take, double a, double b) { return take ? a : b; }
inline Vec4d Choose(const Vec4d::Mask& take, const Vec4d& a, const Vec4d& b) { return Vec4d::Select(take, a, b); }

// out[x] = mix(d0[x], d1[x]) in double, stored as float: the reference row.
template <class Mix>
void MixRow(const float* d0, const float* d1, int n, float* out, const Mix& mix) {
  for (int x = 0; x < n; ++x) out[x] = static_cast<float>(mix(double(d0[x]), double(d1[x])));
}

// The same row four doubles a step, compiled for 256-bit vectors. Each lane takes the
// reference's double steps in the same order, so the stored floats are identical.
template <class Mix>
QRN_WIDE_TARGET void MixRowWide(const float* d0, const float* d1, int n, float* out, const Mix& mix) {
  int x = 0;
  for (; x + 4 <= n; x += 4)
    ToFloat(mix(ToDouble(Vec4f::Load(d0 + x)), ToDouble(Vec4f::Load(d1 + x)))).Store(out + x);
  MixRow(d0 + x, d1 + x, n - x, out + x, mix);
}
}  // namespace

// Replaces every sample d0 of this image by mix(d0, d1), d1 the matching sample of other.
// mix takes and returns either doubles or Vec4d.
template <class Mix>
void CImgDark::Interpolate(COrbImage* other, int progress, Mix&& mix) {
  if (!other) return;
  const int planes = GetPlanes(), width = GetWidth(), height = GetHeight();
  const bool wide = qrn::simd::WideVectors();
  ShowProgressInit(progress, kTitleDarkInterpolation, height * planes);
  for (int p = 0; p < planes; ++p) {
    const int op = other->IsColor() ? p : 0;
    for (int y = 0; y < height; ++y) {
      LOCKHANDLE hd = nullptr, ho = nullptr;
      float* d0 = GetImageAdr(0, y, p, VM_LOCK, &hd);
      const float* d1 = other->GetImageAdr(0, y, op, VM_READONLY | VM_LOCK, &ho);
      if (wide) MixRowWide(d0, d1, width, d0, mix);
      else MixRow(d0, d1, width, d0, mix);
      other->Unlock(ho);
      Unlock(hd);
      ShowProgress(1);
    }
  }
  ShowProgressEnd(nullptr);
}

void CImgDark::DoInterpolateByScore(COrbImage* other, double target, double mine, double others, int progress) {
  Interpolate(other, progress, [=](auto d0, auto d1) {
    using V = decltype(d0);
    const V r = d0 + (d1 - d0) * V(target - mine) / V(others - mine);
    return Choose(r > d1, d1, Choose(r < d0, d0, r));
  });
}

void CImgDark::DoInterpolateByProportion(COrbImage* other, double t, double t0, double t1, double e0, double e1,
                                         double e, int progress) {
  Interpolate(other, progress, [=](auto d0, auto d1) {
    using V = decltype(d0);
    return d0 + (d1 - d0) * V(t - t0) / V(t1 - t0) + (d1 - d0) * V(e - e0) / V(e1 - e0);
  });
}

void CImgDark::DoInterpolateByPower(COrbImage* other, double t, double t0, double t1, double a, double b, double c,
                                    double doubling, int progress) {
  const double x = std::fabs(b - c) <= std::fabs(c - a) ? b : a;
  // Only c is divided by the doubling; the order is kept on purpose.
  const double k = std::pow(2.0, x - c / doubling);
  Interpolate(other, progress, [=](auto d0, auto d1) {
    using V = decltype(d0);
    return d0 + (d1 - d0) * V(t - t0) / V(t1 - t0) + d0 * V(k);
  });
}
