// Four-wide single-precision vectors for the row functions of per-sample operations.
#pragma once
#include <cstring>

/// @brief Four floats processed together. Built on the compiler's vector extension, so the
/// same code gives 128-bit packed instructions on x86-64 and AArch64. Loads and stores are
/// unaligned; a row loop runs `x + 4 <= n` and finishes the tail with the scalar helper.
struct Vec4f {
  typedef float Raw __attribute__((vector_size(16)));
  typedef int Mask __attribute__((vector_size(16)));
  Raw v;

  Vec4f() : v{0, 0, 0, 0} {}
  Vec4f(Raw r) : v(r) {}  // NOLINT
  explicit Vec4f(float s) : v{s, s, s, s} {}

  static Vec4f Load(const float* p) {
    Raw r;
    std::memcpy(&r, p, sizeof r);
    return r;
  }
  void Store(float* p) const { std::memcpy(p, &v, sizeof v); }
  float operator[](int i) const { return v[i]; }

  friend Vec4f operator+(Vec4f a, Vec4f b) { return a.v + b.v; }
  friend Vec4f operator-(Vec4f a, Vec4f b) { return a.v - b.v; }
  friend Vec4f operator*(Vec4f a, Vec4f b) { return a.v * b.v; }
  friend Vec4f operator/(Vec4f a, Vec4f b) { return a.v / b.v; }

  /// Per lane: mask ? a : b, where mask lanes are all ones or all zeros.
  static Vec4f Select(Mask mask, Vec4f a, Vec4f b) {
    return mask ? a.v : b.v;
  }
  friend Mask operator<(Vec4f a, Vec4f b) { return a.v < b.v; }
  friend Mask operator<=(Vec4f a, Vec4f b) { return a.v <= b.v; }
  friend Mask operator>(Vec4f a, Vec4f b) { return a.v > b.v; }
  friend Mask operator>=(Vec4f a, Vec4f b) { return a.v >= b.v; }
  /// Lane-wise minimum and maximum with the scalar rule `a < b ? a : b` (NaN in a gives b).
  static Vec4f Min(Vec4f a, Vec4f b) { return a.v < b.v ? a.v : b.v; }
  static Vec4f Max(Vec4f a, Vec4f b) { return a.v > b.v ? a.v : b.v; }
};
