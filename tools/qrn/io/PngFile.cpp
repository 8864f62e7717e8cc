// PNG reading and writing with libpng.
#include "io/PngFile.h"

#include <png.h>

#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <vector>

#include "Error.h"
#include "io/HeaderText.h"

namespace {

thread_local char g_pngError[256];

void OnError(png_structp png, png_const_charp message) {
  std::snprintf(g_pngError, sizeof g_pngError, "%s", message);
  png_longjmp(png, 1);
}
void OnWarning(png_structp, png_const_charp) {}

struct CFile {
  FILE* f = nullptr;
  ~CFile() {
    if (f) std::fclose(f);
  }
};

std::string Reason(const char* what) { return std::string(what) + " (" + g_pngError + ")"; }

// The functions below run while libpng may jump back to Read on an error: they hold nothing
// that needs destroying.

// Reads every row of every pass into img's planes. An interlaced file's later passes fill in
// what earlier ones left, so each row starts from what is stored.
void ReadPixels(png_structp png, png_infop info, int passes, unsigned char* row, COrbImage& img) {
  const int w = img.GetWidth(), h = img.GetHeight(), planes = img.GetPlanes();
  const int channels = png_get_channels(png, info), bytes = png_get_bit_depth(png, info) == 16 ? 2 : 1;
  auto at = [&](int x, int p) { return row + (std::size_t(x) * channels + p) * bytes; };
  for (int pass = 0; pass < passes; ++pass)
    for (int y = 0; y < h; ++y) {
      for (int p = 0; p < planes && passes > 1; ++p) {
        const auto* s = static_cast<const unsigned char*>(img.CImage::GetImageAdr(0, y, p));
        for (int x = 0; x < w; ++x) std::memcpy(at(x, p), s + x * bytes, bytes);
      }
      png_read_row(png, row, nullptr);
      for (int p = 0; p < planes; ++p) {
        auto* d = static_cast<unsigned char*>(img.CImage::GetImageAdr(0, y, p, 0));
        for (int x = 0; x < w; ++x) std::memcpy(d + x * bytes, at(x, p), bytes);
      }
    }
}

// Restores the header our writer keeps in a text chunk, if it is there.
void ReadHeaderText(png_structp png, png_infop info, CHeader& header) {
  png_textp text = nullptr;
  int count = 0;
  png_get_text(png, info, &text, &count);
  for (int i = 0; i < count; ++i)
    if (std::strcmp(text[i].key, qrnio::kHeaderTextKey) == 0 && text[i].text)
      qrnio::HeaderFromText(text[i].text, header);  // tEXt, zTXt and iTXt alike end in a NUL
}

}  // namespace

CLoadedImage CPngFile::Read(const std::string& path) {
  CFile file;
  file.f = std::fopen(path.c_str(), "rb");
  if (!file.f) throw CQrnError(path, std::string("cannot open: ") + std::strerror(errno));
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, OnError, OnWarning);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!info) {
    png_destroy_read_struct(&png, nullptr, nullptr);
    throw CQrnError(path, "out of memory");
  }
  std::vector<unsigned char> row;
  std::unique_ptr<COrbImage> img;
  int bits = 8;
  g_pngError[0] = '\0';
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_read_struct(&png, &info, nullptr);
    throw CQrnError(path, Reason("truncated or unreadable PNG data"));
  }
  png_init_io(png, file.f);
  png_read_info(png, info);
  const int depth = png_get_bit_depth(png, info);
  const int type = png_get_color_type(png, info);
  if (type == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
  if (type == PNG_COLOR_TYPE_GRAY && depth < 8) png_set_expand_gray_1_2_4_to_8(png);
  if (type & PNG_COLOR_MASK_ALPHA) png_set_strip_alpha(png);
  if (depth == 16) png_set_swap(png);  // file order is big-endian
  // Interlaced files need every pass; the library handles that when all rows are read in
  // turn, and it must know before it updates the row layout.
  const int passes = png_set_interlace_handling(png);
  png_read_update_info(png, info);
  const int w = int(png_get_image_width(png, info)), h = int(png_get_image_height(png, info));
  const int channels = png_get_channels(png, info);
  bits = png_get_bit_depth(png, info) == 16 ? 16 : 8;
  img = qrnio::MakeStoredImage(path, bits, false, w, h, channels >= 3 ? 3 : 1);
  row.resize(png_get_rowbytes(png, info));
  ReadPixels(png, info, passes, row.data(), *img);
  png_read_end(png, info);
  ReadHeaderText(png, info, img->GetHeader());
  png_destroy_read_struct(&png, &info, nullptr);

  CLoadedImage out;
  out.format = "PNG";
  out.bits = bits;
  out.isSigned = false;
  qrnio::FinishRead(path, *img);
  out.image = std::move(img);
  return out;
}

void CPngFile::WriteStored(const std::string& path, const CImage& image, const CHeader* header) {
  CFile file;
  file.f = std::fopen(path.c_str(), "wb");
  if (!file.f) throw CQrnError(path, std::string("cannot write: ") + std::strerror(errno));
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, OnError, OnWarning);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!info) {
    png_destroy_write_struct(&png, nullptr);
    throw CQrnError(path, "out of memory");
  }
  const int w = image.GetWidth(), h = image.GetHeight(), planes = image.GetPlanes();
  std::vector<unsigned char> row(std::size_t(w) * planes);
  const std::string text = header ? qrnio::HeaderToText(*header) : std::string();
  g_pngError[0] = '\0';
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    throw CQrnError(path, Reason("cannot write PNG data"));
  }
  png_init_io(png, file.f);
  png_set_IHDR(png, info, w, h, 8, planes == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_text chunk{};
  if (!text.empty()) {
    chunk.compression = PNG_TEXT_COMPRESSION_zTXt;
    chunk.key = const_cast<char*>(qrnio::kHeaderTextKey);
    chunk.text = const_cast<char*>(text.c_str());
    chunk.text_length = text.size();
    png_set_text(png, info, &chunk, 1);
  }
  png_write_info(png, info);
  for (int y = 0; y < h; ++y) {
    for (int p = 0; p < planes; ++p) {
      const auto* s = static_cast<const unsigned char*>(image.GetImageAdr(0, y, p));
      for (int x = 0; x < w; ++x) row[std::size_t(x) * planes + p] = s[x];
    }
    png_write_row(png, row.data());
  }
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  if (std::fflush(file.f) != 0) throw CQrnError(path, std::string("cannot write: ") + std::strerror(errno));
}

void CPngFile::Write(const std::string& path, const COrbImage& image) {
  auto stored = qrnio::ToStored(path, image, 8, false);
  WriteStored(path, *stored, &image.GetHeader());
}
