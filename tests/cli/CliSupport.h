// Running the qrn program and writing and reading files with the format libraries themselves.
#pragma once
#include <fitsio.h>
#include <gtest/gtest.h>
#include <tiffio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "core/BmpDecode.h"
#include "core/OrbImage.h"

namespace clitest {
namespace fs = std::filesystem;

struct Result {
  int rc = -1;
  std::string out, err;
};

inline std::string Quote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

inline std::string Slurp(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

/// Runs qrn with args (quiet unless asked otherwise) and collects its exit status and output.
inline Result Qrn(const std::vector<std::string>& args, const fs::path& scratch) {
  std::string cmd = Quote(QRN_BINARY);
  for (const auto& a : args) cmd += " " + Quote(a);
  const fs::path out = scratch / ".stdout", err = scratch / ".stderr";
  cmd += " >" + Quote(out.string()) + " 2>" + Quote(err.string());
  const int status = std::system(cmd.c_str());
  Result r;
  r.rc = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  r.out = Slurp(out);
  r.err = Slurp(err);
  fs::remove(out);
  fs::remove(err);
  return r;
}

/// A fresh folder per test, removed afterwards.
class CliTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string tmpl = (fs::temp_directory_path() / "qrn-cli-XXXXXX").string();
    ASSERT_NE(mkdtemp(tmpl.data()), nullptr);
    dir = tmpl;
  }
  void TearDown() override { fs::remove_all(dir); }
  std::string P(const std::string& name) const { return (dir / name).string(); }
  Result Run(const std::vector<std::string>& args) const { return Qrn(args, dir); }
  std::set<std::string> Listing() const {
    std::set<std::string> names;
    for (const auto& e : fs::recursive_directory_iterator(dir)) names.insert(e.path().lexically_relative(dir).string());
    return names;
  }
  fs::path dir;
};

struct Keyword {
  std::string name, value;
};

/// Writes a FITS image with cfitsio: values are physical, in x-fastest, plane-last order;
/// bitpix may be USHORT_IMG (20) / ULONG_IMG (40) for unsigned data; bscale/bzero ≠ (1, 0)
/// stores scaled integers. String keyword values are quoted by cfitsio, numbers are not.
inline void WriteFits(const std::string& path, int imgType, int w, int h, int planes, const std::vector<double>& v,
                      const std::vector<Keyword>& keys = {}, double bscale = 1.0, double bzero = 0.0) {
  fitsfile* f = nullptr;
  int status = 0;
  fs::remove(path);
  fits_create_diskfile(&f, path.c_str(), &status);
  long naxes[3] = {w, h, planes};
  fits_create_img(f, imgType, planes > 1 ? 3 : 2, naxes, &status);
  if (bscale != 1.0 || bzero != 0.0) {
    fits_write_key_dbl(f, "BSCALE", bscale, -15, nullptr, &status);
    fits_write_key_dbl(f, "BZERO", bzero, -15, nullptr, &status);
    fits_set_bscale(f, bscale, bzero, &status);
  }
  for (const auto& k : keys) {
    char* end = nullptr;
    const double num = std::strtod(k.value.c_str(), &end);
    if (!k.value.empty() && *end == '\0') fits_write_key_dbl(f, k.name.c_str(), num, -15, nullptr, &status);
    else fits_write_key_str(f, k.name.c_str(), k.value.c_str(), nullptr, &status);
  }
  std::vector<double> copy(v);
  fits_write_img(f, TDOUBLE, 1, long(copy.size()), copy.data(), &status);
  fits_close_file(f, &status);
  ASSERT_EQ(status, 0) << "writing " << path;
}

/// Writes a contiguous TIFF with libtiff: 8-bit, 16-bit (unsigned, or signed with
/// SAMPLEFORMAT_INT) or 32-bit float samples from v in x-fastest, plane-last order.
inline void WriteTiff(const std::string& path, int w, int h, int spp, int bps, int format,
                      const std::vector<double>& v) {
  TIFF* t = TIFFOpen(path.c_str(), "w");
  TIFFSetField(t, TIFFTAG_IMAGEWIDTH, uint32_t(w));
  TIFFSetField(t, TIFFTAG_IMAGELENGTH, uint32_t(h));
  TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, uint16_t(bps));
  TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, uint16_t(spp));
  TIFFSetField(t, TIFFTAG_SAMPLEFORMAT, uint16_t(format));
  TIFFSetField(t, TIFFTAG_PLANARCONFIG, uint16_t(PLANARCONFIG_CONTIG));
  TIFFSetField(t, TIFFTAG_PHOTOMETRIC, uint16_t(spp >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK));
  std::vector<unsigned char> line(std::size_t(w) * spp * bps / 8);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x)
      for (int s = 0; s < spp; ++s) {
        const std::size_t i = std::size_t(x) * spp + s;
        const double value = v[(std::size_t(s % 3) * h + y) * w + x];
        if (bps == 8) line[i] = static_cast<unsigned char>(value);
        else if (bps == 16 && format == SAMPLEFORMAT_INT) reinterpret_cast<int16_t*>(line.data())[i] = int16_t(value);
        else if (bps == 16) reinterpret_cast<uint16_t*>(line.data())[i] = uint16_t(value);
        else reinterpret_cast<float*>(line.data())[i] = float(value);
      }
    TIFFWriteScanline(t, line.data(), uint32_t(y), 0);
  }
  TIFFClose(t);
}

struct FitsData {
  int bitpix = 0, equivType = 0, naxis = 0;
  long naxes[3] = {1, 1, 1};
  std::vector<double> values;  // physical
  std::map<std::string, std::string> keys;
  int status = 0;
};

inline FitsData ReadFits(const std::string& path) {
  FitsData d;
  fitsfile* f = nullptr;
  int& status = d.status;
  if (fits_open_image(&f, path.c_str(), READONLY, &status)) return d;
  fits_get_img_param(f, 3, &d.bitpix, &d.naxis, d.naxes, &status);
  fits_get_img_equivtype(f, &d.equivType, &status);
  d.values.resize(std::size_t(d.naxes[0] * d.naxes[1] * d.naxes[2]));
  int anyNull = 0;
  fits_read_img(f, TDOUBLE, 1, long(d.values.size()), nullptr, d.values.data(), &anyNull, &status);
  int count = 0;
  fits_get_hdrspace(f, &count, nullptr, &status);
  for (int i = 1; i <= count; ++i) {
    char name[FLEN_KEYWORD], value[FLEN_VALUE], comment[FLEN_COMMENT];
    fits_read_keyn(f, i, name, value, comment, &status);
    std::string v = value;
    if (!v.empty() && v[0] == '\'') {  // dequoted, with the CONTINUE cards of a long string
      char* plain = nullptr;
      int s = 0;
      if (fits_read_key_longstr(f, name, &plain, nullptr, &s) == 0 && plain) v = plain;
      if (plain) fits_free_memory(plain, &s);
    }
    d.keys[name] = v;
  }
  fits_close_file(f, &status);
  return d;
}

/// Reads a .bmp with the test decoder: red, green and blue planes, x fastest.
inline std::vector<double> ReadBmp(const std::string& path) {
  const std::string bytes = Slurp(path);
  const auto pic = bmptest::DecodeFile(std::vector<unsigned char>(bytes.begin(), bytes.end()));
  EXPECT_TRUE(pic.error.empty()) << path << ": " << pic.error;
  std::vector<double> v;
  for (int c = 0; c < 3 && pic.error.empty(); ++c)
    for (int y = 0; y < pic.height; ++y)
      for (int x = 0; x < pic.width; ++x) v.push_back(pic.At(x, y)[c]);
  return v;
}

/// Grey samples repeated as red, green and blue; colour samples as they are.
inline std::vector<double> AsRgb(const std::vector<double>& v, int planes) {
  std::vector<double> rgb = v;
  for (int p = planes; p < 3; ++p) rgb.insert(rgb.end(), v.begin(), v.end());
  return rgb;
}

/// Values that every integer format holds: a ramp with the extremes of the 8-bit range.
inline std::vector<double> Ramp(int w, int h, int planes, double scale, double offset) {
  std::vector<double> v(std::size_t(w) * h * planes);
  for (std::size_t i = 0; i < v.size(); ++i) v[i] = offset + scale * double((i * 37) % 256);
  return v;
}

/// Normal samples rounded to float, which a float image holds exactly.
inline std::vector<double> Noise(std::size_t n, double mean, double sd, unsigned seed) {
  std::mt19937 rng(seed);
  std::normal_distribution<double> d(mean, sd);
  std::vector<double> v(n);
  for (auto& x : v) x = float(d(rng));
  return v;
}

/// The image the program reads from v (x fastest, plane last): float samples, each plane's
/// level window its min..max.
inline COrbImage ToImage(const std::vector<double>& v, int w, int h, int planes = 1) {
  COrbImage img(-32, w, h, planes);
  for (int p = 0; p < planes; ++p)
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) img.SetPixelGrayRaw(x, y, float(v[(std::size_t(p) * h + y) * w + x]), p);
  img.CalcMinMax();
  for (int p = 0; p < planes; ++p) img.SetLevel(p, img.GetMinPixel(p), img.GetMaxPixel(p));
  return img;
}

/// How many of a file's samples (x fastest, plane last) differ from img's; -1 for another size.
inline long Differing(const std::vector<double>& v, const COrbImage& img) {
  const int w = img.GetWidth(), h = img.GetHeight(), planes = img.GetPlanes();
  if (v.size() != std::size_t(w) * h * planes) return -1;
  long n = 0;
  for (int p = 0; p < planes; ++p)
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) n += v[(std::size_t(p) * h + y) * w + x] != img.GetPixelGrayRaw(x, y, p);
  return n;
}

}  // namespace clitest
