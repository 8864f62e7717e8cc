// Processor capability query.
#include "platform/QrnSys.h"

#include <atomic>

namespace {
std::atomic<int> g_override{-1};

constexpr int DetectedMask() {
#if defined(__x86_64__) || defined(__aarch64__) || defined(__SSE__) || defined(__ARM_NEON)
  return 2;
#else
  return 0;
#endif
}
}  // namespace

int CQrnSys::SIMD() {
  const int mask = g_override.load(std::memory_order_relaxed);
  return mask >= 0 ? mask : DetectedMask();
}

void CQrnSys::SetSIMD(int mask) { g_override.store(mask < 0 ? -1 : mask, std::memory_order_relaxed); }
