// The progress bar: drawn on a terminal, absent when standard error is a file or with --quiet.
#include <regex>

#include "CliSupport.h"

using namespace clitest;

namespace {

// Runs qrn with standard error on a pseudo-terminal (through script(1)); returns what the
// terminal received.
std::string OnTerminal(const std::string& qrnArgs, const fs::path& scratch) {
  const fs::path log = scratch / ".tty";
  const std::string inner = Quote(QRN_BINARY) + " " + qrnArgs + " >/dev/null";
  const std::string cmd = "script -qec " + Quote(inner) + " /dev/null >" + Quote(log.string()) + " 2>&1";
  if (std::system(cmd.c_str()) != 0) return "(failed)";
  const std::string text = Slurp(log);
  fs::remove(log);
  return text;
}

}  // namespace

class ProgressTest : public CliTest {};

TEST_F(ProgressTest, BarOnATerminalOnlyAndNotWhenQuiet) {
  if (std::system("command -v script >/dev/null 2>&1") != 0) GTEST_SKIP() << "script(1) is not installed";
  WriteFits(P("in.fits"), FLOAT_IMG, 300, 200, 1, Ramp(300, 200, 1, 1.0, 0.0));
  const std::string args = "filter median " + Quote(P("in.fits")) + " -o " + Quote(P("out.fits"));

  const std::string tty = OnTerminal(args, dir);
  // Bar, percentage and elapsed seconds.
  EXPECT_TRUE(std::regex_search(tty, std::regex("\\[#+\\] 100% [0-9]+\\.[0-9]s"))) << tty;
  EXPECT_NE(tty.find("\x1b[K"), std::string::npos) << "the bar is redrawn in place";

  EXPECT_EQ(OnTerminal("--quiet " + args, dir).find("100%"), std::string::npos);

  const Result toFile = Run({"filter", "median", P("in.fits"), "-o", P("out2.fits")});
  ASSERT_EQ(toFile.rc, 0);
  EXPECT_EQ(toFile.err, "");  // standard error is a file: no bar
}
