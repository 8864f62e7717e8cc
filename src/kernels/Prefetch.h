// Software prefetch for loops that stream rows of samples.
#pragma once

namespace qrn::simd {

/// How far ahead of a streaming loop its rows are asked for, in floats (4 KiB). Where a loop
/// does little per sample, or streams several rows at once, the hardware's own prefetch can
/// fall well short of the pace the loop could keep (a third of the time of histogram
/// equalisation on a virtual machine with a large shared cache); asking this far ahead hides
/// the latency without pushing out lines the loop still needs.
constexpr int kPrefetchAhead = 1024;

/// Asks for the line kPrefetchAhead floats past p + x, once per 64-byte line: call it at every
/// step of a loop whose x advances by 4, 8 or 16. Asking past the end of a row is harmless.
inline void PrefetchRead(const float* p, int x) {
  if (x % 16 == 0) __builtin_prefetch(p + x + kPrefetchAhead, 0);
}

/// The same for a row the loop writes: the line is fetched for writing.
inline void PrefetchWrite(float* p, int x) {
  if (x % 16 == 0) __builtin_prefetch(p + x + kPrefetchAhead, 1);
}

}  // namespace qrn::simd
