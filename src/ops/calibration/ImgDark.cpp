// Dark-frame synthesis from two measured darks.
#include "ops/calibration/ImgDark.h"

#include <cmath>

#include "kernels/Vec4.h"

namespace {
constexpr int kTitleDarkInterpolation = 6183;

// d0[x] = mix(d0[x], d1[x]) in double, stored as float.
template <class Mix>
void MixRow(float* d0, const float* d1, int n, const Mix& mix) {
  for (int x = 0; x < n; ++x) d0[x] = static_cast<float>(mix(double(d0[x]), double(d1[x])));
}

// The same row compiled for 256-bit vectors: four doubles a step.
template <class Mix>
QRN_WIDE_TARGET void MixRowWide(float* d0, const float* d1, int n, const Mix& mix) {
  MixRow(d0, d1, n, mix);
}
}  // namespace

// Replaces every sample d0 of this image by mix(d0, d1), d1 the matching sample of other.
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
      if (wide) MixRowWide(d0, d1, width, mix);
      else MixRow(d0, d1, width, mix);
      other->Unlock(ho);
      Unlock(hd);
      ShowProgress(1);
    }
  }
  ShowProgressEnd(nullptr);
}

void CImgDark::DoInterpolateByScore(COrbImage* other, double target, double mine, double others, int progress) {
  Interpolate(other, progress, [=](double d0, double d1) {
    const double r = d0 + (d1 - d0) * (target - mine) / (others - mine);
    if (r > d1) return d1;
    if (r < d0) return d0;
    return r;
  });
}

void CImgDark::DoInterpolateByProportion(COrbImage* other, double t, double t0, double t1, double e0, double e1,
                                         double e, int progress) {
  Interpolate(other, progress, [=](double d0, double d1) {
    return d0 + (d1 - d0) * (t - t0) / (t1 - t0) + (d1 - d0) * (e - e0) / (e1 - e0);
  });
}

void CImgDark::DoInterpolateByPower(COrbImage* other, double t, double t0, double t1, double a, double b, double c,
                                    double doubling, int progress) {
  const double x = std::fabs(b - c) <= std::fabs(c - a) ? b : a;
  // Only c is divided by the doubling; the order is kept on purpose.
  const double k = std::pow(2.0, x - c / doubling);
  Interpolate(other, progress, [=](double d0, double d1) { return d0 + (d1 - d0) * (t - t0) / (t1 - t0) + d0 * k; });
}
