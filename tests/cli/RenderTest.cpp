// qrn render against the library's own levels and display bitmap on the same samples.
#include "CliSupport.h"
#include "ops/level/ImgAutoLevel.h"

using namespace clitest;

class RenderTest : public CliTest {};

TEST_F(RenderTest, BitmapFileHoldsTheLibrarysBitmap) {
  const int w = 37, h = 21;
  for (int planes : {1, 3}) {
    for (int bits : {8, 24}) {
      SCOPED_TRACE("planes " + std::to_string(planes) + " bits " + std::to_string(bits));
      const auto v = Noise(std::size_t(w) * h * planes, 500.0, 80.0, planes * 10 + bits);
      WriteFits(P("in.fits"), FLOAT_IMG, w, h, planes, v);
      const Result r = Run({"render", P("in.fits"), "--method", "mean", "--low", "1", "--high", "2", "--bits",
                            std::to_string(bits), "-o", P("out.bmp")});
      ASSERT_EQ(r.rc, 0) << r.err;

      COrbImage img = ToImage(v, w, h, planes);
      static_cast<CImgAutoLevel&>(img).DoByMean(1.0, 2.0, 1, nullptr);
      HGLOBAL dib = img.GetDib(bits);
      ASSERT_NE(dib, nullptr);
      const std::string expected(static_cast<const char*>(GlobalLock(dib)), GlobalSize(dib));
      GlobalUnlock(dib);
      GlobalFree(dib);
      const std::string file = Slurp(P("out.bmp"));
      ASSERT_GT(file.size(), 14u);
      EXPECT_EQ(file.substr(14), expected);  // the packed bitmap behind the file header

      // The PNG rendering shows the same pixels.
      ASSERT_EQ(Run({"render", P("in.fits"), "--method", "mean", "--low", "1", "--high", "2", "--bits",
                     std::to_string(bits), "-o", P("out.png")}).rc, 0);
      ASSERT_EQ(Run({"convert", P("out.png"), "-o", P("back.fits")}).rc, 0);
      const FitsData back = ReadFits(P("back.fits"));
      EXPECT_EQ(ReadBmp(P("out.bmp")), AsRgb(back.values, back.naxis == 2 ? 1 : 3));
    }
  }
}
