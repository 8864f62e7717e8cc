// qrn tone against the library's own tone operations on the same samples.
#include <functional>
#include <random>

#include "CliSupport.h"
#include "core/OrbImage.h"
#include "ops/level/ImgBright.h"
#include "ops/level/ImgColorBalance.h"
#include "ops/level/ImgCutOff.h"
#include "ops/level/ImgHstEql.h"
#include "ops/level/ImgInvert.h"
#include "ops/level/ImgReduceTone.h"
#include "ops/level/ImgToneCurve.h"

using namespace clitest;

namespace {

constexpr int kW = 23, kH = 9, kPlanes = 3;

// A colour frame as the program reads it: float samples, each plane's window its min..max.
COrbImage Frame(const std::vector<double>& v) {
  COrbImage img(-32, kW, kH, kPlanes);
  for (int p = 0; p < kPlanes; ++p) {
    double lo = v[std::size_t(p) * kW * kH], hi = lo;
    for (int y = 0; y < kH; ++y)
      for (int x = 0; x < kW; ++x) {
        const double s = v[(std::size_t(p) * kH + y) * kW + x];
        img.SetPixelGrayRaw(x, y, float(s), p);
        lo = std::min(lo, s), hi = std::max(hi, s);
      }
    img.SetLevel(p, lo, hi);
  }
  return img;
}

}  // namespace

class ToneTest : public CliTest {};

TEST_F(ToneTest, EveryOperationWritesTheLibrarysSamples) {
  std::mt19937 rng(5);
  std::uniform_real_distribution<double> d(100.0, 4000.0);
  std::vector<double> v(std::size_t(kW) * kH * kPlanes);
  for (auto& s : v) s = float(d(rng));
  WriteFits(P("in.fits"), FLOAT_IMG, kW, kH, kPlanes, v);

  using Apply = std::function<void(COrbImage& img, COrbImage& work)>;
  const std::vector<std::pair<std::vector<std::string>, Apply>> cases = {
      {{"brightness", "--brightness", "12", "--contrast", "30", "--average", "100"},
       [](COrbImage& img, COrbImage& work) {
         float b[3] = {12, 12, 12}, c[3] = {30, 30, 30};
         static_cast<CImgBright&>(img).Do(b, c, 100.0, &work, nullptr, 0);
       }},
      {{"invert"}, [](COrbImage& img, COrbImage& work) { static_cast<CImgInvert&>(img).Do(&work, nullptr, 0); }},
      {{"cutoff", "--low", "500", "--high", "3000"},
       [](COrbImage& img, COrbImage& work) { static_cast<CImgCutOff&>(img).Do(&work, 500.0f, 3000.0f, nullptr, 0); }},
      {{"halpha", "--threshold", "0.3", "--brightness", "0.7"},
       [](COrbImage& img, COrbImage& work) { static_cast<CImgToneCurve&>(img).DoHAlpha(0.3, 0.7, &work, nullptr, 0); }},
      {{"reduce", "--steps", "5"},
       [](COrbImage& img, COrbImage& work) { static_cast<CImgReduceTone&>(img).Do(5, &work, nullptr, 0); }},
      {{"balance", "--red", "4", "--green", "-2", "--blue", "7"},
       [](COrbImage& img, COrbImage& work) { static_cast<CImgColorBalance&>(img).Do(4, -2, 7, &work, nullptr, 0); }},
      {{"equalize"}, [](COrbImage& img, COrbImage& work) { static_cast<CImgHstEql&>(img).Do(&work); }},
  };
  for (const auto& [options, apply] : cases) {
    SCOPED_TRACE(options[0]);
    std::vector<std::string> args = {"tone", options[0], P("in.fits"), "-o", P("out.fits")};
    args.insert(args.end(), options.begin() + 1, options.end());
    const Result r = Run(args);
    ASSERT_EQ(r.rc, 0) << r.err;
    COrbImage expected = Frame(v), work = Frame(v);
    apply(expected, work);
    const FitsData out = ReadFits(P("out.fits"));
    ASSERT_EQ(out.values.size(), v.size());
    int differing = 0;
    for (int p = 0; p < kPlanes; ++p)
      for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x)
          differing += out.values[(std::size_t(p) * kH + y) * kW + x] != expected.GetPixelGrayRaw(x, y, p);
    EXPECT_EQ(differing, 0);
  }
}

TEST_F(ToneTest, RefusesWhatItCannotDo) {
  WriteFits(P("grey.fits"), FLOAT_IMG, kW, kH, 1, Ramp(kW, kH, 1, 3.0, 10.0));
  const struct {
    std::vector<std::string> args;
    const char* message;
  } cases[] = {
      {{"tone", "sharpen", P("grey.fits"), "-o", P("out.fits")}, "unknown tone operation"},
      {{"tone", "balance", P("grey.fits"), "-o", P("out.fits"), "--red", "3"}, "balance needs a colour image"},
      {{"tone", "cutoff", P("grey.fits"), "-o", P("out.fits"), "--low", "3"}, "needs --low and --high"},
  };
  for (const auto& c : cases) {
    const Result r = Run(c.args);
    EXPECT_NE(r.rc, 0) << c.args[1];
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
  }
  EXPECT_FALSE(fs::exists(P("out.fits")));
}
