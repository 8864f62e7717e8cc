// Pixel-wise arithmetic with a constant.
#pragma once
#include "core/OrbImage.h"

/// @brief target ← src op value on every plane of the clipped rectangle (null: the whole
/// image): op 0 adds, 1 subtracts (a negative result becomes 0 when clip ≠ 0), 2 multiplies,
/// 3 divides. value is converted to float first. Rows run in parallel (progress title 6109,
/// one unit per row and plane).
///
/// Two paths, chosen by CQrnSys::SIMD() & 2:
/// - four-wide path: division is done as a multiplication by float(1.0 / value) computed in
///   double, which can differ from a true division in the last bit; op 3 with value 0, or an
///   op outside 0…3, writes nothing at all;
/// - scalar path: op 3 divides sample by value; op 3 with value 0, or an op outside 0…3,
///   copies src into the target unchanged.
/// The two paths give identical samples for ops 0 to 2. Their difference for op 3 (last bit,
/// and untouched target versus copied source for value 0) is intended and relied upon.
///
/// Caller's contract: src (null: this image, in place) covers the rectangle and has at
/// least this image's planes.
class CImgCalculation : public COrbImage {
 public:
  void Do(double value, int op, int clip, COrbImage* src, CRect* rect, int progress);
};
