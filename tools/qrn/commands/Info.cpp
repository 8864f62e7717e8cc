// qrn info: what a file holds and the statistics of each plane.
#include <cstdio>

#include "Error.h"
#include "commands/Command.h"

namespace {

std::string FormatName(const CLoadedImage& l) {
  switch (l.bits) {
    case 8: return "8-bit unsigned";
    case 16: return l.isSigned ? "16-bit signed" : "16-bit unsigned";
    case 32: return l.isSigned ? "32-bit signed" : "32-bit unsigned";
    case -32: return "32-bit float";
    default: return "64-bit float";
  }
}

void PrintOne(const std::string& path, const CContext& ctx) {
  CLoadedImage loaded = qrncmd::Load(path, ctx);
  COrbImage& img = *loaded.image;
  std::printf("%s: %s, %d x %d, %d plane%s, %s\n", path.c_str(), loaded.format.c_str(), img.GetWidth(),
              img.GetHeight(), img.GetPlanes(), img.GetPlanes() == 1 ? "" : "s", FormatName(loaded).c_str());
  const CHeader& h = img.GetHeader();
  double value = 0;
  if (h.GetExposureTime(&value)) std::printf("  exposure     %g s\n", value);
  if (h.GetCoolingTemperature(&value)) std::printf("  temperature  %g C\n", value);
  CString text;
  if (h.GetDetector(text)) std::printf("  instrument   %s\n", text.ToUtf8().c_str());
  if (h.GetKeyword(L"DATE-OBS", text)) std::printf("  date         %s\n", text.ToUtf8().c_str());
  if (h.GetKeyword(L"OBJECT", text)) std::printf("  object       %s\n", text.ToUtf8().c_str());
  static const char* const kPlaneNames[] = {"red", "green", "blue"};
  for (int p = 0; p < img.GetPlanes(); ++p) {
    const auto s = qrncmd::MeasurePlane(img, p);
    std::printf("  %-6s min %-12.6g max %-12.6g mean %-12.6g median %-12.6g noise %.4g\n",
                img.GetPlanes() == 1 ? "plane" : kPlaneNames[p], s.min, s.max, s.mean, s.median, s.noise);
  }
}

}  // namespace

int RunInfo(const Arguments& argv, CContext& ctx) {
  CArgs args(argv, {}, {});
  args.ExpectPositional(1, 1u << 20, "qrn info FILE...");
  int failed = 0;
  for (const auto& path : args.Positional()) {
    try {
      PrintOne(path, ctx);
    } catch (const CQrnError& e) {
      // One unreadable file does not hide the others.
      std::fflush(stdout);
      std::fprintf(stderr, "qrn: %s\n", e.what());
      failed = 1;
    }
  }
  return failed;
}
