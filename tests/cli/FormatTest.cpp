// Round trips through every format and bit depth: values and header keywords survive.
#include <png.h>
#include <tiffio.h>

#include <cmath>
#include <random>

#include "CliSupport.h"

using namespace clitest;

namespace {

const std::vector<Keyword> kKeys = {
    {"EXPTIME", "120.5"}, {"CCD-TEMP", "-10.25"}, {"INSTRUME", "TestCam 9000"}, {"DATE-OBS", "2024-01-02T03:04:05"}};

void ExpectKeys(const FitsData& d) {
  EXPECT_EQ(std::stod(d.keys.at("EXPTIME")), 120.5);
  EXPECT_EQ(std::stod(d.keys.at("CCD-TEMP")), -10.25);
  EXPECT_EQ(d.keys.at("INSTRUME"), "TestCam 9000");
  EXPECT_EQ(d.keys.at("DATE-OBS"), "2024-01-02T03:04:05");
}

// Reads a TIFF with libtiff: samples as doubles, x fastest, plane last.
std::vector<double> ReadTiff(const std::string& path, int* bits, int* spp) {
  TIFF* t = TIFFOpen(path.c_str(), "r");
  std::vector<double> v;
  if (!t) return v;
  uint32_t w = 0, h = 0;
  uint16_t bps = 0, samples = 1, format = 1;
  TIFFGetField(t, TIFFTAG_IMAGEWIDTH, &w);
  TIFFGetField(t, TIFFTAG_IMAGELENGTH, &h);
  TIFFGetFieldDefaulted(t, TIFFTAG_BITSPERSAMPLE, &bps);
  TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLESPERPIXEL, &samples);
  TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLEFORMAT, &format);
  *bits = format == SAMPLEFORMAT_IEEEFP ? -int(bps) : bps;
  *spp = samples;
  std::vector<unsigned char> line(TIFFScanlineSize(t));
  v.resize(std::size_t(w) * h * samples);
  for (uint32_t y = 0; y < h; ++y) {
    TIFFReadScanline(t, line.data(), y, 0);
    for (uint32_t x = 0; x < w; ++x)
      for (int s = 0; s < samples; ++s) {
        const std::size_t i = std::size_t(x) * samples + s;
        const double value = bps == 8 ? line[i] : bps == 16 ? reinterpret_cast<uint16_t*>(line.data())[i]
                                                            : reinterpret_cast<float*>(line.data())[i];
        v[(std::size_t(s) * h + y) * w + x] = value;
      }
  }
  TIFFClose(t);
  return v;
}

std::vector<double> ReadPng(const std::string& path, int* depth, int* channels) {
  std::vector<double> v;
  FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return v;
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_init_io(png, f);
  png_read_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
  const int w = png_get_image_width(png, info), h = png_get_image_height(png, info);
  *depth = png_get_bit_depth(png, info);
  *channels = png_get_channels(png, info);
  png_bytepp rows = png_get_rows(png, info);
  v.resize(std::size_t(w) * h * *channels);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      for (int c = 0; c < *channels; ++c)
        v[(std::size_t(c) * h + y) * w + x] = rows[y][x * *channels + c];
  png_destroy_read_struct(&png, &info, nullptr);
  std::fclose(f);
  return v;
}

// A 16-bit grey PNG, interlaced (Adam7) when asked, with the program's header text in an
// international text chunk (iTXt).
void WritePng16(const std::string& path, int w, int h, const std::vector<double>& v, bool interlaced,
                std::string text) {
  FILE* f = std::fopen(path.c_str(), "wb");
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_init_io(png, f);
  png_set_IHDR(png, info, w, h, 16, PNG_COLOR_TYPE_GRAY, interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_text chunk = {};
  chunk.compression = PNG_ITXT_COMPRESSION_NONE;
  chunk.key = const_cast<char*>("qrn header");
  chunk.text = text.data();
  chunk.itxt_length = text.size();
  png_set_text(png, info, &chunk, 1);
  png_write_info(png, info);
  std::vector<unsigned char> image(std::size_t(w) * h * 2);
  std::vector<png_bytep> rows(static_cast<std::size_t>(h));
  for (int y = 0; y < h; ++y) {
    rows[std::size_t(y)] = &image[std::size_t(y) * w * 2];
    for (int x = 0; x < w; ++x) {
      const unsigned s = unsigned(v[std::size_t(y) * w + x]);
      rows[std::size_t(y)][2 * x] = static_cast<unsigned char>(s >> 8);  // PNG samples are big-endian
      rows[std::size_t(y)][2 * x + 1] = static_cast<unsigned char>(s);
    }
  }
  png_write_image(png, rows.data());  // every pass of an interlaced file
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  std::fclose(f);
}

}  // namespace

class FormatTest : public CliTest {};

TEST_F(FormatTest, FitsEveryBitpixKeepsValuesFormatAndKeywords) {
  struct Case {
    int imgType, bitpix;
    double scale, offset, bscale = 1, bzero = 0;
  };
  // bitpix is the output's. The last stores scaled integers (multiples of BSCALE 0.5): they
  // come back as their physical values, written as floats.
  const Case cases[] = {{BYTE_IMG, 8, 1, 0},         {SHORT_IMG, 16, 100, -12000},  {USHORT_IMG, 16, 250, 100},
                        {LONG_IMG, 32, 7000, -900000}, {ULONG_IMG, 32, 16000000, 5}, {FLOAT_IMG, -32, 0.37, -20.5},
                        {DOUBLE_IMG, -64, 1e-7, 1e9},  {SHORT_IMG, -32, 0.5, 1000, 0.5, 1000}};
  for (const auto& c : cases) {
    for (int planes : {1, 3}) {
      SCOPED_TRACE("BITPIX " + std::to_string(c.bitpix) + " BSCALE " + std::to_string(c.bscale) + " planes " +
                   std::to_string(planes));
      const auto values = Ramp(17, 5, planes, c.scale, c.offset);
      WriteFits(P("in.fits"), c.imgType, 17, 5, planes, values, kKeys, c.bscale, c.bzero);
      const Result r = Run({"convert", P("in.fits"), "-o", P("out.fits")});
      ASSERT_EQ(r.rc, 0) << r.err;
      const FitsData in = ReadFits(P("in.fits")), out = ReadFits(P("out.fits"));
      ASSERT_EQ(out.status, 0);
      EXPECT_EQ(out.bitpix, c.bitpix);
      EXPECT_EQ(out.equivType, in.equivType);
      EXPECT_EQ(out.naxis, planes > 1 ? 3 : 2);
      // The library holds float samples: 32-bit integers and doubles keep float precision.
      std::vector<double> expected(in.values);
      for (auto& v : expected) v = float(v);
      EXPECT_EQ(out.values, expected);
      ExpectKeys(out);
    }
  }
}

TEST_F(FormatTest, TiffPngAndBmpEveryDepthAndLayoutBothWays) {
  struct Case {
    std::string ext;
    int bits;
  };
  for (const Case& c : {Case{"tif", 8}, Case{"tif", 16}, Case{"tif", -32}, Case{"png", 8}, Case{"bmp", 8}}) {
    for (int planes : {1, 3}) {
      SCOPED_TRACE(c.ext + " bits " + std::to_string(c.bits) + " planes " + std::to_string(planes));
      const int w = 13, h = 6;  // odd width: bitmap rows carry padding
      const auto values = Ramp(w, h, planes, c.bits == 8 ? 1.0 : c.bits == 16 ? 250.0 : 0.125, c.bits < 0 ? -3.5 : 0.0);
      WriteFits(P("in.fits"), c.bits == 8 ? BYTE_IMG : c.bits == 16 ? USHORT_IMG : FLOAT_IMG, w, h, planes, values,
                kKeys);
      const std::string mid = P("mid." + c.ext);
      ASSERT_EQ(Run({"convert", P("in.fits"), "-o", mid}).rc, 0);
      // The written file as the format's own library (or the test decoder) reads it.
      int bits = 0, channels = 0;
      if (c.ext == "bmp") {
        EXPECT_EQ(ReadBmp(mid), AsRgb(values, planes));
      } else {
        EXPECT_EQ(c.ext == "tif" ? ReadTiff(mid, &bits, &channels) : ReadPng(mid, &bits, &channels), values);
        EXPECT_EQ(bits, c.bits);
        EXPECT_EQ(channels, planes);
      }
      ASSERT_EQ(Run({"convert", mid, "-o", P("out.fits")}).rc, 0);
      const FitsData out = ReadFits(P("out.fits"));
      EXPECT_EQ(out.values, values);
      if (c.ext != "bmp") ExpectKeys(out);  // carried in the TIFF description and the PNG text
      if (c.ext != "tif") continue;
      // The same samples in a file libtiff wrote.
      WriteTiff(P("lib.tif"), w, h, planes, std::abs(c.bits), c.bits < 0 ? SAMPLEFORMAT_IEEEFP : SAMPLEFORMAT_UINT,
                values);
      ASSERT_EQ(Run({"convert", P("lib.tif"), "-o", P("lib.fits")}).rc, 0);
      EXPECT_EQ(ReadFits(P("lib.fits")).values, values);
    }
  }
}

TEST_F(FormatTest, PngSixteenBitPlainAndInterlacedWithKeywords) {
  // Seven passes over an odd size, so that every pass has rows and some have none; the
  // header arrives in an international text chunk.
  for (bool interlaced : {false, true}) {
    SCOPED_TRACE(interlaced);
    const auto wide = Ramp(9, 7, 1, 257.0, 0.0);
    WritePng16(P("in16.png"), 9, 7, wide, interlaced, "EXPTIME\t120.5\texposure (s)\n");
    const Result r = Run({"convert", P("in16.png"), "-o", P("from16.fits")});
    ASSERT_EQ(r.rc, 0) << r.err;
    const FitsData from16 = ReadFits(P("from16.fits"));
    EXPECT_EQ(from16.values, wide);
    EXPECT_EQ(from16.equivType, USHORT_IMG);
    ASSERT_EQ(from16.keys.count("EXPTIME"), 1u);
    EXPECT_EQ(std::stod(from16.keys.at("EXPTIME")), 120.5);
  }
}

TEST_F(FormatTest, FitsBlankPixelsBecomeUndefined) {
  // 16-bit integers scaled by 2 and offset by 10; the first and the last pixel hold BLANK.
  const short blank = -32768;
  std::vector<short> stored = {blank, 2, 3, 4, 5, 6, 7, blank};
  fitsfile* f = nullptr;
  int status = 0;
  fits_create_diskfile(&f, P("blank.fits").c_str(), &status);
  long naxes[2] = {4, 2};
  fits_create_img(f, SHORT_IMG, 2, naxes, &status);
  fits_write_key_lng(f, "BLANK", blank, "undefined", &status);
  fits_write_key_dbl(f, "BSCALE", 2.0, -15, nullptr, &status);
  fits_write_key_dbl(f, "BZERO", 10.0, -15, nullptr, &status);
  fits_set_bscale(f, 1.0, 0.0, &status);  // the values below are the stored integers
  fits_write_img(f, TSHORT, 1, long(stored.size()), stored.data(), &status);
  fits_close_file(f, &status);
  ASSERT_EQ(status, 0);
  const Result r = Run({"convert", P("blank.fits"), "-o", P("out.fits")});
  ASSERT_EQ(r.rc, 0) << r.err;
  const std::vector<double> values = ReadFits(P("out.fits")).values;
  ASSERT_EQ(values.size(), stored.size());
  for (std::size_t i = 0; i < stored.size(); ++i) {
    if (stored[i] == blank) EXPECT_TRUE(std::isnan(values[i])) << i;
    else EXPECT_EQ(values[i], 2.0 * stored[i] + 10.0) << i;
  }
  // The blanks count nowhere: the defined pixels are 14, 16, .. 24, whose upper middle is 20
  // and whose standard deviation is √(70/6).
  const Result info = Run({"info", P("blank.fits")});
  for (const char* figure : {"min 14 ", "max 24 ", "mean 19 ", "median 20 ", "noise 3.41"})
    EXPECT_NE(info.out.find(figure), std::string::npos) << figure << " in " << info.out;
}

TEST_F(FormatTest, BmpPixelsAreFoundThroughTheFileOffset) {
  // Grey 8-bit bitmaps of 4 x 2 that declare no palette count: one with all 256 entries and
  // 16 bytes left between palette and pixels, one that stores only the 16 entries it uses.
  const auto put32 = [](std::string& s, std::size_t at, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) s[at + i] = char(v >> (8 * i));
  };
  struct Case {
    int entries, gap, step;  // palette entries, bytes after them, grey step between entries
  };
  for (const Case c : {Case{256, 16, 1}, Case{16, 0, 17}}) {
    SCOPED_TRACE(c.entries);
    std::string info(40, '\0');
    put32(info, 0, 40);
    put32(info, 4, 4);
    put32(info, 8, 2);  // bottom-up
    info[12] = 1, info[14] = 8;
    std::string palette;
    for (int i = 0; i < c.entries; ++i) palette += std::string(3, char(i * c.step)) + '\0';
    const std::string gap(std::size_t(c.gap), '\xAA'), pixels = {1, 2, 3, 4, 5, 6, 7, 8};
    std::string file = "BM" + std::string(12, '\0') + info + palette + gap + pixels;
    put32(file, 2, std::uint32_t(file.size()));
    put32(file, 10, std::uint32_t(14 + info.size() + palette.size() + gap.size()));
    std::ofstream(P("in.bmp"), std::ios::binary) << file;
    const Result r = Run({"convert", P("in.bmp"), "-o", P("out.fits")});
    ASSERT_EQ(r.rc, 0) << r.err;
    std::vector<double> expected;
    for (int index : {5, 6, 7, 8, 1, 2, 3, 4}) expected.push_back(index * c.step);
    EXPECT_EQ(ReadFits(P("out.fits")).values, expected);
  }
}

TEST_F(FormatTest, InfoReportsHeaderFactsAndBackgroundNoise) {
  std::mt19937 rng(3);
  std::normal_distribution<double> noise(1000.0, 10.0);
  std::vector<double> values(300 * 200);
  for (auto& v : values) v = noise(rng);
  values[1234] = 60000.0;  // a hot pixel is not noise
  WriteFits(P("sky.fits"), FLOAT_IMG, 300, 200, 1, values, kKeys);
  const Result r = Run({"info", P("sky.fits")});
  ASSERT_EQ(r.rc, 0) << r.err;
  EXPECT_NE(r.out.find("300 x 200, 1 plane, 32-bit float"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("exposure     120.5 s"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("temperature  -10.25 C"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("instrument   TestCam 9000"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("date         2024-01-02T03:04:05"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("max 60000"), std::string::npos) << r.out;
  const auto at = r.out.find("noise ");
  ASSERT_NE(at, std::string::npos);
  // A 3-sigma clip keeps 99.7 % of a Gaussian and trims its spread by about 1.4 %.
  EXPECT_NEAR(std::stod(r.out.substr(at + 6)), 10.0, 0.4);
}

TEST_F(FormatTest, RealFramesMatchTheirLibraryReading) {
  const fs::path data = QRN_DATA_DIR;
  if (!fs::exists(data)) GTEST_SKIP() << "no " << data;
  int tried = 0;
  for (const auto& e : fs::recursive_directory_iterator(data)) {
    const std::string ext = e.path().extension().string();
    if (ext != ".fits" && ext != ".tiff") continue;
    SCOPED_TRACE(e.path().string());
    ASSERT_EQ(Run({"convert", e.path().string(), "--bits", "-64", "-o", P("real.fits")}).rc, 0);
    const FitsData out = ReadFits(P("real.fits"));
    std::vector<double> expected;
    if (ext == ".tiff") {
      int bits = 0, spp = 0;
      expected = ReadTiff(e.path().string(), &bits, &spp);
    } else {
      expected = ReadFits(e.path().string()).values;  // the first image HDU, scaled by cfitsio
    }
    ASSERT_EQ(out.values.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
      ASSERT_EQ(out.values[i], float(expected[i])) << "sample " << i;  // the library holds floats
    ++tried;
  }
  EXPECT_GT(tried, 0);
}

TEST_F(FormatTest, ExtensionImageInheritsThePrimaryHeaderAndLongStrings) {
  const std::string object = "NGC 7000, the North America Nebula, with the Pelican beside it, in H-alpha light";
  fitsfile* f = nullptr;
  int status = 0;
  fits_create_diskfile(&f, P("mef.fits").c_str(), &status);
  fits_create_img(f, BYTE_IMG, 0, nullptr, &status);
  fits_write_key_str(f, "INSTRUME", "PrimaryCam", nullptr, &status);
  fits_write_key_longstr(f, "OBJECT", object.c_str(), "target", &status);  // longer than a card
  fits_write_key_str(f, "DATE-OBS", "2001-02-03", nullptr, &status);
  long naxes[2] = {6, 4};
  fits_create_img(f, SHORT_IMG, 2, naxes, &status);
  fits_write_key_dbl(f, "EXPTIME", 30.0, -15, nullptr, &status);
  fits_write_key_str(f, "DATE-OBS", "2001-02-04", nullptr, &status);
  std::vector<double> v = Ramp(6, 4, 1, 3.0, -100.0);
  fits_write_img(f, TDOUBLE, 1, long(v.size()), v.data(), &status);
  fits_close_file(f, &status);
  ASSERT_EQ(status, 0);
  ASSERT_EQ(Run({"convert", P("mef.fits"), "-o", P("out.fits")}).rc, 0);
  const FitsData out = ReadFits(P("out.fits"));
  EXPECT_EQ(out.values, v);
  EXPECT_EQ(out.keys.at("INSTRUME"), "PrimaryCam");
  EXPECT_EQ(out.keys.at("OBJECT"), object);
  EXPECT_EQ(out.keys.at("DATE-OBS"), "2001-02-04");  // the extension's own card wins
  EXPECT_EQ(std::stod(out.keys.at("EXPTIME")), 30.0);
}
