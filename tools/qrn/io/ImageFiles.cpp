// Format dispatch for reading and writing.
#include "io/ImageFiles.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "Error.h"
#include "Progress.h"
#include "io/AtomicOutput.h"
#include "io/BmpFile.h"
#include "io/FitsFile.h"
#include "io/PngFile.h"
#include "io/TiffFile.h"

namespace qrnio {

CLoadedImage ReadImage(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) throw CQrnError(path, std::strerror(errno));
  if (S_ISDIR(st.st_mode)) throw CQrnError(path, "is a folder, not an image file");
  std::ifstream in(path, std::ios::binary);
  if (!in) throw CQrnError(path, std::string("cannot open: ") + std::strerror(errno));
  char magic[9] = {};
  in.read(magic, 8);
  const auto n = in.gcount();
  in.close();
  if (n >= 8 && std::memcmp(magic, "SIMPLE  ", 8) == 0) return CFitsFile::Read(path);
  if (n >= 4 && (std::memcmp(magic, "II*\0", 4) == 0 || std::memcmp(magic, "MM\0*", 4) == 0))
    return CTiffFile::Read(path);
  if (n >= 8 && std::memcmp(magic, "\x89PNG\r\n\x1a\n", 8) == 0) return CPngFile::Read(path);
  if (n >= 2 && magic[0] == 'B' && magic[1] == 'M') return CBmpFile::Read(path);
  throw CQrnError(path, "not an image file (FITS, TIFF, PNG and BMP are read)");
}

FileKind KindOfOutput(const std::string& path) {
  const auto dot = path.rfind('.');
  std::string ext = dot == std::string::npos ? std::string() : path.substr(dot + 1);
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  if (ext == "fits" || ext == "fit" || ext == "fts") return FileKind::Fits;
  if (ext == "tif" || ext == "tiff") return FileKind::Tiff;
  if (ext == "png") return FileKind::Png;
  if (ext == "bmp") return FileKind::Bmp;
  throw CQrnError(path, "unknown output format (use .fits, .tif, .png or .bmp)", true);
}

int BitsFor(FileKind kind, int bits) {
  switch (kind) {
    case FileKind::Fits: return bits;
    case FileKind::Tiff: return bits == 8 || bits == 16 ? bits : -32;
    default: return 8;
  }
}

void WriteImage(const std::string& target, const COrbImage& image, int bits, bool isSigned,
                const std::vector<std::string>& inputs) {
  const FileKind kind = KindOfOutput(target);
  CheckNotAnInput(target, inputs);
  COutputFile out(target);
  switch (kind) {
    case FileKind::Fits: CFitsFile::Write(out.TempPath(), image, bits, isSigned); break;
    case FileKind::Tiff: CTiffFile::Write(out.TempPath(), image, BitsFor(kind, bits)); break;
    case FileKind::Png: CPngFile::Write(out.TempPath(), image); break;
    case FileKind::Bmp: CBmpFile::Write(out.TempPath(), image); break;
  }
  CCancel::ThrowIfCancelled();
  out.Commit();
}

void WriteRendering(const std::string& target, COrbImage& image, int dibBits, const std::vector<std::string>& inputs) {
  const FileKind kind = KindOfOutput(target);
  if (kind != FileKind::Png && kind != FileKind::Bmp)
    throw CQrnError(target, "a rendering is written as .png or .bmp", true);
  if (dibBits != 8 && dibBits != 24) throw CQrnError("--bits", "must be 8 or 24", true);
  CheckNotAnInput(target, inputs);
  HGLOBAL dib = image.GetDib(dibBits);
  if (!dib) throw CQrnError(target, "cannot build the display bitmap (out of memory)");
  struct CFree {
    HGLOBAL h;
    ~CFree() { GlobalFree(h); }
  } release{dib};
  COutputFile out(target);
  if (kind == FileKind::Bmp) {
    CBmpFile::WriteDib(out.TempPath(), dib);
  } else {
    // The bitmap's own bytes (palette entries looked up) become the PNG samples.
    CImage pixels;
    if (!pixels.AttachDIB(dib)) throw CQrnError(target, "cannot read back the display bitmap");
    CPngFile::WriteStored(out.TempPath(), pixels, &image.GetHeader());
  }
  CCancel::ThrowIfCancelled();
  out.Commit();
}

}  // namespace qrnio
