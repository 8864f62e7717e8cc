// Plane statistics and histograms on 4096 x 4096 star fields, grey and colour, beside the copy
// baseline and OpenCV's minMaxLoc, meanStdDev and calcHist.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "BenchCommon.h"

namespace {

constexpr int kBins = 5000;

void Register(const std::string& name, int planes, void (*op)(COrbImage&)) {
  bench::RegisterOnStarField<COrbImage>(name, planes, op);
}

template <class Op>
void RegisterCv(const std::string& name, int planes, Op op) {
  bench::RegisterCvOnStarField(name, planes, op);
}

// Every plane, as a caller measuring a whole frame would.
void MinMax(COrbImage& img) { img.CalcMinMax(); }
void AvrGrayRaw(COrbImage& img) {
  for (int p = 0; p < img.GetPlanes(); ++p) benchmark::DoNotOptimize(img.GetAvrGrayRaw(p));
}
void StdDev(COrbImage& img) {
  for (int p = 0; p < img.GetPlanes(); ++p) benchmark::DoNotOptimize(img.CalcStdDev(p, nullptr));
}
void Histogram(COrbImage& img) {
  static std::vector<int> bins(kBins);
  for (int p = 0; p < img.GetPlanes(); ++p)
    benchmark::DoNotOptimize(img.GetHistogram(bins.data(), kBins, 900.0, 5000.0, p, 0, 1, 0, nullptr, 0, 0));
}
void HistogramLuminance(COrbImage& img) {
  static std::vector<int> bins(kBins);
  benchmark::DoNotOptimize(img.GetHistogram(bins.data(), kBins, 900.0, 5000.0, -1, 0, 1, 0, nullptr, 0, 0));
}

void CvMinMax(const cv::Mat& m) {
  double lo, hi;
  cv::minMaxLoc(m, &lo, &hi);
  benchmark::DoNotOptimize(lo);
}
void CvMeanStdDev(const cv::Mat& m) {
  cv::Scalar mean, sd;
  cv::meanStdDev(m, mean, sd);
  benchmark::DoNotOptimize(sd);
}
void CvHistogram(const cv::Mat& m) {
  const int channels[] = {0}, sizes[] = {kBins};
  const float range[] = {900.0f, 5000.0f};
  const float* ranges[] = {range};
  cv::Mat hist;
  cv::calcHist(&m, 1, channels, cv::Mat(), hist, 1, sizes, ranges);
  benchmark::DoNotOptimize(hist.data);
}

const int kRegistered = [] {
  bench::RegisterCopyBaseline("BM_Copy/grey", 1);
  bench::RegisterCopyBaseline("BM_Copy/colour", 3);
  for (int planes : {1, 3}) {
    const std::string s = planes == 3 ? "/colour" : "/grey";
    // CalcMinMax's mean is one float sum in line order: sequential by definition.
    Register("BM_CalcMinMax" + s, planes, MinMax);
    RegisterCv("BM_CvMinMaxLoc" + s, planes, CvMinMax);
    Register("BM_GetAvrGrayRaw" + s, planes, AvrGrayRaw);
    // CalcStdDev's line sums are stated sequential; meanStdDev is the nearest equivalent.
    Register("BM_CalcStdDev" + s, planes, StdDev);
    RegisterCv("BM_CvMeanStdDev" + s, planes, CvMeanStdDev);
    Register("BM_GetHistogram5000" + s, planes, Histogram);
    RegisterCv("BM_CvCalcHist5000" + s, planes, CvHistogram);
  }
  Register("BM_GetHistogram5000Luminance/colour", 3, HistogramLuminance);
  return 0;
}();

}  // namespace
