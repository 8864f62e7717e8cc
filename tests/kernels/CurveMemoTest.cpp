#include "kernels/CurveMemo.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "kernels/Vec4.h"

namespace {

float FromBits(std::uint32_t b) {
  float v;
  std::memcpy(&v, &b, sizeof v);
  return v;
}

// Looks up every sample, remembers 2·v + 1 for the missing ones, and returns how many missed.
int FindAndFill(CCurveMemo& memo, const std::vector<float>& v, std::vector<float>& out) {
  std::vector<int> missing(v.size());
  out.assign(v.size(), 0.0f);
  const int count = memo.Find(v.data(), static_cast<int>(v.size()), out.data(), missing.data());
  for (int k = 0; k < count; ++k) {
    const int i = missing[k];
    EXPECT_TRUE(k == 0 || i > missing[k - 1]) << "positions listed in order";
    out[i] = 2.0f * v[i] + 1.0f;
    memo.Remember(v[i], out[i]);
  }
  return count;
}

TEST(CCurveMemo, AnswersOnlyInputsItRemembersOnEveryWidth) {
  for (int wide : {2, 1, 0}) {  // 512-bit (where the processor has it), eight-wide, four-wide
    qrn::simd::SetWideVectors(wide > 0);
    qrn::simd::SetWidestVectors(wide > 1);
    CCurveMemo memo;
    memo.Reset(-7.0f);
    // Integer counts with repeats, a length off the vector width, and two NaN patterns:
    // distinct keys, even though they compare unequal to themselves as floats.
    std::vector<float> v;
    for (int i = 0; i < 203; ++i) v.push_back(float(20000 + (i * 37) % 61));
    v.push_back(FromBits(0x7fc00001u));
    v.push_back(FromBits(0x7fc00002u));
    std::vector<float> out;
    const int first = FindAndFill(memo, v, out);
    EXPECT_GE(first, 61 + 2);  // every distinct value at least once
    std::vector<float> again;
    EXPECT_EQ(FindAndFill(memo, v, again), 0) << "wide " << wide;
    for (std::size_t i = 0; i < v.size(); ++i)
      EXPECT_EQ(std::memcmp(&again[i], &out[i], sizeof(float)), 0) << i << " wide " << wide;
    // Values never remembered are missing, never answered with a neighbour's result.
    std::vector<float> fresh = {20061.0f, 19999.0f, 0.5f, -0.0f, 0.0f};
    EXPECT_EQ(FindAndFill(memo, fresh, out), static_cast<int>(fresh.size())) << "wide " << wide;
    // Empty entries answer their own key, the all-ones pattern, with the value given to Reset.
    memo.Reset(42.0f);
    EXPECT_EQ(FindAndFill(memo, std::vector<float>(9, FromBits(0xffffffffu)), out), 0) << "wide " << wide;
    for (float y : out) EXPECT_EQ(y, 42.0f) << "wide " << wide;
  }
  qrn::simd::SetWideVectors(1);
  qrn::simd::SetWidestVectors(1);
}

TEST(CCurveMemo, SpreadsIntegerCountsAndFineStepsWithoutCollisions) {
  // Neighbouring integer counts from 20000 (bit patterns 2^9 apart) and neighbouring floats
  // near 0.5 (one unit apart): ten thousand distinct values in a table of 32768 entries. A
  // hash that piles them onto few entries would miss again on the second pass.
  for (float start : {20000.0f, 0.5f}) {
    // A first call of one repeated value (a flat's constant border) must not fix the hash.
    std::vector<float> border(64, start);
    std::vector<float> v;
    float x = start;
    for (int i = 0; i < 10000; ++i, x = start >= 1.0f ? x + 1.0f : std::nextafter(x, 1.0f)) v.push_back(x);
    CCurveMemo memo;
    memo.Reset(0.0f);
    std::vector<float> out;
    FindAndFill(memo, border, out);
    EXPECT_GE(FindAndFill(memo, v, out), 9999);
    EXPECT_LT(FindAndFill(memo, v, out), 100) << start;
  }
}

}  // namespace
