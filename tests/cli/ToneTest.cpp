// qrn tone, filter and script against the library's own operations on the same samples.
#include <functional>

#include "CliSupport.h"
#include "command/OrbImageProc.h"
#include "ops/filter/ImgFilter.h"
#include "ops/level/ImgBright.h"
#include "ops/level/ImgColorBalance.h"
#include "ops/level/ImgCutOff.h"
#include "ops/level/ImgHstEql.h"
#include "ops/level/ImgInvert.h"
#include "ops/level/ImgReduceTone.h"
#include "ops/level/ImgToneCurve.h"

using namespace clitest;

constexpr int kW = 23, kH = 9, kPlanes = 3;
constexpr const char* kScript =
    "LEVEL MIN_R=1500 MAX_R=2500 MIN_G=1000 MAX_G=3000; BRIGHTNESSCONTRAST BRIGHTNESS=12 CONTRAST=30";

class ToneTest : public CliTest {};

TEST_F(ToneTest, EveryToneOperationFilterAndScriptWritesTheLibrarysSamples) {
  const auto v = Noise(std::size_t(kW) * kH * kPlanes, 2000.0, 800.0, 5);
  WriteFits(P("in.fits"), FLOAT_IMG, kW, kH, kPlanes, v);

  using Apply = std::function<void(COrbImage& img, COrbImage& work)>;
  const std::vector<std::pair<std::vector<std::string>, Apply>> cases = {
      {{"tone", "brightness", "--brightness", "12", "--contrast", "30", "--average", "100"},
       [](COrbImage& img, COrbImage& work) {
         float b[3] = {12, 12, 12}, c[3] = {30, 30, 30};
         static_cast<CImgBright&>(img).Do(b, c, 100.0, &work, nullptr, 0);
       }},
      {{"tone", "invert"},
       [](COrbImage& img, COrbImage& work) { static_cast<CImgInvert&>(img).Do(&work, nullptr, 0); }},
      {{"tone", "cutoff", "--low", "500", "--high", "3000"},
       [](COrbImage& img, COrbImage& work) { static_cast<CImgCutOff&>(img).Do(&work, 500.0f, 3000.0f, nullptr, 0); }},
      {{"tone", "halpha", "--threshold", "0.3", "--brightness", "0.7"},
       [](COrbImage& img, COrbImage& work) { static_cast<CImgToneCurve&>(img).DoHAlpha(0.3, 0.7, &work, nullptr, 0); }},
      {{"tone", "reduce", "--steps", "5"},
       [](COrbImage& img, COrbImage& work) { static_cast<CImgReduceTone&>(img).Do(5, &work, nullptr, 0); }},
      {{"tone", "balance", "--red", "4", "--green", "-2", "--blue", "7"},
       [](COrbImage& img, COrbImage& work) { static_cast<CImgColorBalance&>(img).Do(4, -2, 7, &work, nullptr, 0); }},
      {{"tone", "equalize"}, [](COrbImage& img, COrbImage& work) { static_cast<CImgHstEql&>(img).Do(&work); }},
      {{"filter", "minmax", "--type", "2", "--rank", "3"},
       [](COrbImage& img, COrbImage& work) { static_cast<CImgFilter&>(img).MinMaxFilter(2, 3, &work, nullptr, 0); }},
      {{"script", "-e", kScript},
       [](COrbImage& img, COrbImage&) { ASSERT_EQ(COrbImageProc().Do(&img, CString::FromUtf8(kScript), 0), 1); }},
  };
  for (const auto& [words, apply] : cases) {
    SCOPED_TRACE(words[0] + " " + words[1]);
    std::vector<std::string> args = words;
    args.insert(args.end(), {P("in.fits"), "-o", P("out.fits")});
    const Result r = Run(args);
    ASSERT_EQ(r.rc, 0) << r.err;
    COrbImage expected = ToImage(v, kW, kH, kPlanes), work = ToImage(v, kW, kH, kPlanes);
    apply(expected, work);
    const auto out = ReadFits(P("out.fits")).values;
    EXPECT_NE(out, v) << "the image was left as it was";
    EXPECT_EQ(Differing(out, expected), 0);
  }
}
