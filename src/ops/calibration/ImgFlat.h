// Sky-gradient removal: linear and parabolic background profiles.
#pragma once
#include "core/OrbImage.h"
#include "platform/Point.h"

/// @brief Removes a sky gradient (light pollution, moonlight, vignetting) from src into this
/// image. Every member evaluates a background profile g(x, y) per plane, in image
/// coordinates and in double, and applies it to the clipped rectangle (null: whole image):
///   mode 0 (subtract):     v = src − g
///   mode 1 (proportional): v = (L + base) / (g + L + base) · (src + base) − base
///   other modes:           v = 0
/// where L = level[p] is the sky level that the profile is measured from and base =
/// −min(src's plane minimum as stored by CalcMinMax, floor[p]), 1 when that is 0. Mode 1
/// thus scales each pixel so that a sky at L + g comes down to L, as a multiplicative
/// (vignetting-like) fall-off needs; mode 0 removes an additive glow. Planes run in
/// sequence and the rows of a plane in parallel (progress title 6139, one unit per row and
/// plane).
///
/// Caller's contract: src (null: this image, in place) has this image's geometry; every
/// per-plane array holds one entry per plane of this image. The profile arrays must be
/// given (a null one leaves the image unchanged). level and floor are read in mode 1 only:
/// there a null level counts as 0 and a null floor takes base from the src minimum alone.
/// Run CalcMinMax on src before mode 1. A zero denominator in mode 1 is not guarded.
class CImgFlat : public COrbImage {
 public:
  /// Linear gradient through two points per plane: g = t · slope[p], t = x·ux + y·uy − c,
  /// (ux, uy) the unit vector from p1[p] to p2[p] and c the reference built from the two
  /// y coordinates only ((p1.y + p2.y) / 2, its low 16 bits taken as a signed number).
  void DoFlat(COrbImage* src, CPoint* p1, CPoint* p2, double* slope, double* level, double* floor, int mode,
              CRect* rect, int progress);
  /// Linear gradient from per-pixel rates: g = gradX[p]·(x − cx) + gradY[p]·(y − cy), where
  /// (cx, cy) = ((width − 1)/2, (height − 1)/2) is the image centre, so the sky at the centre
  /// is kept. gradX and gradY are background change per pixel along x and y, as a plane fit
  /// to sky samples gives them.
  void DoFlatPoint(COrbImage* src, double* gradX, double* gradY, double* level, double* floor, int mode,
                   CRect* rect, int progress);
  /// Radial parabolic profile about a centre per plane: g = curvature[p]·((x − cx)² +
  /// (y − cy)²), zero at the centre (the optical axis for vignetting, the darkest sky for a
  /// glow). A negative curvature describes a sky that darkens outwards.
  void DoParabolic(COrbImage* src, CPoint* centre, double* curvature, double* level, double* floor, int mode,
                   CRect* rect, int progress);
  /// As DoParabolic with a sub-pixel centre (centreX[p], centreY[p]).
  void DoParabolicPoint(COrbImage* src, double* centreX, double* centreY, double* curvature, double* level,
                        double* floor, int mode, CRect* rect, int progress);

 private:
  template <class Profile>
  void RemoveGradient(COrbImage* src, const double* level, const double* floor, int mode, CRect* rect, int progress,
                      Profile&& profile);
};
