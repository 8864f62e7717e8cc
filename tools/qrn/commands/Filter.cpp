// qrn filter: the neighbourhood filters, from a copy of the image into the image.
#include "Error.h"
#include "commands/Command.h"
#include "ops/filter/ImgFilter.h"

int RunFilter(const Arguments& argv, CContext& ctx) {
  CArgs args(argv, {"-o", "--output", "--bits", "--type", "--rank", "--amount", "--weight", "--threshold", "--method",
                    "--low", "--high"},
             {});
  args.ExpectPositional(2, 2, "qrn filter median|minmax|unsharp|laplacian IN -o OUT [--type 0|1|2]");
  const std::string kind = args.Positional()[0], in = args.Positional()[1];
  if (kind != "median" && kind != "minmax" && kind != "unsharp" && kind != "laplacian")
    throw CQrnError(kind, "unknown filter (median, minmax, unsharp, laplacian)", true);
  const std::string out = qrncmd::RequireOutput(args);
  // Kernel 0: cross of 5, 1: 3 x 3 square, 2: 5 x 5 without corners.
  const int type = args.GetInt("--type", 1);
  if (type < 0 || type > 2) throw CQrnError("--type", "must be 0 (cross), 1 (3x3) or 2 (5x5)", true);
  const int samples = CImgFilter::GetSampleCount(type);
  const int rank = args.GetInt("--rank", samples / 2);
  if (rank < 0 || rank >= samples)
    throw CQrnError("--rank", "must be 0 .. " + std::to_string(samples - 1) + " for this kernel", true);

  CLoadedImage loaded = qrncmd::Load(in, ctx);
  auto& img = static_cast<CImgFilter&>(*loaded.image);
  COrbImage work(img, ctx.Window());
  if (kind == "median") img.MedianFilter(type, &work, nullptr, 1);
  else if (kind == "minmax") img.MinMaxFilter(type, rank, &work, nullptr, 1);
  else if (kind == "laplacian") img.LaplacianFilter(type, &work, nullptr, 1);
  else
    img.UnSharpMask(args.GetDouble("--amount", 1.0), type, args.GetDouble("--weight", 1.0),
                    args.GetDouble("--threshold", 0.0), &work, nullptr, 1);
  CCancel::ThrowIfCancelled();
  qrncmd::SaveResult(out, img, args, {in});
  return 0;
}
