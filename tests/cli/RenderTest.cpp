// qrn render against the library's own levels and display bitmap on the same samples.
#include <random>

#include "CliSupport.h"
#include "core/BmpDecode.h"
#include "core/OrbImage.h"
#include "ops/level/ImgAutoLevel.h"

using namespace clitest;

class RenderTest : public CliTest {};

TEST_F(RenderTest, BitmapFileHoldsTheLibrarysBitmap) {
  const int w = 37, h = 21;
  for (int planes : {1, 3}) {
    for (int bits : {8, 24}) {
      SCOPED_TRACE("planes " + std::to_string(planes) + " bits " + std::to_string(bits));
      std::mt19937 rng(planes * 10 + bits);
      std::normal_distribution<double> d(500.0, 80.0);
      std::vector<double> v(std::size_t(w) * h * planes);
      for (auto& x : v) x = float(d(rng));
      WriteFits(P("in.fits"), FLOAT_IMG, w, h, planes, v);
      const Result r = Run({"render", P("in.fits"), "--method", "mean", "--low", "1", "--high", "2", "--bits",
                            std::to_string(bits), "-o", P("out.bmp")});
      ASSERT_EQ(r.rc, 0) << r.err;

      COrbImage img(-32, w, h, planes);
      for (int p = 0; p < planes; ++p)
        for (int y = 0; y < h; ++y)
          for (int x = 0; x < w; ++x) img.SetPixelGrayRaw(x, y, float(v[(std::size_t(p) * h + y) * w + x]), p);
      static_cast<CImgAutoLevel&>(img).DoByMean(1.0, 2.0, 1, nullptr);
      HGLOBAL dib = img.GetDib(bits);
      ASSERT_NE(dib, nullptr);
      const std::string expected(static_cast<const char*>(GlobalLock(dib)), GlobalSize(dib));
      GlobalUnlock(dib);
      GlobalFree(dib);
      const std::string file = Slurp(P("out.bmp"));
      ASSERT_GT(file.size(), 14u);
      EXPECT_EQ(file.substr(14), expected);  // the packed bitmap behind the file header
      const auto pic = bmptest::DecodeFile(std::vector<unsigned char>(file.begin(), file.end()));
      EXPECT_TRUE(pic.error.empty()) << pic.error;

      // The PNG rendering shows the same pixels.
      ASSERT_EQ(Run({"render", P("in.fits"), "--method", "mean", "--low", "1", "--high", "2", "--bits",
                     std::to_string(bits), "-o", P("out.png")}).rc, 0);
      ASSERT_EQ(Run({"convert", P("out.png"), "-o", P("back.fits")}).rc, 0);
      const FitsData back = ReadFits(P("back.fits"));
      const bool grey = back.naxis == 2;
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
          for (int c = 0; c < 3; ++c)
            ASSERT_EQ(back.values[(std::size_t(grey ? 0 : c) * h + y) * w + x], pic.At(x, y)[c]) << x << "," << y;
    }
  }
}
