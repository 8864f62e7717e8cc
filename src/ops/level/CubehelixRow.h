// The cubehelix map's vector block, written once for any vector width and compiled by each
// file that runs it on one instruction set.
#pragma once

#include <cmath>
#include <cstring>
#include <numbers>

#include "kernels/VecCos.h"
#include "kernels/VecLogExp.h"

namespace qrn::falsecolor {

// What every row of Do needs: the source's scale, the stretch, the map and the target's levels.
struct Paint {
  int srcPlanes, cycles;
  float srcMin[3], srcScale[3];
  double low, stretch, dstMin[3], dstRange[3];
  bool widest = false;  // cubehelix blocks on 512-bit vectors

  /// The raw value of colour component c (0..255) in target plane k.
  float Raw(int k, double c) const { return static_cast<float>(c / 255.0 * dstRange[k] + dstMin[k]); }
};

/// Pixel i's raw values from its brightness t as GetFalseColor and the target's levels give
/// them, into raw[k][i]. In the baseline file.
void ExactHelix(const Paint& p, float t, float* const* raw, int i);

/// CubehelixBlock on 512-bit vectors, compiled in a file of its own for that instruction set.
/// Call it only when qrn::simd::WidestVectors() is true.
void CubehelixBlockWidest(const Paint& p, const float* t, int m, float (*raw)[256]);

// The block's templates live in the variant namespace of the vector functions, so that a
// file compiled for another instruction set makes copies of its own and never shares them.
inline namespace QRN_VMATH_VARIANT {

using namespace qrn::vmath;

// Cubehelix's weights of cos φ and sin φ in its three components, as SchemeColor<5>
// combines them.
constexpr double kHelixCos[3] = {-0.14861, -0.29227, 1.97294}, kHelixSin[3] = {1.78277, -0.90649, 0.0};

// True when every lane of a comparison mask is set, taken 64 bits at a time: a loop over the
// lanes would move each one to a general register.
template <class Mask>
inline bool AllSet(const Mask& mask) {
  unsigned long long words[sizeof(Mask) / 8];
  std::memcpy(words, &mask, sizeof words);
  unsigned long long all = ~0ull;
  for (unsigned long long w : words) all &= w;
  return all == ~0ull;
}

// The raw values of the cubehelix colours of W·N brightnesses t into raw[k][0, W·N), through
// the vector sine and cosine (N vectors side by side, so that their polynomial chains
// overlap), with the steps of FalseColorOf without cycles otherwise. A value is kept where it
// cannot differ from that of the exact colour, the cosine's and sine's errors carried
// through; the other pixels are computed by ExactHelix.
template <int W, int N>
inline void CubehelixV(const float* t, const Paint& p, float* const* raw) {
  using D = typename Lanes<W>::D;
  using F = typename Lanes<W>::F;
  using FloatMask = typename Lanes<W>::FloatMask;
  D f[N], amp[N], phi[N], sn[N], cs[N];
  for (int j = 0; j < N; ++j) {
    F in;
    std::memcpy(&in, t + W * j, sizeof in);
    D v = (Convert<D>(in) - p.low) * p.stretch;
    v = v == v ? v : D{};  // NaN
    v = v < 0.0 ? D{} : v;
    v = 255.0 < v ? Splat<D>(255.0) : v;
    f[j] = v * (1.0 / 255.0);
    amp[j] = f[j] * (1.0 - f[j]) / 2.0;
    phi[j] = 2.0 * std::numbers::pi * (0.5 / 3.0 - 1.5 * f[j]);
  }
  SinCos(phi, sn, cs);
  for (int j = 0; j < N; ++j) {
    FloatMask sure = ~FloatMask{};
    for (int k = 0; k < 3; ++k) {
      D c = f[j] + amp[j] * (kHelixCos[k] * cs[j] + kHelixSin[k] * sn[j]);
      c = c < 0.0 ? D{} : c;
      c = 1.0 < c ? Splat<D>(1.0) : c;
      // The colour's distance from the exact one, on the 0..1 scale: below amp·(|a| + |b|)·
      // (the sine's and cosine's error and std::sin's and std::cos's unit) + a few roundings,
      // under 2^-48. f's product with 1/255 in place of the division adds under 2^-49.6,
      // through the slope of the map (below 5); and the reference takes c·255 to the target
      // through /255·range, two roundings this path leaves out. Through the conversion,
      // ·|range|, plus the roundings of the conversion on both sides, below 2^-50 of
      // |value| + |min| ≤ |range| + 2|min|; all taken generously, and the same for every pixel.
      const D value = c * p.dstRange[k] + p.dstMin[k];
      const double margin =
          std::fabs(p.dstRange[k]) * 0x1p-46 + (std::fabs(p.dstRange[k]) + 2 * std::fabs(p.dstMin[k])) * 0x1p-50;
      const F lo = Convert<F>(value - margin), hi = Convert<F>(value + margin);
      sure &= (FloatMask)lo == (FloatMask)hi;
      std::memcpy(raw[k] + W * j, &lo, sizeof lo);
    }
    if (AllSet(sure)) continue;
    for (int i = 0; i < W; ++i)
      if (!sure[i]) ExactHelix(p, t[W * j + i], raw, W * j + i);
  }
}

// The raw values of a block of m cubehelix pixels, into raw[k][0, m): 32 pixels side by side,
// then single vectors, then the last pixels one at a time.
template <int W>
inline void CubehelixBlock(const Paint& p, const float* t, int m, float (*raw)[256]) {
  constexpr int kSideBySide = 32;
  int i = 0;
  for (; i + kSideBySide <= m; i += kSideBySide) {
    float* const rows[3] = {raw[0] + i, raw[1] + i, raw[2] + i};
    CubehelixV<W, kSideBySide / W>(t + i, p, rows);
  }
  for (; i + W <= m; i += W) {
    float* const rows[3] = {raw[0] + i, raw[1] + i, raw[2] + i};
    CubehelixV<W, 1>(t + i, p, rows);
  }
  float* const rows[3] = {raw[0], raw[1], raw[2]};
  for (; i < m; ++i) ExactHelix(p, t[i], rows, i);
}

}  // namespace QRN_VMATH_VARIANT
}  // namespace qrn::falsecolor
