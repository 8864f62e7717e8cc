// qrn calibrate: dark subtraction and flat division of light frames.
#include <cstdio>
#include <filesystem>

#include "Error.h"
#include "commands/Command.h"
#include "io/AtomicOutput.h"
#include "io/ImageFiles.h"
#include "ops/calibration/ImgDark.h"

namespace {

std::string Size(const COrbImage& img) {
  return std::to_string(img.GetWidth()) + " x " + std::to_string(img.GetHeight()) + " x " +
         std::to_string(img.GetPlanes());
}

// A calibration frame fits a light of the same size; a grey frame serves a colour light.
void CheckFits(const std::string& path, const COrbImage& frame, const std::string& lightPath, const COrbImage& light) {
  if (frame.GetWidth() != light.GetWidth() || frame.GetHeight() != light.GetHeight() ||
      (frame.GetPlanes() != light.GetPlanes() && frame.GetPlanes() != 1))
    throw CQrnError(path, "size " + Size(frame) + " differs from the light frame " + lightPath + " (" + Size(light) + ")");
}

}  // namespace

int RunCalibrate(const Arguments& argv, CContext& ctx) {
  CArgs args(argv, {"--dark", "--flat", "--bias", "--pedestal", "--flat-gamma", "-o", "--output", "--bits", "--suffix"},
             {});
  args.ExpectPositional(1, 1u << 20, "qrn calibrate --dark D --flat F LIGHT... -o OUTDIR");
  const std::string outDir = args.Get("-o", args.Get("--output"));
  if (outDir.empty()) throw CQrnError("-o", "an output folder is required", true);
  if (!args.Has("--dark") && !args.Has("--flat") && !args.Has("--bias"))
    throw CQrnError("", "give at least one of --dark, --flat, --bias", true);
  const float pedestal = float(args.GetDouble("--pedestal", 0.0));
  const double gamma = args.GetDouble("--flat-gamma", 0.0);
  const std::string suffix = args.Get("--suffix", ".fits");
  qrnio::KindOfOutput("x" + suffix);
  const int bits = args.GetInt("--bits", -32);

  std::vector<std::string> inputs = args.Positional();
  std::unique_ptr<COrbImage> bias, dark, flat;
  if (args.Has("--bias")) bias = qrncmd::Load(args.Get("--bias"), ctx).image;
  if (args.Has("--dark")) dark = qrncmd::Load(args.Get("--dark"), ctx).image;
  if (args.Has("--flat")) flat = qrncmd::Load(args.Get("--flat"), ctx).image;
  for (const char* o : {"--bias", "--dark", "--flat"})
    if (args.Has(o)) inputs.push_back(args.Get(o));
  // A missing light is found before any output is written, not halfway through the set.
  for (const auto& lightPath : args.Positional())
    if (!std::filesystem::is_regular_file(lightPath)) throw CQrnError(lightPath, "no such image file");
  EnsureWritableFolder(outDir);

  // The bias is the dark of a zero exposure: it comes off the flat, and stands for the
  // dark when no dark is given (a dark frame already holds its bias).
  if (bias && flat) {
    CheckFits(args.Get("--bias"), *bias, args.Get("--flat"), *flat);
    flat->DarkClbrtn(bias.get(), 1);
  }
  COrbImage* darkFrame = dark ? dark.get() : bias.get();
  const std::string darkPath = dark ? args.Get("--dark") : args.Get("--bias");
  float flatMin[3] = {0, 0, 0}, flatMax[3] = {0, 0, 0}, flatMean[3] = {0, 0, 0};
  if (flat) {
    flat->CalcMinMax();
    for (int p = 0; p < flat->GetPlanes(); ++p) {
      flatMin[p] = flat->GetMinPixel(p);
      flatMax[p] = flat->GetMaxPixel(p);
      flatMean[p] = flat->GetAvrGrayRaw(p);
    }
  }
  CCancel::ThrowIfCancelled();

  for (const auto& lightPath : args.Positional()) {
    CLoadedImage light = qrncmd::Load(lightPath, ctx);
    if (darkFrame) CheckFits(darkPath, *darkFrame, lightPath, *light.image);
    if (flat) CheckFits(args.Get("--flat"), *flat, lightPath, *light.image);
    auto result = light.image->Clone(ctx.Window());
    if (!result) throw CQrnError(lightPath, "out of memory");
    result->SetProgressHandle(ctx.Window());
    result->DarkFlat(light.image.get(), darkFrame, flat.get(), flatMin, flatMax, flatMean, pedestal, gamma, nullptr, 1);
    CCancel::ThrowIfCancelled();
    const std::string target =
        (std::filesystem::path(outDir) / (std::filesystem::path(lightPath).stem().string() + suffix)).string();
    qrncmd::Save(target, *result, qrnio::BitsFor(qrnio::KindOfOutput(target), bits), true, inputs);
    ctx.Note(lightPath + " -> " + target);
  }
  return 0;
}
