// Statistical normalisation: each plane moved to a given mean and standard deviation.
#pragma once
#include "core/OrbImage.h"

/// @brief Per plane p of src, with μ = Σv/N and σ = sqrt(Σv²/N − μ²) over all samples
/// (double sums): with mean only every sample is shifted by mean[p] − μ; with sigma only it
/// becomes (v − μ)·sigma[p]/σ + μ; with both it is first shifted, then scaled by sigma[p]/σ
/// about mean[p]. Arithmetic in double, results stored as float.
///
/// Contract: mean and sigma hold one float per plane, either may be null (both null: nothing
/// is done). The target has src's geometry (src may be the target), otherwise nothing is
/// written. A constant plane (σ = 0) cannot be scaled and only receives the shift. Planes and
/// lines run in order on the calling thread. With both, the shift (stored as float) and the
/// scaling are applied to each sample in one pass. Progress title 6197, one unit per line and
/// step (the sums, the shift, the scaling).
class CImgNormalize : public COrbImage {
 public:
  void Do(COrbImage* src, float* mean, float* sigma, int progress);
  /// Plane of src shifted by shift into the same plane of the target.
  void NormalizeAve(const COrbImage* src, int plane, double shift);
  /// Plane of src scaled by factor about center into the same plane of the target.
  void NormalizeSigma(const COrbImage* src, int plane, double center, double factor);
};
