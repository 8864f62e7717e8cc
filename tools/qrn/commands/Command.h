// What every subcommand gets, and the helpers several of them share.
#pragma once
#include <string>
#include <vector>

#include "Args.h"
#include "Progress.h"
#include "io/ImageFile.h"

/// @brief The run's progress window and verbosity, handed to every subcommand.
struct CContext {
  CProgressBar* bar = nullptr;
  bool quiet = false;
  HWND Window() const { return bar ? bar->Window() : nullptr; }
  /// Prints a status line on standard error unless quiet.
  void Note(const std::string& text) const {
    if (bar) bar->Note(text);
  }
};

using Arguments = std::vector<std::string>;

int RunInfo(const Arguments& args, CContext& ctx);
int RunConvert(const Arguments& args, CContext& ctx);
int RunLevel(const Arguments& args, CContext& ctx);
int RunRender(const Arguments& args, CContext& ctx);
int RunCalibrate(const Arguments& args, CContext& ctx);
int RunFilter(const Arguments& args, CContext& ctx);
int RunDevelop(const Arguments& args, CContext& ctx);
int RunTone(const Arguments& args, CContext& ctx);
int RunScript(const Arguments& args, CContext& ctx);
int RunDemo(const Arguments& args, CContext& ctx);

namespace qrncmd {

/// Reads an image and connects it to the progress window.
CLoadedImage Load(const std::string& path, const CContext& ctx);

/// Options of the automatic levels: --method, --low, --high.
void AddLevelOptions(std::set<std::string>& valued);
/// Sets the display levels of image by CImgAutoLevel with the method and parameters of args
/// (histogram by default); returns a description such as "histogram 1.5 .. 30".
std::string ApplyLevels(COrbImage& image, const CArgs& args);
void ApplyLevels(COrbImage& image, const std::string& method, double low, double high);

/// Background statistics of one plane, all from the library's statistics members.
struct CPlaneStats {
  double min = 0, max = 0, mean = 0, median = 0, noise = 0;
};
/// min, max and mean of the defined (finite) samples; median from GetMedian; noise is the standard deviation
/// about the median with samples beyond 3 sigma left out, repeated until it settles (stars
/// and hot pixels do not count as noise).
CPlaneStats MeasurePlane(COrbImage& image, int plane);

/// Output bits for target: --bits when given, else the bits the input was stored in when the
/// format can hold them, else 32-bit float.
int OutputBits(const CArgs& args, const std::string& target, int inputBits);
/// Writes the samples of image to target, format by extension.
void Save(const std::string& target, COrbImage& image, int bits, bool isSigned, const Arguments& inputs);
/// Writes a processed image: FITS and TIFF get its samples (--bits, default 32-bit float),
/// PNG and BMP what it looks like through its display levels (levelled first when --method
/// is given).
void SaveResult(const std::string& target, COrbImage& image, const CArgs& args, const Arguments& inputs);
/// The output option -o / --output; a usage error when it is missing.
std::string RequireOutput(const CArgs& args);

/// Parameters of digital development (qrn develop and the demo).
struct CDevelopParams {
  double sigma = 4.0;          // blur size in pixels
  int kernel = 0;              // 0 Gaussian, 1 disc
  double discWeight = 1.0;     // off-centre weight of the disc
  double gamma = 1.0;          // 1: no gamma
  int minMaxMode = 1;          // level source of the gamma curve
  double background = __builtin_nan("");  // NaN: the median of plane 0
  bool gammaAfter = false;
};
/// Digital development of image in place, with a bordered work copy; the levels of image
/// set the display scale it works on.
void Develop(COrbImage& image, const CDevelopParams& params, const CContext& ctx);

}  // namespace qrncmd
