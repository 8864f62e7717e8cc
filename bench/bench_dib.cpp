// Display bitmaps of 4096 x 4096 star fields, grey and colour, beside the copy baseline and
// OpenCV's scaled conversion to bytes (the nearest peer: no clamping rule of its own).
#include <opencv2/core.hpp>
#include <vector>

#include "BenchCommon.h"
#include "core/OrbImage.h"

namespace {

void RegisterDib(const char* name, int planes, int bits) {
  benchmark::RegisterBenchmark(name, [planes, bits](benchmark::State& state) {
    auto image = bench::MakeStarField(planes);
    for (auto _ : state) {
      HGLOBAL dib = image->GetDib(bits);
      if (!dib) state.SkipWithError("GetDib returned null");
      benchmark::DoNotOptimize(dib);
      GlobalFree(dib);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * image->GetWidth() * image->GetHeight() * planes * 4);
  })->Unit(benchmark::kMillisecond)->UseRealTime();
}

void RegisterCv(const char* name, int planes) {
  benchmark::RegisterBenchmark(name, [planes](benchmark::State& state) {
    auto image = bench::MakeStarField(planes);
    std::vector<cv::Mat> src, dst(planes);
    for (int p = 0; p < planes; ++p) src.push_back(bench::ToMat(*image, p));
    for (auto _ : state) {
      for (int p = 0; p < planes; ++p) {
        const double scale = 255.0 / image->GetLevelRange(p);
        src[p].convertTo(dst[p], CV_8U, scale, -image->GetLevelMin(p) * scale);
      }
      benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * image->GetWidth() * image->GetHeight() * planes * 4);
  })->Unit(benchmark::kMillisecond)->UseRealTime();
}

const int registered = [] {
  bench::RegisterCopyBaseline("BM_Copy/grey", 1);
  bench::RegisterCopyBaseline("BM_Copy/colour", 3);
  RegisterDib("BM_GetDib8/grey", 1, 8);
  RegisterDib("BM_GetDib24/grey", 1, 24);
  RegisterCv("BM_CvConvertTo8U/grey", 1);
  RegisterDib("BM_GetDib24/colour", 3, 24);
  RegisterDib("BM_GetDib8/colour", 3, 8);
  RegisterCv("BM_CvConvertTo8U/colour", 3);
  return 0;
}();

}  // namespace
