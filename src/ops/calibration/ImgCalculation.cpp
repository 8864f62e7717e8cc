// Pixel-wise arithmetic with a constant.
#include "ops/calibration/ImgCalculation.h"

#include <algorithm>
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
// A row starts at column `left` of its line.
using RowFn = void (*)(float* dst, const float* src, int left, int n, float k);

template <int kOp, bool kClip>
void Row(float* dst, const float* src, int, int n, float k) {
  for (int x = 0; x < n; ++x) dst[x] = Sample<kOp, kClip>(src[x], k);
}

// Samples one by one until the column is a multiple of four, whole vectors from there, the
// rest one by one. Streamed (kStream), the vectors start at the first aligned address
// instead, as a streaming store needs.
template <int kOp, bool kClip, bool kStream>
void Row_x(float* dst, const float* src, int left, int n, float k) {
  const Vec4f k4(k);
  int x = kStream ? UnalignedHead<4>(dst, n) : std::min(n, (4 - left % 4) % 4);
  Row<kOp, kClip>(dst, src, left, x, k);
  for (; x + 4 <= n; x += 4) Put<kStream>(dst + x, Sample<kOp, kClip>(Vec4f::Load(src + x), k4));
  Row<kOp, kClip>(dst + x, src + x, left + x, n - x, k);
}

template <bool kVector, bool kStream = false>
RowFn PickRow(int op, bool clip) {
  switch (op) {
    case kAdd: return kVector ? Row_x<kAdd, false, kStream> : Row<kAdd, false>;
    case kSub:
      if (clip) return kVector ? Row_x<kSub, true, kStream> : Row<kSub, true>;
      return kVector ? Row_x<kSub, false, kStream> : Row<kSub, false>;
    case kMul: return kVector ? Row_x<kMul, false, kStream> : Row<kMul, false>;
    // The four-wide path divides by multiplying with the reciprocal.
    case kDiv: return kVector ? Row_x<kMul, false, kStream> : Row<kDiv, false>;
    default: return nullptr;
  }
}

void CopyRow(float* dst, const float* src, int, int n, float) {
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
  const float operand = vector && op == kDiv ? static_cast<float>(1.0 / double(k)) : k;

  int left, top, right, bottom;
  NormalizeRect(rect, left, top, right, bottom);
  const int planes = GetPlanes();
  const std::size_t bytes = sizeof(float) * std::size_t(std::max(right - left, 0)) * std::max(bottom - top, 0) * planes;
  const bool stream = vector && qrn::simd::StreamStores(bytes, src == this);
  const RowFn row = !valid   ? CopyRow
                    : stream ? PickRow<true, true>(op, clip != 0)
                    : vector ? PickRow<true>(op, clip != 0)
                             : PickRow<false>(op, clip != 0);
  ShowProgressInit(progress, kTitleCalculation, (bottom > top ? bottom - top : 0) * planes);
  if (right > left) {
    CLineLoop loop(*this);
    loop.RunPlanes(planes, top, bottom, [&](int p, int y) {
      LOCKHANDLE hs = nullptr, hd = nullptr;
      const float* s = src->GetImageAdr(left, y, p, VM_READONLY | VM_LOCK, &hs);
      float* d = GetImageAdr(left, y, p, VM_LOCK, &hd);
      row(d, s, left, right - left, operand);
      if (stream) qrn::simd::StreamFence();
      Unlock(hd);
      src->Unlock(hs);
    });
  }
  ShowProgressEnd(nullptr);
}
