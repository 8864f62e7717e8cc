// qrn: the command-line face of the image library.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Error.h"
#include "Progress.h"
#include "commands/Command.h"
#include "platform/Diagnostics.h"

namespace {

struct CSubcommand {
  const char* name;
  int (*run)(const Arguments&, CContext&);
  const char* synopsis;  // the arguments after the name
  const char* summary;
};

const CSubcommand kCommands[] = {
    {"info", RunInfo, "FILE...", "size, format, header facts and plane statistics"},
    {"convert", RunConvert, "IN -o OUT [--bits B]", "write the samples in another format"},
    {"level", RunLevel, "IN [--method M --low L --high H] [-o OUT.png]", "automatic display levels"},
    {"render", RunRender, "IN -o OUT.png|.bmp [--bits 8|24]", "levels, then the display bitmap"},
    {"calibrate", RunCalibrate, "--dark D --flat F [--bias B] [--pedestal P] [--flat-gamma G] LIGHT... -o DIR",
     "dark and flat calibration of light frames"},
    {"filter", RunFilter, "median|minmax|unsharp|laplacian IN -o OUT [options]", "neighbourhood and unsharp filters"},
    {"develop", RunDevelop, "IN -o OUT [--sigma S --gamma G --kernel gauss|disc ...]", "digital development"},
    {"tone", RunTone, "OPERATION IN -o OUT [options]", "tone operations (qrn tone --help lists them)"},
    {"script", RunScript, "(FILE.qrs | -e 'COMMANDS') IN -o OUT", "replay a chain of adjustments"},
    {"demo", RunDemo, "[-o DIR]", "synthetic observing session, calibrated and developed"},
};

// Each command as its name and summary, with its arguments on the line below.
void PrintUsage(FILE* out) {
  std::fprintf(out, "usage: qrn [--quiet] COMMAND ...\n\ncommands:\n");
  for (const auto& c : kCommands)
    std::fprintf(out, "  %-10s %s\n             qrn %s %s\n", c.name, c.summary, c.name, c.synopsis);
  std::fprintf(out, "\nOutput format follows the extension: .fits .fit .fts .tif .tiff .png .bmp\n");
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args;
  bool quiet = false;
  for (int i = 1; i < argc; ++i) {
    if (!std::strcmp(argv[i], "-q") || !std::strcmp(argv[i], "--quiet")) quiet = true;
    else args.emplace_back(argv[i]);
  }
  if (args.empty() || args[0] == "-h" || args[0] == "--help" || args[0] == "help") {
    PrintUsage(args.empty() ? stderr : stdout);
    return args.empty() ? 2 : 0;
  }
  const std::string name = args[0];
  args.erase(args.begin());
  const CSubcommand* command = nullptr;
  for (const auto& c : kCommands)
    if (name == c.name) command = &c;
  if (!command) {
    std::fprintf(stderr, "qrn: %s: unknown command (qrn --help lists them)\n", name.c_str());
    return 2;
  }
  // Library message boxes become plain lines on standard error.
  SetMessageBoxHook([](const wchar_t* text) { std::fprintf(stderr, "qrn: %s\n", CString(text).ToUtf8().c_str()); });
  CProgressBar bar(quiet);
  CCancel::Install(bar.Window());
  CContext ctx{&bar, quiet};
  try {
    return command->run(args, ctx);
  } catch (const CQrnCancelled&) {
    std::fprintf(stderr, "qrn: %s: cancelled, nothing written for the unfinished output\n", name.c_str());
    return 130;
  } catch (const CQrnError& e) {
    std::fprintf(stderr, "qrn: %s\n", e.what());
    return e.IsUsage() ? 2 : 1;
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "qrn: %s: out of memory\n", name.c_str());
    return 1;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "qrn: %s: %s\n", name.c_str(), e.what());
    return 1;
  }
}
