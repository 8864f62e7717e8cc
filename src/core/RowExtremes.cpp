#include "core/RowExtremes.h"

#include <limits>

#include "kernels/Prefetch.h"
#include "kernels/Vec4.h"

namespace {

template <class V>
void FindWith(const float* v, int n, float& min, float& max) {
  constexpr float inf = std::numeric_limits<float>::infinity();
  V lo(inf), hi(-inf);
  int x = 0;
  for (; x + V::kWidth <= n; x += V::kWidth) {
    qrn::simd::PrefetchRead<V::kWidth>(v + x);
    const V s = V::Load(v + x);
    lo = V::Min(s, lo);
    hi = V::Max(s, hi);
  }
  float mn = inf, mx = -inf;
  for (int j = 0; j < V::kWidth; ++j) {
    if (lo[j] < mn) mn = lo[j];
    if (hi[j] > mx) mx = hi[j];
  }
  if (mn == 0.0f || mx == 0.0f) {
    mn = inf, mx = -inf;
    x = 0;
  }
  for (; x < n; ++x) {
    if (v[x] < mn) mn = v[x];
    if (v[x] > mx) mx = v[x];
  }
  min = mn;
  max = mx;
}

QRN_WIDE_TARGET void FindWide(const float* v, int n, float& min, float& max) { FindWith<Vec8f>(v, n, min, max); }

}  // namespace

void CRowExtremes::Find(const float* v, int n, float& min, float& max) {
  if (qrn::simd::WideVectors()) FindWide(v, n, min, max);
  else FindWith<Vec4f>(v, n, min, max);
}
