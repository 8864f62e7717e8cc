// qrn convert: the samples of one file written in another format.
#include "Error.h"
#include "commands/Command.h"

int RunConvert(const Arguments& argv, CContext& ctx) {
  CArgs args(argv, {"-o", "--output", "--bits"}, {});
  args.ExpectPositional(1, 1, "qrn convert IN -o OUT [--bits B]");
  const std::string in = args.Positional()[0];
  const std::string out = args.Get("-o", args.Get("--output"));
  if (out.empty()) throw CQrnError("-o", "an output file is required", true);
  const int bits = qrncmd::OutputBits(args, out, 0);  // checks the extension before reading
  CLoadedImage loaded = qrncmd::Load(in, ctx);
  const int outBits = args.Has("--bits") ? bits : qrncmd::OutputBits(args, out, loaded.bits);
  qrncmd::Save(out, *loaded.image, outBits, outBits == loaded.bits ? loaded.isSigned : true, {in});
  return 0;
}
