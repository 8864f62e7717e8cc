// qrn demo: the synthetic session runs end to end, its report bears out what the calibration
// steps are for, and a second run writes the same frames.
#include <regex>
#include <sstream>

#include "cli/CliSupport.h"

namespace clitest {
namespace {

struct SkyRow {
  double noise, spread, median;
};

// The three rows of the report's sky table, in their order.
std::vector<SkyRow> SkyTable(const std::string& report) {
  const std::regex row(R"((raw|dark and flat calibrated|gradient removed) +([0-9.]+) +([0-9.]+) +([0-9.]+))");
  std::vector<SkyRow> rows;
  for (auto it = std::sregex_iterator(report.begin(), report.end(), row); it != std::sregex_iterator(); ++it)
    rows.push_back({std::stod((*it)[2]), std::stod((*it)[3]), std::stod((*it)[4])});
  return rows;
}

TEST_F(CliTest, DemoCalibratesTheSessionAndWritesTheSameFramesEveryRun) {
  const fs::path first = dir / "first", second = dir / "second";
  for (const fs::path& out : {first, second}) {
    const Result r = Run({"demo", "-o", out.string()});
    ASSERT_EQ(r.rc, 0) << r.err;
  }
  const std::vector<std::string> frames = {
      "raw/bias.fits",     "raw/dark_m15C.fits", "raw/dark_m05C.fits",    "raw/flat.fits",
      "raw/light_1.fits",  "raw/light_2.fits",   "calibrated_1.fits",     "calibrated_2.fits",
      "developed.fits",    "before.png",         "gradient_removed.fits", "calibrated.png",
      "after.png"};
  for (const std::string& name : frames) {
    ASSERT_TRUE(fs::exists(first / name)) << name;
    EXPECT_GT(fs::file_size(first / name), 1000u) << name;
    EXPECT_EQ(Slurp(first / name), Slurp(second / name)) << name;
  }

  // Dark and flat take out the bias, the dark current and the vignetting, so the sky drops
  // to its own level and evens out; the gradient's removal evens it out further. Noise about
  // the median falls with each, as the hot pixels and the slopes leave it.
  const std::vector<SkyRow> sky = SkyTable(Slurp(first / "report.txt"));
  ASSERT_EQ(sky.size(), 3u);
  EXPECT_LT(sky[1].median, sky[0].median - 300.0);
  EXPECT_LT(sky[1].spread, sky[0].spread);
  EXPECT_LT(sky[2].spread, sky[1].spread / 2.0);
  EXPECT_LT(sky[1].noise, sky[0].noise);
  EXPECT_LT(sky[2].noise, sky[1].noise);
}

}  // namespace
}  // namespace clitest
