// False colour: a brightness mapped through one of six colour maps.
#pragma once
#include "core/OrbImage.h"

/// @brief Paints an image in false colour. The input is src's value on the 0..255 scale of
/// its level window (the bright value 0.299 R + 0.587 G + 0.114 B for a colour source),
/// stretched so that `low` maps to 0 and `high` to 255, then coloured by GetFalseColor with
/// `scheme` and `cycles`. The colour (0..255 per component) is written to the target's three
/// planes through their level windows.
///
/// Schemes: 0 rainbow (blue, cyan, green, yellow, red); 1 heat (black, red, yellow, white);
/// 2 cool (black, blue, cyan, white); 3 jet (dark blue to dark red through cyan and yellow);
/// 4 diverging (blue, white, red; for residual and difference images); 5 cubehelix (a helix
/// whose brightness rises monotonically, so it prints well in grey); other schemes give grey.
///
/// Contract: src has the target's width and height (it may be the target). A grey target is
/// first made three-plane, each plane taking plane 0's level window. high ≤ low means no
/// stretch (low 0, high 255). A level range of 0 in src leaves the image unchanged.
/// rect (null: whole image) is clipped; rows run in parallel. Progress title 6117.
class CImgFalseColor : public COrbImage {
 public:
  void Do(double low, double high, int scheme, int cycles, COrbImage* src, CRect* rect, int progress);
  /// v is clamped to [0, 255]; with cycles > 0 it becomes fmod(cycles·v, 256) clamped again,
  /// repeating the map that many times. r, g, b receive 0..255.
  static void GetFalseColor(double v, int scheme, int cycles, double* r, double* g, double* b);
};
