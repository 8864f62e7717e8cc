// Digital development (local tone compression) and the star and nebula filters.
#pragma once
#include "core/OrbImage.h"

/// @brief Astronomical tone filters: digital development and the star and nebula filters.
///
/// Digital development divides each pixel by a blurred copy of its neighbourhood plus an
/// offset and multiplies by a constant chosen so that a pixel whose value and blur both equal
/// the image's median keeps its value; faint nebulosity is lifted and bright cores are held
/// back. It is a two-call protocol on the destination image:
///   1. DigitalDvlp1 builds this image's per-plane blur evaluators over the work image and
///      fills gLow, gRange, offset and mult;
///   2. DigitalDvlp2 (gamma before the division) or DigitalDvlpGmAftrDdp (gamma after it)
///      writes the result, as often as the caller likes with edited offsets and multipliers.
///
/// Caller's contract for digital development:
/// - Arrays hold three entries; only as many planes as this image has are read or written,
///   except the level arrays of DigitalDvlpGetMinMax (always three ranges). background[0] is
///   the only background read.
/// - The work image holds the source pixels: either this image's geometry, or a bordered copy
///   centred on it (as MakeDDWork makes, larger by the same border on every side); pixel
///   (x, y) of this image then reads work pixel (x + border, y + border). A null work image, a
///   work image smaller than this one or with fewer planes makes the calls do nothing (after
///   their debugger line).
/// - The blur evaluators are built once per plane and kept (a built plane is not rebuilt):
///   call ClearFilterProc() before preparing again with other kernels or another work image,
///   and keep the work image alive and unchanged until the last DigitalDvlp2. Do not raise
///   the thread count between DigitalDvlp1 and DigitalDvlp2.
/// - filterPlane[p]: 0..2 takes the blur of that plane, 3 or more the mean of the three
///   planes' blurs. On a grey image every value takes the plane-0 blur.
/// - A level range of zero makes the normalised scale infinite; such a plane is copied from
///   the work image unchanged.
class CImgFilterSpecial : public COrbImage {
 public:
  /// Builds the blur of each plane (kernelType 0: Gaussian of sigma[p]; 1: disc of circle
  /// radius sigma[p] with off-centre weight discWeight; any other type returns at once),
  /// takes gLow and gRange from DigitalDvlpGetMinMax(minMaxMode), and sets offset[0..2] to
  /// the background and mult[0..2] to the median plus that offset, both in 0..255 units of
  /// plane 0 (through the gamma curve when gammaAfter is 0).
  void DigitalDvlp1(double* background, int kernelType, double* sigma, double discWeight, double* gamma,
                    int minMaxMode, COrbImage* work, float* gLow, float* gRange, float* offset, float* mult,
                    int gammaAfter);
  /// Development with the gamma applied to the pixel and to its blur before the division.
  /// enable 0 writes the (gamma-mapped) work pixel. Progress 6116, one unit per row and plane.
  void DigitalDvlp2(int enable, double* gamma, COrbImage* work, int* filterPlane, float* gLow, float* gRange,
                    float* offset, float* mult, CRect* rect, int progress);
  /// Development with the gamma applied to the divided value on the 0..255 scale; gLow and
  /// gRange are not used. Progress 6116.
  void DigitalDvlpGmAftrDdp(int enable, double* gamma, COrbImage* work, int* filterPlane, float* gLow,
                            float* gRange, float* offset, float* mult, CRect* rect, int progress);
  /// Level source of the gamma curve. mode 0: 0 .. work maximum; 1: work minimum .. work
  /// maximum; 2: work minimum .. plane-0 level maximum of the work image; 3: this image's level
  /// minimum .. work maximum; any other mode leaves min and max untouched. On a three-plane
  /// image planes 1 and 2 are then carried over from plane 0 through the display scale.
  /// range[k] = max[k] - min[k] for k = 0, 1, 2.
  void DigitalDvlpGetMinMax(int mode, COrbImage* work, float* min, float* max, float* range);
  /// Maps a display window (low, high) through the gamma curve of each plane whose gamma is
  /// not 1, when the window lies inside the level source of mode; a window whose high level
  /// is above the source's maximum is left alone, one whose low level is below its minimum
  /// has only high mapped.
  void DigitalDvlpGetLevel(double* gamma, int mode, COrbImage* work, double* low, double* high);

  /// Number of samples in the star-sharpening neighbourhood of the given radius: the pixels of
  /// a disc of radius ceil(radius) (1 for a radius of 0 or less). StarSharpFilter clamps each
  /// result into the range of exactly these samples.
  int GetStarSharpFilterNum(double radius);

  // Star and nebula filters. Each plane p is compared with its blur B (kernelType 0: Gaussian
  // of sigma radius; 1: flat disc of radius round(radius); other types act as 0) of the work
  // image, which must have this image's geometry and planes (otherwise nothing is written).
  // The excess e = C - B of a work pixel C over its blur is what marks a star: a point
  // source stands out of its neighbourhood, smooth nebulosity does not. Thresholds are in raw
  // units. Radii and the mask's growth are clamped to 0 .. 100 (NaN counts as 0). rect
  // (null: whole image) is clipped; an empty or inverted one writes nothing.
  // These filters use this image's blur evaluators and release them (ClearFilterProc) on
  // both ends, so do not call them between DigitalDvlp1 and DigitalDvlp2.

  /// Brightens point sources without dark halos: where e > threshold the output is
  /// C + amount (e - threshold), elsewhere C. Same values on every plane. Progress 6173.
  void StarEnhanceFilter(double radius, double amount, double threshold, int kernelType, COrbImage* work,
                         CRect* rect, int progress);
  /// StarEnhanceFilter with a radius, amount and threshold per plane. Progress 6173.
  void StarEnhanceFilter2(double* radius, double* amount, double* threshold, int kernelType, COrbImage* work,
                          CRect* rect, int progress);
  /// Sharpens stars without ringing: where |e| > threshold the output is C + amount e,
  /// clamped into the minimum .. maximum of the work samples in the disc of radius
  /// ceil(radius) around the pixel (GetStarSharpFilterNum samples), so no overshoot or dark
  /// ring appears beyond what the neighbourhood holds; elsewhere C. Progress 6165.
  void StarSharpFilter(double* radius, double* amount, double* threshold, int kernelType, COrbImage* work,
                       CRect* rect, int progress);
  /// Smooths faint nebulosity and keeps stars: where e <= threshold the output is
  /// C + strength (B - C) (strength clamped to 0..1: 1 gives the blur), elsewhere C, so star
  /// cores keep their full sharpness. Progress 6174.
  void NebularSmootherFilter(double* radius, double* strength, double* threshold, int kernelType,
                             COrbImage* work, CRect* rect, int progress);
  /// Star mask: a pixel is a star where e > threshold on any plane; the mask grows by a disc
  /// of radius grow (rounded, 0 for none) to cover the stars' wings. Every plane of this image
  /// receives 1 on the mask and 0 elsewhere inside rect (ApplyMask_Do0_x keeps what is 1), and
  /// each plane's level window becomes 0 .. 1. Progress 6196.
  void StaryMask(double radius, double threshold, double grow, int kernelType, COrbImage* work, CRect* rect,
                 int progress);
};
