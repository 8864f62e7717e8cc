// Sample planes for the running-sum tests: the kinds of data whose sums soon dwarf their samples.
#pragma once

#include <cmath>
#include <cstddef>
#include <random>
#include <vector>

namespace qrntest {

/// A sky of counts with fractions and a star every 997 samples, a normalised frame of values
/// in [0, 1), and integer counts (which tie on a coarse enough grid), each width × rows.
struct SumPlanes {
  std::vector<float> counts, normalised, integers;
};

inline SumPlanes MakeSumPlanes(int width, int rows, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> sky(900.0f, 1100.0f), unit(0.0f, 1.0f);
  SumPlanes p;
  const std::size_t n = std::size_t(width) * rows;
  p.counts.resize(n);
  p.normalised.resize(n);
  p.integers.resize(n);
  for (std::size_t i = 0; i < n; ++i) {
    p.counts[i] = i % 997 == 0 ? 60000.0f : sky(rng);
    p.normalised[i] = unit(rng);
    p.integers[i] = std::floor(sky(rng));
  }
  return p;
}

}  // namespace qrntest
