// qrn develop: its options reach the development, and out-of-range ones are refused.
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
  WriteFits(P("in.fits"), FLOAT_IMG, kW, kH, 1, Nebula());
  // A colour frame develops with a fourth, luminance plane in its work copy.
  std::vector<double> colour;
  for (double scale : {1.0, 0.8, 0.6})
    for (double s : Nebula()) colour.push_back(float(s * scale));
  WriteFits(P("colour.fits"), FLOAT_IMG, kW, kH, 3, colour);
  const Result r = Run({"develop", P("colour.fits"), "-o", P("colour_out.fits"), "--gamma", "2", "--method", "normal"});
  ASSERT_EQ(r.rc, 0) << r.err;
  const auto developedColour = ReadFits(P("colour_out.fits")).values;
  ASSERT_EQ(developedColour.size(), colour.size());
  EXPECT_TRUE(std::all_of(developedColour.begin(), developedColour.end(), [](double s) { return std::isfinite(s); }));
  EXPECT_NE(developedColour, colour);

  auto develop = [&](const std::string& name, std::vector<std::string> extra) {
    // Levels over the whole range, so that the blob and the star are not clipped away.
    std::vector<std::string> args = {"develop", P("in.fits"), "-o", P(name), "--sigma", "2",
                                     "--method", "normal", "--low", "0", "--high", "1"};
    args.insert(args.end(), extra.begin(), extra.end());
    const Result r = Run(args);
    EXPECT_EQ(r.rc, 0) << name << ": " << r.err;
    return ReadFits(P(name)).values;
  };
  const auto gauss = develop("gauss.fits", {});
  const auto disc = develop("disc.fits", {"--kernel", "disc"});
  const auto after = develop("after.fits", {"--gamma", "2", "--gamma-after"});
  const auto before = develop("before.fits", {"--gamma", "2"});
  for (const auto* result : {&gauss, &disc, &after, &before}) {
    ASSERT_EQ(result->size(), std::size_t(kW) * kH);
    EXPECT_TRUE(std::all_of(result->begin(), result->end(), [](double s) { return std::isfinite(s); }));
  }
  EXPECT_NE(gauss, disc);
  EXPECT_NE(after, before);
  EXPECT_NE(before, gauss);
  // Development compresses the range: the star is no longer 60 times the blob above the sky.
  const std::size_t sky = 0, blob = 18 * kW + 20, star = 10 * kW + 35;
  EXPECT_LT((gauss[star] - gauss[sky]) / (gauss[blob] - gauss[sky]), 60.0 / 2.0);
  EXPECT_GT(gauss[blob], gauss[sky]);
}

TEST_F(DevelopTest, OutOfRangeOptionsAreRefused) {
  WriteFits(P("in.fits"), FLOAT_IMG, kW, kH, 1, Nebula());
  const struct {
    std::vector<std::string> extra;
    const char* message;
  } cases[] = {
      {{"--sigma", "0"}, "must be in (0, 100]"},
      {{"--sigma", "101"}, "must be in (0, 100]"},
      {{"--kernel", "box"}, "must be gauss or disc"},
      {{"--gamma", "0"}, "must be positive"},
  };
  for (const auto& c : cases) {
    std::vector<std::string> args = {"develop", P("in.fits"), "-o", P("out.fits")};
    args.insert(args.end(), c.extra.begin(), c.extra.end());
    const Result r = Run(args);
    EXPECT_NE(r.rc, 0) << c.extra[0];
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
  }
  EXPECT_FALSE(fs::exists(P("out.fits")));
}
