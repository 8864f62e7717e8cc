// qrn calibrate against the library's own DarkFlat on the same frames; cancelling.
#include <signal.h>

#include <chrono>
#include <thread>

#include "CliSupport.h"

using namespace clitest;

class CalibrateTest : public CliTest {};

TEST_F(CalibrateTest, OutputMatchesTheLibraryCall) {
  const int w = 64, h = 48;
  const auto light = Noise(w * h, 1500, 200, 1), dark = Noise(w * h, 300, 40, 2), flat = Noise(w * h, 20000, 2500, 3);
  WriteFits(P("light.fits"), FLOAT_IMG, w, h, 1, light, {{"EXPTIME", "60"}, {"OBJECT", "M 42"}});
  WriteFits(P("dark.fits"), FLOAT_IMG, w, h, 1, dark);
  WriteFits(P("flat.fits"), FLOAT_IMG, w, h, 1, flat);
  fs::create_directory(P("out"));
  const Result r = Run({"calibrate", "--dark", P("dark.fits"), "--flat", P("flat.fits"), "--pedestal", "0.05",
                        "--flat-gamma", "1.3", P("light.fits"), "-o", P("out")});
  ASSERT_EQ(r.rc, 0) << r.err;

  COrbImage src = ToImage(light, w, h), darkImg = ToImage(dark, w, h), flatImg = ToImage(flat, w, h);
  float mn[3] = {flatImg.GetMinPixel(0)}, mx[3] = {flatImg.GetMaxPixel(0)}, mean[3] = {flatImg.GetAvrGrayRaw(0)};
  COrbImage expected(-32, w, h, 1);
  expected.DarkFlat(&src, &darkImg, &flatImg, mn, mx, mean, 0.05f, 1.3, nullptr, 0);

  const FitsData out = ReadFits(P("out/light.fits"));
  ASSERT_EQ(out.status, 0);
  EXPECT_EQ(Differing(out.values, expected), 0);
  EXPECT_EQ(out.keys.at("OBJECT"), "M 42");
}

TEST_F(CalibrateTest, BiasComesOffTheFlatAndStandsInForAMissingDark) {
  const int w = 20, h = 10;
  std::vector<double> bias(w * h, 100.0), flat(w * h), light(w * h);
  for (int i = 0; i < w * h; ++i) {
    flat[i] = 100.0 + (i % 2 ? 1000.0 : 3000.0);  // response 1 and 3 above the bias
    light[i] = 100.0 + (i % 2 ? 50.0 : 150.0);     // a sky of 50 seen through that response
  }
  WriteFits(P("bias.fits"), FLOAT_IMG, w, h, 1, bias);
  WriteFits(P("flat.fits"), FLOAT_IMG, w, h, 1, flat);
  WriteFits(P("light.fits"), FLOAT_IMG, w, h, 1, light);
  ASSERT_EQ(Run({"calibrate", "--bias", P("bias.fits"), "--flat", P("flat.fits"), P("light.fits"), "-o", P("o")}).rc, 0);
  // With the bias off both, sky / response is the same everywhere, so the pattern vanishes;
  // a flat that kept its bias would leave 50/1100 against 150/3100.
  const auto out = ReadFits(P("o/light.fits")).values;
  ASSERT_EQ(out.size(), std::size_t(w * h));
  EXPECT_GT(out[0], 0.0);
  for (double v : out) EXPECT_FLOAT_EQ(v, out[0]);
}

TEST_F(CalibrateTest, InterruptStopsWithoutOutput) {
  const int w = 4000, h = 3000;
  std::vector<double> v(std::size_t(w) * h, 1000.0);
  WriteFits(P("big.fits"), FLOAT_IMG, w, h, 1, v);
  const auto before = Listing();
  const std::string cmd = Quote(QRN_BINARY) + " filter median --type 2 " + Quote(P("big.fits")) + " -o " +
                          Quote(P("out.fits")) + " 2>" + Quote(P("err.txt"));
  const pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    execl("/bin/sh", "sh", "-c", ("exec " + cmd).c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  kill(pid, SIGINT);
  int status = 0;
  waitpid(pid, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 130);
  EXPECT_NE(Slurp(P("err.txt")).find("cancelled"), std::string::npos);
  fs::remove(P("err.txt"));
  EXPECT_EQ(Listing(), before);  // neither the output nor its temporary
}
