// qrn demo: a synthetic night at the telescope, calibrated and developed with the library.
//
// The session is made from a fixed seed, so every run writes the same frames. The camera is
// a cooled monochrome CCD; every master frame (bias, darks, flat) is simulated as the mean of
// 16 exposures, so it carries a quarter of a single frame's noise.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>
#include <vector>

#include "Error.h"
#include "commands/Command.h"
#include "io/AtomicOutput.h"
#include "io/ImageFiles.h"
#include "ops/calibration/ImgDark.h"
#include "ops/calibration/ImgFlat.h"
#include "ops/level/ImgAutoLevel.h"

namespace fs = std::filesystem;

namespace {

constexpr int kWidth = 1024, kHeight = 768;
constexpr double kExposure = 300.0;       // seconds, darks and lights alike
constexpr double kLightTemp = -10.0;      // the lights' sensor temperature (C)
constexpr double kDarkTemps[2] = {-15.0, -5.0};
constexpr double kReadNoise = 6.0;        // ADU per frame
constexpr double kMasterNoise = 0.25;     // a mean of 16 frames
constexpr int kLights = 2;

// ---- The camera and the sky -------------------------------------------------------------

using Plane = std::vector<float>;

// Bias level with a faint column pattern, as readout electronics leave it.
Plane MakeBias(std::mt19937& rng) {
  Plane bias(std::size_t(kWidth) * kHeight);
  std::normal_distribution<float> column(0.0f, 1.5f);
  std::vector<float> offset(kWidth);
  for (auto& o : offset) o = column(rng);
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x) bias[std::size_t(y) * kWidth + x] = 400.0f + offset[x];
  return bias;
}

// Dark current per exposure at 0 C reference, doubling every 6 degrees; 0.2 % hot pixels.
Plane MakeDarkRate(std::mt19937& rng) {
  Plane rate(std::size_t(kWidth) * kHeight);
  std::uniform_real_distribution<float> u(0.0f, 1.0f);
  for (auto& r : rate) r = u(rng) < 0.002f ? 150.0f + 400.0f * u(rng) : 2.0f + 0.5f * u(rng);
  return rate;
}
double DarkScale(double celsius) { return std::pow(2.0, (celsius - kLightTemp) / 6.0); }

// Optical response: cos^4-like vignetting and the ring shadows of dust on the filter.
Plane MakeResponse(std::mt19937& rng) {
  Plane response(std::size_t(kWidth) * kHeight);
  const double cx = kWidth / 2.0, cy = kHeight / 2.0, f = 900.0;
  struct Dust { double x, y, r, depth; };
  std::vector<Dust> dust;
  std::uniform_real_distribution<double> u(0.0, 1.0);
  for (int i = 0; i < 6; ++i) dust.push_back({u(rng) * kWidth, u(rng) * kHeight, 10 + 20 * u(rng), 0.08 + 0.1 * u(rng)});
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x) {
      const double r2 = ((x - cx) * (x - cx) + (y - cy) * (y - cy)) / (f * f);
      double v = 1.0 / ((1.0 + r2) * (1.0 + r2));
      for (const auto& d : dust) {
        const double dist = std::hypot(x - d.x, y - d.y);
        v *= 1.0 - d.depth * std::exp(-(dist - d.r) * (dist - d.r) / 18.0);
      }
      response[std::size_t(y) * kWidth + x] = float(v);
    }
  return response;
}

// Sky gradient, a faint nebula and stars with a Moffat profile (beta 2.5, FWHM 3.2 px).
Plane MakeScene(double dx, double dy) {
  Plane scene(std::size_t(kWidth) * kHeight);
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x) {
      const double sky = 150.0 + 0.10 * x + 0.06 * y;
      const double n1 = 45.0 * std::exp(-(std::pow(x - 600 - dx, 2) + std::pow(y - 360 - dy, 2)) / (2 * 110.0 * 110.0));
      const double n2 = 30.0 * std::exp(-(std::pow((x - 380 - dx) * 0.6, 2) + std::pow(y - 420 - dy, 2)) / (2 * 60.0 * 60.0));
      scene[std::size_t(y) * kWidth + x] = float(sky + n1 + n2);
    }
  const double beta = 2.5, fwhm = 3.2;
  const double alpha = fwhm / (2.0 * std::sqrt(std::pow(2.0, 1.0 / beta) - 1.0));
  std::mt19937 stars(7);  // the same stars in every light; only the pointing moves
  std::uniform_real_distribution<double> u(0.0, 1.0);
  for (int i = 0; i < 400; ++i) {
    const double sx = u(stars) * kWidth + dx, sy = u(stars) * kHeight + dy;
    const double peak = std::min(40000.0, 40.0 * std::pow(u(stars) + 1e-3, -1.2));
    const int r = 16;
    for (int y = std::max(0, int(sy) - r); y < std::min(kHeight, int(sy) + r + 1); ++y)
      for (int x = std::max(0, int(sx) - r); x < std::min(kWidth, int(sx) + r + 1); ++x) {
        const double d2 = ((x - sx) * (x - sx) + (y - sy) * (y - sy)) / (alpha * alpha);
        scene[std::size_t(y) * kWidth + x] += float(peak * std::pow(1.0 + d2, -beta));
      }
  }
  return scene;
}

// A frame as the camera records it: signal with shot noise (gain 1 e-/ADU) and read noise.
std::unique_ptr<COrbImage> Expose(std::mt19937& rng, const std::function<double(std::size_t)>& signal,
                                  const Plane& bias, double noiseScale) {
  auto img = std::make_unique<COrbImage>(-32, kWidth, kHeight, 1);
  if (img->IsEmpty()) throw CQrnError("demo", "out of memory");
  std::normal_distribution<float> normal(0.0f, 1.0f);
  for (int y = 0; y < kHeight; ++y) {
    float* row = img->GetImageAdr(0, y, 0, 0);
    for (int x = 0; x < kWidth; ++x) {
      const std::size_t i = std::size_t(y) * kWidth + x;
      const double s = std::max(0.0, signal(i));
      const double sigma = std::sqrt(s + kReadNoise * kReadNoise) * noiseScale;
      row[x] = float(std::round(bias[i] + s + sigma * normal(rng)));
    }
  }
  img->CalcMinMax();
  img->SetLevel(0, img->GetMinPixel(0), img->GetMaxPixel(0));
  return img;
}

void Describe(COrbImage& img, const char* type, double seconds, double celsius, int index) {
  CHeader& h = img.GetHeader();
  h.SetKeyword(L"IMAGETYP", CString::FromUtf8(type), L"frame type");
  h.SetKeyword(L"EXPTIME", CString::FromUtf8(std::to_string(seconds)), L"exposure time (s)");
  h.SetKeyword(L"CCD-TEMP", CString::FromUtf8(std::to_string(celsius)), L"sensor temperature (C)");
  h.SetKeyword(L"INSTRUME", L"qrn synthetic CCD", L"simulated camera");
  h.SetKeyword(L"DATE-OBS", CString::FromUtf8("2024-03-0" + std::to_string(1 + index / 24) + "T2" +
                                              std::to_string(index % 4) + ":00:00"),
               L"start of exposure (UTC)");
}

// ---- Measurements, all through the library's statistics ----------------------------------

// Spread of the sky: the largest minus the smallest median of a 4 x 4 grid of tiles.
double SkySpread(COrbImage& img) {
  auto& stats = static_cast<CImgAutoLevel&>(img);
  double lo = 1e30, hi = -1e30;
  for (int ty = 0; ty < 4; ++ty)
    for (int tx = 0; tx < 4; ++tx) {
      CRect r(tx * kWidth / 4, ty * kHeight / 4, (tx + 1) * kWidth / 4, (ty + 1) * kHeight / 4);
      float m = 0;
      stats.GetMedian(&m, 1, 0, 0, &r);
      lo = std::min(lo, double(m));
      hi = std::max(hi, double(m));
    }
  return hi - lo;
}

// Per-pixel sky change along x and y from the medians of the outer quarter strips.
void SkySlope(COrbImage& img, double* gx, double* gy) {
  auto& stats = static_cast<CImgAutoLevel&>(img);
  auto median = [&](int l, int t, int r, int b) {
    CRect rect(l, t, r, b);
    float m = 0;
    stats.GetMedian(&m, 1, 0, 0, &rect);
    return double(m);
  };
  const int qx = kWidth / 4, qy = kHeight / 4;
  *gx = (median(kWidth - qx, 0, kWidth, kHeight) - median(0, 0, qx, kHeight)) / double(kWidth - qx);
  *gy = (median(0, kHeight - qy, kWidth, kHeight) - median(0, 0, kWidth, qy)) / double(kHeight - qy);
}

// The frames of the night: master bias, darks at two temperatures, flat, and the lights.
struct Session {
  std::unique_ptr<COrbImage> bias, darks[2], flat, lights[kLights];
};

Session MakeSession() {
  std::mt19937 rng(20240301);
  const Plane biasLevel = MakeBias(rng), darkRate = MakeDarkRate(rng), response = MakeResponse(rng);
  Session night;
  night.bias = Expose(rng, [](std::size_t) { return 0.0; }, biasLevel, kMasterNoise);
  Describe(*night.bias, "Bias Frame", 0.0, kLightTemp, 0);
  for (int k = 0; k < 2; ++k) {
    const double scale = DarkScale(kDarkTemps[k]);
    night.darks[k] = Expose(rng, [&](std::size_t i) { return darkRate[i] * scale; }, biasLevel, kMasterNoise);
    Describe(*night.darks[k], "Dark Frame", kExposure, kDarkTemps[k], 1 + k);
  }
  night.flat = Expose(rng, [&](std::size_t i) { return 25000.0 * response[i]; }, biasLevel, kMasterNoise);
  Describe(*night.flat, "Flat Field", 2.0, kLightTemp, 3);
  for (int k = 0; k < kLights; ++k) {
    const Plane scene = MakeScene(3.0 * k, -2.0 * k);
    night.lights[k] = Expose(rng, [&](std::size_t i) { return scene[i] * response[i] + darkRate[i]; }, biasLevel, 1.0);
    Describe(*night.lights[k], "Light Frame", kExposure, kLightTemp, 4 + k);
  }
  return night;
}

// The output folder: FITS files of float samples and 8-bit PNG previews.
struct Folder {
  fs::path dir;

  std::string Path(const std::string& name) const { return (dir / name).string(); }
  void Save(const std::string& name, COrbImage& img) const { qrnio::WriteImage(Path(name), img, -32, true, {}); }
  // Linear frames are shown around the sky (mode and sky-noise width) so that vignetting,
  // dust and gradient stay visible; the developed frame, whose stars are compressed, by
  // percentiles: the sky just above black, the brightest 0.3 % saturated.
  void Preview(const std::string& name, COrbImage& img, bool developed) const {
    if (developed)
      qrncmd::ApplyLevels(img, "normal", 0.02, 0.997);
    else
      qrncmd::ApplyLevels(img, "histogram", 3.0, 12.0);
    qrnio::WriteRendering(Path(name), img, 8, {});
  }
};

void SaveRawFrames(const Folder& out, Session& night) {
  out.Save("raw/bias.fits", *night.bias);
  out.Save("raw/dark_m15C.fits", *night.darks[0]);
  out.Save("raw/dark_m05C.fits", *night.darks[1]);
  out.Save("raw/flat.fits", *night.flat);
  for (int k = 0; k < kLights; ++k) out.Save("raw/light_" + std::to_string(k + 1) + ".fits", *night.lights[k]);
}

// The sky of light 1 after one stage, as the report shows it.
struct SkyRow {
  const char* stage;
  qrncmd::CPlaneStats stats;
  double spread;
};
SkyRow MeasureSky(const char* stage, COrbImage& img) { return {stage, qrncmd::MeasurePlane(img, 0), SkySpread(img)}; }

// Times the steps as they end, notes each, and keeps their lines for the report.
class CStepLog {
 public:
  explicit CStepLog(const CContext& ctx) : m_ctx(ctx) {}

  void Done(const char* what) {
    m_table << Line(what, Lap(m_last));
    m_ctx.Note(std::string("demo: ") + what);
    CCancel::ThrowIfCancelled();
  }
  std::string Table() {
    auto start = m_start;
    return m_table.str() + "  " + std::string(48, '-') + "\n" + Line("total", Lap(start));
  }

 private:
  using Clock = std::chrono::steady_clock;
  static double Lap(Clock::time_point& since) {
    const auto now = Clock::now();
    const double seconds = std::chrono::duration<double>(now - since).count();
    since = now;
    return seconds;
  }
  static std::string Line(const char* what, double seconds) {
    char line[128];
    std::snprintf(line, sizeof line, "  %-48s %7.2f s\n", what, seconds);
    return line;
  }

  const CContext& m_ctx;
  Clock::time_point m_start = Clock::now(), m_last = m_start;
  std::ostringstream m_table;
};

std::string Report(const std::string& steps, const std::vector<SkyRow>& sky) {
  std::ostringstream report;
  report << "qrn demo: a synthetic observing session, " << kWidth << " x " << kHeight << " pixels\n\nsteps\n"
         << steps << "\nlight 1 (sky background)      noise (ADU)   sky spread (ADU)   median (ADU)\n";
  for (const SkyRow& row : sky) {
    char line[128];
    std::snprintf(line, sizeof line, "  %-26s  %9.2f   %16.1f   %12.1f\n", row.stage, row.stats.noise, row.spread,
                  row.stats.median);
    report << line;
  }
  report << "\nnoise: standard deviation about the median, 3-sigma clipped, whole frame;\n"
            "sky spread: largest minus smallest median of a 4 x 4 grid of tiles (vignetting,\n"
            "dust and gradient show here). The interpolated dark is linear in temperature while\n"
            "dark current doubles every 6 C, so hot pixels keep a small residual.\n\n"
            "files: raw/*.fits (bias, darks at -15 C and -5 C, flat, lights), calibrated_*.fits,\n"
            "gradient_removed.fits, developed.fits, before.png, calibrated.png, after.png\n";
  return report.str();
}

void WriteText(const std::string& path, const std::string& text) {
  COutputFile out(path);
  {
    std::ofstream f(out.TempPath());
    f << text;
    if (!f) throw CQrnError(path, "cannot write");
  }
  out.Commit();
}

}  // namespace

int RunDemo(const Arguments& argv, CContext& ctx) {
  CArgs args(argv, {"-o", "--output"}, {});
  args.ExpectPositional(0, 0, "qrn demo [-o DIR]");
  const Folder out{args.Get("-o", args.Get("--output", "qrn-demo"))};
  EnsureWritableFolder(out.dir.string());
  EnsureWritableFolder(out.Path("raw"));
  CStepLog steps(ctx);
  std::vector<SkyRow> sky;

  // 1. The session.
  Session night = MakeSession();
  steps.Done("synthetic frames made");
  SaveRawFrames(out, night);
  steps.Done("raw frames written (FITS)");
  for (auto* img : {night.bias.get(), night.darks[0].get(), night.darks[1].get(), night.flat.get()})
    img->SetProgressHandle(ctx.Window());

  // 2. Calibration: a dark for the lights' temperature, the bias off the flat, then both.
  auto& dark = static_cast<CImgDark&>(*night.darks[0]);
  dark.DoInterpolateByScore(night.darks[1].get(), kLightTemp, kDarkTemps[0], kDarkTemps[1], 1);
  steps.Done("dark interpolated to -10 C");
  COrbImage& flat = *night.flat;
  flat.DarkClbrtn(night.bias.get(), 1);
  flat.CalcMinMax();
  float flatMin[3] = {flat.GetMinPixel(0)}, flatMax[3] = {flat.GetMaxPixel(0)}, flatMean[3] = {flat.GetAvrGrayRaw(0)};
  sky.push_back(MeasureSky("raw", *night.lights[0]));
  out.Preview("before.png", *night.lights[0], false);
  steps.Done("raw preview written");
  std::unique_ptr<COrbImage> calibrated[kLights];
  for (int k = 0; k < kLights; ++k) {
    night.lights[k]->SetProgressHandle(ctx.Window());
    calibrated[k] = night.lights[k]->Clone(ctx.Window());
    calibrated[k]->SetProgressHandle(ctx.Window());
    calibrated[k]->DarkFlat(night.lights[k].get(), &dark, &flat, flatMin, flatMax, flatMean, 0.0f, 0.0, nullptr, 1);
    CCancel::ThrowIfCancelled();
    out.Save("calibrated_" + std::to_string(k + 1) + ".fits", *calibrated[k]);
  }
  steps.Done("lights calibrated (dark and flat) and written");
  COrbImage& work = *calibrated[0];
  sky.push_back(MeasureSky("dark and flat calibrated", work));

  // 3. The sky gradient, measured from strip medians and removed about the centre.
  double gx[3] = {0, 0, 0}, gy[3] = {0, 0, 0}, level[3] = {0, 0, 0}, floor[3] = {0, 0, 0};
  SkySlope(work, &gx[0], &gy[0]);
  auto flattened = work.Clone(ctx.Window());
  flattened->SetProgressHandle(ctx.Window());
  static_cast<CImgFlat&>(*flattened).DoFlatPoint(&work, gx, gy, level, floor, 0, nullptr, 1);
  CCancel::ThrowIfCancelled();
  sky.push_back(MeasureSky("gradient removed", *flattened));
  out.Save("gradient_removed.fits", *flattened);
  steps.Done("sky gradient removed and written");

  // 4. Levels and digital development.
  out.Preview("calibrated.png", *flattened, false);
  qrncmd::CDevelopParams dev;
  dev.sigma = 3.0;
  qrncmd::Develop(*flattened, dev, ctx);
  out.Save("developed.fits", *flattened);
  out.Preview("after.png", *flattened, true);
  steps.Done("levels, digital development, previews");

  const std::string report = Report(steps.Table(), sky);
  WriteText(out.Path("report.txt"), report);
  if (!ctx.quiet) std::fputs(report.c_str(), stdout);
  return 0;
}
