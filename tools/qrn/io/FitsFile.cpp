// FITS reading and writing with cfitsio.
#include "io/FitsFile.h"

#include <fitsio.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <vector>

#include "Error.h"

namespace {

// cfitsio's own words for a status code, with the file named by the caller.
[[noreturn]] void Fail(const std::string& path, const std::string& what, int status) {
  char text[FLEN_STATUS] = {};
  fits_get_errstatus(status, text);
  fits_clear_errmsg();
  throw CQrnError(path, what + " (" + text + ")");
}

struct CFitsHandle {
  fitsfile* f = nullptr;
  ~CFitsHandle() {
    int status = 0;
    if (f) fits_close_file(f, &status);
  }
};

// Cards the reader and writer derive from the data, never copied as keywords.
bool IsStructural(const std::string& name) {
  static const char* const kNames[] = {"SIMPLE", "BITPIX", "EXTEND", "BSCALE", "BZERO", "XTENSION", "PCOUNT",
                                       "GCOUNT", "END", "COMMENT", "HISTORY", "CHECKSUM", "DATASUM", "BLANK",
                                       "EXTNAME", "EXTVER", "INHERIT", "NEXTEND", "CONTINUE", "LONGSTRN"};
  if (name.empty()) return true;
  for (const char* k : kNames)
    if (name == k) return true;
  if (name.rfind("NAXIS", 0) == 0) return true;
  // Tile-compression bookkeeping of compressed images.
  if (name[0] == 'Z' && (name.rfind("ZNAXIS", 0) == 0 || name.rfind("ZTILE", 0) == 0 || name.rfind("ZNAME", 0) == 0 ||
                         name.rfind("ZVAL", 0) == 0 || name == "ZIMAGE" || name == "ZBITPIX" || name == "ZCMPTYPE" ||
                         name == "ZQUANTIZ" || name == "ZDITHER0" || name == "ZSIMPLE" || name == "ZEXTEND" ||
                         name == "ZPCOUNT" || name == "ZGCOUNT" || name == "ZBLANK" || name == "ZHECKSUM" ||
                         name == "ZDATASUM"))
    return true;
  return name.rfind("TTYPE", 0) == 0 || name.rfind("TFORM", 0) == 0 || name == "TFIELDS";
}

void ReadKeywords(fitsfile* f, CHeader& header) {
  int status = 0, count = 0;
  fits_get_hdrspace(f, &count, nullptr, &status);
  for (int i = 1; i <= count && status == 0; ++i) {
    char name[FLEN_KEYWORD] = {}, value[FLEN_VALUE] = {}, comment[FLEN_COMMENT] = {};
    if (fits_read_keyn(f, i, name, value, comment, &status)) break;
    if (IsStructural(name)) continue;
    std::string text = value;
    if (!text.empty() && text[0] == '\'') {
      // Dequoted, and joined with the CONTINUE cards of a string longer than one card.
      char* joined = nullptr;
      int s = 0;
      if (fits_read_key_longstr(f, name, &joined, nullptr, &s) == 0 && joined) text = joined;
      s = 0;
      if (joined) fits_free_memory(joined, &s);
    }
    header.SetKeyword(CString::FromUtf8(name), CString::FromUtf8(text), CString::FromUtf8(comment));
  }
  fits_clear_errmsg();
}

bool IsNumberOrLogical(const std::string& v) {
  if (v == "T" || v == "F") return true;
  if (v.empty()) return false;
  char* end = nullptr;
  std::strtod(v.c_str(), &end);
  return end && *end == '\0';
}

void WriteKeywords(fitsfile* f, const CHeader& header, const std::string& path) {
  int status = 0;
  for (const auto& k : header.GetKeywords()) {
    const std::string name = k.name.ToUtf8(), value = k.value.ToUtf8(), comment = k.comment.ToUtf8();
    if (IsStructural(name)) continue;
    if (name.size() <= 8 && IsNumberOrLogical(value)) {
      // Numbers and logicals keep the text they were read with.
      char card[FLEN_CARD] = {};
      std::snprintf(card, sizeof card, "%-8s= %20s%s%s", name.c_str(), value.c_str(), comment.empty() ? "" : " / ",
                    comment.c_str());
      card[80] = '\0';
      fits_write_record(f, card, &status);
    } else {
      // A string too long for one card continues on CONTINUE cards. cfitsio splits the value
      // of a long (HIERARCH) name at the wrong place, so those keep to one card.
      const char* note = comment.empty() ? nullptr : comment.c_str();
      if (name.size() <= 8) ffukls(f, name.c_str(), value.c_str(), note, &status);
      else fits_update_key_str(f, name.c_str(), value.c_str(), note, &status);
    }
    if (status) Fail(path, "cannot write keyword " + name, status);
  }
}

// ---- The raw headers, read before cfitsio is given the file -----------------------------

constexpr std::size_t kBlock = 2880, kCard = 80;
constexpr long long kBlockBytes = kBlock;

std::string Trimmed(const std::string& s) {
  const auto first = s.find_first_not_of(' '), last = s.find_last_not_of(' ');
  return first == std::string::npos ? std::string() : s.substr(first, last - first + 1);
}

// The value of a "NAME    = value / comment" card: a quoted string without its quotes, or
// the text before the comment.
std::string CardValue(const std::string& card) {
  const std::string rest = card.substr(10);
  const auto open = rest.find('\'');
  if (open != std::string::npos && Trimmed(rest.substr(0, open)).empty()) {
    const auto close = rest.find('\'', open + 1);
    return Trimmed(rest.substr(open + 1, close == std::string::npos ? std::string::npos : close - open - 1));
  }
  return Trimmed(rest.substr(0, rest.find('/')));
}

using Cards = std::map<std::string, std::string>;

std::string CardText(const Cards& cards, const std::string& name) {
  const auto it = cards.find(name);
  return it == cards.end() ? std::string() : it->second;
}

long long CardNumber(const Cards& cards, const std::string& name, long long absent) {
  const auto it = cards.find(name);
  return it == cards.end() ? absent : std::stoll(it->second);
}

constexpr long long kMaxAxes = 999;

// Bytes of data after a header, padded to whole blocks; -1 when the header's numbers are
// out of range or their product does not fit. PCOUNT and GCOUNT count in extensions and in
// a primary array of random groups (NAXIS1 = 0) only.
long long DataBlocksBytes(const Cards& cards) {
  const long long naxis = CardNumber(cards, "NAXIS", 0);
  if (naxis < 0 || naxis > kMaxAxes) return -1;
  const bool extension = cards.count("XTENSION") > 0;
  const bool groups = !extension && naxis > 0 && CardNumber(cards, "NAXIS1", 1) == 0;
  long long samples = naxis > 0 ? 1 : 0;
  for (long long n = groups ? 2 : 1; n <= naxis; ++n) {
    const long long length = CardNumber(cards, "NAXIS" + std::to_string(n), 0);
    if (length < 0 || __builtin_mul_overflow(samples, length, &samples)) return -1;
  }
  const long long sampleBytes = std::llabs(CardNumber(cards, "BITPIX", 8)) / 8;
  const bool counted = extension || groups;
  const long long count = counted ? CardNumber(cards, "GCOUNT", 1) : 1;
  const long long extra = counted ? CardNumber(cards, "PCOUNT", 0) : 0;
  long long bytes = 0;
  if (count < 0 || extra < 0 || __builtin_add_overflow(samples, extra, &samples) ||
      __builtin_mul_overflow(samples, count, &bytes) || __builtin_mul_overflow(bytes, sampleBytes, &bytes) ||
      bytes > std::numeric_limits<long long>::max() - kBlockBytes)
    return -1;
  return (bytes + kBlockBytes - 1) / kBlockBytes * kBlockBytes;
}

// An HDU that must not be handed to cfitsio, and why (index 0: none).
struct CBadHdu {
  int index = 0;
  std::string reason;
};

// Why cfitsio must not move to an HDU with these cards, or nothing: it divides by a
// tile-compressed image's tile lengths, and by the Rice block size, as soon as it moves to
// the image, and a zero there would stop the program.
std::string CompressionFault(const Cards& cards) {
  if (CardText(cards, "ZIMAGE") != "T") return {};
  const long long axes = CardNumber(cards, "ZNAXIS", 0);
  if (axes < 0 || axes > kMaxAxes) return "malformed compressed image: ZNAXIS " + std::to_string(axes);
  for (long long n = 1; n <= axes; ++n)
    if (CardNumber(cards, "ZTILE" + std::to_string(n), 1) < 1)
      return "malformed compressed image: tile length ZTILE" + std::to_string(n) + " below 1";
  const bool rice = CardText(cards, "ZCMPTYPE") == "RICE_1";
  if (rice && (CardNumber(cards, "ZVAL1", 32) < 1 || CardNumber(cards, "ZVAL2", 4) < 1))
    return "malformed compressed image: Rice block size or bytes per sample below 1";
  return {};
}

// Scans the raw headers, HDU by HDU, for the first one cfitsio must not be given: a
// compression fault, or a header whose data this scan cannot size (the HDUs after it cannot
// be found safely).
CBadHdu FindBadHdu(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  Cards cards;
  char block[kBlock];
  int hdu = 1;
  try {
    while (in.read(block, kBlock)) {
      bool end = false;
      for (std::size_t at = 0; at < kBlock && !end; at += kCard) {
        const std::string card(block + at, kCard), name = Trimmed(card.substr(0, 8));
        end = name == "END";
        if (card.compare(8, 2, "= ") == 0) cards[name] = CardValue(card);
      }
      if (!end) continue;
      if (std::string fault = CompressionFault(cards); !fault.empty()) return {hdu, fault};
      const long long skip = DataBlocksBytes(cards);
      if (skip < 0) return {CardNumber(cards, "NAXIS", 0) > kMaxAxes ? hdu : hdu + 1, "malformed FITS header"};
      in.seekg(skip, std::ios::cur);
      cards.clear();
      ++hdu;
    }
  } catch (const std::logic_error&) {
    return {hdu + 1, "malformed FITS header: a number that does not parse"};
  }
  return {};
}

// Moves to the first HDU that holds an image of at least two axes.
void FindImage(fitsfile* f, const std::string& path, const CBadHdu& bad) {
  // HDU by HDU until the end of the file, so that a damaged one is reported as such.
  for (int i = 1;; ++i) {
    if (i == bad.index) throw CQrnError(path, bad.reason);
    int status = 0, type = 0, naxis = 0;
    fits_movabs_hdu(f, i, &type, &status);
    if (status == END_OF_FILE) break;
    if (status) Fail(path, "cannot read FITS structure", status);
    if (type != IMAGE_HDU) continue;
    fits_get_img_dim(f, &naxis, &status);
    if (status == 0 && naxis >= 2) return;
  }
  throw CQrnError(path, "no image in this FITS file");
}

// Refuses a plain image whose header promises more data than the file holds, before any
// memory is taken for it. (A tile-compressed image keeps its data in a table that cfitsio
// checks as it reads.)
void CheckDataSize(fitsfile* f, const std::string& path, int w, int height, int planes, int sampleBytes) {
  int status = 0;
  if (fits_is_compressed_image(f, &status) || status) return;
  LONGLONG headStart = 0, dataStart = 0, dataEnd = 0;
  if (fits_get_hduaddrll(f, &headStart, &dataStart, &dataEnd, &status)) return;
  std::error_code error;
  const auto fileBytes = std::filesystem::file_size(path, error);
  if (error) return;
  const long long held = (long long)fileBytes - dataStart;
  // Up to 2^31 · 2^31 · 3 · 8 bytes: counted in 128 bits.
  using Wide = unsigned __int128;
  const Wide promised = Wide(unsigned(w)) * unsigned(height) * unsigned(planes) * unsigned(sampleBytes);
  if (held < 0 || promised > Wide(held))
    throw CQrnError(path, "truncated FITS data: the header promises " + std::to_string(w) + " x " +
                              std::to_string(height) + " x " + std::to_string(planes) + " samples of " +
                              std::to_string(sampleBytes) + " bytes, the file holds " +
                              std::to_string(std::max(held, 0LL)) + " bytes of data");
}

template <class T>
void ReadPlanes(fitsfile* f, int datatype, COrbImage& image, const std::string& path, const T* undefined = nullptr) {
  const int w = image.GetWidth(), h = image.GetHeight();
  std::vector<T> buffer(std::size_t(w) * h);
  for (int p = 0; p < image.GetPlanes(); ++p) {
    long first[3] = {1, 1, p + 1};
    int status = 0, anyNull = 0;
    fits_read_pix(f, datatype, first, long(buffer.size()), const_cast<T*>(undefined), buffer.data(), &anyNull, &status);
    if (status) Fail(path, "truncated or unreadable FITS data", status);
    for (int y = 0; y < h; ++y)
      std::memcpy(image.CImage::GetImageAdr(0, y, p, 0), buffer.data() + std::size_t(y) * w, sizeof(T) * w);
  }
}

template <class T>
void WritePlanes(fitsfile* f, int datatype, const CImage& image, const std::string& path) {
  const int w = image.GetWidth(), h = image.GetHeight();
  std::vector<T> buffer(std::size_t(w) * h);
  for (int p = 0; p < image.GetPlanes(); ++p) {
    for (int y = 0; y < h; ++y)
      std::memcpy(buffer.data() + std::size_t(y) * w, image.GetImageAdr(0, y, p), sizeof(T) * w);
    long first[3] = {1, 1, p + 1};
    int status = 0;
    fits_write_pix(f, datatype, first, long(buffer.size()), buffer.data(), &status);
    if (status) Fail(path, "cannot write FITS data", status);
  }
}

// The samples of the current image. Integers are kept as stored, with the file's scaling,
// except where BLANK marks undefined pixels: those become NaN, so the samples are read as
// physical floats.
std::unique_ptr<COrbImage> ReadSamples(fitsfile* f, const std::string& path, int bitpix, int equiv, int w, int height,
                                       int planes, CLoadedImage& out) {
  int status = 0;
  long long blank = 0;
  if (bitpix > 0 && fits_read_key_lnglng(f, "BLANK", &blank, nullptr, &status) == 0) {
    out.bits = -32;
    out.isSigned = true;
    auto img = qrnio::MakeStoredImage(path, -32, true, w, height, planes);
    const float undefined = std::numeric_limits<float>::quiet_NaN();
    ReadPlanes<float>(f, TFLOAT, *img, path, &undefined);
    return img;
  }
  fits_clear_errmsg();
  status = 0;
  std::unique_ptr<COrbImage> img;
  if (equiv == USHORT_IMG || equiv == ULONG_IMG) {
    // The unsigned convention (BZERO 2^15 or 2^31): read as unsigned integers.
    out.bits = bitpix;
    out.isSigned = false;
    img = qrnio::MakeStoredImage(path, bitpix, false, w, height, planes);
    if (bitpix == 16) ReadPlanes<unsigned short>(f, TUSHORT, *img, path);
    else ReadPlanes<unsigned int>(f, TUINT, *img, path);
    return img;
  }
  double bscale = 1.0, bzero = 0.0;
  int s = 0;
  if (fits_read_key_dbl(f, "BSCALE", &bscale, nullptr, &s)) bscale = 1.0;
  s = 0;
  if (fits_read_key_dbl(f, "BZERO", &bzero, nullptr, &s)) bzero = 0.0;
  fits_clear_errmsg();
  // The stored integers are kept; the image's bscale and bzero give the physical values.
  fits_set_bscale(f, 1.0, 0.0, &status);
  out.bits = bitpix;
  out.isSigned = bitpix != 8;
  img = qrnio::MakeStoredImage(path, bitpix, out.isSigned, w, height, planes, bscale, bzero);
  switch (bitpix) {
    case 8: ReadPlanes<unsigned char>(f, TBYTE, *img, path); break;
    case 16: ReadPlanes<short>(f, TSHORT, *img, path); break;
    case 32: ReadPlanes<int>(f, TINT, *img, path); break;
    case -32: ReadPlanes<float>(f, TFLOAT, *img, path); break;
    default: ReadPlanes<double>(f, TDOUBLE, *img, path); break;
  }
  if (bitpix > 0 && (bscale != 1.0 || bzero != 0.0)) out.bits = -32;  // scaled integers are written back as floats
  return img;
}

}  // namespace

CLoadedImage CFitsFile::Read(const std::string& path) {
  CFitsHandle h;
  int status = 0;
  const CBadHdu bad = FindBadHdu(path);
  // The disk-file form takes the name literally (no extended file-name syntax).
  if (bad.index != 1 && fits_open_diskfile(&h.f, path.c_str(), READONLY, &status))
    Fail(path, "not a readable FITS file", status);
  FindImage(h.f, path, bad);

  int bitpix = 0, equiv = 0, naxis = 0;
  long naxes[3] = {1, 1, 1};
  fits_get_img_param(h.f, 3, &bitpix, &naxis, naxes, &status);
  fits_get_img_equivtype(h.f, &equiv, &status);
  if (status) Fail(path, "cannot read the image parameters", status);
  if (bitpix != 8 && bitpix != 16 && bitpix != 32 && bitpix != -32 && bitpix != -64)
    throw CQrnError(path, "unsupported BITPIX " + std::to_string(bitpix) + " (8, 16, 32, -32, -64 are read)");
  const long planeAxis = naxis == 3 ? naxes[2] : 1;
  if (naxis > 3 || (planeAxis != 1 && planeAxis != 3))
    throw CQrnError(path, "unsupported layout: " + std::to_string(naxis) + " axes with " + std::to_string(planeAxis) +
                              " planes (2-D images and cubes of 1 or 3 planes are read)");
  if (naxes[0] <= 0 || naxes[1] <= 0) throw CQrnError(path, "empty image");
  if (naxes[0] > INT_MAX || naxes[1] > INT_MAX)
    throw CQrnError(path, "unsupported size: " + std::to_string(naxes[0]) + " x " + std::to_string(naxes[1]));
  const int w = int(naxes[0]), height = int(naxes[1]), planes = int(planeAxis);
  CheckDataSize(h.f, path, w, height, planes, std::abs(bitpix) / 8);

  CLoadedImage out;
  out.format = "FITS";
  std::unique_ptr<COrbImage> img = ReadSamples(h.f, path, bitpix, equiv, w, height, planes, out);
  // An image in an extension inherits the primary header's facts (instrument, date ...);
  // its own cards take precedence.
  int hdu = 1;
  fits_get_hdu_num(h.f, &hdu);
  if (hdu > 1) {
    int type = 0;
    fits_movabs_hdu(h.f, 1, &type, &status);
    ReadKeywords(h.f, img->GetHeader());
    fits_movabs_hdu(h.f, hdu, &type, &status);
  }
  ReadKeywords(h.f, img->GetHeader());
  qrnio::FinishRead(path, *img);
  out.image = std::move(img);
  return out;
}

void CFitsFile::Write(const std::string& path, const COrbImage& image, int bits, bool isSigned) {
  auto stored = qrnio::ToStored(path, image, bits, isSigned);
  ::unlink(path.c_str());  // cfitsio creates, it does not replace
  CFitsHandle h;
  int status = 0;
  if (fits_create_diskfile(&h.f, path.c_str(), &status)) Fail(path, "cannot create FITS file", status);
  int type = 0;
  switch (bits) {
    case 8: type = BYTE_IMG; break;
    case 16: type = isSigned ? SHORT_IMG : USHORT_IMG; break;
    case 32: type = isSigned ? LONG_IMG : ULONG_IMG; break;
    case -32: type = FLOAT_IMG; break;
    case -64: type = DOUBLE_IMG; break;
    default: throw CQrnError(path, "FITS cannot store " + std::to_string(bits) + "-bit samples");
  }
  long naxes[3] = {image.GetWidth(), image.GetHeight(), image.GetPlanes()};
  fits_create_img(h.f, type, image.GetPlanes() > 1 ? 3 : 2, naxes, &status);
  if (status) Fail(path, "cannot create FITS image", status);
  WriteKeywords(h.f, image.GetHeader(), path);
  switch (bits) {
    case 8: WritePlanes<unsigned char>(h.f, TBYTE, *stored, path); break;
    case 16:
      if (isSigned) WritePlanes<short>(h.f, TSHORT, *stored, path);
      else WritePlanes<unsigned short>(h.f, TUSHORT, *stored, path);
      break;
    case 32:
      if (isSigned) WritePlanes<int>(h.f, TINT, *stored, path);
      else WritePlanes<unsigned int>(h.f, TUINT, *stored, path);
      break;
    case -32: WritePlanes<float>(h.f, TFLOAT, *stored, path); break;
    default: WritePlanes<double>(h.f, TDOUBLE, *stored, path); break;
  }
  fits_close_file(h.f, &status);
  h.f = nullptr;
  if (status) Fail(path, "cannot finish FITS file", status);
}
