// Neighbourhood filters and the separable evaluator on a 4096 x 4096 star field, beside the
// copy baseline and the matching OpenCV call.
#include <omp.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "BenchCommon.h"
#include "kernels/FilterMatrix.h"
#include "kernels/FilterProc.h"
#include "ops/filter/ImgFilter.h"

namespace {

// Times op(dst, src) on a grey star field, the result written to a second image.
template <class Op>
void Register(const char* name, Op op) {
  benchmark::RegisterBenchmark(name, [op](benchmark::State& state) {
    auto src = bench::MakeStarField(1);
    COrbImage dst(*src);
    for (auto _ : state) {
      op(static_cast<CImgFilter&>(dst), src.get());
      benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * src->GetWidth() * src->GetHeight() * 4);
  })->Unit(benchmark::kMillisecond)->UseRealTime();
}

template <class Op>
void RegisterCv(const char* name, Op op) {
  benchmark::RegisterBenchmark(name, [op](benchmark::State& state) {
    auto image = bench::MakeStarField(1);
    cv::Mat src = bench::ToMat(*image, 0), dst;
    for (auto _ : state) {
      op(src, dst);
      benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * image->GetWidth() * image->GetHeight() * 4);
  })->Unit(benchmark::kMillisecond)->UseRealTime();
}

// A blur through CFilterProc, each thread walking its rows downward.
void Blur(CImgFilter& dst, COrbImage* src, double sigma) {
  CFilterMatrix m;
  m.Gaussian(sigma);
  CFilterProc proc(src, &m, 0);
  const int w = dst.GetWidth(), h = dst.GetHeight();
#pragma omp parallel for schedule(static)
  for (int y = 0; y < h; ++y) proc.CalcLine(0, y, w, dst.GetImageAdr(0, y, 0, 0));
}

const cv::Mat k3 = cv::getStructuringElement(cv::MORPH_RECT, {3, 3});

const int registered = [] {
  bench::RegisterCopyBaseline("Copy/grey", 1);
  Register("MedianFilter/type1", [](CImgFilter& d, COrbImage* s) { d.MedianFilter(1, s, nullptr, 0); });
  RegisterCv("cv::medianBlur/3", [](const cv::Mat& s, cv::Mat& d) { cv::medianBlur(s, d, 3); });
  Register("MedianFilter/type2", [](CImgFilter& d, COrbImage* s) { d.MedianFilter(2, s, nullptr, 0); });
  RegisterCv("cv::medianBlur/5", [](const cv::Mat& s, cv::Mat& d) { cv::medianBlur(s, d, 5); });
  Register("MinMaxFilter/type1/min", [](CImgFilter& d, COrbImage* s) { d.MinMaxFilter(1, 0, s, nullptr, 0); });
  RegisterCv("cv::erode/3x3", [](const cv::Mat& s, cv::Mat& d) { cv::erode(s, d, k3); });
  Register("MinMaxFilter/type1/max", [](CImgFilter& d, COrbImage* s) { d.MinMaxFilter(1, 8, s, nullptr, 0); });
  RegisterCv("cv::dilate/3x3", [](const cv::Mat& s, cv::Mat& d) { cv::dilate(s, d, k3); });
  Register("UnSharpMask/type1", [](CImgFilter& d, COrbImage* s) { d.UnSharpMask(1.5, 1, 1.0, 0.0, s, nullptr, 0); });
  // The same unsharp mask in OpenCV: 3x3 box mean, then (C - M) * amount + C.
  RegisterCv("cv::blur+addWeighted/3", [](const cv::Mat& s, cv::Mat& d) {
    cv::Mat m;
    cv::blur(s, m, {3, 3});
    cv::addWeighted(s, 2.5, m, -1.5, 0.0, d);
  });
  Register("FilterProc/gauss/sigma2", [](CImgFilter& d, COrbImage* s) { Blur(d, s, 2.0); });
  RegisterCv("cv::GaussianBlur/sigma2", [](const cv::Mat& s, cv::Mat& d) { cv::GaussianBlur(s, d, {0, 0}, 2.0); });
  Register("FilterProc/gauss/sigma8", [](CImgFilter& d, COrbImage* s) { Blur(d, s, 8.0); });
  RegisterCv("cv::GaussianBlur/sigma8", [](const cv::Mat& s, cv::Mat& d) { cv::GaussianBlur(s, d, {0, 0}, 8.0); });
  return 0;
}();

}  // namespace
