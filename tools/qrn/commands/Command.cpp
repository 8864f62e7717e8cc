// Helpers shared by the subcommands.
#include "commands/Command.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <vector>

#include "Error.h"
#include "io/ImageFiles.h"
#include "ops/level/ImgAutoLevel.h"

namespace qrncmd {

CLoadedImage Load(const std::string& path, const CContext& ctx) {
  CLoadedImage loaded = qrnio::ReadImage(path);
  loaded.image->SetProgressHandle(ctx.Window());
  CCancel::ThrowIfCancelled();
  return loaded;
}

void AddLevelOptions(std::set<std::string>& valued) {
  valued.insert({"--method", "--low", "--high"});
}

namespace {
struct CLevelDefaults {
  const char* name;
  double low, high;
};
// Histogram: a little below the sky and well up into the stars; mean and median: sigmas;
// normal: the 0.1 and 99.9 percentiles.
constexpr CLevelDefaults kMethods[] = {
    {"histogram", 0.5, 10.0}, {"mean", 1.0, 10.0}, {"median", 1.0, 10.0}, {"normal", 0.001, 0.999}};
}  // namespace

void ApplyLevels(COrbImage& image, const std::string& method, double low, double high) {
  auto& levels = static_cast<CImgAutoLevel&>(image);
  if (method == "histogram") levels.DoByHistogram(low, high, 1, 1, nullptr);
  else if (method == "mean") levels.DoByMean(low, high, 1, nullptr);
  else if (method == "median") levels.DoByMedian(low, high, 1, nullptr);
  else if (method == "normal") levels.DoByNormal(low, high, 1, nullptr);
  else throw CQrnError("--method", "unknown level method '" + method + "' (histogram, mean, median, normal)", true);
}

std::string ApplyLevels(COrbImage& image, const CArgs& args) {
  const std::string method = args.Get("--method", "histogram");
  for (const auto& m : kMethods) {
    if (method != m.name) continue;
    const double low = args.GetDouble("--low", m.low), high = args.GetDouble("--high", m.high);
    ApplyLevels(image, method, low, high);
    char text[128];
    std::snprintf(text, sizeof text, "%s %g .. %g", m.name, low, high);
    return text;
  }
  throw CQrnError("--method", "unknown level method '" + method + "' (histogram, mean, median, normal)", true);
}

namespace {

float LibraryMedian(CImgAutoLevel& stats, int plane) {
  float median = 0;
  stats.GetMedian(&median, 0, 0, plane, nullptr);
  return median;
}

// The median of the finite samples, the upper middle one for an even count, as the library
// takes it over every sample; it would sort the undefined (NaN) ones in among them.
float MedianOfDefined(const COrbImage& image, int plane) {
  std::vector<float> defined;
  for (int y = 0; y < image.GetHeight(); ++y) {
    const float* line = image.GetImageAdr(0, y, plane);
    for (int x = 0; x < image.GetWidth(); ++x)
      if (std::isfinite(line[x])) defined.push_back(line[x]);
  }
  if (defined.empty()) return std::numeric_limits<float>::quiet_NaN();
  const auto middle = defined.begin() + defined.size() / 2;
  std::nth_element(defined.begin(), middle, defined.end());
  return *middle;
}

}  // namespace

CPlaneStats MeasurePlane(COrbImage& image, int plane) {
  auto& stats = static_cast<CImgAutoLevel&>(image);
  CPlaneStats s;
  image.CalcMinMax();
  // Undefined (NaN) pixels count nowhere; CalcMinMax would start from a NaN first sample, and
  // its mean divides by (w - 1)(h - 1).
  const qrnio::CFiniteStats finite = qrnio::FiniteStats(image, plane);
  s.min = finite.min;
  s.max = finite.max;
  s.mean = finite.mean;
  const bool allDefined = finite.count == static_cast<long long>(image.GetWidth()) * image.GetHeight();
  s.median = allDefined ? LibraryMedian(stats, plane) : MedianOfDefined(image, plane);
  double sd = 0;
  stats.GetLevelRangeStd(float(s.min), float(s.max), &sd, plane, nullptr);
  for (int i = 0; i < 10 && sd > 0; ++i) {
    double next = 0;
    stats.GetLevelRangeStd(float(s.median - 3 * sd), float(s.median + 3 * sd), &next, plane, nullptr);
    const bool settled = std::fabs(next - sd) <= 1e-4 * sd;
    sd = next;
    if (settled) break;
  }
  s.noise = sd;
  return s;
}

int OutputBits(const CArgs& args, const std::string& target, int inputBits) {
  const auto kind = qrnio::KindOfOutput(target);
  if (args.Has("--bits")) {
    const int bits = args.GetInt("--bits", -32);
    if (bits != 8 && bits != 16 && bits != 32 && bits != -32 && bits != -64)
      throw CQrnError("--bits", "must be 8, 16, 32, -32 or -64", true);
    if (qrnio::BitsFor(kind, bits) != bits)
      throw CQrnError(target, "this format cannot store " + std::to_string(bits) + "-bit samples", true);
    return bits;
  }
  return qrnio::BitsFor(kind, inputBits);
}

void Save(const std::string& target, COrbImage& image, int bits, bool isSigned, const Arguments& inputs) {
  qrnio::WriteImage(target, image, bits, isSigned, inputs);
}

void SaveResult(const std::string& target, COrbImage& image, const CArgs& args, const Arguments& inputs) {
  const auto kind = qrnio::KindOfOutput(target);
  if (kind == qrnio::FileKind::Png || kind == qrnio::FileKind::Bmp) {
    if (args.Has("--method")) ApplyLevels(image, args);
    qrnio::WriteRendering(target, image, image.GetPlanes() >= 3 ? 24 : 8, inputs);
  } else {
    qrnio::WriteImage(target, image, OutputBits(args, target, -32), true, inputs);
  }
}

std::string RequireOutput(const CArgs& args) {
  const std::string out = args.Get("-o", args.Get("--output"));
  if (out.empty()) throw CQrnError("-o", "an output file is required", true);
  qrnio::KindOfOutput(out);
  return out;
}

}  // namespace qrncmd
