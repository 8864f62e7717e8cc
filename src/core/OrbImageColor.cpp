// Plane conversion between grey and colour, and L*a*b* planes built on CColor.
#include <cstring>
#include <memory>

#include "core/Color.h"
#include "core/LineLoop.h"
#include "core/MessageTable.h"
#include "core/OrbImage.h"

namespace {

constexpr int kTitleChangePlanes = 6170;
constexpr int kTitleToGray = 6129;
constexpr int kTitleToColor = 6130;

bool SameSize(const COrbImage& a, const COrbImage& b) {
  return a.GetWidth() == b.GetWidth() && a.GetHeight() == b.GetHeight();
}

// (raw − min) / range, with a window that is not positive switching its channel off.
double Normalise(float raw, double min, double range) { return range > 0 ? (raw - min) / range : 0.0; }

}  // namespace

int COrbImage::ToGray() {
  if (GetPlanes() == 1) return 1;
  const double min = GetLevelMin(0);
  const double max = GetLevelMax(0);
  if (!ChangePlanes(1, GetProgressHandle(), CMessageTable::Load(kTitleChangePlanes))) return 0;
  SetLevel(0, min, max);
  return 1;
}

int COrbImage::ToGray(COrbImage* src, int showProgress) {
  if (GetPlanes() == 1) return 1;
  if (!src || src->IsEmpty() || !SameSize(*this, *src)) return 0;
  if (!ToGray()) return 0;
  const int width = GetWidth();
  const int colorSrc = src->GetPlanes() >= 3;
  ShowProgressInit(showProgress, kTitleToGray, GetHeight());
  CLineLoop(*this).Run(0, GetHeight(), [&](int y) {
    const float* r = src->GetImageAdr(0, y, 0);
    const float* g = colorSrc ? src->GetImageAdr(0, y, 1) : r;
    const float* b = colorSrc ? src->GetImageAdr(0, y, 2) : r;
    float* out = GetImageAdr(0, y, 0, 0);
    for (int x = 0; x < width; ++x) out[x] = ToRaw(src->GetPixelBright256f(r + x, g + x, b + x), 0);
  });
  ShowProgressEnd(nullptr);
  return 1;
}

int COrbImage::ToColor() {
  if (GetPlanes() >= 3) return 1;
  const double min = GetLevelMin(0);
  const double max = GetLevelMax(0);
  if (!ChangePlanes(3, GetProgressHandle(), CMessageTable::Load(kTitleChangePlanes))) return 0;
  for (int p = 0; p < 3; ++p) SetLevel(p, min, max);
  return 1;
}

int COrbImage::ToColor(COrbImage* src, int showProgress) {
  if (GetPlanes() >= 3) return 1;
  if (!src || src->IsEmpty() || !SameSize(*this, *src)) return 0;
  if (!ToColor()) return 0;
  const std::size_t lineBytes = std::size_t(GetWidth()) * sizeof(float);
  const int colorSrc = src->GetPlanes() >= 3;
  ShowProgressInit(showProgress, kTitleToColor, GetHeight());
  CLineLoop(*this).Run(0, GetHeight(), [&](int y) {
    for (int p = 0; p < 3; ++p) std::memcpy(GetImageAdr(0, y, p, 0), src->GetImageAdr(0, y, colorSrc ? p : 0), lineBytes);
  });
  ShowProgressEnd(nullptr);
  return 1;
}

// ---- L*a*b* planes ------------------------------------------------------------------------

namespace {

// The colour of one pixel on the 0 .. 1 display scale of given windows.
struct CLabWindow {
  double min[3];
  double range[3];

  static CLabWindow Of(const COrbImage& image) {
    CLabWindow w{};
    const int color = image.GetPlanes() >= 3;
    for (int k = 0; k < 3; ++k) {
      w.min[k] = image.GetLevelMin(color ? k : 0);
      w.range[k] = image.GetLevelRange(color ? k : 0);
    }
    return w;
  }

  void ToLab(const COrbImage& image, int x, int y, CColor& c) const {
    const int color = image.GetPlanes() >= 3;
    double v[3];
    for (int k = 0; k < 3; ++k) v[k] = Normalise(*image.GetImageAdr(x, y, color ? k : 0), min[k], range[k]);
    c.RgbToLab(v[0], v[1], v[2]);
  }
};

// A new image of the given planes filled line by line with values from the pixel's L*a*b*.
template <class Fill>
COrbImage* MakeLabImage(const COrbImage& src, int planes, Fill fill) {
  if (src.IsEmpty()) return nullptr;
  auto out = std::make_unique<COrbImage>(-32, src.GetWidth(), src.GetHeight(), planes);
  if (out->IsEmpty()) return nullptr;
  const CLabWindow window = CLabWindow::Of(src);
  const int width = src.GetWidth();
  CLineLoop(*out).Run(0, src.GetHeight(), [&](int y) {
    float* lines[3] = {};
    for (int p = 0; p < planes; ++p) lines[p] = out->GetImageAdr(0, y, p, 0);
    CColor c;
    for (int x = 0; x < width; ++x) {
      window.ToLab(src, x, y, c);
      fill(c, lines, x);
    }
  });
  return out.release();
}

}  // namespace

COrbImage* COrbImage::MakeLPlane() {
  COrbImage* out = MakeLabImage(*this, 1, [](const CColor& c, float** l, int x) { l[0][x] = float(c.GetL()); });
  if (out) out->SetLevel(0, 0.0, 100.0);
  return out;
}

COrbImage* COrbImage::MakeLabPlane() {
  COrbImage* out = MakeLabImage(*this, 3, [](const CColor& c, float** l, int x) {
    l[0][x] = float(c.GetL());
    l[1][x] = float(c.Geta());
    l[2][x] = float(c.Getb());
  });
  if (out) {
    out->SetLevel(0, 0.0, 100.0);
    out->SetLevel(1, -100.0, 100.0);
    out->SetLevel(2, -100.0, 100.0);
  }
  return out;
}

COrbImage* COrbImage::MakeAbPlane(int which) {
  COrbImage* out = which == 0
                       ? MakeLabImage(*this, 1, [](const CColor& c, float** l, int x) { l[0][x] = float(c.Geta()); })
                       : MakeLabImage(*this, 1, [](const CColor& c, float** l, int x) { l[0][x] = float(c.Getb()); });
  if (out) out->SetLevel(0, -100.0, 100.0);
  return out;
}

float COrbImage::GetPixelL(int x, int y, double minR, double minG, double minB, double rangeR, double rangeG,
                           double rangeB) {
  const CLabWindow window{{minR, minG, minB}, {rangeR, rangeG, rangeB}};
  CColor c;
  window.ToLab(*this, x, y, c);
  return static_cast<float>(c.GetL());
}

void COrbImage::GetPixelAb(int x, int y, double minR, double minG, double minB, double rangeR, double rangeG, double* a,
                           double* b, double rangeB) {
  const CLabWindow window{{minR, minG, minB}, {rangeR, rangeG, rangeB}};
  CColor c;
  window.ToLab(*this, x, y, c);
  if (a) *a = c.Geta();
  if (b) *b = c.Getb();
}
