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

// One tone operation: its name and options for the help, and how it rewrites img from work,
// an untouched copy.
struct CToneOperation {
  const char* name;
  const char* options;
  const char* summary;
  void (*apply)(COrbImage& img, COrbImage& work, const CArgs& args, const std::string& in);
};

void Brightness(COrbImage& img, COrbImage& work, const CArgs& args, const std::string&) {
  float b[3], c[3];
  for (int p = 0; p < 3; ++p) {
    b[p] = float(args.GetDouble("--brightness", 0));
    c[p] = float(args.GetDouble("--contrast", 0));
  }
  double average = args.GetDouble("--average", -1);
  if (average < 0) {
    // The pivot of the contrast: the image mean on the 0..255 display scale.
    average = 0;
    for (int p = 0; p < img.GetPlanes(); ++p) average += img.GetAvrGray256f(p) / img.GetPlanes();
  }
  static_cast<CImgBright&>(img).Do(b, c, average, &work, nullptr, 1);
}

void Invert(COrbImage& img, COrbImage& work, const CArgs&, const std::string&) {
  static_cast<CImgInvert&>(img).Do(&work, nullptr, 1);
}

void CutOff(COrbImage& img, COrbImage& work, const CArgs& args, const std::string&) {
  if (!args.Has("--low") || !args.Has("--high")) throw CQrnError("cutoff", "needs --low and --high", true);
  static_cast<CImgCutOff&>(img).Do(&work, float(args.GetDouble("--low", 0)), float(args.GetDouble("--high", 0)),
                                   nullptr, 1);
}

void HAlpha(COrbImage& img, COrbImage& work, const CArgs& args, const std::string&) {
  static_cast<CImgToneCurve&>(img).DoHAlpha(args.GetDouble("--threshold", 0.5), args.GetDouble("--brightness", 0.8),
                                            &work, nullptr, 1);
}

void Reduce(COrbImage& img, COrbImage& work, const CArgs& args, const std::string&) {
  static_cast<CImgReduceTone&>(img).Do(args.GetInt("--steps", 8), &work, nullptr, 1);
}

void Balance(COrbImage& img, COrbImage& work, const CArgs& args, const std::string& in) {
  if (img.GetPlanes() < 3) throw CQrnError(in, "balance needs a colour image");
  static_cast<CImgColorBalance&>(img).Do(args.GetDouble("--red", 0), args.GetDouble("--green", 0),
                                         args.GetDouble("--blue", 0), &work, nullptr, 1);
}

void Equalize(COrbImage& img, COrbImage& work, const CArgs&, const std::string&) {
  static_cast<CImgHstEql&>(img).Do(&work);
}

const CToneOperation kOperations[] = {
    {"brightness", "--brightness B --contrast C [--average A]", "display-scale brightness and contrast", Brightness},
    {"invert", "", "mirror samples within the level window", Invert},
    {"cutoff", "--low L --high H", "clip samples to [L, H]", CutOff},
    {"halpha", "--threshold T --brightness B", "H-alpha tone curve", HAlpha},
    {"reduce", "--steps N", "posterise into N bands", Reduce},
    {"balance", "--red R --green G --blue B", "shift colour planes (display steps)", Balance},
    {"equalize", "", "histogram equalisation", Equalize},
};

void PrintToneUsage() {
  std::printf("qrn tone OPERATION IN -o OUT [options]\n");
  for (const auto& op : kOperations) {
    const std::string synopsis = std::string(op.name) + (*op.options ? " " : "") + op.options;
    std::printf("  %-54s %s\n", synopsis.c_str(), op.summary);
  }
  std::printf("Levels are set first with --method/--low/--high when given, else they span min..max.\n");
}

}  // namespace

int RunTone(const Arguments& argv, CContext& ctx) {
  if (!argv.empty() && (argv[0] == "--help" || argv[0] == "-h")) {
    PrintToneUsage();
    return 0;
  }
  std::set<std::string> valued{"-o",        "--output", "--bits", "--brightness", "--contrast", "--average",
                               "--threshold", "--steps", "--red",  "--green",      "--blue"};
  qrncmd::AddLevelOptions(valued);
  // cutoff reads --low/--high as sample bounds; elsewhere they are level parameters.
  const bool cutoff = !argv.empty() && argv[0] == "cutoff";
  CArgs args(argv, valued, {});
  args.ExpectPositional(2, 2, "qrn tone OPERATION IN -o OUT (qrn tone --help)");
  const std::string name = args.Positional()[0], in = args.Positional()[1];
  const CToneOperation* op = nullptr;
  for (const auto& candidate : kOperations)
    if (name == candidate.name) op = &candidate;
  if (!op) throw CQrnError(name, "unknown tone operation (qrn tone --help)", true);
  const std::string out = qrncmd::RequireOutput(args);

  CLoadedImage loaded = qrncmd::Load(in, ctx);
  COrbImage& img = *loaded.image;
  if (args.Has("--method") && !cutoff) qrncmd::ApplyLevels(img, args);
  COrbImage work(img, ctx.Window());
  op->apply(img, work, args, in);
  CCancel::ThrowIfCancelled();
  qrncmd::SaveResult(out, img, args, {in});
  return 0;
}
