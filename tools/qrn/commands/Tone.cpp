// qrn tone: the tone operations, each from a copy of the image into the image.
#include <cstdio>
#include <cstring>

#include "Error.h"
#include "commands/Command.h"
#include "ops/level/ImgBright.h"
#include "ops/level/ImgColorBalance.h"
#include "ops/level/ImgCutOff.h"
#include "ops/level/ImgHstEql.h"
#include "ops/level/ImgInvert.h"
#include "ops/level/ImgReduceTone.h"
#include "ops/level/ImgToneCurve.h"

namespace {

constexpr const char* kUsage =
    "qrn tone OPERATION IN -o OUT [options]\n"
    "  brightness --brightness B --contrast C [--average A]   display-scale brightness and contrast\n"
    "  invert                                                  mirror samples within the level window\n"
    "  cutoff --low L --high H                                 clip samples to [L, H]\n"
    "  halpha --threshold T --brightness B                     H-alpha tone curve\n"
    "  reduce --steps N                                        posterise into N bands\n"
    "  balance --red R --green G --blue B                      shift colour planes (display steps)\n"
    "  equalize                                                histogram equalisation\n"
    "Levels are set first with --method/--low/--high when given, else they span min..max.";

}  // namespace

int RunTone(const Arguments& argv, CContext& ctx) {
  if (!argv.empty() && (argv[0] == "--help" || argv[0] == "-h")) {
    std::printf("%s\n", kUsage);
    return 0;
  }
  std::set<std::string> valued{"-o",        "--output", "--bits", "--brightness", "--contrast", "--average",
                               "--threshold", "--steps", "--red",  "--green",      "--blue"};
  qrncmd::AddLevelOptions(valued);
  // cutoff reads --low/--high as sample bounds; elsewhere they are level parameters.
  const bool cutoff = !argv.empty() && argv[0] == "cutoff";
  CArgs args(argv, valued, {});
  args.ExpectPositional(2, 2, "qrn tone OPERATION IN -o OUT (qrn tone --help)");
  const std::string op = args.Positional()[0], in = args.Positional()[1];
  static const char* const kOps[] = {"brightness", "invert", "cutoff", "halpha", "reduce", "balance", "equalize"};
  bool known = false;
  for (const char* k : kOps) known = known || op == k;
  if (!known) throw CQrnError(op, "unknown tone operation (qrn tone --help)", true);
  const std::string out = qrncmd::RequireOutput(args);

  CLoadedImage loaded = qrncmd::Load(in, ctx);
  COrbImage& img = *loaded.image;
  if (args.Has("--method") && !cutoff) qrncmd::ApplyLevels(img, args);
  COrbImage work(img, ctx.Window());
  const int planes = img.GetPlanes();
  if (op == "brightness") {
    float b[3], c[3];
    for (int p = 0; p < 3; ++p) {
      b[p] = float(args.GetDouble("--brightness", 0));
      c[p] = float(args.GetDouble("--contrast", 0));
    }
    double average = args.GetDouble("--average", -1);
    if (average < 0) {
      // The pivot of the contrast: the image mean on the 0..255 display scale.
      average = 0;
      for (int p = 0; p < planes; ++p) average += img.GetAvrGray256f(p) / planes;
    }
    static_cast<CImgBright&>(img).Do(b, c, average, &work, nullptr, 1);
  } else if (op == "invert") {
    static_cast<CImgInvert&>(img).Do(&work, nullptr, 1);
  } else if (op == "cutoff") {
    if (!args.Has("--low") || !args.Has("--high")) throw CQrnError("cutoff", "needs --low and --high", true);
    static_cast<CImgCutOff&>(img).Do(&work, float(args.GetDouble("--low", 0)), float(args.GetDouble("--high", 0)),
                                     nullptr, 1);
  } else if (op == "halpha") {
    static_cast<CImgToneCurve&>(img).DoHAlpha(args.GetDouble("--threshold", 0.5), args.GetDouble("--brightness", 0.8),
                                              &work, nullptr, 1);
  } else if (op == "reduce") {
    static_cast<CImgReduceTone&>(img).Do(args.GetInt("--steps", 8), &work, nullptr, 1);
  } else if (op == "balance") {
    if (planes < 3) throw CQrnError(in, "balance needs a colour image");
    static_cast<CImgColorBalance&>(img).Do(args.GetDouble("--red", 0), args.GetDouble("--green", 0),
                                           args.GetDouble("--blue", 0), &work, nullptr, 1);
  } else {
    static_cast<CImgHstEql&>(img).Do(&work);
  }
  CCancel::ThrowIfCancelled();
  qrncmd::SaveResult(out, img, args, {in});
  return 0;
}
