#include "command/OrbImageProc.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <utility>

#include "common/ImageCompare.h"
#include "ops/filter/ImgFilterSharp.h"

namespace {

// Opens the parser members so that key reading can be checked on its own.
class Proc : public COrbImageProc {
 public:
  using COrbImageProc::atob;
  using COrbImageProc::atof;
  using COrbImageProc::atoi;
  using COrbImageProc::atos;
  using COrbImageProc::find;
  using COrbImageProc::Same;
  using COrbImageProc::SpritCmd;
};

// Samples 0, 10, 20, ... by position and plane, level window 0..255 on every plane.
std::unique_ptr<COrbImage> MakeImage(int w, int h, int planes, int offset = 0) {
  auto image = std::make_unique<COrbImage>(-32, w, h, planes);
  qrntest::Fill(*image, [&](int x, int y, int p) { return offset + 10 * (x + w * y) + 3 * p; });
  for (int p = 0; p < planes; ++p) image->SetLevel(p, 0, 255);
  return image;
}

std::pair<double, double> Window(const COrbImage& image, int plane) {
  return {image.GetLevelMin(plane), image.GetLevelMax(plane)};
}

TEST(OrbImageProcKeys, FirstOccurrenceValueRulesAndConversions) {
  Proc proc;
  EXPECT_EQ(proc.atos(L" RADIUS=5", L"RADIUS"), CString(L"5"));
  EXPECT_TRUE(proc.atos(L" RADIUS_R=2 RADIUS=5", L"RADIUS").IsEmpty());  // hidden by the longer key
  EXPECT_EQ(proc.atos(L" RADIUS_R=2 RADIUS=5", L"RADIUS_R"), CString(L"2"));
  EXPECT_EQ(proc.atos(L" KEY \t=7\tNEXT=1", L"KEY"), CString(L"7"));
  // No value right after '=', no '=', another case, and "KEY X", which is not the key.
  for (const wchar_t* args : {L" KEY= 5", L" KEY", L" key=3", L" KEY X=3"})
    EXPECT_TRUE(proc.atos(args, L"KEY").IsEmpty()) << CString(args).ToUtf8();

  // Numbers as far as they are numeric; an absent key or empty value gives the default.
  for (const auto& [args, value] : {std::pair{L" X=1.5e2", 150.0}, {L" X=12abc", 12.0}, {L" X=abc", 0.0},
                                    {L" X=", -1.0}, {L" Y=2", -1.0}})
    EXPECT_DOUBLE_EQ(proc.atof(args, L"X", -1), value) << CString(args).ToUtf8();
  for (const auto& [args, value] : {std::pair{L" N=42.9", 42}, {L" N=99999999999999999999", INT_MAX},
                                    {L" N=-99999999999999999999", INT_MIN}})
    EXPECT_EQ(proc.atoi(args, L"N", -1), value) << CString(args).ToUtf8();
  for (const auto& [args, value] : {std::pair{L" F=true", 1}, {L" F=yes", 0}, {L" G=TRUE", 7}})
    EXPECT_EQ(proc.atob(args, L"F", 7), value) << CString(args).ToUtf8();

  for (const wchar_t* args : {L" K=1", L" K =1", L" K\t=1"}) EXPECT_EQ(proc.find(args, L"K"), 1) << CString(args).ToUtf8();
  for (const wchar_t* args : {L" K  =1", L" K_R=1"}) EXPECT_EQ(proc.find(args, L"K"), 0) << CString(args).ToUtf8();

  CString name, args;
  EXPECT_EQ(proc.SpritCmd(L" \tlevel\tMIN=1", name, args), 1);
  EXPECT_EQ(name, CString(L"level"));
  EXPECT_EQ(args, CString(L"\tMIN=1"));
  EXPECT_EQ(proc.SpritCmd(L"  LEVEL", name, args), 0);
  EXPECT_EQ(proc.Same(L"HalphaAutoLevel", L"HALPHAAUTOLEVEL"), 1);
  EXPECT_EQ(proc.Same(L"HALPHA", L"HALPHAAUTOLEVEL"), 0);
}

TEST(OrbImageProcScript, SplittingSeparatorsAndFailures) {
  auto image = MakeImage(3, 2, 1);
  COrbImage work(*image);
  COrbImageProc proc;
  EXPECT_EQ(proc.Do(L"LEVEL ", 0), 0);  // no images yet
  proc.SetImagePtr(image.get());
  EXPECT_EQ(proc.Do(L"LEVEL ", 0), 0);  // no work image
  proc.SetImagePtr(image.get(), &work);
  proc.SetImagePtr(image.get(), nullptr);  // keeps the work image

  struct Case {
    const wchar_t* text;
    int result;
  };
  for (const Case& c : {Case{L"", 1}, Case{L"LEVEL ", 1}, Case{L"LEVEL", 0}, Case{L";;", 0}, Case{L"\r\n", 0},
                        Case{L"   ", 0}, Case{L";LEVEL MIN=1", 0}, Case{L"LEVEL MIN=1 ;;\r\n", 1},
                        Case{L"LEVEL MIN=1;LEVEL", 0}, Case{L"LEVEL MIN=1; ;LEVEL MAX=2", 0}}) {
    image->SetLevel(0, 0, 255);
    EXPECT_EQ(proc.Do(c.text, 0), c.result) << "script \"" << CString(c.text).ToUtf8() << "\"";
  }
  // The failing scripts above that start with a LEVEL command kept what it did.
  EXPECT_EQ(Window(*image, 0), std::make_pair(1.0, 255.0));

  image->SetLevel(0, 0, 255);
  EXPECT_EQ(proc.Do(L"LEVEL MIN=1 MAX=2;\r\n\tlevel MIN=3\n\nLevel\tMAX=9;;\r\nLEVEL min=50 MAX= 60", 0), 1);
  EXPECT_EQ(Window(*image, 0), std::make_pair(3.0, 9.0));
  EXPECT_EQ(Window(work, 0), std::make_pair(3.0, 9.0));
  EXPECT_TRUE(qrntest::ImagesNear(*image, *MakeImage(3, 2, 1), 0));  // LEVEL touches no pixel
}

TEST(OrbImageProcScript, ColourLevelGivesBlueTheGreenKeys) {
  auto image = MakeImage(2, 2, 3);
  COrbImage work(*image);
  COrbImageProc proc;
  proc.SetImagePtr(image.get(), &work);
  ASSERT_EQ(proc.Do(L"LEVEL MIN=1 MAX=2 MIN_R=10 MAX_R=200 MIN_G=20 MAX_G=220", 0), 1);
  for (COrbImage* im : {image.get(), &work})
    for (int p : {0, 1, 2}) EXPECT_EQ(Window(*im, p), std::make_pair(p ? 20.0 : 10.0, p ? 220.0 : 200.0)) << p;
  image->SetLevel(2, 5, 6);
  ASSERT_EQ(proc.Do(L"LEVEL MAX_R=100", 0), 1);  // absent green keys leave blue its own window
  EXPECT_EQ(Window(*image, 2), std::make_pair(5.0, 6.0));
}

// Every command but LEVEL swaps first; a command without a blank fails before its swap.
TEST(OrbImageProcScript, SwapsKeepThePreviousStateInWork) {
  auto image = MakeImage(4, 3, 1);
  auto work = MakeImage(4, 3, 1, 1000);
  COrbImageProc proc;
  proc.SetImagePtr(image.get(), work.get());
  ASSERT_EQ(proc.Do(L"NOSUCHCOMMAND X=1\nDigitalDevelopment MASK_R=B", 0), 1);
  EXPECT_TRUE(qrntest::ImagesNear(*image, *MakeImage(4, 3, 1), 0));  // two swaps
  ASSERT_EQ(proc.Do(L"digitaldevelopment ", 0), 1);
  EXPECT_TRUE(qrntest::ImagesNear(*image, *MakeImage(4, 3, 1, 1000), 0));
  EXPECT_TRUE(qrntest::ImagesNear(*work, *MakeImage(4, 3, 1), 0));

  // Brightness 25.5 on the 0..255 window adds 25.5 to every sample.
  image = MakeImage(4, 3, 1);
  proc.SetImagePtr(image.get(), work.get());
  EXPECT_EQ(proc.Do(L"BRIGHTNESSCONTRAST BRIGHTNESS=25.5;BROKEN;LEVEL MIN=7 ", 0), 0);
  for (int x = 0; x < 4; ++x) EXPECT_EQ(image->GetPixelGrayRaw(x, 1, 0), 10 * (x + 4) + 25.5f);
  EXPECT_TRUE(qrntest::ImagesNear(*work, *MakeImage(4, 3, 1), 0));
  EXPECT_EQ(image->GetLevelMin(0), 0.0);
  EXPECT_EQ(image->GetLockCount(), 0);
  EXPECT_EQ(work->GetLockCount(), 0);
}

TEST(OrbImageProcCommands, BrightnessContrastPivotAndHAlpha) {
  COrbImageProc proc;
  // Contrast 256 doubles each distance from the pivot: 2t − AVERAGE on the 0..255 window.
  auto image = MakeImage(4, 2, 3);
  ASSERT_EQ(proc.Do(image.get(), L"brightnesscontrast CONTRAST=256 AVERAGE=30", 0), 1);
  EXPECT_EQ(proc.GetUndoBufPtr(), nullptr);
  EXPECT_EQ(proc.Do(L"LEVEL ", 0), 0);  // the temporary work image is gone
  for (int p = 0; p < 3; ++p) EXPECT_EQ(image->GetPixelGrayRaw(3, 1, p), 2 * (70 + 3 * p) - 30);

  // Default pivot: the plane means on the 0..255 scale as the image measures them, averaged.
  auto original = MakeImage(4, 2, 3);
  image = MakeImage(4, 2, 3);
  const float pivot = (original->GetAvrGray256f(2) + original->GetAvrGray256f(1) + original->GetAvrGray256f(0)) / 3;
  ASSERT_EQ(proc.Do(image.get(), L"BRIGHTNESSCONTRAST CONTRAST=256", 0), 1);
  // 2t − pivot in float; the pivot carries float rounding of a mean near 40.
  for (int p = 0; p < 3; ++p) EXPECT_NEAR(image->GetPixelGrayRaw(1, 0, p), 2 * (10 + 3 * p) - pivot, 1e-4);

  // HALPHA THRESHOLD=0.5 BRIGHTNESS=1: on a grey image, inputs below 127 are doubled, others kept.
  image = MakeImage(16, 1, 1);
  ASSERT_EQ(proc.Do(image.get(), L"HALPHA THRESHOLD=0.5 BRIGHTNESS=1", 0), 1);
  for (int x = 0; x < 16; ++x) {
    const float v = 10.0f * x;
    // The curve holds fractions of 255 in float: a few ulps of 255 after scaling back.
    EXPECT_NEAR(image->GetPixelGrayRaw(x, 0, 0), v < 127 ? 2 * v : v, 1e-4) << x;
  }

  // HALPHAAUTOLEVEL: every plane's window runs from plane 0's minimum to its maximum × MAG.
  image = MakeImage(4, 2, 3);
  ASSERT_EQ(proc.Do(image.get(), L"HALPHAAUTOLEVEL MAG=1.5", 0), 1);
  for (int p = 0; p < 3; ++p) EXPECT_EQ(Window(*image, p), std::make_pair(0.0, 70 * 1.5)) << p;
}

// SHARP is checked against the sharpening member called with the arguments worked out by hand
// from the key rules; the same call on the same pixels gives the same result bit for bit.
TEST(OrbImageProcCommands, SharpReadsPerPlaneKeysAndDefaults) {
  const auto textured = [](int planes) {
    auto image = MakeImage(9, 7, planes);
    qrntest::Fill(*image, [](int x, int y, int p) { return (37 * x + 61 * y + 17 * p) % 101; });
    if (planes == 3) image->SetLevel(0, 0, 50), image->SetLevel(1, 0, 200), image->SetLevel(2, 0, 70);
    return image;
  };
  COrbImageProc proc;
  // "RADIUS" is first found inside "RADIUS_R", so green and blue keep the default radius 1.
  auto image = textured(3), original = textured(3), expected = textured(3);
  ASSERT_EQ(proc.Do(image.get(), L"SHARP METHOD=UnSharpMask RADIUS_R=2 RADIUS=5 WEIGHT=80 WEIGHT_B=40", 0), 1);
  double radius[3] = {2, 1, 1}, weight[3] = {80, 80, 40}, min[3] = {0, 0, 0}, max[3] = {50, 200, 70},
         zero[3] = {0, 0, 0};
  int off[3] = {0, 0, 0};
  static_cast<CImgFilterSharp&>(*expected)
      .UnSharpMask(radius, weight, off, min, zero, off, max, zero, off, zero, original.get(), nullptr, 0);
  EXPECT_TRUE(qrntest::ImagesNear(*image, *expected, 0));

  // THRESHOLD_MAX written switches the upper threshold on for every plane, but its value is
  // hidden by THRESHOLD_MAX_G and falls back to each window; THRESHOLD_MIN_BUF does not
  // switch the lower threshold on.
  image = textured(3), expected = textured(3);
  ASSERT_EQ(proc.Do(image.get(), L"SHARP METHOD=EDGEONLY THRESHOLD_MAX_G=60 THRESHOLD_MAX=90 THRESHOLD_MIN_BUF=4 "
                                  L"BRIGHTER_B=30",
                    0),
            1);
  double ones[3] = {1, 1, 1}, four[3] = {4, 4, 4}, maxG[3] = {50, 60, 70},
         brighter[3] = {0, 0, 30};
  int on[3] = {1, 1, 1}, blueOnly[3] = {0, 0, 1};
  static_cast<CImgFilterSharp&>(*expected)
      .SharpEdgeFilter(ones, ones, off, min, four, on, maxG, zero, blueOnly, brighter, original.get(), nullptr, 0);
  EXPECT_TRUE(qrntest::ImagesNear(*image, *expected, 0));

  // Grey images take the scalar form with plane 0's values; radius 100 is held at 50.
  image = textured(1), original = textured(1), expected = textured(1);
  ASSERT_EQ(proc.Do(image.get(), L"sharp METHOD=standard RADIUS=100 THRESHOLD_MIN=30 BRIGHTER=20", 0), 1);
  static_cast<CImgFilterSharp&>(*expected).SharpFilter(50, 1, 1, 30, 0, 0, 255, 0, 1, 20, original.get(), nullptr, 0);
  EXPECT_TRUE(qrntest::ImagesNear(*image, *expected, 0));

  // An unknown or missing method changes nothing and still succeeds.
  for (const wchar_t* script : {L"SHARP METHOD=BLUR RADIUS=3", L"SHARP RADIUS=3", L"SHARP METHOD= UNSHARPMASK"}) {
    image = textured(1);
    EXPECT_EQ(proc.Do(image.get(), script, 0), 1);
    EXPECT_TRUE(qrntest::ImagesNear(*image, *original, 0)) << CString(script).ToUtf8();
  }
}

// Random scripts of commands, keys, odd values and separators: Do never crashes (the
// sanitizer build checks memory), and its result follows from the splitting rules alone.
TEST(OrbImageProcFuzz, RandomScriptsAreSafe) {
  const wchar_t* const names[] = {L"LEVEL", L"level", L"SHARP", L"SHARP METHOD=UNSHARPMASK", L"sharp\tMETHOD=standard",
                                  L"Sharp METHOD=EdgeOnly", L"DigitalDevelopment", L"BRIGHTNESSCONTRAST", L"HALPHA",
                                  L"HALPHAAUTOLEVEL", L"BOGUS", L""};
  const wchar_t* const keys[] = {L"MIN", L"MAX_G", L"MIN_R", L"METHOD", L"RADIUS", L"RADIUS_B", L"WEIGHT",
                                 L"THRESHOLD_MIN", L"THRESHOLD_MAX_BUF_G", L"BRIGHTER", L"AVERAGE", L"CONTRAST",
                                 L"BRIGHTNESS", L"THRESHOLD", L"MAG", L"MASK_G", L"x"};
  const wchar_t* const values[] = {L"0", L"-1", L"1e308", L"-1e308", L"nan", L"inf", L"100", L"0.05", L"abc",
                                   L"UNSHARPMASK", L"STANDARD", L"edgeonly", L"", L"=", L"3x", L"RGB"};
  const wchar_t* const glue[] = {L" ", L"\t", L";", L"\n", L"\r\n", L" = ", L"", L";;"};
  std::mt19937_64 rng(0x9E3779B97F4A7C15ull);  // the engine, unlike the distributions, is the same everywhere
  const auto pick = [&](std::uint64_t n) { return static_cast<int>(rng() % n); };
  // Expected result, from the language's rules: each separator-delimited command (the first
  // may be empty) needs a blank or tab after its leading blanks and name.
  const auto expected = [](const std::wstring& s) {
    for (std::size_t pos = 0;;) {
      const std::size_t end = std::min(s.find_first_of(L";\r\n", pos), s.size());
      const std::wstring cmd = s.substr(pos, end - pos);
      const bool last = end == s.size();
      if (last && cmd.empty()) return 1;
      const std::size_t start = cmd.find_first_not_of(L" \t");
      if (start == std::wstring::npos || cmd.find_first_of(L" \t", start) == std::wstring::npos) return 0;
      if (last) return 1;
      pos = std::min(s.find_first_not_of(L";\r\n", end), s.size());
    }
  };
  for (int round = 0; round < 200; ++round) {
    std::wstring script;
    for (int n = pick(5); n >= 0; --n) {
      script += names[pick(std::size(names))];
      for (int k = pick(4); k > 0; --k)
        script += std::wstring(glue[pick(2)]) + keys[pick(std::size(keys))] + L"=" + values[pick(std::size(values))];
      script += glue[pick(std::size(glue))];
    }
    auto image = MakeImage(1 + pick(6), 1 + pick(4), pick(2) ? 3 : 1);
    const auto shape = [&] { return std::make_tuple(image->GetWidth(), image->GetHeight(), image->GetPlanes()); };
    const auto before = shape();
    COrbImageProc proc;
    EXPECT_EQ(proc.Do(image.get(), script, round & 1), expected(script)) << CString(script).ToUtf8();
    EXPECT_EQ(shape(), before);
    EXPECT_EQ(image->GetLockCount(), 0);
  }
  // An image without pixels goes through every command.
  COrbImage empty;
  EXPECT_EQ(COrbImageProc().Do(&empty, L"LEVEL MIN=1\nBRIGHTNESSCONTRAST ;HALPHA THRESHOLD=1;HALPHAAUTOLEVEL "
                                       L";SHARP METHOD=STANDARD;DIGITALDEVELOPMENT ", 1),
            1);
}

}  // namespace
