// Every kind of bad input: one line naming the file and the reason, non-zero exit, no output
// left behind, inputs untouched.
#include <tiffio.h>

#include "CliSupport.h"

using namespace clitest;

class BadInputTest : public CliTest {
 protected:
  void SetUp() override {
    CliTest::SetUp();
    WriteFits(P("good.fits"), FLOAT_IMG, 8, 6, 1, Ramp(8, 6, 1, 1.0, 10.0));
    WriteFits(P("small.fits"), FLOAT_IMG, 4, 6, 1, Ramp(4, 6, 1, 1.0, 10.0));
    std::ofstream(P("notes.txt")) << "this is not an image\n";
    const std::string fits = Slurp(P("good.fits"));
    std::ofstream(P("cut.fits"), std::ios::binary) << fits.substr(0, 2880 + 40);  // header and a little data
    std::vector<double> v(8 * 6, 1.0);
    WriteFits(P("b64.fits"), LONGLONG_IMG, 8, 6, 1, v);
    WriteFits(P("four.fits"), FLOAT_IMG, 4, 3, 4, std::vector<double>(48, 1.0));
    TIFF* t = TIFFOpen(P("signed.tif").c_str(), "w");
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, 4u);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, 2u);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, uint16_t(16));
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, uint16_t(1));
    TIFFSetField(t, TIFFTAG_SAMPLEFORMAT, uint16_t(SAMPLEFORMAT_INT));
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, uint16_t(PHOTOMETRIC_MINISBLACK));
    short line[4] = {-1, 2, 3, 4};
    for (uint32_t y = 0; y < 2; ++y) TIFFWriteScanline(t, line, y, 0);
    TIFFClose(t);
    std::ofstream(P("bad.qrs")) << "LEVEL MIN=0 MAX=10\nBRIGHTNES BRIGHTNESS=3\n";
    fs::create_directory(P("outdir"));
  }

  // Runs args and checks everything a failure must be; reason must appear in the message.
  void ExpectFailure(const std::vector<std::string>& args, const std::string& subject, const std::string& reason) {
    SCOPED_TRACE(args[0] + " " + (args.size() > 1 ? args[1] : ""));
    std::map<std::string, std::string> before;
    for (const auto& name : Listing())
      if (fs::is_regular_file(dir / name)) before[name] = Slurp(dir / name);
    const Result r = Run(args);
    EXPECT_NE(r.rc, 0);
    EXPECT_LT(r.rc, 128) << "crashed";
    ASSERT_FALSE(r.err.empty());
    EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << "one line: " << r.err;
    EXPECT_NE(r.err.find(subject), std::string::npos) << r.err;
    EXPECT_NE(r.err.find(reason), std::string::npos) << r.err;
    std::map<std::string, std::string> after;
    for (const auto& name : Listing())
      if (fs::is_regular_file(dir / name)) after[name] = Slurp(dir / name);
    EXPECT_EQ(after, before) << "files were added, removed or changed";
  }
};

TEST_F(BadInputTest, UnreadableInputs) {
  ExpectFailure({"info", P("missing.fits")}, "missing.fits", "No such file");
  ExpectFailure({"render", P("notes.txt"), "-o", P("x.png")}, "notes.txt", "not an image");
  ExpectFailure({"convert", P("cut.fits"), "-o", P("x.fits")}, "cut.fits", "truncated");
  ExpectFailure({"convert", P("b64.fits"), "-o", P("x.fits")}, "b64.fits", "unsupported BITPIX 64");
  ExpectFailure({"convert", P("four.fits"), "-o", P("x.fits")}, "four.fits", "unsupported layout");
  ExpectFailure({"convert", P("signed.tif"), "-o", P("x.fits")}, "signed.tif", "unsupported TIFF sample format");
  ExpectFailure({"info", P("outdir")}, "outdir", "folder");
}

TEST_F(BadInputTest, CalibrationFramesOfAnotherSize) {
  ExpectFailure({"calibrate", "--dark", P("small.fits"), P("good.fits"), "-o", P("outdir")}, "small.fits",
                "differs from the light frame");
  ExpectFailure({"calibrate", "--flat", P("small.fits"), P("good.fits"), "-o", P("outdir")}, "small.fits",
                "differs from the light frame");
}

TEST_F(BadInputTest, MissingLightStopsTheWholeSetBeforeAnyOutput) {
  ExpectFailure({"calibrate", "--dark", P("good.fits"), P("good.fits"), P("gone.fits"), "-o", P("outdir")},
                "gone.fits", "no such image file");
}

TEST_F(BadInputTest, OutputsThatCannotBeWritten) {
  ExpectFailure({"render", P("good.fits"), "-o", P("nowhere/x.png")}, "nowhere", "does not exist");
  ExpectFailure({"calibrate", "--dark", P("good.fits"), P("good.fits"), "-o", P("notes.txt")}, "notes.txt",
                "not a folder");
  ExpectFailure({"convert", P("good.fits"), "-o", P("good.fits")}, "good.fits", "overwrite the input");
  ExpectFailure({"convert", P("good.fits"), "-o", P("x.jpg")}, "x.jpg", "unknown output format");
  ExpectFailure({"convert", P("good.fits"), "--bits", "16", "-o", P("x.png")}, "x.png", "cannot store");
}

TEST_F(BadInputTest, UnknownOptionsCommandsAndValues) {
  ExpectFailure({"render", P("good.fits"), "--frobnicate", "-o", P("x.png")}, "--frobnicate", "unknown option");
  ExpectFailure({"frobnicate", P("good.fits")}, "frobnicate", "unknown command");
  ExpectFailure({"level", "--method", "magic", P("good.fits")}, "--method", "unknown level method");
  ExpectFailure({"filter", "median", "--type", "x", P("good.fits"), "-o", P("x.fits")}, "--type", "not a number");
  ExpectFailure({"render", P("good.fits"), "-o"}, "-o", "needs a value");
}

TEST_F(BadInputTest, MalformedScripts) {
  ExpectFailure({"script", P("bad.qrs"), P("good.fits"), "-o", P("x.fits")}, "bad.qrs: line 2",
                "unknown command 'BRIGHTNES'");
  ExpectFailure({"script", "-e", "LEVEL", P("good.fits"), "-o", P("x.fits")}, "script: line 1", "no KEY=value");
  ExpectFailure({"script", "-e", "LEVEL MIN 5", P("good.fits"), "-o", P("x.fits")}, "script: line 1",
                "'MIN' is not KEY=value");
  ExpectFailure({"script", P("none.qrs"), P("good.fits"), "-o", P("x.fits")}, "none.qrs", "cannot open");
}
