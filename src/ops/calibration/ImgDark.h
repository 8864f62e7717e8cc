// Dark-frame synthesis from two measured darks.
#pragma once
#include "core/OrbImage.h"

/// @brief Builds a dark frame for another temperature or exposure from two measured darks.
/// The image itself holds the first dark D0 and receives the result; `other` holds the
/// second dark D1. Every sample of every plane is replaced, computed in double and stored
/// as float; rows and planes run in sequence on the calling thread (progress title 6183,
/// one unit per row and plane).
///
/// Caller's contract: `other` must be at least as large as this image (sizes are not
/// checked); a grey `other` serves every plane of a colour image through its plane 0. A
/// null `other` leaves the image unchanged. The reference pairs (mine, others), (t0, t1)
/// and (e0, e1) must differ: equal ones divide by zero and give non-finite samples.
class CImgDark : public COrbImage {
 public:
  /// r = D0 + (D1 − D0)·(target − mine)/(others − mine), then clamped: above D1 gives D1,
  /// otherwise below D0 gives D0 (tested in that order). With target between the two
  /// reference scores (temperatures, say) this is the linear mix; outside it the nearer
  /// measured dark is returned instead of an extrapolation.
  void DoInterpolateByScore(COrbImage* other, double target, double mine, double others, int progress);
  /// r = D0 + (D1 − D0)·(t − t0)/(t1 − t0) + (D1 − D0)·(e − e0)/(e1 − e0), unclamped: two
  /// independent proportions (temperature and exposure time, say) each add their share.
  void DoInterpolateByProportion(COrbImage* other, double t, double t0, double t1, double e0, double e1, double e,
                                 int progress);
  /// x = b when |b − c| ≤ |c − a|, otherwise a; k = 2^(x − c/doubling) (only c is divided);
  /// r = D0 + (D1 − D0)·(t − t0)/(t1 − t0) + D0·k.
  void DoInterpolateByPower(COrbImage* other, double t, double t0, double t1, double a, double b, double c,
                            double doubling, int progress);

 private:
  template <class Rule>
  void Interpolate(COrbImage* other, int progress, bool fusible, const Rule& rule);
};
