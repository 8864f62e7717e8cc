// Median, rank, Laplacian and unsharp-mask filters and the neighbourhood evaluators.
#pragma once
#include "core/OrbImage.h"

/// @brief Small neighbourhood filters and the per-pixel evaluators that other filters reuse.
///
/// Kernel types: 0 cross (5 samples, radius 1), 1 3x3 square (9, radius 1), 2 5x5 square
/// without its corners (21, radius 2); any other type is the centre pixel alone (radius 0).
///
/// Line arrays: an evaluator reads a neighbourhood through 2R+1 line pointers (rows y-R..y+R,
/// each pointing at column x) filled by SetFilterAdr. Rows outside the image are reflected:
/// r < 0 reads row -r, r >= height reads 2 height - r - 1 (so row 0 reads rows 1, 0, 1 and
/// the last row h-2, h-1, h-1). Columns outside flip the sign of their offset: x-1 reads x+1
/// at column 0, x+1 reads x-1 at the last column, x-2 reads x+2 when x < 2, x+2 reads x-2
/// when x >= width-2. The column rule uses this image's width. An image narrower or lower
/// than the kernel needs is read with the folded index clamped into the image, so every
/// read stays inside it.
///
/// Filters: `this` is the destination; `work` holds the source pixels and must have the
/// destination's width, height and planes (normally a copy made before filtering); the
/// filters read only `work` and write only `this`, so in-place filtering is done by passing
/// a copy. A work image of another geometry, or a null one, writes nothing. rect (null:
/// whole image) has each side clamped to the image; a rectangle with right <= left or
/// bottom <= top writes nothing.
///
/// Caller's errors by design: a rank outside 0..n-1 (MinMaxFilter and GetMinMaxRaw clamp it
/// into range rather than read outside the samples, so it acts as the minimum or maximum), a
/// plane outside the image and coordinates outside the image in the (x, y) evaluators (not
/// checked). NaN samples give unspecified median and rank results.
///
/// Threads: the four filters run their rows on the thread team; every output depends only
/// on the work image, so the thread count changes no value. With CQrnSys::SIMD() bit 1 the
/// interior columns are computed four at a time with the same results.
class CImgFilter : public COrbImage {
 public:
  /// Median of the kernel samples. Progress 6120, rows per plane; Escape stops the filter.
  void MedianFilter(int type, COrbImage* work, CRect* rect, int progress);
  /// rank-th smallest kernel sample (0: minimum, an erosion; n-1: maximum, a dilation).
  /// Progress 6153.
  void MinMaxFilter(int type, int rank, COrbImage* work, CRect* rect, int progress);
  /// |Laplacian| + the plane's level minimum, so a flat area becomes the level minimum.
  /// Progress 6143.
  void LaplacianFilter(int type, COrbImage* work, CRect* rect, int progress);
  /// Unsharp mask on one plane: with M the weighted mean and P the plain mean of the kernel,
  /// and C the work pixel, writes (C - M) amount + C where |P / C - 1| >= threshold, and C
  /// elsewhere. Progress 6122.
  void UnSharpMask(double amount, int type, double weight, double threshold, COrbImage* work, int plane, CRect* rect,
                   int progress);
  /// The same on every plane.
  void UnSharpMask(double amount, int type, double weight, double threshold, COrbImage* work, CRect* rect,
                   int progress);

  /// New image of (width + 2b) x (height + 2b) (b = border, 2 when 0) with this image's
  /// planes and levels, the pixels at (b, b) and the border reflected with the row rule on
  /// both axes. The caller owns (deletes) it; null when memory runs out. Progress 6126.
  COrbImage* MakeFilterWork(int border, int progress);
  /// As MakeFilterWork, for digital development. Progress 6125. A colour image's work copy
  /// has a fourth plane: the luminance of GetDDLuminance over the whole bordered area (plane
  /// 0's level minimum and range for all three colours), with plane 0's levels.
  COrbImage* MakeDDWork(int border, int progress);
  /// Luminance of digital development: the mean of the three display values taken on one
  /// level window (lo, rg), brought back to raw; rounded to float after each scaled term,
  /// after their sum and after the division by 3.
  static float GetDDLuminance(float r, float g, float b, double lo, double rg);

  /// Weighted mean (S w + C) / ((n-1) w + 1) of the neighbours' float sum S and the centre
  /// C; plainMean (when not null) receives (S + C) / n. Other types return the centre and
  /// leave plainMean alone.
  float GetMeanRaw(float** lines, int x, int type, double weight, double* plainMean);
  float GetMeanRaw(int x, int y, int type, double weight, int plane);
  float GetMeanGray(float** lines, int x, int type, double weight, int plane);
  float GetMean256f(float** lines, int x, int type, double weight, int plane);
  float GetMedianRaw(float** lines, int x, int type);
  float GetMedianRaw(int x, int y, int type, int plane);
  float GetMedianGray(float** lines, int x, int type, int plane);
  float GetMedian256f(float** lines, int x, int type, int plane);
  float GetMinMaxRaw(float** lines, int x, int type, int rank);
  /// |Laplacian| + level minimum of plane. Type 0: 4C - (L + U + R + D); type 1:
  /// 8C - (8 neighbours); type 2: kernel 1 -2 1 / -2 4 -2 / 1 -2 1; other: C.
  float GetLaplacianRaw(float** lines, int x, int type, int plane);
  float GetLaplacianGray(float** lines, int x, int type, int plane);
  float GetLaplacian256f(float** lines, int x, int type, int plane);
  /// |8 C - sum of the 8 neighbours| on this image, coordinates clamped to the image.
  float HighPassRaw(int x, int y, int plane);

  static int GetMeanR(int type) { return type == 0 || type == 1 ? 1 : (type == 2 ? 2 : 0); }
  static int GetMedianR(int type) { return GetMeanR(type); }
  static int GetMinMaxR(int type) { return GetMeanR(type); }
  /// Number of samples of a kernel type: 5, 9, 21, or 1.
  static int GetSampleCount(int type) { return type == 0 ? 5 : (type == 1 ? 9 : (type == 2 ? 21 : 1)); }

  /// Clips rect (null: whole image): left and right each clamped to 0..width, top and
  /// bottom to 0..height, not reordered.
  void CalcRect(int& left, int& top, int& right, int& bottom, CRect* rect);
  /// Offset that centres this image in other when this one is smaller in either direction:
  /// ((other.width - width) / 2, (other.height - height) / 2); otherwise dx, dy unchanged.
  void CalcShift(int& dx, int& dy, int ignored, COrbImage* other);
  /// Fills lines[0..2 radius] with the addresses of column x of rows y-radius..y+radius of
  /// plane, rows reflected as above; lockFlags go to GetImageAdr (bit 1 locks the line).
  void SetFilterAdr(int x, int y, int plane, int radius, float** lines, unsigned int lockFlags);
};
