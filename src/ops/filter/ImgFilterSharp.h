// Sharpening: standard, edge-only, unsharp mask and sub-band unsharp mask.
#pragma once
#include "core/OrbImage.h"

/// @brief Sharpening filters that add the detail d = C - B of each work pixel C over its blur
/// B back onto the pixel: output = C + w f d, with w = weight / 100 (weight is a percentage).
///
/// Per plane p the caller passes:
/// - radius[p]: the blur size (Gaussian sigma; for SharpFilter the radius of a flat disc,
///   rounded, at least 1). Radii are clamped to 0.1 .. 50.
/// - weight[p]: strength in percent (100 adds the detail once more).
/// - minOn[p], min[p], minBuf[p]: lower threshold. When on, pixels whose work value C is
///   at or below min are left alone (the sky background, where sharpening only amplifies
///   noise), pixels at or above min + minBuf get the full correction, and between them the
///   correction rises linearly.
/// - maxOn[p], max[p], maxBuf[p]: upper threshold, the mirror image: pixels at or above max
///   are left alone (saturated star cores), at or below max - maxBuf get the full correction.
/// - brighterOn[p], brighter[p]: when on, the darkening part of the correction (d < 0, which
///   draws dark rings around stars) is scaled by 1 - brighter / 100, clamped to 0 .. 1:
///   brighter 100 only ever brightens.
/// f is the product of the threshold factors (1 when a switch is off). Thresholds are raw
/// sample values.
///
/// Caller's contract: `this` is the destination; work holds the source pixels and must have
/// this image's width, height and planes, otherwise nothing is written. rect (null: whole
/// image) is clipped to the image; an empty or inverted rectangle writes nothing. Arrays hold
/// three entries; only as many planes as the image has are read. The filters build this
/// image's blur evaluators over work and release them (ClearFilterProc) on both ends. Each
/// scalar overload applies the same values to every plane.
class CImgFilterSharp : public COrbImage {
 public:
  /// Sharpening against the mean of a flat disc of radius round(radius) (at least 1).
  /// Progress 6121.
  void SharpFilter(double radius, double weight, int minOn, double min, double minBuf, int maxOn, double max,
                   double maxBuf, int brighterOn, double brighter, COrbImage* work, CRect* rect, int progress);
  void SharpFilter(double* radius, double* weight, int* minOn, double* min, double* minBuf, int* maxOn, double* max,
                   double* maxBuf, int* brighterOn, double* brighter, COrbImage* work, CRect* rect, int progress);
  /// Unsharp mask that changes edges only: as UnSharpMask, but a pixel whose detail |d| is
  /// below 1 % of its plane's level range (flat sky, smooth nebulosity, noise) is left
  /// alone. Progress 6142.
  void SharpEdgeFilter(double radius, double weight, int minOn, double min, double minBuf, int maxOn, double max,
                       double maxBuf, int brighterOn, double brighter, COrbImage* work, CRect* rect, int progress);
  void SharpEdgeFilter(double* radius, double* weight, int* minOn, double* min, double* minBuf, int* maxOn,
                       double* max, double* maxBuf, int* brighterOn, double* brighter, COrbImage* work, CRect* rect,
                       int progress);
  /// Unsharp mask with a Gaussian blur of sigma radius[p] (radius trunc(max(1, 2.8 sigma + 1))).
  /// Progress 6122.
  void UnSharpMask(double radius, double weight, int minOn, double min, double minBuf, int maxOn, double max,
                   double maxBuf, int brighterOn, double brighter, COrbImage* work, CRect* rect, int progress);
  void UnSharpMask(double* radius, double* weight, int* minOn, double* min, double* minBuf, int* maxOn, double* max,
                   double* maxBuf, int* brighterOn, double* brighter, COrbImage* work, CRect* rect, int progress);
  /// Multi-scale unsharp mask: bands (clamped to 1 .. 6) Gaussian blurs G_k of sigma
  /// radius 2^k split the detail into octaves d_k = G_{k-1} - G_k (G_{-1} = C), and
  /// output = C + w sum_k d_k / 2^k, so finer bands are boosted more than coarse ones.
  /// No thresholds. Progress 6147.
  void SubBandUnSharpMask(double radius, double weight, int bands, COrbImage* work, CRect* rect, int progress);
  void SubBandUnSharpMask(double* radius, double* weight, int bands, COrbImage* work, CRect* rect, int progress);
};
