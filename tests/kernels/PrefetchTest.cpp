#include "kernels/Prefetch.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

// How many steps of a loop that walks `steps` steps of kStep floats from `start` would ask
// for a line, and whether every 64-byte line it touches got exactly one request.
template <int kStep>
void ExpectOneRequestPerLine(const float* start, int steps) {
  int requests = 0;
  std::uintptr_t lastLine = ~std::uintptr_t(0);
  for (int i = 0; i < steps; ++i) {
    const float* p = start + i * kStep;
    const std::uintptr_t line = reinterpret_cast<std::uintptr_t>(p) / 64;
    if (qrn::simd::FirstStepInLine<kStep>(p)) {
      EXPECT_NE(line, lastLine) << "two requests in one line at step " << i;
      lastLine = line;
      ++requests;
    }
  }
  const std::uintptr_t first = reinterpret_cast<std::uintptr_t>(start) / 64;
  const std::uintptr_t last = reinterpret_cast<std::uintptr_t>(start + (steps - 1) * kStep) / 64;
  // The first line is asked for only when the loop starts at its first step there.
  const bool startsLine = qrn::simd::FirstStepInLine<kStep>(start);
  EXPECT_EQ(requests, static_cast<int>(last - first) + (startsLine ? 1 : 0));
}

TEST(Prefetch, EveryLineIsAskedForOnceWhateverTheRowsStart) {
  alignas(64) static float row[4096];
  // A row may start anywhere a float can: an unaligned head, a clipped rectangle's left edge.
  for (int offset = 0; offset < 16; ++offset) {
    ExpectOneRequestPerLine<4>(row + offset, 600);
    ExpectOneRequestPerLine<8>(row + offset, 300);
    ExpectOneRequestPerLine<16>(row + offset, 150);
  }
}

}  // namespace
