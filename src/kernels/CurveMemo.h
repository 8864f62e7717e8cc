// A direct-mapped memory of a float curve's results, keyed by the input's bit pattern.
#pragma once

#include <cstdint>
#include <vector>

/// @brief Remembers y = curve(v) for float inputs seen before, so that a costly curve is
/// evaluated about once per distinct sample value. Calibration frames repeat their values
/// many times over: raw and median-combined flats hold integer counts, quantised flats a few
/// hundred levels. The table has 2^kBits entries chosen by a hash of the input's bits; an
/// entry holds the whole key, so a lookup never returns another input's result. Results are
/// the stored ones bit for bit, so they are exact when what was remembered was exact.
///
/// The hash is a Fibonacci hash of the key rotated right past the low bits in which the first
/// differing samples after Reset() agree: integer counts near 30000 step by 2^9 in their bit
/// patterns, and only with those bits rotated away does the hash spread neighbouring counts
/// over distinct entries instead of piling them onto a few.
class CCurveMemo {
 public:
  static constexpr int kBits = 15;

  /// Forgets every input. Empty entries carry the all-ones bit pattern (a NaN) as their key
  /// and `emptyValue` as their result, which must be the curve at that NaN: then even that
  /// input is answered correctly.
  void Reset(float emptyValue);

  /// For each v[i] remembered, out[i] = its result; the positions i of the others go to
  /// `missing` (room for n) and out[i] is left unspecified. Returns the number missing. The
  /// first call after Reset() whose samples are not all alike also fixes the hash's rotation.
  int Find(const float* v, int n, float* out, int* missing);

  /// Remembers y for v, replacing whatever shared its entry.
  void Remember(float v, float y);

  bool Empty() const { return m_entries.empty(); }

 private:
  static constexpr std::uint32_t kHash = 0x9E3779B1u;
  std::uint32_t Slot(std::uint32_t key) const {
    const std::uint32_t rotated = m_rotate ? (key >> m_rotate) | (key << (32 - m_rotate)) : key;
    return (rotated * kHash) >> (32 - kBits);
  }
  void Tune(const float* v, int n);
  int FindWide(const float* v, int n, float* out, int* missing) const;
  int FindWidest(const float* v, int n, float* out, int* missing) const;
  int FindNarrow(const float* v, int n, float* out, int* missing) const;

  // An entry holds the key in its low half and the result's bits in its high half, so that
  // one 64-bit fetch brings both.
  std::vector<std::uint64_t> m_entries;
  int m_rotate = 0;
  bool m_tuned = false;
};
