// TIFF reading and writing with libtiff.
#include "io/TiffFile.h"

#include <tiffio.h>

#include <climits>
#include <cstdarg>
#include <cstring>
#include <vector>

#include "Error.h"
#include "io/HeaderText.h"

namespace {

// libtiff reports through handlers; the last error text becomes the reason we give.
thread_local std::string g_lastError;

void OnError(const char*, const char* fmt, va_list ap) {
  char text[512];
  std::vsnprintf(text, sizeof text, fmt, ap);
  g_lastError = text;
}
void OnWarning(const char*, const char*, va_list) {}

struct CTiffHandle {
  TIFF* t = nullptr;
  ~CTiffHandle() {
    if (t) TIFFClose(t);
  }
};

void InstallHandlers() {
  TIFFSetErrorHandler(OnError);
  TIFFSetWarningHandler(OnWarning);
  g_lastError.clear();
}

[[noreturn]] void Fail(const std::string& path, const std::string& what) {
  throw CQrnError(path, g_lastError.empty() ? what : what + " (" + g_lastError + ")");
}

std::string FormatName(uint16_t format) {
  switch (format) {
    case SAMPLEFORMAT_UINT: return "unsigned";
    case SAMPLEFORMAT_INT: return "signed";
    case SAMPLEFORMAT_IEEEFP: return "float";
    default: return "of sample format " + std::to_string(format);
  }
}

// What a TIFF file's tags say about its pixels, once they have been checked to be readable.
struct TiffLayout {
  uint32_t width = 0, height = 0;
  uint16_t bytes = 0;       // per sample
  uint16_t perPixel = 1;    // samples per pixel, extra samples included
  int bits = 0;             // 8, 16 or -32
  int colour = 0;           // 1 or 3 planes
  bool planar = false;      // one plane after the other instead of interleaved
  bool invert = false;      // stored with white as 0
};

TiffLayout CheckLayout(TIFF* t, const std::string& path) {
  uint32_t w = 0, height = 0;
  uint16_t bps = 0, spp = 1, format = SAMPLEFORMAT_UINT, config = PLANARCONFIG_CONTIG;
  TIFFGetField(t, TIFFTAG_IMAGEWIDTH, &w);
  TIFFGetField(t, TIFFTAG_IMAGELENGTH, &height);
  TIFFGetFieldDefaulted(t, TIFFTAG_BITSPERSAMPLE, &bps);
  TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLESPERPIXEL, &spp);
  TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLEFORMAT, &format);
  TIFFGetFieldDefaulted(t, TIFFTAG_PLANARCONFIG, &config);
  if (w == 0 || height == 0) throw CQrnError(path, "empty image");
  if (TIFFIsTiled(t)) throw CQrnError(path, "unsupported TIFF layout: tiled images are not read");
  int bits = 0;
  if (format == SAMPLEFORMAT_UINT && (bps == 8 || bps == 16)) bits = bps;
  else if (format == SAMPLEFORMAT_IEEEFP && bps == 32) bits = -32;
  else
    throw CQrnError(path, "unsupported TIFF sample format: " + std::to_string(bps) + " bits " + FormatName(format) +
                              " (8/16-bit unsigned and 32-bit float are read)");
  uint16_t extra = 0;
  uint16_t* extraTypes = nullptr;
  TIFFGetField(t, TIFFTAG_EXTRASAMPLES, &extra, &extraTypes);
  const int colour = spp - extra;
  if (colour != 1 && colour != 3)
    throw CQrnError(path, "unsupported TIFF sample layout: " + std::to_string(spp) + " samples per pixel");
  uint16_t photometric = PHOTOMETRIC_MINISBLACK;
  TIFFGetFieldDefaulted(t, TIFFTAG_PHOTOMETRIC, &photometric);
  // Samples are taken as they are stored: grey levels, or red, green and blue. Other colour
  // models (palette, YCbCr, CIELab, separated inks) would need a conversion and are refused.
  const bool grey = photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE;
  if (!(grey && colour == 1) && !(photometric == PHOTOMETRIC_RGB && colour == 3))
    throw CQrnError(path, "unsupported TIFF colour model: photometric interpretation " + std::to_string(photometric) +
                              " with " + std::to_string(colour) + " colour samples (grey and RGB are read)");
  if (w > uint32_t(INT_MAX) || height > uint32_t(INT_MAX))
    throw CQrnError(path, "unsupported TIFF size: " + std::to_string(w) + " x " + std::to_string(height));
  TiffLayout layout;
  layout.width = w;
  layout.height = height;
  layout.bytes = uint16_t(bps / 8);
  layout.perPixel = spp;
  layout.bits = bits;
  layout.colour = colour;
  layout.planar = config != PLANARCONFIG_CONTIG;
  layout.invert = photometric == PHOTOMETRIC_MINISWHITE && bits > 0;
  return layout;
}

// Copies every scan line into img's planes, inverting white-is-zero samples.
void ReadSamples(TIFF* t, const TiffLayout& layout, CImage& img, const std::string& path) {
  const std::size_t bytes = layout.bytes;
  std::vector<unsigned char> line(TIFFScanlineSize(t));
  const std::size_t lineSamples = layout.planar ? 1 : std::size_t(layout.perPixel);
  if (line.size() < std::size_t(layout.width) * lineSamples * bytes) Fail(path, "inconsistent TIFF line size");
  const uint32_t maxValue = layout.bits == 8 ? 0xff : 0xffff;
  auto store = [&](int p, uint32_t y, const unsigned char* src, std::size_t step) {
    auto* dst = static_cast<unsigned char*>(img.GetImageAdr(0, int(y), p, 0));
    for (uint32_t x = 0; x < layout.width; ++x) {
      std::memcpy(dst + x * bytes, src + x * step * bytes, bytes);
      if (!layout.invert) continue;
      if (layout.bits == 8) dst[x] = BYTE(maxValue - dst[x]);
      else reinterpret_cast<uint16_t*>(dst)[x] = uint16_t(maxValue - reinterpret_cast<uint16_t*>(dst)[x]);
    }
  };
  auto readLine = [&](uint32_t y, int plane) {
    if (TIFFReadScanline(t, line.data(), y, uint16_t(plane)) < 0) Fail(path, "truncated or unreadable TIFF data");
  };
  if (!layout.planar) {
    for (uint32_t y = 0; y < layout.height; ++y) {
      readLine(y, 0);
      for (int p = 0; p < layout.colour; ++p) store(p, y, line.data() + std::size_t(p) * bytes, layout.perPixel);
    }
  } else {
    for (int p = 0; p < layout.colour; ++p)
      for (uint32_t y = 0; y < layout.height; ++y) {
        readLine(y, p);
        store(p, y, line.data(), 1);
      }
  }
}

// Restores the header our writer keeps in the image description, if it is there.
void ReadHeaderText(TIFF* t, CHeader& header) {
  char* description = nullptr;
  if (!TIFFGetField(t, TIFFTAG_IMAGEDESCRIPTION, &description) || !description) return;
  const std::string text = description;
  const std::string marker = std::string(qrnio::kHeaderTextKey) + "\n";
  if (text.rfind(marker, 0) == 0) qrnio::HeaderFromText(text.substr(marker.size()), header);
}

}  // namespace

CLoadedImage CTiffFile::Read(const std::string& path) {
  InstallHandlers();
  CTiffHandle h;
  h.t = TIFFOpen(path.c_str(), "r");
  if (!h.t) Fail(path, "not a readable TIFF file");
  const TiffLayout layout = CheckLayout(h.t, path);
  CLoadedImage out;
  out.format = "TIFF";
  out.bits = layout.bits;
  out.isSigned = layout.bits < 0;
  auto img = qrnio::MakeStoredImage(path, layout.bits, layout.bits < 0, int(layout.width), int(layout.height),
                                    layout.colour);
  ReadSamples(h.t, layout, *img, path);
  ReadHeaderText(h.t, img->GetHeader());
  qrnio::FinishRead(path, *img);
  out.image = std::move(img);
  return out;
}

void CTiffFile::Write(const std::string& path, const COrbImage& image, int bits) {
  if (bits != 8 && bits != 16 && bits != -32)
    throw CQrnError(path, "TIFF output takes 8, 16 or -32 bits, not " + std::to_string(bits));
  auto stored = qrnio::ToStored(path, image, bits, false);
  InstallHandlers();
  CTiffHandle h;
  h.t = TIFFOpen(path.c_str(), "w");
  if (!h.t) Fail(path, "cannot create TIFF file");
  const int w = image.GetWidth(), height = image.GetHeight(), planes = image.GetPlanes();
  const int bytes = bits < 0 ? 4 : bits / 8;
  TIFFSetField(h.t, TIFFTAG_IMAGEWIDTH, uint32_t(w));
  TIFFSetField(h.t, TIFFTAG_IMAGELENGTH, uint32_t(height));
  TIFFSetField(h.t, TIFFTAG_BITSPERSAMPLE, uint16_t(bytes * 8));
  TIFFSetField(h.t, TIFFTAG_SAMPLESPERPIXEL, uint16_t(planes));
  TIFFSetField(h.t, TIFFTAG_SAMPLEFORMAT, uint16_t(bits < 0 ? SAMPLEFORMAT_IEEEFP : SAMPLEFORMAT_UINT));
  TIFFSetField(h.t, TIFFTAG_PLANARCONFIG, uint16_t(PLANARCONFIG_CONTIG));
  TIFFSetField(h.t, TIFFTAG_PHOTOMETRIC, uint16_t(planes == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK));
  TIFFSetField(h.t, TIFFTAG_COMPRESSION, uint16_t(COMPRESSION_ADOBE_DEFLATE));
  TIFFSetField(h.t, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(h.t, 0));
  const std::string text = qrnio::HeaderToText(image.GetHeader());
  if (!text.empty())
    TIFFSetField(h.t, TIFFTAG_IMAGEDESCRIPTION, (std::string(qrnio::kHeaderTextKey) + "\n" + text).c_str());
  std::vector<unsigned char> line(std::size_t(w) * planes * bytes);
  for (int y = 0; y < height; ++y) {
    for (int p = 0; p < planes; ++p) {
      const auto* src = static_cast<const unsigned char*>(stored->GetImageAdr(0, y, p));
      for (int x = 0; x < w; ++x)
        std::memcpy(line.data() + (std::size_t(x) * planes + p) * bytes, src + std::size_t(x) * bytes, bytes);
    }
    if (TIFFWriteScanline(h.t, line.data(), uint32_t(y), 0) < 0) Fail(path, "cannot write TIFF data");
  }
  TIFF* t = h.t;
  h.t = nullptr;
  if (!TIFFFlush(t)) {
    TIFFClose(t);
    Fail(path, "cannot finish TIFF file");
  }
  TIFFClose(t);
}
