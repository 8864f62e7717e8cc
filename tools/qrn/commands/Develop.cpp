// qrn develop: digital development (local tone compression for nebulae).
#include <memory>

#include "Error.h"
#include "commands/Command.h"
#include "ops/filter/ImgFilter.h"
#include "ops/filter/ImgFilterSpecial.h"
#include "ops/level/ImgAutoLevel.h"

namespace qrncmd {

void Develop(COrbImage& image, const CDevelopParams& p, const CContext& ctx) {
  auto& dev = static_cast<CImgFilterSpecial&>(image);
  // A bordered work copy lets the blur see past the image edge.
  const int border = p.kernel == 0 ? int(2.8 * p.sigma + 1.0) + 1 : 2 * int(p.sigma) + 1;
  std::unique_ptr<COrbImage> work(static_cast<CImgFilter&>(image).MakeDDWork(border, 0));
  if (!work) throw CQrnError("develop", "out of memory for the work image");
  work->SetProgressHandle(ctx.Window());
  // The gamma curve takes its range from the work image's stored minimum and maximum.
  work->CalcMinMax();
  double background[3];
  if (p.background == p.background) {
    background[0] = p.background;
  } else {
    float median = 0;
    static_cast<CImgAutoLevel&>(image).GetMedian(&median, 1, 0, 0, nullptr);
    background[0] = median;
  }
  background[1] = background[2] = background[0];
  double sigma[3] = {p.sigma, p.sigma, p.sigma}, gamma[3] = {p.gamma, p.gamma, p.gamma};
  float gLow[3], gRange[3], offset[3], mult[3];
  int filterPlane[3] = {0, 1, 2};
  dev.DigitalDvlp1(background, p.kernel, sigma, p.discWeight, gamma, p.minMaxMode, work.get(), gLow, gRange, offset,
                   mult, p.gammaAfter ? 1 : 0);
  if (p.gammaAfter)
    dev.DigitalDvlpGmAftrDdp(1, gamma, work.get(), filterPlane, gLow, gRange, offset, mult, nullptr, 1);
  else
    dev.DigitalDvlp2(1, gamma, work.get(), filterPlane, gLow, gRange, offset, mult, nullptr, 1);
  image.ClearFilterProc();
  CCancel::ThrowIfCancelled();
}

}  // namespace qrncmd

int RunDevelop(const Arguments& argv, CContext& ctx) {
  std::set<std::string> valued{"-o",      "--output", "--bits",         "--sigma",       "--kernel",
                               "--gamma", "--background", "--disc-weight", "--minmax-mode"};
  qrncmd::AddLevelOptions(valued);
  CArgs args(argv, valued, {"--gamma-after"});
  args.ExpectPositional(1, 1, "qrn develop IN -o OUT [--sigma S] [--kernel gauss|disc] [--gamma G]");
  const std::string in = args.Positional()[0];
  const std::string out = qrncmd::RequireOutput(args);
  qrncmd::CDevelopParams p;
  p.sigma = args.GetDouble("--sigma", p.sigma);
  if (!(p.sigma > 0 && p.sigma <= 100)) throw CQrnError("--sigma", "must be in (0, 100]", true);
  const std::string kernel = args.Get("--kernel", "gauss");
  if (kernel != "gauss" && kernel != "disc") throw CQrnError("--kernel", "must be gauss or disc", true);
  p.kernel = kernel == "gauss" ? 0 : 1;
  p.gamma = args.GetDouble("--gamma", p.gamma);
  if (!(p.gamma > 0)) throw CQrnError("--gamma", "must be positive", true);
  p.discWeight = args.GetDouble("--disc-weight", p.discWeight);
  p.minMaxMode = args.GetInt("--minmax-mode", p.minMaxMode);
  if (args.Has("--background")) p.background = args.GetDouble("--background", 0);
  p.gammaAfter = args.Has("--gamma-after");

  CLoadedImage loaded = qrncmd::Load(in, ctx);
  COrbImage& img = *loaded.image;
  // Development works on the display scale, so the levels come first.
  qrncmd::ApplyLevels(img, args);
  qrncmd::Develop(img, p, ctx);
  qrncmd::ApplyLevels(img, args);
  qrncmd::SaveResult(out, img, args, {in});
  return 0;
}
