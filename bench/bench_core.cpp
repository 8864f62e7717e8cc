// Line access against the memory-copy baseline: a whole-plane walk that asks for one
// line address per line and then indexes along it.
#include <cstring>

#include "BenchCommon.h"

namespace {

void BM_CopyPlane(benchmark::State& state) {
  auto src = bench::MakeStarField(1);
  COrbImage dst(-32, src->GetWidth(), src->GetHeight(), 1);
  const std::size_t bytes = sizeof(float) * src->GetWidth();
  for (auto _ : state) {
    for (int y = 0; y < src->GetHeight(); ++y) std::memcpy(dst.GetImageAdr(0, y, 0, 0), src->GetImageAdr(0, y, 0), bytes);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * bytes * src->GetHeight());
}

// Reads every sample of the source and writes it, scaled, to the destination: the shape of
// a per-sample operation, single-threaded like the copy it is compared with.
void BM_LineAccessWalk(benchmark::State& state) {
  auto src = bench::MakeStarField(1);
  COrbImage dst(-32, src->GetWidth(), src->GetHeight(), 1);
  const int width = src->GetWidth();
  for (auto _ : state) {
    for (int y = 0; y < src->GetHeight(); ++y) {
      const float* in = src->GetImageAdr(0, y, 0, VM_READONLY);
      float* out = dst.GetImageAdr(0, y, 0, 0);
      for (int x = 0; x < width; ++x) out[x] = in[x] * 1.0f;
    }
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * sizeof(float) * width * src->GetHeight());
}

// The same walk with a counted lock on both lines, as loops that hold two lines do.
void BM_LockedLineAccessWalk(benchmark::State& state) {
  auto src = bench::MakeStarField(1);
  COrbImage dst(-32, src->GetWidth(), src->GetHeight(), 1);
  const int width = src->GetWidth();
  for (auto _ : state) {
    for (int y = 0; y < src->GetHeight(); ++y) {
      LOCKHANDLE in, out;
      const float* s = src->GetImageAdr(0, y, 0, VM_READONLY | VM_LOCK, &in);
      float* d = dst.GetImageAdr(0, y, 0, VM_LOCK, &out);
      for (int x = 0; x < width; ++x) d[x] = s[x] * 1.0f;
      src->Unlock(in);
      dst.Unlock(out);
    }
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * sizeof(float) * width * src->GetHeight());
}

}  // namespace

BENCHMARK(BM_CopyPlane)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LineAccessWalk)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LockedLineAccessWalk)->Unit(benchmark::kMillisecond)->UseRealTime();
