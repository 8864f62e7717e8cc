// Calibration and arithmetic on 4096 x 4096 frames, grey and colour, beside the copy baseline
// and the OpenCV calls that do the same per-sample work.
#include <opencv2/core.hpp>
#include <vector>

#include "BenchCommon.h"
#include "ops/calibration/ImgCalculation.h"
#include "ops/calibration/ImgDark.h"
#include "ops/calibration/ImgFlat.h"

namespace {

// The flat's samples: 101 levels repeated across the frame, as in a quantised flat, or a
// smooth vignetting profile in which nearly every sample differs, as in an averaged master flat.
enum class FlatKind { kLevels, kSmooth };

float FlatSample(FlatKind kind, int x, int y, int side) {
  if (kind == FlatKind::kLevels) return 0.9f + 0.2f * float((x + 3 * y) % 101) / 100.0f;
  const float dx = float(x) / side - 0.5f, dy = float(y) / side - 0.5f;
  return 1.1f - 0.4f * (dx * dx + dy * dy);
}

// A light frame, a dark and a flat normalised near 1, so that repeated in-place runs stay finite.
struct Frames {
  std::unique_ptr<COrbImage> light, dark, flat, target;
  float lo[3], hi[3], mean[3];
  explicit Frames(int planes, FlatKind kind = FlatKind::kLevels) : light(bench::MakeStarField(planes)) {
    const int side = light->GetWidth();
    dark = std::make_unique<COrbImage>(-32, side, side, planes);
    flat = std::make_unique<COrbImage>(-32, side, side, planes);
    target = std::make_unique<COrbImage>(-32, side, side, planes);
    for (int p = 0; p < planes; ++p)
      for (int y = 0; y < side; ++y) {
        float* d = dark->GetImageAdr(0, y, p, 0);
        float* f = flat->GetImageAdr(0, y, p, 0);
        for (int x = 0; x < side; ++x) {
          d[x] = 100.0f + float((x * 7 + y * 13) % 29);
          f[x] = FlatSample(kind, x, y, side);
        }
      }
    for (int p = 0; p < planes; ++p) lo[p] = 0.9f, hi[p] = 1.1f, mean[p] = 1.0f;
    // Gradient mode 1 reads the light's stored minimum; the light is only read there, so it
    // is measured once here and not inside the timed loop.
    light->CalcMinMax();
  }
  std::vector<cv::Mat> Mats(const COrbImage& image) const {
    std::vector<cv::Mat> mats;
    for (int p = 0; p < image.GetPlanes(); ++p) mats.push_back(bench::ToMat(image, p));
    return mats;
  }
};

template <class Op>
void Register(const std::string& name, int planes, Op op, FlatKind kind = FlatKind::kLevels) {
  benchmark::RegisterBenchmark(name.c_str(), [planes, op, kind](benchmark::State& state) {
    Frames frames(planes, kind);
    op(frames);  // the first call maps the target's pages; a run too short to repeat would time that
    for (auto _ : state) {
      op(frames);
      benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * frames.light->GetPixelCount() * 4);
  })->Unit(benchmark::kMillisecond)->UseRealTime();
}

// OpenCV ops receive the planes of light, dark, flat and a target, as matrices.
struct Mats {
  std::vector<cv::Mat> light, dark, flat, target;
};

template <class Op>
void RegisterCv(const std::string& name, int planes, Op op) {
  benchmark::RegisterBenchmark(name.c_str(), [planes, op](benchmark::State& state) {
    Frames frames(planes);
    Mats m{frames.Mats(*frames.light), frames.Mats(*frames.dark), frames.Mats(*frames.flat),
           frames.Mats(*frames.target)};
    for (auto _ : state) {
      op(m);
      benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * frames.light->GetPixelCount() * 4);
  })->Unit(benchmark::kMillisecond)->UseRealTime();
}

void Dark(Frames& f) { f.light->DarkClbrtn(f.dark.get(), 0); }
void CvDark(Mats& m) {
  for (std::size_t p = 0; p < m.light.size(); ++p) {
    cv::subtract(m.light[p], m.dark[p], m.light[p]);
    cv::max(m.light[p], 0.0, m.light[p]);
  }
}

void Flat(Frames& f) { f.light->FlatClbrtn(f.flat.get(), 0); }
void FlatPedestal(Frames& f) { f.light->FlatClbrtn(f.flat.get(), 0.05f, 0.0, 0); }
void FlatGamma(Frames& f) { f.light->FlatClbrtn(f.flat.get(), 0.05f, 1.5, 0); }
// FlatClbrtn takes the mean of the flat's plane 0 on every call, so its peer does too.
void CvFlat(Mats& m) {
  const double mean = cv::mean(m.flat[0])[0];
  for (std::size_t p = 0; p < m.light.size(); ++p) cv::divide(m.light[p], m.flat[p], m.light[p], mean);
}
// The flat division alone, with the flat's statistics given: the per-sample pass of the
// pedestal and gamma forms of FlatClbrtn, whose member benchmarks also measure the flat
// (CalcMinMax and a mean per plane) on every call.
void FlatPassPedestal(Frames& f) {
  f.light->DarkFlat(nullptr, nullptr, f.flat.get(), f.lo, f.hi, f.mean, 0.05f, 0.0, nullptr, 0);
}
void FlatPassGamma(Frames& f) {
  f.light->DarkFlat(nullptr, nullptr, f.flat.get(), f.lo, f.hi, f.mean, 0.05f, 1.5, nullptr, 0);
}
void CvDivideScaled(Mats& m) {
  for (std::size_t p = 0; p < m.light.size(); ++p) cv::divide(m.light[p], m.flat[p], m.light[p], 1.0);
}

void DarkFlat(Frames& f) {
  f.target->DarkFlat(f.light.get(), f.dark.get(), f.flat.get(), f.lo, f.hi, f.mean, 0.0f, 0.0, nullptr, 0);
}
void CvDarkFlat(Mats& m) {
  for (std::size_t p = 0; p < m.light.size(); ++p) {
    cv::subtract(m.light[p], m.dark[p], m.target[p]);
    cv::max(m.target[p], 0.0, m.target[p]);
    cv::divide(m.target[p], m.flat[p], m.target[p], 1.0);
  }
}

// DarkFlat reads three frames and writes a fourth, twice the streams of the copy baseline:
// this plain sum over the same frames on the same threads shows what that memory costs.
void Sum3(Frames& f) {
  const int width = f.light->GetWidth();
  for (int p = 0; p < f.light->GetPlanes(); ++p) {
#pragma omp parallel for schedule(static)
    for (int y = 0; y < f.light->GetHeight(); ++y) {
      const float* a = f.light->GetImageAdr(0, y, p);
      const float* b = f.dark->GetImageAdr(0, y, p);
      const float* c = f.flat->GetImageAdr(0, y, p);
      float* d = f.target->GetImageAdr(0, y, p, 0);
      for (int x = 0; x < width; ++x) d[x] = a[x] + b[x] + c[x];
    }
  }
}

void Subtract(Frames& f) { static_cast<CImgCalculation&>(*f.target).Do(120.0, 1, 1, f.light.get(), nullptr, 0); }
void CvSubtract(Mats& m) {
  for (std::size_t p = 0; p < m.light.size(); ++p) {
    cv::subtract(m.light[p], 120.0, m.target[p]);
    cv::max(m.target[p], 0.0, m.target[p]);
  }
}

void Divide(Frames& f) { static_cast<CImgCalculation&>(*f.target).Do(1.7, 3, 0, f.light.get(), nullptr, 0); }
void CvScale(Mats& m) {
  for (std::size_t p = 0; p < m.light.size(); ++p) m.light[p].convertTo(m.target[p], CV_32F, 1.0 / 1.7);
}

// Dark synthesis runs on the calling thread alone; its OpenCV peer is a weighted sum.
void DarkScore(Frames& f) {
  static_cast<CImgDark&>(*f.target).DoInterpolateByScore(f.dark.get(), -5.0, -10.0, 0.0, 0);
}
void DarkProportion(Frames& f) {
  static_cast<CImgDark&>(*f.target).DoInterpolateByProportion(f.dark.get(), -5.0, -10.0, 0.0, 60.0, 120.0, 90.0, 0);
}
void DarkPower(Frames& f) {
  static_cast<CImgDark&>(*f.target).DoInterpolateByPower(f.dark.get(), -5.0, -10.0, 0.0, 1.0, 2.0, 1.5, 0.1, 0);
}
void CvWeighted(Mats& m) {
  for (std::size_t p = 0; p < m.light.size(); ++p) cv::addWeighted(m.target[p], 0.5, m.dark[p], 0.5, 0.0, m.target[p]);
}

void Gradient(Frames& f) {
  CPoint p1[3] = {{0, 0}, {0, 0}, {0, 0}}, p2[3] = {{100, 40}, {100, 40}, {100, 40}};
  double slope[3] = {0.01, 0.01, 0.01};
  static_cast<CImgFlat&>(*f.target).DoFlat(f.light.get(), p1, p2, slope, nullptr, nullptr, 0, nullptr, 0);
}
void Parabolic(Frames& f) {
  CPoint c[3] = {{2048, 2048}, {2048, 2048}, {2048, 2048}};
  double k[3] = {-1e-5, -1e-5, -1e-5}, level[3] = {1000, 1000, 1000}, floor[3] = {0, 0, 0};
  static_cast<CImgFlat&>(*f.target).DoParabolic(f.light.get(), c, k, level, floor, 1, nullptr, 0);
}

const int kRegistered = [] {
  bench::RegisterCopyBaseline("BM_Copy/grey", 1);
  bench::RegisterCopyBaseline("BM_Copy/colour", 3);
  for (int planes : {1, 3}) {
    const std::string s = planes == 3 ? "/colour" : "/grey";
    Register("BM_DarkClbrtn" + s, planes, Dark);
    RegisterCv("BM_CvSubtractMaxDark" + s, planes, CvDark);
    Register("BM_FlatClbrtn" + s, planes, Flat);
    Register("BM_FlatClbrtnPedestal" + s, planes, FlatPedestal);
    Register("BM_FlatClbrtnGamma" + s, planes, FlatGamma);
    RegisterCv("BM_CvMeanDivideFlat" + s, planes, CvFlat);
    Register("BM_FlatPassPedestal" + s, planes, FlatPassPedestal);
    Register("BM_FlatPassGamma" + s, planes, FlatPassGamma);
    if (planes == 1) Register("BM_FlatPassGammaSmoothFlat" + s, planes, FlatPassGamma, FlatKind::kSmooth);
    RegisterCv("BM_CvDivide" + s, planes, CvDivideScaled);
    Register("BM_DarkFlat" + s, planes, DarkFlat);
    Register("BM_Sum3SameBytesAsDarkFlat" + s, planes, Sum3);
    RegisterCv("BM_CvSubtractMaxDivide" + s, planes, CvDarkFlat);
    Register("BM_CalculationSubtractClip" + s, planes, Subtract);
    RegisterCv("BM_CvSubtractMax" + s, planes, CvSubtract);
    Register("BM_CalculationDivide" + s, planes, Divide);
    RegisterCv("BM_CvConvertToScale" + s, planes, CvScale);
    Register("BM_DarkInterpolateByScore" + s, planes, DarkScore);
    Register("BM_DarkInterpolateByProportion" + s, planes, DarkProportion);
    Register("BM_DarkInterpolateByPower" + s, planes, DarkPower);
    RegisterCv("BM_CvAddWeighted" + s, planes, CvWeighted);
    Register("BM_FlatGradient" + s, planes, Gradient);
    Register("BM_FlatParabolic" + s, planes, Parabolic);
  }
  return 0;
}();

}  // namespace
