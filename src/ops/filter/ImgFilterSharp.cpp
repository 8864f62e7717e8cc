// Standard, edge-only, unsharp-mask and sub-band sharpening.
#include "ops/filter/ImgFilterSharp.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "ops/filter/BlurRows.h"

using namespace qrn::filter;

namespace {

enum class Method { kStandard, kEdge, kUnsharp };

/// The thresholds and brighter switch of one plane, turned into a per-pixel factor.
struct SharpPlane {
  double w = 0.0;
  bool minOn = false, maxOn = false;
  double min = 0.0, minBuf = 0.0, max = 0.0, maxBuf = 0.0;
  double darken = 1.0;  // factor of a negative correction
  double edge = 0.0;    // smallest |detail| that counts as an edge

  /// Share of the correction that pixel value c receives.
  double Factor(double c) const {
    double f = 1.0;
    if (minOn) {
      if (c <= min) return 0.0;
      if (minBuf > 0.0 && c < min + minBuf) f *= (c - min) / minBuf;
    }
    if (maxOn) {
      if (c >= max) return 0.0;
      if (maxBuf > 0.0 && c > max - maxBuf) f *= (max - c) / maxBuf;
    }
    return f;
  }

  float Apply(float c, float blur) const {
    const double d = static_cast<double>(c) - blur;
    if (std::fabs(d) < edge) return c;
    const double f = Factor(c);
    if (f == 0.0) return c;
    return static_cast<float>(c + w * f * (d < 0.0 ? d * darken : d));
  }
};

double ClampRadius(double r) { return r > 50.0 ? 50.0 : (r >= 0.1 ? r : 0.1); }

void Sharpen(CImgFilterSharp& image, Method method, double* radius, double* weight, int* minOn, double* min,
             double* minBuf, int* maxOn, double* max, double* maxBuf, int* brighterOn, double* brighter,
             COrbImage* work, CRect* rect, int progress) {
  SharpPlane k[CImage::kMaxPlanes];
  for (int p = 0; p < image.GetPlanes(); ++p) {
    SharpPlane& c = k[p];
    c.w = weight[p] / 100.0;
    c.minOn = minOn[p] != 0, c.min = min[p], c.minBuf = minBuf[p];
    c.maxOn = maxOn[p] != 0, c.max = max[p], c.maxBuf = maxBuf[p];
    if (brighterOn[p]) c.darken = std::clamp(1.0 - brighter[p] / 100.0, 0.0, 1.0);
    if (method == Method::kEdge) c.edge = 0.01 * std::fabs(image.GetLevelRange(p));
  }
  const int title = method == Method::kStandard ? 6121 : (method == Method::kEdge ? 6142 : 6122);
  RunBlurFilter(
      image, work, rect, title, progress,
      [&](int p, CFilterMatrix& m) {
        BuildBlurKernel(m, method == Method::kStandard ? 1 : 0, ClampRadius(radius[p]), 1);
      },
      [&](int p, int, int, const float* src, const float* blur, float* dst, int n) {
        for (int i = 0; i < n; ++i) dst[i] = k[p].Apply(src[i], blur[i]);
      });
}

/// Copies one set of scalar arguments into three-plane arrays.
struct ScalarArgs {
  double radius[3], weight[3], min[3], minBuf[3], max[3], maxBuf[3], brighter[3];
  int minOn[3], maxOn[3], brighterOn[3];
  ScalarArgs(double r, double w, int mnOn, double mn, double mnBuf, int mxOn, double mx, double mxBuf, int bOn,
             double b) {
    for (int p = 0; p < 3; ++p) {
      radius[p] = r, weight[p] = w, minOn[p] = mnOn, min[p] = mn, minBuf[p] = mnBuf;
      maxOn[p] = mxOn, max[p] = mx, maxBuf[p] = mxBuf, brighterOn[p] = bOn, brighter[p] = b;
    }
  }
};

}  // namespace

void CImgFilterSharp::SharpFilter(double* radius, double* weight, int* minOn, double* min, double* minBuf,
                                  int* maxOn, double* max, double* maxBuf, int* brighterOn, double* brighter,
                                  COrbImage* work, CRect* rect, int progress) {
  Sharpen(*this, Method::kStandard, radius, weight, minOn, min, minBuf, maxOn, max, maxBuf, brighterOn, brighter,
          work, rect, progress);
}

void CImgFilterSharp::SharpEdgeFilter(double* radius, double* weight, int* minOn, double* min, double* minBuf,
                                      int* maxOn, double* max, double* maxBuf, int* brighterOn, double* brighter,
                                      COrbImage* work, CRect* rect, int progress) {
  Sharpen(*this, Method::kEdge, radius, weight, minOn, min, minBuf, maxOn, max, maxBuf, brighterOn, brighter, work,
          rect, progress);
}

void CImgFilterSharp::UnSharpMask(double* radius, double* weight, int* minOn, double* min, double* minBuf,
                                  int* maxOn, double* max, double* maxBuf, int* brighterOn, double* brighter,
                                  COrbImage* work, CRect* rect, int progress) {
  Sharpen(*this, Method::kUnsharp, radius, weight, minOn, min, minBuf, maxOn, max, maxBuf, brighterOn, brighter,
          work, rect, progress);
}

void CImgFilterSharp::SharpFilter(double radius, double weight, int minOn, double min, double minBuf, int maxOn,
                                  double max, double maxBuf, int brighterOn, double brighter, COrbImage* work,
                                  CRect* rect, int progress) {
  ScalarArgs a(radius, weight, minOn, min, minBuf, maxOn, max, maxBuf, brighterOn, brighter);
  SharpFilter(a.radius, a.weight, a.minOn, a.min, a.minBuf, a.maxOn, a.max, a.maxBuf, a.brighterOn, a.brighter, work,
              rect, progress);
}

void CImgFilterSharp::SharpEdgeFilter(double radius, double weight, int minOn, double min, double minBuf, int maxOn,
                                      double max, double maxBuf, int brighterOn, double brighter, COrbImage* work,
                                      CRect* rect, int progress) {
  ScalarArgs a(radius, weight, minOn, min, minBuf, maxOn, max, maxBuf, brighterOn, brighter);
  SharpEdgeFilter(a.radius, a.weight, a.minOn, a.min, a.minBuf, a.maxOn, a.max, a.maxBuf, a.brighterOn, a.brighter,
                  work, rect, progress);
}

void CImgFilterSharp::UnSharpMask(double radius, double weight, int minOn, double min, double minBuf, int maxOn,
                                  double max, double maxBuf, int brighterOn, double brighter, COrbImage* work,
                                  CRect* rect, int progress) {
  ScalarArgs a(radius, weight, minOn, min, minBuf, maxOn, max, maxBuf, brighterOn, brighter);
  UnSharpMask(a.radius, a.weight, a.minOn, a.min, a.minBuf, a.maxOn, a.max, a.maxBuf, a.brighterOn, a.brighter, work,
              rect, progress);
}

void CImgFilterSharp::SubBandUnSharpMask(double radius, double weight, int bands, COrbImage* work, CRect* rect,
                                         int progress) {
  double r[3] = {radius, radius, radius}, w[3] = {weight, weight, weight};
  SubBandUnSharpMask(r, w, bands, work, rect, progress);
}

void CImgFilterSharp::SubBandUnSharpMask(double* radius, double* weight, int bands, COrbImage* work, CRect* rect,
                                         int progress) {
  const Area a = ClipArea(*this, rect);
  if (!SameGeometry(*this, work) || a.IsEmpty()) return;
  bands = std::clamp(bands, 1, kFilterSlots);
  const int planes = GetPlanes();
  // Band k of plane p blurs with sigma radius[p] 2^k, evaluated in filter slot k.
  std::vector<CFilterMatrix> matrix(static_cast<size_t>(planes * bands));
  ClearFilterProc();
  for (int p = 0; p < planes; ++p)
    for (int b = 0; b < bands; ++b) {
      CFilterMatrix& m = matrix[static_cast<size_t>(p * bands + b)];
      BuildBlurKernel(m, 0, ClampRadius(radius[p]) * std::ldexp(1.0, b));
      MakeFilterProcEx(b, work, &m, p, 1);
    }
  ShowProgressInit(progress, 6147, a.Height() * planes);
  CLineLoop(*this).RunPlanes(planes, a.top, a.bottom, [&](int p, int y) {
    const int n = a.Width();
    const float* src = work->GetImageAdr(a.left, y, p, VM_READONLY);
    float* dst = GetImageAdr(a.left, y, p, 0);
    const double w = weight[p] / 100.0;
    for (int i = 0; i < n; ++i) {
      double previous = src[i], detail = 0.0;
      for (int b = 0; b < bands; ++b) {
        const double g = CalcFilterProcEx(b, a.left + i, y, p);
        detail += (previous - g) / std::ldexp(1.0, b);
        previous = g;
      }
      dst[i] = static_cast<float>(src[i] + w * detail);
    }
  });
  UnlockAll();
  work->UnlockAll();
  ShowProgressEnd(nullptr);
  ClearFilterProc();
}
