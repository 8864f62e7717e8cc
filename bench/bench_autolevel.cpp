// Automatic levels and their estimators on 4096 x 4096 star fields, grey and colour, beside the
// copy baseline and the OpenCV calls nearest to each estimator.
#include <algorithm>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "BenchCommon.h"
#include "ops/level/ImgAutoLevel.h"

namespace {

void Register(const std::string& name, int planes, void (*op)(CImgAutoLevel&)) {
  bench::RegisterOnStarField<CImgAutoLevel>(name, planes, op);
}

template <class Op>
void RegisterCv(const std::string& name, int planes, Op op) {
  bench::RegisterCvOnStarField(name, planes, op);
}

void Mode(CImgAutoLevel& a) {
  float m, lo, hi;
  for (int p = 0; p < a.GetPlanes(); ++p) a.GetMode(&m, &lo, &hi, 0, p, nullptr);
}
void Median(CImgAutoLevel& a) {
  float m;
  for (int p = 0; p < a.GetPlanes(); ++p) a.GetMedian(&m, 1, 0, p, nullptr);
}
void ByHistogram(CImgAutoLevel& a) { a.DoByHistogram(2.0, 10.0, 0, 1, nullptr); }
void ByHistogramSeparate(CImgAutoLevel& a) { a.DoByHistogram(2.0, 10.0, 1, 0, nullptr); }
void ByMean(CImgAutoLevel& a) { a.DoByMean(1.0, 5.0, 1, nullptr); }
void ByMeanCombined(CImgAutoLevel& a) { a.DoByMean(1.0, 5.0, 0, nullptr); }
void ByMedian(CImgAutoLevel& a) { a.DoByMedian(1.0, 5.0, 1, nullptr); }
void ByNormal(CImgAutoLevel& a) { a.DoByNormal(0.01, 0.999, 1, nullptr); }

// Nearest OpenCV work: range and a 5000-bin histogram (mode, percentiles), mean and deviation.
void CvRangeHistogram(const cv::Mat& m) {
  double lo, hi;
  cv::minMaxLoc(m, &lo, &hi);
  const int channels[] = {0}, sizes[] = {5000};
  const float range[] = {float(lo), std::nextafter(float(hi), 1e30f)};
  const float* ranges[] = {range};
  cv::Mat hist;
  cv::calcHist(&m, 1, channels, cv::Mat(), hist, 1, sizes, ranges);
  benchmark::DoNotOptimize(hist.data);
}
void CvMeanStdDev(const cv::Mat& m) {
  cv::Scalar mean, sd;
  cv::meanStdDev(m, mean, sd);
  benchmark::DoNotOptimize(sd);
}

const int kRegistered = [] {
  bench::RegisterCopyBaseline("BM_Copy/grey", 1);
  bench::RegisterCopyBaseline("BM_Copy/colour", 3);
  for (int planes : {1, 3}) {
    const std::string s = planes == 3 ? "/colour" : "/grey";
    Register("BM_GetMode" + s, planes, Mode);
    RegisterCv("BM_CvMinMaxCalcHist" + s, planes, CvRangeHistogram);
    Register("BM_GetMedian" + s, planes, Median);
    Register("BM_DoByHistogram" + s, planes, ByHistogram);
    Register("BM_DoByHistogramSeparate" + s, planes, ByHistogramSeparate);
    Register("BM_DoByMean" + s, planes, ByMean);
    RegisterCv("BM_CvMeanStdDev" + s, planes, CvMeanStdDev);
    Register("BM_DoByMedian" + s, planes, ByMedian);
    Register("BM_DoByNormal" + s, planes, ByNormal);
  }
  Register("BM_DoByMeanCombined/colour", 3, ByMeanCombined);
  return 0;
}();

}  // namespace
