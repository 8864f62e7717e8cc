// Pixel-wise arithmetic with a constant.
#include "ops/calibration/ImgCalculation.h"

#include <cstring>

#include "core/LineLoop.h"
#include "kernels/Vec4.h"
#include "platform/QrnSys.h"

namespace {

constexpr int kTitleCalculation = 6109;

enum Op { kAdd = 0, kSub = 1, kMul = 2, kDiv = 3 };

// One sample; k is the operand (for kMul on the four-wide path's op 3, the reciprocal).
template <int kOp, bool kClip>
inline float Sample(float v, float k) {
  if constexpr (kOp == kAdd) return v + k;
  if constexpr (kOp == kSub) {
    const float r = v - k;
    return kClip && r < 0.0f ? 0.0f : r;
  }
  if constexpr (kOp == kMul) return v * k;
  return v / k;
}

template <int kOp, bool kClip>
inline Vec4f Sample(Vec4f v, Vec4f k) {
  if constexpr (kOp == kAdd) return v + k;
  if constexpr (kOp == kSub) {
    const Vec4f r = v - k;
    return kClip ? Vec4f::Select(r < Vec4f(0.0f), Vec4f(0.0f), r) : r;
  }
  if constexpr (kOp == kMul) return v * k;
  return v / k;
}

// Row functions: the scalar one is the reference, the four-wide one agrees sample for sample.
using RowFn = void (*)(float* dst, const float* src, int n, float k);

template <int kOp, bool kClip>
void Row(float* dst, const float* src, int n, float k) {
  for (int x = 0; x < n; ++x) dst[x] = Sample<kOp, kClip>(src[x], k);
}

template <int kOp, bool kClip>
void Row_x(float* dst, const float* src, int n, float k) {
  const Vec4f k4(k);
  int x = 0;
  for (; x + 4 <= n; x += 4) Sample<kOp, kClip>(Vec4f::Load(src + x), k4).Store(dst + x);
  for (; x < n; ++x) dst[x] = Sample<kOp, kClip>(src[x], k);
}

template <bool kVector>
RowFn PickRow(int op, bool clip) {
  switch (op) {
    case kAdd: return kVector ? Row_x<kAdd, false> : Row<kAdd, false>;
    case kSub:
      if (clip) return kVector ? Row_x<kSub, true> : Row<kSub, true>;
      return kVector ? Row_x<kSub, false> : Row<kSub, false>;
    case kMul: return kVector ? Row_x<kMul, false> : Row<kMul, false>;
    // The four-wide path divides by multiplying with the reciprocal.
    case kDiv: return kVector ? Row_x<kMul, false> : Row<kDiv, false>;
    default: return nullptr;
  }
}

void CopyRow(float* dst, const float* src, int n, float) {
  if (dst != src) std::memmove(dst, src, sizeof(float) * n);
}

}  // namespace

void CImgCalculation::Do(double value, int op, int clip, COrbImage* src, CRect* rect, int progress) {
  if (!src) src = this;
  const float k = static_cast<float>(value);
  const bool vector = (CQrnSys::SIMD() & 2) != 0;
  const bool valid = op >= kAdd && op <= kDiv && !(op == kDiv && k == 0.0f);
  // The four-wide path leaves the target untouched when there is nothing to compute.
  if (vector && !valid) return;
  RowFn row = !valid ? CopyRow : vector ? PickRow<true>(op, clip != 0) : PickRow<false>(op, clip != 0);
  const float operand = vector && op == kDiv ? static_cast<float>(1.0 / double(k)) : k;

  int left, top, right, bottom;
  NormalizeRect(rect, left, top, right, bottom);
  const int planes = GetPlanes();
  ShowProgressInit(progress, kTitleCalculation, (bottom > top ? bottom - top : 0) * planes);
  if (right > left) {
    CLineLoop loop(*this);
    loop.RunPlanes(planes, top, bottom, [&](int p, int y) {
      LOCKHANDLE hs = nullptr, hd = nullptr;
      const float* s = src->GetImageAdr(left, y, p, VM_READONLY | VM_LOCK, &hs);
      float* d = GetImageAdr(left, y, p, VM_LOCK, &hd);
      row(d, s, right - left, operand);
      Unlock(hd);
      src->Unlock(hs);
    });
  }
  ShowProgressEnd(nullptr);
}
