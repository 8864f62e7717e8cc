// Integer point and size value types.
#pragma once

struct tagPOINT {
  int x;
  int y;
};

/// @brief An integer position; members x and y are public.
class CPoint : public tagPOINT {
 public:
  CPoint() : tagPOINT{0, 0} {}
  CPoint(int px, int py) : tagPOINT{px, py} {}
  bool operator==(const CPoint& o) const { return x == o.x && y == o.y; }
  bool operator!=(const CPoint& o) const { return !(*this == o); }
  CPoint operator+(const CPoint& o) const { return {x + o.x, y + o.y}; }
  CPoint operator-(const CPoint& o) const { return {x - o.x, y - o.y}; }
};

/// @brief An integer extent; members cx and cy are public.
class CSize {
 public:
  int cx = 0;
  int cy = 0;
  CSize() = default;
  CSize(int w, int h) : cx(w), cy(h) {}
  bool operator==(const CSize& o) const { return cx == o.cx && cy == o.cy; }
  bool operator!=(const CSize& o) const { return !(*this == o); }
};
