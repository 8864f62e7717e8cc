// Digital development (preparation and the gamma-free pass) on a 4096 x 4096 star field,
// beside the copy baseline and an OpenCV composition of the same steps.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "BenchCommon.h"
#include "ops/filter/ImgFilterSpecial.h"

namespace {

constexpr double kSigma = 2.0;

void BM_DigitalDevelopment(benchmark::State& state) {
  auto work = bench::MakeStarField(1);
  work->CalcMinMax();
  auto dst = std::make_unique<COrbImage>(*work);
  auto& dd = static_cast<CImgFilterSpecial&>(*dst);
  double background[3] = {work->GetLevelMin(0), 0, 0}, sigma[3] = {kSigma, kSigma, kSigma}, gamma[3] = {1, 1, 1};
  int filterPlane[3] = {0, 1, 2};
  float gLow[3], gRange[3], offset[3], mult[3];
  for (auto _ : state) {
    dd.ClearFilterProc();
    dd.DigitalDvlp1(background, 0, sigma, 0.0, gamma, 1, work.get(), gLow, gRange, offset, mult, 0);
    dd.DigitalDvlp2(1, gamma, work.get(), filterPlane, gLow, gRange, offset, mult, nullptr, 0);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * work->GetPixelCount() * 4);
}
BENCHMARK(BM_DigitalDevelopment)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same arithmetic in OpenCV: blur, add the offset, divide, scale by the multiplier. The
// median is left out (OpenCV has none for float images); the library's includes it.
void BM_OpenCVDevelopment(benchmark::State& state) {
  auto work = bench::MakeStarField(1);
  const cv::Mat src = bench::ToMat(*work, 0);
  const double lo = work->GetLevelMin(0), s = 255.0 / work->GetLevelRange(0);
  const int radius = static_cast<int>(2.8 * kSigma + 1.0);
  cv::Mat blur, norm, divisor, out;
  for (auto _ : state) {
    cv::GaussianBlur(src, blur, cv::Size(2 * radius + 1, 2 * radius + 1), kSigma, kSigma, cv::BORDER_REFLECT_101);
    blur.convertTo(divisor, CV_32F, s, -lo * s + 10.0);  // blur on 0..255 plus the offset
    src.convertTo(norm, CV_32F, s, -lo * s);
    cv::divide(norm, divisor, out);
    out.convertTo(out, CV_32F, 60.0 / s, lo);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * work->GetPixelCount() * 4);
}
BENCHMARK(BM_OpenCVDevelopment)->Unit(benchmark::kMillisecond)->UseRealTime();

const int kCopy = (bench::RegisterCopyBaseline("BM_Copy/1", 1), 0);

}  // namespace
