// Shared images and the memory-copy baseline for the benchmarks.
#pragma once
#include <benchmark/benchmark.h>

#include <memory>
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

}  // namespace bench
