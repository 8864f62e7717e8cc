// Software prefetch for loops that stream rows of samples.
#pragma once
#include <cstdint>

namespace qrn::simd {

/// How far ahead of a streaming loop its rows are asked for, in floats (4 KiB). Where a loop
/// does little per sample, or streams several rows at once, the hardware's own prefetch can
/// fall well short of the pace the loop could keep (a third of the time of histogram
/// equalisation on a virtual machine with a large shared cache); asking this far ahead hides
/// the latency without pushing out lines the loop still needs.
constexpr int kPrefetchAhead = 1024;

/// True at one step in each 64-byte line for a loop that advances a float pointer by kStep,
/// whatever the row's alignment.
template <int kStep>
inline bool FirstStepInLine(const float* p) {
  static_assert(kStep == 4 || kStep == 8 || kStep == 16, "a step of 16, 32 or 64 bytes");
  return (reinterpret_cast<std::uintptr_t>(p) & 63) < kStep * sizeof(float);
}

/// The address kPrefetchAhead floats past p, taken as a number: it may lie beyond the end of
/// p's row, where a pointer may not be formed, and a prefetch of it never faults.
inline const void* AheadOf(const float* p) {
  return reinterpret_cast<const void*>(reinterpret_cast<std::uintptr_t>(p) + kPrefetchAhead * sizeof(float));
}

/// Asks for the line kPrefetchAhead floats past p, once per line: call it at every step of a
/// loop that reads p and advances it by kStep floats.
template <int kStep>
inline void PrefetchRead(const float* p) {
  if (FirstStepInLine<kStep>(p)) __builtin_prefetch(AheadOf(p), 0);
}

/// The same for a row the loop writes: the line is fetched for writing.
template <int kStep>
inline void PrefetchWrite(float* p) {
  if (FirstStepInLine<kStep>(p)) __builtin_prefetch(AheadOf(p), 1);
}

}  // namespace qrn::simd
