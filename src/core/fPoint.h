// A point kept both in integer and in double coordinates.
#pragma once
#include "platform/Point.h"

/// @brief A point with integer x, y and double fx, fy kept in step. Set(int, int) stores the
/// integers and their exact doubles; Set(double, double) stores the doubles and the integers
/// truncated toward zero. -1 in the integers marks an unset standard point.
class CfPoint : public CPoint {
 public:
  double fx = 0.0;
  double fy = 0.0;

  CfPoint() = default;
  CfPoint(int ix, int iy) { Set(ix, iy); }
  CfPoint(double dx, double dy) { Set(dx, dy); }

  void Set(int ix, int iy) {
    x = ix;
    y = iy;
    fx = ix;
    fy = iy;
  }
  void Set(double dx, double dy) {
    fx = dx;
    fy = dy;
    x = static_cast<int>(dx);
    y = static_cast<int>(dy);
  }
  /// Valid when neither integer coordinate is -1.
  bool IsValid() const { return x != -1 && y != -1; }
};
