// Shared images and the memory-copy baseline for the benchmarks.
#include "BenchCommon.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>

#include "kernels/Vec4.h"

namespace bench {

namespace {

// QRN_BENCH_VECTORS=256 or 128 caps the row code at that vector width, so that the paths of
// processors without the wider instructions can be timed on one that has them.
const bool kVectorsCapped = [] {
  const char* cap = std::getenv("QRN_BENCH_VECTORS");
  if (!cap) return false;
  const int bits = std::atoi(cap);
  if (bits < 512) qrn::simd::SetWidestVectors(0);
  if (bits < 256) qrn::simd::SetWideVectors(0);
  return bits < 512;
}();

}  // namespace

std::unique_ptr<COrbImage> MakeStarField(int planes, int side) {
  auto image = std::make_unique<COrbImage>(-32, side, side, planes);
  std::mt19937 rng(12345);
  std::normal_distribution<float> noise(0.0f, 12.0f);
  for (int p = 0; p < planes; ++p) {
    const float tint = 1.0f - 0.1f * p;
    for (int y = 0; y < side; ++y) {
      float* line = image->GetImageAdr(0, y, p, 0);
      for (int x = 0; x < side; ++x) line[x] = 1000.0f + 0.05f * x + 0.03f * y + noise(rng);
    }
    std::mt19937 starRng(777);
    std::uniform_real_distribution<float> pos(8.0f, side - 8.0f), flux(200.0f, 30000.0f);
    for (int s = 0; s < side * side / 4000; ++s) {
      const float cx = pos(starRng), cy = pos(starRng), peak = flux(starRng) * tint;
      for (int y = int(cy) - 6; y <= int(cy) + 6; ++y) {
        float* line = image->GetImageAdr(0, y, p, 0);
        for (int x = int(cx) - 6; x <= int(cx) + 6; ++x) {
          const float d2 = (x - cx) * (x - cx) + (y - cy) * (y - cy);
          line[x] += peak * std::exp(-d2 / (2.0f * 1.8f * 1.8f));
        }
      }
    }
    image->SetLevel(p, 900.0, 5000.0);
  }
  return image;
}

cv::Mat ToMat(const COrbImage& image, int plane) {
  cv::Mat mat(image.GetHeight(), image.GetWidth(), CV_32F);
  for (int y = 0; y < image.GetHeight(); ++y)
    std::memcpy(mat.ptr<float>(y), image.GetImageAdr(0, y, plane), sizeof(float) * image.GetWidth());
  return mat;
}

void CopyPlanes(const COrbImage& src, COrbImage& dst) {
  const std::size_t bytes = sizeof(float) * src.GetWidth();
  for (int p = 0; p < src.GetPlanes(); ++p) {
#pragma omp parallel for schedule(static)
    for (int y = 0; y < src.GetHeight(); ++y) std::memcpy(dst.GetImageAdr(0, y, p, 0), src.GetImageAdr(0, y, p), bytes);
  }
}

void RegisterCopyBaseline(const char* name, int planes) {
  benchmark::RegisterBenchmark(name, [planes](benchmark::State& state) {
    auto src = MakeStarField(planes);
    COrbImage dst(-32, src->GetWidth(), src->GetHeight(), planes);
    for (auto _ : state) {
      CopyPlanes(*src, dst);
      benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * src->GetWidth() * src->GetHeight() * planes * 4);
  })->Unit(benchmark::kMillisecond)->UseRealTime();
}

}  // namespace bench
