// Small images and the two vector paths for the level-family tests.
#pragma once
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>

#include "core/OrbImage.h"
#include "kernels/Vec4.h"
#include "platform/QrnSys.h"

namespace leveltest {

/// An image whose sample (x, y, p) is f(x, y, p), with every plane's level window min..max.
template <class F>
std::unique_ptr<COrbImage> Make(int w, int h, int planes, double min, double max, F f) {
  auto image = std::make_unique<COrbImage>(-32, w, h, planes);
  for (int p = 0; p < planes; ++p) {
    image->SetLevel(p, min, max);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) image->SetPixelGrayRaw(x, y, static_cast<float>(f(x, y, p)), p);
  }
  return image;
}

/// Deterministic noise spread over and beyond the level window min..max.
inline std::unique_ptr<COrbImage> Noise(int w, int h, int planes, double min, double max, unsigned seed = 7) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> value(static_cast<float>(min - (max - min) / 4),
                                              static_cast<float>(max + (max - min) / 4));
  return Make(w, h, planes, min, max, [&](int, int, int) { return value(rng); });
}

/// True when every sample of a and b has the same bits.
inline bool BitEqual(const COrbImage& a, const COrbImage& b) {
  for (int p = 0; p < a.GetPlanes(); ++p)
    for (int y = 0; y < a.GetHeight(); ++y)
      if (std::memcmp(a.GetImageAdr(0, y, p), b.GetImageAdr(0, y, p), sizeof(float) * a.GetWidth())) return false;
  return true;
}

/// The number of samples of image other than the float of want(x, y, p); NaN matches NaN.
template <class F>
int Mismatches(const COrbImage& image, F want) {
  int wrong = 0;
  for (int p = 0; p < image.GetPlanes(); ++p)
    for (int y = 0; y < image.GetHeight(); ++y)
      for (int x = 0; x < image.GetWidth(); ++x) {
        const float got = image.GetPixelGrayRaw(x, y, p), expected = static_cast<float>(want(x, y, p));
        wrong += !(got == expected || (std::isnan(got) && std::isnan(expected)));
      }
  return wrong;
}

/// Runs a test body on the scalar path (mask 0) and on the detected path (mask −1).
class BothPaths : public ::testing::TestWithParam<int> {
 protected:
  void SetUp() override { CQrnSys::SetSIMD(GetParam()); }
  void TearDown() override { CQrnSys::SetSIMD(-1); }
};

/// Runs body(wide, stream) with the 512-bit rows on (wide 2), only the eight-wide rows on
/// (wide 1) and both off (wide 0), each where the processor has them, and each with streaming
/// stores forced on and off; then restores detection.
template <class Body>
void ForEveryRowVariant(Body body) {
  for (int wide : {2, 1, 0})
    for (int stream : {0, 1}) {
      qrn::simd::SetWideVectors(wide > 0);
      qrn::simd::SetWidestVectors(wide > 1);
      qrn::simd::SetStreamStores(stream);
      body(wide, stream);
    }
  qrn::simd::SetWideVectors(1);
  qrn::simd::SetWidestVectors(1);
  qrn::simd::SetStreamStores(-1);
}

/// Runs op on the scalar path and on the vector path of every row variant and reports
/// whether they all agree bit for bit.
template <class Op>
bool PathsAgree(const COrbImage& src, Op op) {
  COrbImage scalar(src);
  CQrnSys::SetSIMD(0);
  op(scalar);
  bool agree = true;
  CQrnSys::SetSIMD(2);
  ForEveryRowVariant([&](int, int) {
    COrbImage vector(src);
    op(vector);
    agree = agree && BitEqual(scalar, vector);
  });
  CQrnSys::SetSIMD(-1);
  return agree;
}

/// Noise with NaN and both infinities sprinkled in, on rows long enough for full vectors and
/// ragged tails.
inline std::unique_ptr<COrbImage> NoiseWithSpecials(int planes, double min, double max) {
  auto image = Noise(45, 4, planes, min, max, 11);
  const float specials[3] = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                             -std::numeric_limits<float>::infinity()};
  for (int p = 0; p < planes; ++p)
    for (int i = 0; i < 6; ++i) image->SetPixelGrayRaw((i * 13 + p) % 45, i % 4, specials[i % 3], p);
  return image;
}

}  // namespace leveltest
