// qrn level and qrn render: automatic display levels and the bitmap they give.
#include <cstdio>

#include "Error.h"
#include "commands/Command.h"
#include "io/ImageFiles.h"

namespace {

std::string OutputOf(const CArgs& args) { return args.Get("-o", args.Get("--output")); }

void PrintLevels(const std::string& path, const COrbImage& img, const std::string& how) {
  std::printf("%s: %s\n", path.c_str(), how.c_str());
  for (int p = 0; p < img.GetPlanes(); ++p)
    std::printf("  plane %d: min %.6g max %.6g\n", p, img.GetLevelMin(p), img.GetLevelMax(p));
}

int Render(const CArgs& args, const std::string& in, const std::string& out, CContext& ctx, bool print) {
  if (!out.empty()) qrnio::KindOfOutput(out);  // a bad extension fails before any work
  CLoadedImage loaded = qrncmd::Load(in, ctx);
  COrbImage& img = *loaded.image;
  const std::string how = qrncmd::ApplyLevels(img, args);
  CCancel::ThrowIfCancelled();
  if (print) PrintLevels(in, img, how);
  if (!out.empty()) {
    const int bits = args.GetInt("--bits", img.GetPlanes() >= 3 ? 24 : 8);
    qrnio::WriteRendering(out, img, bits, {in});
  }
  return 0;
}

}  // namespace

int RunLevel(const Arguments& argv, CContext& ctx) {
  std::set<std::string> valued{"-o", "--output", "--bits"};
  qrncmd::AddLevelOptions(valued);
  CArgs args(argv, valued, {});
  args.ExpectPositional(1, 1, "qrn level IN [--method M --low L --high H] [-o OUT.png]");
  return Render(args, args.Positional()[0], OutputOf(args), ctx, true);
}

int RunRender(const Arguments& argv, CContext& ctx) {
  std::set<std::string> valued{"-o", "--output", "--bits"};
  qrncmd::AddLevelOptions(valued);
  CArgs args(argv, valued, {});
  args.ExpectPositional(1, 1, "qrn render IN -o OUT.png|OUT.bmp [--bits 8|24]");
  const std::string out = OutputOf(args);
  if (out.empty()) throw CQrnError("-o", "an output file is required", true);
  return Render(args, args.Positional()[0], out, ctx, false);
}
