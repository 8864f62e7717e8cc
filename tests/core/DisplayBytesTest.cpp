// Display bytes of whole rows, single and as grey BGR pixels, against the per-sample rule, on
// every vector path.
#include "core/DisplayBytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "core/CoreTest.h"

namespace {

// The rule written out once more: 0 at or below the minimum, 255 at or above the maximum,
// else (s − min) / range × 255 in double, clamped and truncated; NaN gives 0.
BYTE RuleByte(float s, double min, double max, double range) {
  if (std::isnan(s) || s <= min) return 0;
  if (s >= max) return 255;
  const double t = (double(s) - min) / range * 255.0;
  if (!(t > 0.0)) return 0;
  return t >= 255.0 ? 255 : BYTE(int(t));
}

// Samples a row renderer finds hardest: both neighbours of every float where the byte
// changes (found by bisection on the rule), integers across the window, the window's ends
// and their neighbours, specials, and uniform samples from a little beyond both ends.
std::vector<float> HardSamples(double min, double max, double range, std::mt19937& rng) {
  const float inf = std::numeric_limits<float>::infinity();
  std::vector<float> s = {std::numeric_limits<float>::quiet_NaN(), inf, -inf, 0.0f, -0.0f,
                          float(min), float(max), std::nextafter(float(min), inf), std::nextafter(float(max), -inf),
                          std::nextafter(float(max), inf), std::nextafter(float(min), -inf)};
  for (int k = 1; k < 256; ++k) {
    float lo = float(min) - 1.0f, hi = float(max) + 1.0f;
    if (RuleByte(hi, min, max, range) < k) continue;
    for (int i = 0; i < 200 && std::nextafter(lo, inf) < hi; ++i) {
      const float mid = lo + (hi - lo) / 2;
      if (mid <= lo || mid >= hi) break;
      (RuleByte(mid, min, max, range) >= k ? hi : lo) = mid;
    }
    for (float v : {lo, hi, std::nextafter(lo, -inf), std::nextafter(hi, inf)}) s.push_back(v);
  }
  for (double v = std::ceil(min); v <= max && s.size() < 4000; v += std::max(1.0, std::floor((max - min) / 500)))
    s.push_back(float(v));
  std::uniform_real_distribution<double> uniform(min - 0.1 * (max - min), max + 0.1 * (max - min));
  for (int i = 0; i < 3000; ++i) s.push_back(float(uniform(rng)));
  std::shuffle(s.begin() + 11, s.end(), rng);  // the specials stay first
  return s;
}

struct Window {
  double min, max, range;
};

int CountWrongBytes(const Window& w, const std::vector<float>& samples) {
  const CDisplayBytes bytes(w.min, w.max, w.range);
  std::vector<BYTE> row(samples.size()), triple(3 * samples.size());
  bytes.Row(samples.data(), int(samples.size()), row.data());
  bytes.RowTriple(samples.data(), int(samples.size()), triple.data());
  int wrong = 0;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const BYTE expected = RuleByte(samples[i], w.min, w.max, w.range);
    wrong += row[i] != expected;
    wrong += bytes(samples[i]) != expected;
    for (int c = 0; c < 3; ++c) wrong += triple[3 * i + c] != expected;
  }
  return wrong;
}

TEST(CDisplayBytesTest, EveryStepEdgeAndSpecialSampleFollowsTheRuleOnEveryWidth) {
  // Windows a host really uses (8-bit and 16-bit data shown whole, where integer samples land
  // exactly on the steps, a stretched sky, negative levels), ranges wider than the window, a
  // window far from zero where the float estimate is not used, a tiny window and an empty one;
  // then random windows.
  std::vector<Window> windows = {
      {0, 255, 255},          {0, 255, 256},           {0, 65535, 65535},
      {1012.5, 3871.25, 3871.25 - 1012.5},             {-1e4, -12.75, 9987.25},
      {0, 1, 1},              {100, 200, 400},         {1e6, 1e6 + 3, 3},
      {0.5, 0.5 + 1e-5, 1e-5}, {7, 7, 0},              {0.0, 1e30, 1e30}};
  std::mt19937 rng(11);
  std::uniform_real_distribution<double> level(-5e4, 5e4);
  for (int trial = 0; trial < 60; ++trial) {
    double lo = level(rng), hi = level(rng);
    if (lo > hi) std::swap(lo, hi);
    windows.push_back({lo, hi, hi - lo});
  }
  coretest::OnEveryWidth([&](int wide) {
    for (const Window& w : windows) {
      const std::vector<float> hard = HardSamples(w.min, w.max, w.range, rng);
      EXPECT_EQ(CountWrongBytes(w, hard), 0)
          << "window [" << w.min << ", " << w.max << "] range " << w.range << " wide " << wide;
      // The specials at the head of the list, in rows short enough that they fall in a tail
      // or in one block and a tail.
      for (std::size_t n = 1; n <= 70; ++n)
        EXPECT_EQ(CountWrongBytes(w, std::vector<float>(hard.begin(), hard.begin() + n)), 0) << "row of " << n;
    }
  });
}

}  // namespace
