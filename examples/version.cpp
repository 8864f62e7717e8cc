// Prints the library version and renders one pixel through a level window.
#include <cstdio>

#include "qrnimg.h"

int main() {
  COrbImage image(-32, 4, 4, 1);
  image.SetPixelGrayRaw(1, 1, 750.0f, 0);
  image.SetLevel(0, 500.0, 1000.0);
  std::printf("qrnimg %s: sample 750 in levels 500..1000 shows as %d of 255\n", QrnImgVersion(),
              image.GetPixelGray256(1, 1, 0));
  return 0;
}
