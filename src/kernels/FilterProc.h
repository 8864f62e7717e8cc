// Per-plane separable convolution evaluator of an image.
#pragma once
#include <vector>

class COrbImage;
class CFilterMatrix;

/// @brief Evaluates a kernel on one plane of a source image as a separable convolution: the
/// centre row of the kernel (its 2r+1 "taps") is applied along the line, then down the
/// columns. A kernel that is not separable is reduced to its centre row applied twice.
///
/// Each thread of a parallel region has its own ring of 2r+1 filtered lines, selected by
/// CParallel::GetThreadNum(), so concurrent Calc calls from one region are safe. A thread
/// that walks rows downward loads one new line per row; a jump reloads the whole ring.
///
/// Edges: along a line the column is clamped to 0..width-1. Rows are folded with the
/// filters' reflection rule (FoldRow). An image with fewer rows than the radius is clamped
/// after that single fold, so it gives defined values but not a mirror image.
///
/// Contract: the source image and kernel must outlive the evaluator and stay unchanged
/// (rebuild with MakeBuf after changing either, or after the maximum thread count changes).
/// Coordinates are not checked: x in 0..width-1, y in 0..height-1. Calls from a thread whose
/// number is not below the thread count of the build show "Over!" and return 0.
class CFilterProc {
 public:
  static constexpr int kDefaultWidth = 50;

  CFilterProc() = default;
  /// Builds at once, with the taps normalised to sum 1.
  CFilterProc(COrbImage* image, CFilterMatrix* m, int plane);
  virtual ~CFilterProc() = default;
  CFilterProc(const CFilterProc&) = delete;
  CFilterProc& operator=(const CFilterProc&) = delete;

  /// (Re)builds for plane of image with kernel m; the per-thread rings are reallocated only
  /// when their size changes. normalise divides the taps by their sum (a zero sum is kept).
  /// Returns 1.
  int MakeBuf(COrbImage* image, CFilterMatrix* m, int plane, int normalise);
  /// Filtered value at (x, y): ProcHorizontal(x, y) then ProcVertical(x).
  float Calc(int x, int y);
  /// Filtered values of count pixels of row y from column x into out; the same values as
  /// count calls of Calc, computed four columns at a time.
  void CalcLine(int x, int y, int count, float* out);
  /// Brings the calling thread's ring to row y (lines y-r .. y+r filtered along the row).
  void ProcHorizontal(int x, int y);
  /// Sum over k of tap[k] times the ring line of row y+k at column x.
  float ProcVertical(int x);

  /// Releases the buffers.
  void Empty();
  int IsEmpty() const { return m_buffers.empty() ? 1 : 0; }
  /// Resets the per-thread ring positions so that the next call reloads every line.
  void Init();

  int GetPlane() const { return m_plane; }
  int GetRadius() const { return m_radius; }
  const float* GetTaps() const { return m_coef.data(); }

  /// Row reflection shared by the filters: r < 0 becomes -r (the edge row is not repeated),
  /// r >= size becomes 2 size - r - 1 (it is). One fold only; the result is then clamped to
  /// 0..size-1 so that a radius larger than the image reads inside it.
  static int FoldRow(int r, int size) {
    if (r < 0) r = -r;
    else if (r >= size) r = 2 * size - r - 1;
    return r < 0 ? 0 : (r >= size ? size - 1 : r);
  }

 protected:
  /// Index of the calling thread's ring, or -1 (after "Over!") when it has none.
  int Slot() const;
  /// Filters source row `row` (folded) along the line into ring line `line` of slot.
  void LoadLine(int slot, int line, int row);

  COrbImage* m_image = nullptr;
  CFilterMatrix* m_matrix = nullptr;
  int m_radius = 0;
  int m_taps = 1;
  int m_width = kDefaultWidth;
  int m_plane = 0;
  int m_threads = 0;
  std::vector<std::vector<float>> m_buffers;
  std::vector<float> m_coef;
  std::vector<int> m_lastRow;
  std::vector<int> m_lastColumn;
  std::vector<int> m_ringStart;
};
