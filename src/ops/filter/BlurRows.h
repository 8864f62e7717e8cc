// Row frame shared by the filters that compare each work pixel with its blur.
#pragma once
#include <cmath>
#include <vector>

#include "core/LineLoop.h"
#include "core/OrbImage.h"
#include "kernels/FilterMatrix.h"
#include "platform/Parallel.h"

namespace qrn::filter {

/// A clipped rectangle, right and bottom exclusive.
struct Area {
  int left = 0, top = 0, right = 0, bottom = 0;
  bool IsEmpty() const { return right <= left || bottom <= top; }
  int Width() const { return right - left; }
  int Height() const { return bottom - top; }
};

inline Area ClipArea(const COrbImage& image, const CRect* rect) {
  Area a;
  image.NormalizeRect(rect, a.left, a.top, a.right, a.bottom);
  return a;
}

/// True when work can serve as the source of a filter writing image.
inline bool SameGeometry(const COrbImage& image, const COrbImage* work) {
  return work && !work->IsEmpty() && work->GetWidth() == image.GetWidth() &&
         work->GetHeight() == image.GetHeight() && work->GetPlanes() >= image.GetPlanes();
}

/// Largest blur size of the filters: a Gaussian of sigma 100 already spans 563 pixels, and
/// the kernel matrix grows with the square of its side.
constexpr double kMaxBlurSize = 100.0;

/// Size clamped to 0 .. kMaxBlurSize; NaN and negative sizes blur nothing.
inline double ClampBlurSize(double size) { return size > 0.0 ? (size < kMaxBlurSize ? size : kMaxBlurSize) : 0.0; }

/// Blur kernel of the filters: type 1 is a flat disc of radius round(radius) (at least
/// minDisc), any other type a Gaussian of sigma radius.
inline void BuildBlurKernel(CFilterMatrix& m, int kernelType, double radius, int minDisc = 0) {
  radius = ClampBlurSize(radius);
  if (kernelType == 1) {
    const int r = static_cast<int>(std::lround(radius));
    m.Disc(r < minDisc ? minDisc : r);
  } else {
    m.Gaussian(radius);
  }
}

/// Per-thread float rows, indexed by the thread's slot in the team.
class RowScratch {
 public:
  RowScratch(int rows, int width)
      : m_rows(rows), m_width(width),
        m_data(static_cast<size_t>(CParallel::GetMaxThreads() < 1 ? 1 : CParallel::GetMaxThreads())) {}
  /// Row i of the calling thread's scratch.
  float* Row(int i) {
    std::vector<float>& buf = m_data[static_cast<size_t>(CParallel::GetThreadNum())];
    if (buf.empty()) buf.resize(static_cast<size_t>(m_rows) * static_cast<size_t>(m_width));
    return buf.data() + static_cast<size_t>(i) * static_cast<size_t>(m_width);
  }

 private:
  int m_rows, m_width;
  std::vector<std::vector<float>> m_data;
};

/// out[i] = the image's blur evaluator of plane at (x + i, y), for i in [0, n).
inline void BlurRow(COrbImage& image, int plane, int x, int y, int n, float* out) {
  image.CalcFilterProcLine(x, y, n, out, plane);
}

/// The frame of a blur-comparing filter on image from work: builds one blur per plane with
/// kernel(p, matrix), runs the rows of every plane in parallel under titleId and calls
/// row(p, x, y, src, blur, dst, n) with the area's first column x, the work row, its blur and
/// the destination row. Releases the evaluators on both ends. Returns false when nothing could run.
template <class KernelFn, class RowFn>
bool RunBlurFilter(COrbImage& image, COrbImage* work, CRect* rect, int titleId, int progress, KernelFn kernel,
                   RowFn row) {
  const Area a = ClipArea(image, rect);
  if (!SameGeometry(image, work) || a.IsEmpty()) return false;
  const int planes = image.GetPlanes();
  std::vector<CFilterMatrix> matrix(static_cast<size_t>(planes));
  image.ClearFilterProc();
  for (int p = 0; p < planes; ++p) {
    kernel(p, matrix[static_cast<size_t>(p)]);
    image.MakeFilterProc(work, &matrix[static_cast<size_t>(p)], p, 1);
  }
  RowScratch scratch(1, a.Width());
  image.ShowProgressInit(progress, titleId, a.Height() * planes);
  CLineLoop(image).RunPlanes(planes, a.top, a.bottom, [&](int p, int y) {
    float* blur = scratch.Row(0);
    BlurRow(image, p, a.left, y, a.Width(), blur);
    const float* src = work->GetImageAdr(a.left, y, p, VM_READONLY);
    float* dst = image.GetImageAdr(a.left, y, p, 0);
    row(p, a.left, y, src, blur, dst, a.Width());
  });
  image.UnlockAll();
  work->UnlockAll();
  image.ShowProgressEnd(nullptr);
  image.ClearFilterProc();
  return true;
}

}  // namespace qrn::filter
