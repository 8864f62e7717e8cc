// Automatic display levels from image statistics, their inverses, and the statistics they use.
#pragma once
#include "core/OrbImage.h"

/// @brief Chooses a display level window per plane from the statistics of the image or of a
/// rectangle of it and writes it with SetLevel; never changes a sample. Estimators: histogram
/// mode and sky width (DoByHistogram), mean and deviation (DoByMean), median and deviation
/// about it (DoByMedian), histogram percentiles (DoByNormal). Get* read the present window
/// back into the parameters that would reproduce it.
///
/// Contract: rect (null: whole image) is clipped edge by edge to the image. `separate`
/// nonzero treats each plane of a colour image alone; zero treats a colour image as one
/// luminance image (COrbImage::CalcLuminance: every plane on plane 0's level scale, then
/// 0.299 R + 0.587 G + 0.114 B) and sets all planes at once. Grey images use plane 0.
/// An empty region, a plane out of range or a zero deviation leaves the levels unchanged
/// (the Get* inverses then return low = high = 0, or the defaults 0 and 1 for GetByNormal).
/// A NaN sample takes part in no comparison, so it counts in no histogram or range.
class CImgAutoLevel : public COrbImage {
 public:
  CImgAutoLevel() = default;
  CImgAutoLevel(const CImgAutoLevel& other) : COrbImage(other) {}
  CImgAutoLevel& operator=(const CImgAutoLevel& other) {
    COrbImage::operator=(other);
    return *this;
  }
  ~CImgAutoLevel() override = default;

  /// Mode-and-width window: min = mode − width·low, max ≈ mode + width·high. balance: 0 lines
  /// the planes' backgrounds up with plane 0, 1 sets each plane from its own statistics
  /// (any value other than 0, 2, 3 acts as 1), 2 moves plane 0's present window to each
  /// plane's background, 3 does nothing. The upper level is computed as
  /// (mode − min)/(low/(high + low)·255)·255 + min; with low = 0, where that form divides by
  /// zero, it is min + width·high.
  void DoByHistogram(double low, double high, int separate, int balance, CRect* rect);
  /// mean − σ·low … mean + σ·high (population σ).
  void DoByMean(double low, double high, int separate, CRect* rect);
  /// median − s·low … median + s·high, s the root-mean-square deviation about the median.
  void DoByMedian(double low, double high, int separate, CRect* rect);
  /// Percentile window: low, high in (0, 1) are fractions of the 5000-bin histogram, other
  /// values multiples of the data range above its minimum.
  void DoByNormal(double low, double high, int separate, CRect* rect);

  /// method 1: GetByMean, 2: GetByMedian, anything else: GetByNormal.
  void Get(double& low, double& high, int method, CRect* rect);
  void GetByMean(double& low, double& high, CRect* rect);
  void GetByMedian(double& low, double& high, CRect* rect);
  void GetByNormal(double& low, double& high, CRect* rect);

  /// Histogram mode of plane (luminance nonzero: of the luminance of a colour image; on a
  /// grey image luminance is ignored) and, where asked, the background limits: low six
  /// one-sided sigmas below the mode, high where the histogram above the mode thins out to
  /// eleven sparse bins in a row. With luminance 0 the histogram range is the whole plane's
  /// minimum and maximum, whatever the rectangle.
  void GetMode(float* mode, float* low, float* high, int luminance, int plane, CRect* rect);
  /// Median of the region; with sample nonzero and more than 50000 pixels, of k × k block sums
  /// divided by k² (k ≈ sqrt(area / 50000)). An even count takes the upper middle value.
  void GetMedian(float* median, int sample, int luminance, int plane, CRect* rect);
  /// Medians of the four 2 × 2 colour-filter sub-lattices of plane 0, in the order (row 0,
  /// column 0), (0, 1), (1, 0), (1, 1). A sub-lattice without samples gives 0.
  void GetMedianBayer(float* medians, int sample);
  /// @brief Medians of the eight sub-lattices of a honeycomb mosaic frame (plane 0).
  ///
  /// Layout: the stored honeycomb frame repeats in a cell of 4 columns × 2 rows, and each of
  /// the eight positions of the cell is one sub-lattice. medians[i] is the median of the
  /// samples at (x mod 4, y mod 2) = (i mod 4, i / 4), with x and y counted from the corner of
  /// the measured area. For a frame whose camera model contains "finepixs2pro" (ignoring
  /// case) the area leaves out 48 columns at each side and 30 rows at the top and bottom.
  /// With sample nonzero and more than 50000 pixels in the area, blocks of k × k samples of
  /// one sub-lattice are summed, k = round(sqrt(area / 8 / 50000)), so each sub-lattice keeps
  /// about 50000 values; the median divides by k². A sub-lattice without samples gives 0.
  void GetMedianHoneyComb(double* medians, int sample);
  /// Number of samples v of plane in the region with lo ≤ v ≤ hi.
  void GetLevelRangeNum(float lo, float hi, int* count, int plane, CRect* rect);
  /// Population standard deviation of the samples in [lo, hi]; 0 when there are none.
  void GetLevelRangeStd(float lo, float hi, double* sd, int plane, CRect* rect);
  /// Root-mean-square distance from hi of the samples (or luminances) in [lo, hi]; 0 when
  /// there are none.
  void GetLevelDoubleRangeStd(float lo, float hi, double* sd, int luminance, int plane, CRect* rect);
};
