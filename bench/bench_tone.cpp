// Per-sample tone and colour operations on 4096 x 4096 star fields, grey and colour, beside
// the copy baseline and the nearest OpenCV call.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "BenchCommon.h"
#include "ops/level/ImgBright.h"
#include "ops/level/ImgColorBalance.h"
#include "ops/level/ImgColorCorrect.h"
#include "ops/level/ImgCutOff.h"
#include "ops/level/ImgInvert.h"
#include "ops/level/ImgAutoStretch.h"
#include "ops/level/ImgFalseColor.h"
#include "ops/level/ImgHstEql.h"
#include "ops/level/ImgLabColorEnhance.h"
#include "ops/level/ImgNormalize.h"
#include "ops/level/ImgReduceTone.h"
#include "ops/level/ImgToneCurve.h"
#include "ops/level/ImgWindowing.h"

namespace {

// Times op(dst, src) on a star field of the given planes, the result written to a second image.
template <class Op>
void Register(const std::string& name, int planes, Op op) {
  benchmark::RegisterBenchmark(name.c_str(), [planes, op](benchmark::State& state) {
    auto src = bench::MakeStarField(planes);
    COrbImage dst(*src);
    op(dst, src.get());  // a target that changes its planes does so here, not in the timed loop
    for (auto _ : state) {
      op(dst, src.get());
      benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * src->GetWidth() * src->GetHeight() * planes * 4);
  })->Unit(benchmark::kMillisecond)->UseRealTime();
}

// Times op(dst, src) on OpenCV matrices holding the star field's planes.
template <class Op>
void RegisterCv(const std::string& name, int planes, Op op) {
  benchmark::RegisterBenchmark(name.c_str(), [planes, op](benchmark::State& state) {
    auto image = bench::MakeStarField(planes);
    std::vector<cv::Mat> src, dst(planes);
    for (int p = 0; p < planes; ++p) src.push_back(bench::ToMat(*image, p));
    op(src, dst);  // allocates the outputs, as the image operations find theirs allocated
    for (auto _ : state) {
      op(src, dst);
      benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * image->GetWidth() * image->GetHeight() * planes * 4);
  })->Unit(benchmark::kMillisecond)->UseRealTime();
}

// The image's level window as the linear map of convertTo: 900..5000 on the 0..255 scale.
constexpr double kMin = 900.0, kRange = 4100.0;

void Bright(COrbImage& dst, COrbImage* src) {
  float b[3] = {10, 10, 10}, c[3] = {64, 64, 64};
  static_cast<CImgBright&>(dst).Do(b, c, 40.0, src, nullptr, 0);
}

void CvBright(const std::vector<cv::Mat>& src, std::vector<cv::Mat>& dst) {
  // The same map folded into one multiply-add: v·(1 + c/256) + constant.
  for (std::size_t p = 0; p < src.size(); ++p) src[p].convertTo(dst[p], CV_32F, 1.25, -0.25 * kMin + 10 * kRange / 255);
}

void Invert(COrbImage& dst, COrbImage* src) { static_cast<CImgInvert&>(dst).Do(src, nullptr, 0); }

void CvInvert(const std::vector<cv::Mat>& src, std::vector<cv::Mat>& dst) {
  for (std::size_t p = 0; p < src.size(); ++p) src[p].convertTo(dst[p], CV_32F, -1.0, 2 * kMin + kRange);
}

void Balance(COrbImage& dst, COrbImage* src) { static_cast<CImgColorBalance&>(dst).Do(5, -3, 2, src, nullptr, 0); }

void CvBalance(const std::vector<cv::Mat>& src, std::vector<cv::Mat>& dst) {
  for (std::size_t p = 0; p < src.size(); ++p) src[p].convertTo(dst[p], CV_32F, 1.0, 5 * (p + 1.0));
}

std::vector<float> Gamma() {
  std::vector<float> curve(256);
  for (int i = 0; i < 256; ++i) curve[i] = std::pow(i / 255.0f, 0.5f);
  return curve;
}

void ToneCurve(COrbImage& dst, COrbImage* src) {
  static std::vector<float> curve = Gamma();
  float* curves[4] = {curve.data(), curve.data(), curve.data(), curve.data()};
  static_cast<CImgToneCurve&>(dst).Do(curves, 256, src, nullptr, 0, 0);
}

void CvToneCurve(const std::vector<cv::Mat>& src, std::vector<cv::Mat>& dst) {
  // Index on the 0..255 scale, then a float table: the LUT form of a truncating curve.
  static std::vector<float> curve = Gamma();
  static cv::Mat table(1, 256, CV_32F, curve.data());
  cv::Mat index;
  for (std::size_t p = 0; p < src.size(); ++p) {
    src[p].convertTo(index, CV_8U, 255.0 / kRange, -kMin * 255.0 / kRange);
    cv::LUT(index, table, dst[p]);
  }
}

void CutOff(COrbImage& dst, COrbImage* src) { static_cast<CImgCutOff&>(dst).Do(src, 0, 65535, nullptr, 0); }

void ReduceTone(COrbImage& dst, COrbImage* src) { static_cast<CImgReduceTone&>(dst).Do(8, src, nullptr, 0); }

void ColorCorrect(COrbImage& dst, COrbImage* src) {
  tagMATRIX m{1.2, -0.1, -0.1, -0.1, 1.2, -0.1, -0.1, -0.1, 1.2};
  static_cast<CImgColorCorrect&>(dst).Do(&m, 1.0, 0, 0, 0, src, nullptr, 0);
}

void CvColorCorrect(const std::vector<cv::Mat>& src, std::vector<cv::Mat>& dst) {
  static cv::Mat merged, out;
  if (merged.empty()) cv::merge(src, merged);
  const cv::Matx33f m(1.2f, -0.1f, -0.1f, -0.1f, 1.2f, -0.1f, -0.1f, -0.1f, 1.2f);
  cv::transform(merged, out, m);
  dst[0] = out;
}

// Normalisation runs on the calling thread: two passes for the mean and deviation, one to map.
void Normalize(COrbImage& dst, COrbImage* src) {
  float mean[3] = {1500, 1500, 1500}, sigma[3] = {300, 300, 300};
  static_cast<CImgNormalize&>(dst).Do(src, mean, sigma, 0);
}

void CvNormalize(const std::vector<cv::Mat>& src, std::vector<cv::Mat>& dst) {
  for (std::size_t p = 0; p < src.size(); ++p) {
    cv::Scalar mean, deviation;
    cv::meanStdDev(src[p], mean, deviation);
    const double scale = 300.0 / deviation[0];
    src[p].convertTo(dst[p], CV_32F, scale, 1500.0 - mean[0] * scale);
  }
}

void Stretch(COrbImage& dst, COrbImage* src) {
  double gain[3] = {1.1, 1.1, 1.1}, offset[3] = {900, 910, 920}, spread[3] = {100, 90, 80}, base[3] = {0, 0, 0};
  tagRECT rect{0, 0, src->GetWidth(), src->GetHeight()};
  static_cast<CImgAutoStretch&>(dst).DoStretch(src, gain, offset, spread, base, &rect);
}

void Windowing(COrbImage& dst, COrbImage* src) {
  static_cast<CImgWindowing&>(dst).Do(0, src->GetWidth() / 2.0, src, 0);
}

// The same taper as a precomputed window, multiplied in.
void CvWindowing(const std::vector<cv::Mat>& src, std::vector<cv::Mat>& dst) {
  static cv::Mat window;
  if (window.empty()) cv::createHanningWindow(window, src[0].size(), CV_32F);
  for (std::size_t p = 0; p < src.size(); ++p) cv::multiply(src[p], window, dst[p]);
}

// The window built on each call, as the operation builds its taper.
void CvWindowingBuilt(const std::vector<cv::Mat>& src, std::vector<cv::Mat>& dst) {
  cv::Mat window;
  cv::createHanningWindow(window, src[0].size(), CV_32F);
  for (std::size_t p = 0; p < src.size(); ++p) cv::multiply(src[p], window, dst[p]);
}

// Histogram equalisation, measuring its own range and histogram on each call.
void Equalize(COrbImage& dst, COrbImage* src) { static_cast<CImgHstEql&>(dst).Do(src); }

// OpenCV equalises 8-bit images only: the samples are brought to bytes first.
void CvEqualize(const std::vector<cv::Mat>& src, std::vector<cv::Mat>& dst) {
  static cv::Mat bytes;  // kept between calls, as the outputs are
  for (std::size_t p = 0; p < src.size(); ++p) {
    src[p].convertTo(bytes, CV_8U, 255.0 / kRange, -kMin * 255.0 / kRange);
    cv::equalizeHist(bytes, dst[p]);
  }
}

// The same, brought back to float samples in the window, as the operation gives them.
void CvEqualizeToFloat(const std::vector<cv::Mat>& src, std::vector<cv::Mat>& dst) {
  static cv::Mat bytes, equalized;
  for (std::size_t p = 0; p < src.size(); ++p) {
    src[p].convertTo(bytes, CV_8U, 255.0 / kRange, -kMin * 255.0 / kRange);
    cv::equalizeHist(bytes, equalized);
    equalized.convertTo(dst[p], CV_32F, kRange / 255.0, kMin);
  }
}

// A grey star field painted with the heat map into a three-plane target.
void FalseColor(COrbImage& dst, COrbImage* src) {
  static_cast<CImgFalseColor&>(dst).Do(0, 255, 1, 0, src, nullptr, 0);
}

// The same with cubehelix, whose colours take a sine and a cosine.
void FalseColorCubehelix(COrbImage& dst, COrbImage* src) {
  static_cast<CImgFalseColor&>(dst).Do(0, 255, 5, 0, src, nullptr, 0);
}

void CvFalseColor(const std::vector<cv::Mat>& src, std::vector<cv::Mat>& dst) {
  static cv::Mat bytes;  // kept between calls, as the outputs are
  src[0].convertTo(bytes, CV_8U, 255.0 / kRange, -kMin * 255.0 / kRange);
  cv::applyColorMap(bytes, dst[0], cv::COLORMAP_HOT);
}

// The same, brought to three planes of float samples in the window, as the operation gives
// them.
void CvFalseColorToFloat(const std::vector<cv::Mat>& src, std::vector<cv::Mat>& dst) {
  static cv::Mat bytes, painted;
  static std::vector<cv::Mat> planes(3);
  src[0].convertTo(bytes, CV_8U, 255.0 / kRange, -kMin * 255.0 / kRange);
  cv::applyColorMap(bytes, painted, cv::COLORMAP_HOT);
  cv::split(painted, planes);
  dst.resize(3);
  for (int k = 0; k < 3; ++k) planes[k].convertTo(dst[k], CV_32F, kRange / 255.0, kMin);
}

void LabEnhance(COrbImage& dst, COrbImage* src) {
  static_cast<CImgLabColorEnhance&>(dst).Do(1.4, 10.0, src, nullptr, 0);
}

// Through L*a*b* and back with OpenCV's float conversions (no chroma change in between).
void CvLab(const std::vector<cv::Mat>& src, std::vector<cv::Mat>& dst) {
  static cv::Mat merged, lab;
  cv::merge(src, merged);
  merged.convertTo(merged, CV_32F, 1.0 / kRange, -kMin / kRange);
  cv::cvtColor(merged, lab, cv::COLOR_RGB2Lab);
  cv::cvtColor(lab, dst[0], cv::COLOR_Lab2RGB);
}

// The benchmark's name for an image of one or three planes.
std::string Named(const char* base, int planes) { return std::string(base) + (planes == 3 ? "/colour" : "/grey"); }

const int kRegistered = [] {
  bench::RegisterCopyBaseline("BM_Copy/grey", 1);
  bench::RegisterCopyBaseline("BM_Copy/colour", 3);
  for (int planes : {1, 3}) {
    Register(Named("BM_Bright", planes), planes, Bright);
    RegisterCv(Named("BM_CvConvertToBright", planes), planes, CvBright);
    Register(Named("BM_Invert", planes), planes, Invert);
    RegisterCv(Named("BM_CvConvertToInvert", planes), planes, CvInvert);
    Register(Named("BM_ToneCurve", planes), planes, ToneCurve);
    RegisterCv(Named("BM_CvLutToneCurve", planes), planes, CvToneCurve);
    Register(Named("BM_CutOff", planes), planes, CutOff);
    Register(Named("BM_ReduceTone", planes), planes, ReduceTone);
    Register(Named("BM_Normalize", planes), planes, Normalize);
    RegisterCv(Named("BM_CvMeanStdDevConvertTo", planes), planes, CvNormalize);
    Register(Named("BM_AutoStretch", planes), planes, Stretch);
    Register(Named("BM_Windowing", planes), planes, Windowing);
    RegisterCv(Named("BM_CvMultiplyHanning", planes), planes, CvWindowing);
    RegisterCv(Named("BM_CvBuildAndMultiplyHanning", planes), planes, CvWindowingBuilt);
    Register(Named("BM_HstEql", planes), planes, Equalize);
    RegisterCv(Named("BM_CvConvertToEqualizeHist", planes), planes, CvEqualize);
    RegisterCv(Named("BM_CvEqualizeHistToFloat", planes), planes, CvEqualizeToFloat);
  }
  Register("BM_FalseColor/grey", 1, FalseColor);
  Register("BM_FalseColorCubehelix/grey", 1, FalseColorCubehelix);
  RegisterCv("BM_CvApplyColorMap/grey", 1, CvFalseColor);
  RegisterCv("BM_CvApplyColorMapToFloat/grey", 1, CvFalseColorToFloat);
  Register("BM_LabColorEnhance/colour", 3, LabEnhance);
  RegisterCv("BM_CvCvtColorLabAndBack/colour", 3, CvLab);
  Register("BM_ColorBalance/colour", 3, Balance);
  RegisterCv("BM_CvConvertToBalance/colour", 3, CvBalance);
  Register("BM_ColorCorrect/colour", 3, ColorCorrect);
  RegisterCv("BM_CvTransformColorCorrect/colour", 3, CvColorCorrect);
  return 0;
}();

}  // namespace
