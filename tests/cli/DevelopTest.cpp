// qrn develop: its options reach the development.
#include <algorithm>
#include <cmath>

#include "CliSupport.h"

using namespace clitest;

namespace {

constexpr int kW = 48, kH = 40;

// A faint sky with a bright extended blob and a star: what development is for.
std::vector<double> Nebula() {
  std::vector<double> v(std::size_t(kW) * kH);
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kW; ++x) {
      const double blob = 3000.0 * std::exp(-((x - 20.0) * (x - 20.0) + (y - 18.0) * (y - 18.0)) / 60.0);
      const double star = 20000.0 * std::exp(-((x - 35.0) * (x - 35.0) + (y - 10.0) * (y - 10.0)) / 2.0);
      v[std::size_t(y) * kW + x] = float(200.0 + 0.5 * ((x * 7 + y * 3) % 11) + blob + star);
    }
  return v;
}

}  // namespace

class DevelopTest : public CliTest {};

TEST_F(DevelopTest, KernelAndGammaOrderChangeTheResult) {
  // A colour frame develops with a fourth, luminance plane in its work copy.
  const auto grey = Nebula();
  std::vector<double> colour;
  for (double scale : {1.0, 0.8, 0.6})
    for (double s : grey) colour.push_back(float(s * scale));
  WriteFits(P("in.fits"), FLOAT_IMG, kW, kH, 1, grey);
  WriteFits(P("colour.fits"), FLOAT_IMG, kW, kH, 3, colour);
  auto develop = [&](const std::string& in, const std::string& name, std::vector<std::string> extra) {
    // Levels over the whole range, so that the blob and the star are not clipped away.
    std::vector<std::string> args = {"develop", P(in), "-o", P(name), "--sigma", "2",
                                     "--method", "normal", "--low", "0", "--high", "1"};
    args.insert(args.end(), extra.begin(), extra.end());
    const Result r = Run(args);
    EXPECT_EQ(r.rc, 0) << name << ": " << r.err;
    const auto out = ReadFits(P(name)).values;
    EXPECT_EQ(out.size(), in == "in.fits" ? grey.size() : colour.size()) << name;
    EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](double s) { return std::isfinite(s); })) << name;
    return out;
  };
  EXPECT_NE(develop("colour.fits", "colour_out.fits", {"--gamma", "2"}), colour);
  const auto gauss = develop("in.fits", "gauss.fits", {});
  const auto disc = develop("in.fits", "disc.fits", {"--kernel", "disc"});
  const auto after = develop("in.fits", "after.fits", {"--gamma", "2", "--gamma-after"});
  const auto before = develop("in.fits", "before.fits", {"--gamma", "2"});
  EXPECT_NE(gauss, disc);
  EXPECT_NE(after, before);
  EXPECT_NE(before, gauss);
  // Development compresses the range: the star is no longer 60 times the blob above the sky.
  ASSERT_EQ(gauss.size(), grey.size());
  const std::size_t sky = 0, blob = 18 * kW + 20, star = 10 * kW + 35;
  EXPECT_LT((gauss[star] - gauss[sky]) / (gauss[blob] - gauss[sky]), 60.0 / 2.0);
  EXPECT_GT(gauss[blob], gauss[sky]);
}
