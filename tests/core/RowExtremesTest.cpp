#include "core/RowExtremes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "core/CoreTest.h"

namespace {

TEST(CRowExtremes, EveryLengthAndSpecialMatchesTheInOrderScan) {
  // Rows of every length up to a few vectors, with NaN and infinities scattered, and signed
  // zeros in either order where the first one met must be kept; both vector widths.
  const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
  std::mt19937 rng(17);
  std::uniform_real_distribution<float> sample(-5.0f, 5.0f);
  std::uniform_int_distribution<int> pick(0, 11);
  int wrong = 0;
  coretest::OnEveryWidth([&](int) {
    for (int n = 0; n <= 40; ++n)
      for (int trial = 0; trial < 30; ++trial) {
        std::vector<float> v(n);
        float mn = inf, mx = -inf;  // the in-order scan
        for (float& s : v) {
          const int k = pick(rng);
          s = k == 0 ? nan : k == 1 ? inf : k == 2 ? -inf : k == 3 ? 0.0f : k == 4 ? -0.0f : sample(rng);
          if (trial % 2) s = std::fabs(s) == inf ? 1.0f : s;  // half the rows: zeros are the extremes more often
          if (trial % 3 == 0 && s > 0.0f) s = -s;             // a third: all below zero
          if (s < mn) mn = s;
          if (s > mx) mx = s;
        }
        float gotMin = 0, gotMax = 0;
        CRowExtremes::Find(v.data(), n, gotMin, gotMax);
        wrong += !coretest::SameBits(gotMin, mn) || !coretest::SameBits(gotMax, mx);
      }
  });
  EXPECT_EQ(wrong, 0);
}

}  // namespace
