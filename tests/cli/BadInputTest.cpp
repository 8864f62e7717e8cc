// Every kind of bad input: one line naming the file and the reason, non-zero exit, no output
// left behind, inputs untouched.
#include <cstring>

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
    WriteTiff(P("signed.tif"), 4, 2, 1, 16, SAMPLEFORMAT_INT, {-1, 2, 3, 4, -1, 2, 3, 4});
    std::ofstream(P("bad.qrs")) << "LEVEL MIN=0 MAX=10\nBRIGHTNES BRIGHTNESS=3\n";
    fs::create_directory(P("outdir"));
  }

  // Runs args and checks everything a failure must be; reason must appear in the message.
  void ExpectFailure(const std::vector<std::string>& args, const std::string& subject, const std::string& reason) {
    std::string line;
    for (const auto& a : args) line += " " + fs::path(a).filename().string();
    SCOPED_TRACE("qrn" + line);
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

TEST_F(BadInputTest, RefusedCommandLines) {
  const struct {
    std::vector<std::string> args;
    std::string subject, reason;
  } cases[] = {
      // Inputs that cannot be read.
      {{"info", P("missing.fits")}, "missing.fits", "No such file"},
      {{"render", P("notes.txt"), "-o", P("x.png")}, "notes.txt", "not an image"},
      {{"convert", P("cut.fits"), "-o", P("x.fits")}, "cut.fits", "truncated"},
      {{"convert", P("b64.fits"), "-o", P("x.fits")}, "b64.fits", "unsupported BITPIX 64"},
      {{"convert", P("four.fits"), "-o", P("x.fits")}, "four.fits", "unsupported layout"},
      {{"convert", P("signed.tif"), "-o", P("x.fits")}, "signed.tif", "unsupported TIFF sample format"},
      {{"info", P("outdir")}, "outdir", "folder"},
      // Calibration frames of another size; a missing light stops the whole set before any output.
      {{"calibrate", "--dark", P("small.fits"), P("good.fits"), "-o", P("outdir")}, "small.fits",
       "differs from the light frame"},
      {{"calibrate", "--flat", P("small.fits"), P("good.fits"), "-o", P("outdir")}, "small.fits",
       "differs from the light frame"},
      {{"calibrate", "--dark", P("good.fits"), P("good.fits"), P("gone.fits"), "-o", P("outdir")}, "gone.fits",
       "no such image file"},
      // Outputs that cannot be written.
      {{"render", P("good.fits"), "-o", P("nowhere/x.png")}, "nowhere", "does not exist"},
      {{"calibrate", "--dark", P("good.fits"), P("good.fits"), "-o", P("notes.txt")}, "notes.txt", "not a folder"},
      {{"convert", P("good.fits"), "-o", P("good.fits")}, "good.fits", "overwrite the input"},
      {{"convert", P("good.fits"), "-o", P("x.jpg")}, "x.jpg", "unknown output format"},
      {{"convert", P("good.fits"), "--bits", "16", "-o", P("x.png")}, "x.png", "cannot store"},
      // Unknown options, commands and values, and values out of range.
      {{"render", P("good.fits"), "--frobnicate", "-o", P("x.png")}, "--frobnicate", "unknown option"},
      {{"frobnicate", P("good.fits")}, "frobnicate", "unknown command"},
      {{"level", "--method", "magic", P("good.fits")}, "--method", "unknown level method"},
      {{"filter", "median", "--type", "x", P("good.fits"), "-o", P("x.fits")}, "--type", "not a number"},
      {{"render", P("good.fits"), "-o"}, "-o", "needs a value"},
      {{"tone", "sharpen", P("good.fits"), "-o", P("x.fits")}, "sharpen", "unknown tone operation"},
      {{"tone", "balance", P("good.fits"), "-o", P("x.fits"), "--red", "3"}, "good.fits",
       "balance needs a colour image"},
      {{"tone", "cutoff", P("good.fits"), "-o", P("x.fits"), "--low", "3"}, "cutoff", "needs --low and --high"},
      {{"develop", P("good.fits"), "-o", P("x.fits"), "--sigma", "0"}, "--sigma", "must be in (0, 100]"},
      {{"develop", P("good.fits"), "-o", P("x.fits"), "--sigma", "101"}, "--sigma", "must be in (0, 100]"},
      {{"develop", P("good.fits"), "-o", P("x.fits"), "--kernel", "box"}, "--kernel", "must be gauss or disc"},
      {{"develop", P("good.fits"), "-o", P("x.fits"), "--gamma", "0"}, "--gamma", "must be positive"},
      // Malformed scripts.
      {{"script", P("bad.qrs"), P("good.fits"), "-o", P("x.fits")}, "bad.qrs: line 2", "unknown command 'BRIGHTNES'"},
      {{"script", "-e", "LEVEL", P("good.fits"), "-o", P("x.fits")}, "script: line 1", "no KEY=value"},
      {{"script", "-e", "LEVEL MIN 5", P("good.fits"), "-o", P("x.fits")}, "script: line 1", "'MIN' is not KEY=value"},
      {{"script", P("none.qrs"), P("good.fits"), "-o", P("x.fits")}, "none.qrs", "cannot open"},
  };
  for (const auto& c : cases) ExpectFailure(c.args, c.subject, c.reason);
}

// A FITS file of SIMPLE = T and the given header cards, padded to its 2880-byte block, then
// the given data bytes.
void WriteFitsCards(const std::string& path, const std::vector<std::pair<std::string, std::string>>& cards,
                    std::size_t dataBytes = 0) {
  std::string header = "SIMPLE  =                    T" + std::string(50, ' ');
  for (const auto& [name, value] : cards) {
    char card[81];
    std::snprintf(card, sizeof card, "%-8s= %20s", name.c_str(), value.c_str());
    header += std::string(card) + std::string(80 - std::strlen(card), ' ');
  }
  header += "END" + std::string(77, ' ');
  header.resize((header.size() + 2879) / 2880 * 2880, ' ');
  std::ofstream(path, std::ios::binary) << header << std::string(dataBytes, '\0');
}

// A 16 x 4 TIFF of 8-bit YCbCr samples, uncompressed: its default subsampling packs 2 x 2
// pixels into 6 bytes, so a line holds fewer bytes than 3 per pixel.
void WriteYCbCrTiff(const std::string& path) {
  TIFF* t = TIFFOpen(path.c_str(), "w");
  TIFFSetField(t, TIFFTAG_IMAGEWIDTH, uint32_t(16));
  TIFFSetField(t, TIFFTAG_IMAGELENGTH, uint32_t(4));
  TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, uint16_t(8));
  TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, uint16_t(3));
  TIFFSetField(t, TIFFTAG_PHOTOMETRIC, uint16_t(PHOTOMETRIC_YCBCR));
  TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, uint32_t(4));
  std::string samples(96, '\0');
  for (int i = 0; i < 96; ++i) samples[i] = char(i);
  TIFFWriteRawStrip(t, 0, samples.data(), 96);
  TIFFClose(t);
}

TEST_F(BadInputTest, HeadersThatPromiseWhatTheFileCannotHold) {
  // 3.6 GB of samples announced in a 2880-byte file: refused before any memory is taken.
  WriteFitsCards(P("huge.fits"), {{"BITPIX", "8"}, {"NAXIS", "2"}, {"NAXIS1", "60000"}, {"NAXIS2", "60000"}});
  ExpectFailure({"info", P("huge.fits")}, "huge.fits", "truncated");
  // Its byte count, 2^31 · 2^31 · 3 · 8, would wrap in 64 bits.
  WriteFitsCards(P("wrap.fits"), {{"BITPIX", "-64"}, {"NAXIS", "3"}, {"NAXIS1", "2147483647"},
                                  {"NAXIS2", "2147483647"}, {"NAXIS3", "3"}});
  ExpectFailure({"info", P("wrap.fits")}, "wrap.fits", "truncated");
  // Axis lengths beyond what an int holds must not wrap into a small image.
  WriteFitsCards(P("long.fits"), {{"BITPIX", "8"}, {"NAXIS", "2"}, {"NAXIS1", "10"}, {"NAXIS2", "4294967298"}}, 20);
  ExpectFailure({"info", P("long.fits")}, "long.fits", "unsupported size");
  WriteFitsCards(P("deep.fits"),
                 {{"BITPIX", "8"}, {"NAXIS", "3"}, {"NAXIS1", "2"}, {"NAXIS2", "2"}, {"NAXIS3", "4294967297"}}, 8);
  ExpectFailure({"info", P("deep.fits")}, "deep.fits", "unsupported layout");
  // A primary header without data and an extension cut inside its header: the damage is named.
  WriteFitsCards(P("cut-extension.fits"), {{"BITPIX", "8"}, {"NAXIS", "0"}, {"EXTEND", "T"}});
  std::ofstream(P("cut-extension.fits"), std::ios::binary | std::ios::app)
      << "XTENSION= 'IMAGE   '" << std::string(60, ' ') << std::string(300, ' ');
  ExpectFailure({"info", P("cut-extension.fits")}, "cut-extension.fits", "cannot read FITS structure");
  // A Rice-compressed image whose tile length or block size is 0: cfitsio would divide by it.
  for (const std::string key : {"ZTILE1  = ", "ZVAL1   = "}) {
    const std::string name = key.substr(0, 5) + ".fits";
    fitsfile* f = nullptr;
    int status = 0;
    fits_create_diskfile(&f, P("rice.fits").c_str(), &status);
    fits_set_compression_type(f, RICE_1, &status);
    long naxes[2] = {16, 8};
    fits_create_img(f, SHORT_IMG, 2, naxes, &status);
    std::vector<short> samples(16 * 8, 7);
    fits_write_img(f, TSHORT, 1, long(samples.size()), samples.data(), &status);
    fits_close_file(f, &status);
    ASSERT_EQ(status, 0);
    std::string bytes = Slurp(P("rice.fits"));
    fs::remove(P("rice.fits"));
    const auto at = bytes.find(key);
    ASSERT_NE(at, std::string::npos) << key;
    bytes.replace(at + 10, 20, std::string(19, ' ') + "0");
    std::ofstream(P(name), std::ios::binary) << bytes;
    ExpectFailure({"info", P(name)}, name, "malformed compressed image");
    // The same behind a primary header with a negative PCOUNT, which counts for nothing there:
    // END moves one card down, into the blank padding of the header's block.
    const auto end = bytes.find("END     ");
    ASSERT_EQ(end % 80, 0u);
    ASSERT_EQ(bytes.substr(end + 80, 80), std::string(80, ' '));
    char card[81];
    std::snprintf(card, sizeof card, "%-8s= %20s%50s", "PCOUNT", "-5", "");
    bytes.replace(end, 160, std::string(card) + "END" + std::string(77, ' '));
    std::ofstream(P("behind-" + name), std::ios::binary) << bytes;
    ExpectFailure({"info", P("behind-" + name)}, "behind-" + name, "malformed compressed image");
  }
  // A header with more axes than the format allows is refused at once, not counted through.
  WriteFitsCards(P("axes.fits"), {{"BITPIX", "8"}, {"NAXIS", "9000000000000000000"}});
  ExpectFailure({"info", P("axes.fits")}, "axes.fits", "malformed FITS header");
  // Colour models other than grey and RGB are refused, not read as if they were RGB.
  WriteYCbCrTiff(P("ycbcr.tif"));
  ExpectFailure({"convert", P("ycbcr.tif"), "-o", P("x.fits")}, "ycbcr.tif", "unsupported TIFF colour model");
}
