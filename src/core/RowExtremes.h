// The smallest and largest sample of a row, with vectors, as a plain in-order scan finds them.
#pragma once

/// @brief Finds min and max of n floats as `if (v < min) min = v` and `if (v > max) max = v`
/// do from min = +∞ and max = −∞: NaN is never taken, and of equal values the first met
/// stays. Vector lanes keep that rule; equal values from different lanes are the same bits
/// except for zeros, so a row whose extreme is zero is scanned once more in order.
class CRowExtremes {
 public:
  static void Find(const float* v, int n, float& min, float& max);
};
