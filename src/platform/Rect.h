// Integer rectangle with exclusive right and bottom edges.
#pragma once
#include <algorithm>

#include "platform/Point.h"

struct tagRECT {
  int left;
  int top;
  int right;
  int bottom;
};

/// @brief A rectangle; right and bottom are exclusive. Members are public.
class CRect : public tagRECT {
 public:
  CRect() : tagRECT{0, 0, 0, 0} {}
  CRect(int l, int t, int r, int b) : tagRECT{l, t, r, b} {}
  CRect(const tagRECT& r) : tagRECT(r) {}  // NOLINT: implicit like the framework type
  CRect(CPoint topLeft, CSize size) : tagRECT{topLeft.x, topLeft.y, topLeft.x + size.cx, topLeft.y + size.cy} {}

  int Width() const { return right - left; }
  int Height() const { return bottom - top; }
  CSize Size() const { return {Width(), Height()}; }
  CPoint TopLeft() const { return {left, top}; }
  CPoint BottomRight() const { return {right, bottom}; }
  CPoint CenterPoint() const { return {(left + right) / 2, (top + bottom) / 2}; }
  /// True when the rectangle has no area (width or height not positive).
  bool IsRectEmpty() const { return right <= left || bottom <= top; }
  /// True when every edge is zero.
  bool IsRectNull() const { return left == 0 && top == 0 && right == 0 && bottom == 0; }
  bool PtInRect(CPoint p) const { return p.x >= left && p.x < right && p.y >= top && p.y < bottom; }
  void SetRect(int l, int t, int r, int b) { left = l; top = t; right = r; bottom = b; }
  void SetRectEmpty() { SetRect(0, 0, 0, 0); }
  void NormalizeRect() {
    if (left > right) std::swap(left, right);
    if (top > bottom) std::swap(top, bottom);
  }
  void OffsetRect(int dx, int dy) { left += dx; right += dx; top += dy; bottom += dy; }
  void InflateRect(int dx, int dy) { left -= dx; right += dx; top -= dy; bottom += dy; }
  /// Sets this to the overlap of a and b; returns false (and empties this) when they do not overlap.
  bool IntersectRect(const CRect& a, const CRect& b) {
    SetRect(std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right), std::min(a.bottom, b.bottom));
    if (IsRectEmpty()) { SetRectEmpty(); return false; }
    return true;
  }
  bool operator==(const CRect& o) const {
    return left == o.left && top == o.top && right == o.right && bottom == o.bottom;
  }
  bool operator!=(const CRect& o) const { return !(*this == o); }
};
