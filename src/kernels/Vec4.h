// Four- and eight-wide float vectors and four-wide double vectors for the row functions of per-sample operations.
#pragma once
#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#if defined(__x86_64__)
#include <immintrin.h>
#endif

/// Vector-extension types of each lane type and width.
template <class T, int N>
struct VecRaw;
template <>
struct VecRaw<float, 4> {
  typedef float Raw __attribute__((vector_size(16)));
  typedef int Mask __attribute__((vector_size(16)));
};
template <>
struct VecRaw<float, 8> {
  typedef float Raw __attribute__((vector_size(32)));
  typedef int Mask __attribute__((vector_size(32)));
};
template <>
struct VecRaw<double, 4> {
  typedef double Raw __attribute__((vector_size(32)));
  typedef long long Mask __attribute__((vector_size(32)));
};

/// @brief N lanes of T processed together: Vec4f, Vec8f, Vec4d. Built on the compiler's vector
/// extension, so the same code gives packed instructions on x86-64 and AArch64: 128-bit for
/// Vec4f; 256-bit for Vec8f inside QRN_WIDE_TARGET functions. Loads and stores are unaligned;
/// a row loop runs `x + N <= n` and finishes the tail with a narrower or scalar helper. Every
/// operation is exact (min, max, compare, select) or lane-wise IEEE arithmetic rounded as
/// the scalar type is, so the widths give the same values.
template <class T, int N>
struct VecN {
  using Raw = typename VecRaw<T, N>::Raw;
  using Mask = typename VecRaw<T, N>::Mask;
  static constexpr int kWidth = N;
  Raw v;

  VecN() : v{} {}
  VecN(const Raw& r) : v(r) {}  // NOLINT
  // s − 0 in every lane is s itself (−0 and NaN included), written so that the compiler
  // sees one broadcast, which it keeps out of loops.
  explicit VecN(T s) : v(s - Raw{}) {}

  static VecN Load(const T* p) {
    Raw r;
    std::memcpy(&r, p, sizeof r);
    return r;
  }
  void Store(T* p) const { std::memcpy(p, &v, sizeof v); }
  T operator[](int i) const { return v[i]; }

  friend VecN operator+(const VecN& a, const VecN& b) { return a.v + b.v; }
  friend VecN operator-(const VecN& a, const VecN& b) { return a.v - b.v; }
  friend VecN operator*(const VecN& a, const VecN& b) { return a.v * b.v; }
  friend VecN operator/(const VecN& a, const VecN& b) { return a.v / b.v; }

  /// Per lane: mask ? a : b, where mask lanes are all ones or all zeros.
  static VecN Select(const Mask& mask, const VecN& a, const VecN& b) { return mask ? a.v : b.v; }
  friend Mask operator<(const VecN& a, const VecN& b) { return a.v < b.v; }
  friend Mask operator<=(const VecN& a, const VecN& b) { return a.v <= b.v; }
  friend Mask operator>(const VecN& a, const VecN& b) { return a.v > b.v; }
  friend Mask operator>=(const VecN& a, const VecN& b) { return a.v >= b.v; }
  friend Mask operator==(const VecN& a, const VecN& b) { return a.v == b.v; }
  /// Lane-wise minimum and maximum with the scalar rule `a < b ? a : b` (NaN in a gives b).
  static VecN Min(const VecN& a, const VecN& b) { return a.v < b.v ? a.v : b.v; }
  static VecN Max(const VecN& a, const VecN& b) { return a.v > b.v ? a.v : b.v; }
  /// Lane-wise |a|: the sign bit cleared, so a NaN stays a NaN.
  static VecN Abs(const VecN& a) {
    const Raw negativeZero = T(-0.0) - Raw{};
    Mask bits, sign;
    std::memcpy(&bits, &a.v, sizeof bits);
    std::memcpy(&sign, &negativeZero, sizeof sign);
    bits &= ~sign;
    Raw r;
    std::memcpy(&r, &bits, sizeof r);
    return r;
  }
};

using Vec4f = VecN<float, 4>;
using Vec8f = VecN<float, 8>;
using Vec4d = VecN<double, 4>;

/// Lane-wise conversion between four floats and four doubles (float to double is exact;
/// double to float rounds each lane as a scalar static_cast does).
/// ToDouble names the lanes one by one: __builtin_convertvector would be split into two
/// 128-bit halves in this (baseline) function before it is inlined into a 256-bit row, and
/// stay split there, where the lanes named one by one become one conversion.
inline Vec4d ToDouble(const Vec4f& f) { return Vec4d::Raw{f.v[0], f.v[1], f.v[2], f.v[3]}; }
inline Vec4f ToFloat(const Vec4d& d) { return __builtin_convertvector(d.v, Vec4f::Raw); }

/// Lane-wise truncation toward zero to int, as a scalar static_cast<int> does. Lanes must lie
/// within the int range (callers clamp first).
template <int N>
inline typename VecN<float, N>::Mask TruncToInt(const VecN<float, N>& f) {
  return __builtin_convertvector(f.v, typename VecN<float, N>::Mask);
}

/// Lane-wise int to float, as a scalar static_cast<float> does.
template <int N>
inline VecN<float, N> ToFloat(const typename VecN<float, N>::Mask& i) {
  return __builtin_convertvector(i, typename VecN<float, N>::Raw);
}

/// QRN_WIDE_TARGET marks a row function compiled for 256-bit vectors (AVX2 on x86-64) with
/// every helper it calls inlined into it, so that Vec8f code inside runs on ymm registers.
/// Such a function may only be called when WideVectors() is true; callers choose once per
/// call between it and the four-wide function. No FMA is enabled, so a product followed by
/// a sum is still rounded twice, as on the four-wide path.
///
/// QRN_WIDE_FMA_TARGET adds fused multiply-add, which the compiler then uses for products
/// followed by sums. It is only for functions whose results do not depend on how their
/// intermediate steps round (an approximation checked against its error bound, say), or
/// that sit in a file compiled with -ffp-contract=off and fuse only where they say so; and
/// only when FusedMultiplyAdd() is true.
///
/// QRN_WIDEST_TARGET marks a function for the 512-bit instructions WidestVectors() checks. It
/// is only for functions written with intrinsics alone: generic vector helpers inlined into
/// such a function keep their baseline code (rows written with them live in files compiled
/// for that instruction set instead). Defined only where QRN_HAVE_WIDE_TARGET is 1.
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define QRN_WIDE_TARGET __attribute__((target("avx2"), flatten))
#define QRN_WIDE_FMA_TARGET __attribute__((target("avx2,fma"), flatten))
#define QRN_WIDEST_TARGET __attribute__((target("avx512f,avx512dq,avx512vl,avx512bw,avx2,fma")))
#define QRN_HAVE_WIDE_TARGET 1
#else
#define QRN_WIDE_TARGET
#define QRN_WIDE_FMA_TARGET
#define QRN_HAVE_WIDE_TARGET 0
#endif

/// Functions written with 512-bit intrinsics sit between these two: GCC 12 takes the
/// deliberately undefined operand inside several of those intrinsics for an uninitialised
/// variable and warns where they are inlined.
#if defined(__GNUC__) && !defined(__clang__)
#define QRN_WIDEST_INTRINSICS_BEGIN                                                    \
  _Pragma("GCC diagnostic push") _Pragma("GCC diagnostic ignored \"-Wuninitialized\"") \
      _Pragma("GCC diagnostic ignored \"-Wmaybe-uninitialized\"")
#define QRN_WIDEST_INTRINSICS_END _Pragma("GCC diagnostic pop")
#else
#define QRN_WIDEST_INTRINSICS_BEGIN
#define QRN_WIDEST_INTRINSICS_END
#endif

/// True when every lane of a comparison mask (all ones or all zeros per lane) is set.
template <class Mask>
inline bool AllLanes(const Mask& mask) {
  int all = -1;
  for (std::size_t i = 0; i < sizeof mask / sizeof mask[0]; ++i) all &= mask[i];
  return all != 0;
}
#if defined(__x86_64__)
inline bool AllLanes(const Vec4f::Mask& mask) { return _mm_movemask_ps(reinterpret_cast<const __m128&>(mask)) == 0xf; }
__attribute__((target("avx"))) inline bool AllLanes(const Vec8f::Mask& mask) {
  return _mm256_movemask_ps(reinterpret_cast<const __m256&>(mask)) == 0xff;
}
#endif

/// out = the correctly rounded square roots of the four lanes of q, as std::sqrt gives them
/// (two 128-bit instructions on x86-64).
// GCC warns that q may be uninitialised where a caller fills an array of vectors in a loop
// and inlines this; the warning is false, and the lane-wise form measured fastest.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
inline void SqrtLanes(const Vec4d::Raw& q, Vec4d::Raw& out) {
#if defined(__x86_64__)
  const __m128d lo = _mm_sqrt_pd(_mm_set_pd(q[1], q[0])), hi = _mm_sqrt_pd(_mm_set_pd(q[3], q[2]));
  out = Vec4d::Raw{lo[0], lo[1], hi[0], hi[1]};
#else
  for (int i = 0; i < 4; ++i) out[i] = __builtin_sqrt(q[i]);
#endif
}
#pragma GCC diagnostic pop

/// out[i] = table[idx[i]] for the eight lanes, with out aligned for StoreStream when
/// kStream; every index must lie inside the table. One gather instruction where the
/// processor has it.
///
/// The AVX helpers here take and give vectors only through references and pointers: a
/// function compiled for another instruction set passes 32-byte vectors by value in other
/// registers, so a call that is not inlined (as in unoptimised builds) must not carry one.
#if QRN_HAVE_WIDE_TARGET
template <bool kStream>
__attribute__((target("avx2"))) inline void GatherTo(const float* table, const Vec8f::Mask& idx, float* out) {
  const __m256 r = _mm256_i32gather_ps(table, reinterpret_cast<const __m256i&>(idx), 4);
  if constexpr (kStream) _mm256_stream_ps(out, r);
  else _mm256_storeu_ps(out, r);
}
#else
template <bool kStream>
inline void GatherTo(const float* table, const Vec8f::Mask& idx, float* out) {
  for (int i = 0; i < 8; ++i) out[i] = table[idx[i]];
}
#endif

/// Stores v at p, which must be aligned to the vector's size, with a non-temporal hint
/// where the processor has one (see qrn::simd::StreamStores); ordered by StreamFence().
#if defined(__x86_64__)
inline void StoreStream(float* p, const Vec4f& v) { _mm_stream_ps(p, v.v); }
__attribute__((target("avx"))) inline void StoreStream(float* p, const Vec8f& v) {
  _mm256_stream_ps(p, v.v);
}
#else
template <int N>
inline void StoreStream(float* p, const VecN<float, N>& v) {
  v.Store(p);
}
#endif

/// v.Store(p), or StoreStream(p, v) when kStream (p then aligned to the vector's size).
template <bool kStream, int N>
inline void Put(float* p, const VecN<float, N>& v) {
  if constexpr (kStream) StoreStream(p, v);
  else v.Store(p);
}

/// How many of the n floats at p come before the first address aligned for StoreStream of
/// N floats: the head that a streamed row writes without vectors.
template <int N>
inline int UnalignedHead(const float* p, int n) {
  const std::size_t misplaced = reinterpret_cast<std::uintptr_t>(p) % (N * sizeof(float)) / sizeof(float);
  return misplaced == 0 ? 0 : std::min<int>(n, N - static_cast<int>(misplaced));
}

namespace qrn::simd {

/// -1: detect; 0: wide row functions off; 1: on when the processor has them.
inline std::atomic<int> g_wideMode{-1};

/// True when the QRN_WIDE_TARGET row functions can run (the processor has AVX2) and have not
/// been turned off with SetWideVectors(0).
inline bool WideVectors() {
#if QRN_HAVE_WIDE_TARGET
  static const bool native = __builtin_cpu_supports("avx2");
  return native && g_wideMode.load(std::memory_order_relaxed) != 0;
#else
  return false;
#endif
}

/// -1: detect; 0: fused multiply-add row functions off.
inline std::atomic<int> g_fmaMode{-1};

/// True when WideVectors() is, the processor also has fused multiply-add and it has not been
/// turned off with SetFusedMultiplyAdd(0), so that QRN_WIDE_FMA_TARGET functions can run.
inline bool FusedMultiplyAdd() {
#if QRN_HAVE_WIDE_TARGET
  static const bool native = __builtin_cpu_supports("fma");
  return native && g_fmaMode.load(std::memory_order_relaxed) != 0 && WideVectors();
#else
  return false;
#endif
}

/// -1: detect; 0: 512-bit row functions off.
inline std::atomic<int> g_widestMode{-1};

/// True when FusedMultiplyAdd() is, the processor also has the 512-bit vector instructions
/// (AVX-512 F, DQ, VL and BW) and they have not been turned off with SetWidestVectors(0), so
/// that the 512-bit rows can run. Those rows live in files of their own, compiled for that
/// instruction set (see kernels/GammaCurveWidest.cpp).
inline bool WidestVectors() {
#if QRN_HAVE_WIDE_TARGET
  static const bool native = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
                             __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512bw");
  return native && g_widestMode.load(std::memory_order_relaxed) != 0 && FusedMultiplyAdd();
#else
  return false;
#endif
}

/// Turns the 512-bit row functions off (0) or back to detection, for tests.
inline void SetWidestVectors(int mode) { g_widestMode.store(mode == 0 ? 0 : -1, std::memory_order_relaxed); }

/// Turns the fused multiply-add row functions off (0) or back to detection, for tests.
inline void SetFusedMultiplyAdd(int mode) { g_fmaMode.store(mode == 0 ? 0 : -1, std::memory_order_relaxed); }

/// Turns the wide row functions off (0) or back to detection (any other value), so that tests
/// can run the four-wide and the eight-wide variants on one machine.
inline void SetWideVectors(int mode) { g_wideMode.store(mode == 0 ? 0 : -1, std::memory_order_relaxed); }

/// -1: by size; 0: streaming stores off; 1: on for every size.
inline std::atomic<int> g_streamMode{-1};

/// Output size from which rows are written with streaming stores: well beyond what the
/// caches keep, so the samples would be written back to memory anyway.
constexpr std::size_t kStreamBytes = std::size_t(8) << 20;

/// True when an operation that writes `bytes` of samples should write its rows with
/// streaming stores (Put<true>): the lines then go to memory without first being read into
/// the cache for ownership, which saves a third of a memory-bound pass. Not for rows
/// rewritten in place: reading them has already brought their lines into the cache, and a
/// streaming store would only push them out early. Chosen once per call; a row written so
/// ends with StreamFence().
inline bool StreamStores(std::size_t bytes, bool inPlace) {
  const int mode = g_streamMode.load(std::memory_order_relaxed);
  return mode < 0 ? bytes >= kStreamBytes && !inPlace : mode != 0;
}

/// Streaming stores by size and place (any negative mode), never (0) or always (positive, in
/// place too), for tests.
inline void SetStreamStores(int mode) { g_streamMode.store(mode < 0 ? -1 : mode != 0, std::memory_order_relaxed); }

/// Orders the streamed stores before everything that follows, so the samples are ordinary
/// memory again for every thread.
inline void StreamFence() {
#if defined(__x86_64__)
  _mm_sfence();
#endif
}

}  // namespace qrn::simd
