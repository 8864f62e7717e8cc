// Shared images and the memory-copy baseline for the benchmarks.
#pragma once
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>
#include <opencv2/core.hpp>

#include "core/OrbImage.h"

namespace bench {

constexpr int kSide = 4096;

/// A deterministic star field: sky with a gentle gradient, read noise, Gaussian stars.
/// planes 1 or 3; levels set to the sky .. a bright star.
std::unique_ptr<COrbImage> MakeStarField(int planes, int side = kSide);

/// The same plane as an OpenCV float matrix (copied sample by sample).
cv::Mat ToMat(const COrbImage& image, int plane);

/// Copies every line of every plane of src into dst: the baseline that memory-bound
/// operations are measured against.
void CopyPlanes(const COrbImage& src, COrbImage& dst);

/// Registers the copy baseline for an image of `planes` planes under the given name.
void RegisterCopyBaseline(const char* name, int planes);

/// Registers op(image) on a star field of `planes` planes, the image seen as Image (an
/// operation class that adds no data to COrbImage).
template <class Image = COrbImage, class Op>
void RegisterOnStarField(const std::string& name, int planes, Op op) {
  benchmark::RegisterBenchmark(name.c_str(), [planes, op](benchmark::State& state) {
    auto image = MakeStarField(planes);
    for (auto _ : state) {
      op(static_cast<Image&>(*image));
      benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * image->GetPixelCount() * 4);
  })->Unit(benchmark::kMillisecond)->UseRealTime();
}

/// Registers op(matrix) on each plane of the same star field as OpenCV matrices.
template <class Op>
void RegisterCvOnStarField(const std::string& name, int planes, Op op) {
  benchmark::RegisterBenchmark(name.c_str(), [planes, op](benchmark::State& state) {
    auto image = MakeStarField(planes);
    std::vector<cv::Mat> mats;
    for (int p = 0; p < planes; ++p) mats.push_back(ToMat(*image, p));
    for (auto _ : state) {
      for (const cv::Mat& m : mats) op(m);
      benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * image->GetPixelCount() * 4);
  })->Unit(benchmark::kMillisecond)->UseRealTime();
}

}  // namespace bench
