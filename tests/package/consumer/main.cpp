// An outside program: create an image, set levels, read a pixel back on the display scale.
#include <qrnimg.h>

#include <cstdio>

int main() {
  COrbImage image(-32, 64, 48, 1);
  image.SetPixelGrayRaw(10, 20, 1500.0f, 0);
  image.SetLevel(0, 1000.0, 3000.0);
  const int shown = image.GetPixelGray256(10, 20, 0);  // (1500 - 1000) / 2000 x 255 = 63.75
  std::printf("qrnimg %s: pixel shows as %d\n", QrnImgVersion(), shown);
  return shown == 63 ? 0 : 1;
}
