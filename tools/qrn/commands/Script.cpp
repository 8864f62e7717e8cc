// qrn script: the processing-command language on one image.
#include <fstream>
#include <sstream>

#include "Error.h"
#include "command/OrbImageProc.h"
#include "commands/Command.h"

namespace {

// The processor accepts unknown names silently; a person typing a script wants to hear
// about a misspelt command, so names are checked here first.
void CheckScript(const std::string& source, const std::string& text) {
  static const char* const kNames[] = {"LEVEL", "SHARP", "DIGITALDEVELOPMENT", "BRIGHTNESSCONTRAST", "HALPHA",
                                       "HALPHAAUTOLEVEL"};
  int line = 1;
  std::size_t i = 0;
  while (i < text.size()) {
    while (i < text.size() && (text[i] == ';' || text[i] == '\n' || text[i] == '\r' || text[i] == ' ' || text[i] == '\t')) {
      if (text[i] == '\n') ++line;
      ++i;
    }
    if (i >= text.size()) break;
    const std::size_t end = text.find_first_of(";\r\n", i);
    const std::string command = text.substr(i, end == std::string::npos ? std::string::npos : end - i);
    const std::size_t blank = command.find_first_of(" \t");
    std::string name = command.substr(0, blank);
    for (auto& c : name) c = char(std::toupper(static_cast<unsigned char>(c)));
    bool known = false;
    for (const char* k : kNames) known = known || name == k;
    const std::string where = source + ": line " + std::to_string(line);
    if (!known) throw CQrnError(where, "unknown command '" + command.substr(0, blank) + "'");
    if (blank == std::string::npos) throw CQrnError(where, "command '" + name + "' has no KEY=value arguments");
    for (std::size_t k = blank; k < command.size();) {
      k = command.find_first_not_of(" \t", k);
      if (k == std::string::npos) break;
      const std::size_t stop = command.find_first_of(" \t", k);
      const std::string word = command.substr(k, stop == std::string::npos ? std::string::npos : stop - k);
      if (word.find('=') == std::string::npos || word[0] == '=')
        throw CQrnError(where, "'" + word + "' is not KEY=value");
      k = stop;
    }
    i = end == std::string::npos ? text.size() : end;
  }
}

}  // namespace

int RunScript(const Arguments& argv, CContext& ctx) {
  CArgs args(argv, {"-o", "--output", "--bits", "-e", "--method", "--low", "--high"}, {});
  std::string text, source;
  std::string in;
  if (args.Has("-e")) {
    args.ExpectPositional(1, 1, "qrn script -e 'COMMANDS' IN -o OUT");
    text = args.Get("-e");
    source = "script";
    in = args.Positional()[0];
  } else {
    args.ExpectPositional(2, 2, "qrn script FILE.qrs IN -o OUT");
    source = args.Positional()[0];
    in = args.Positional()[1];
    std::ifstream file(source);
    if (!file) throw CQrnError(source, "cannot open the script");
    std::ostringstream all;
    all << file.rdbuf();
    text = all.str();
  }
  const std::string out = qrncmd::RequireOutput(args);
  CheckScript(source, text);
  CLoadedImage loaded = qrncmd::Load(in, ctx);
  COrbImageProc proc;
  if (!proc.Do(loaded.image.get(), CString::FromUtf8(text), 1)) throw CQrnError(source, "the script could not run");
  CCancel::ThrowIfCancelled();
  qrncmd::SaveResult(out, *loaded.image, args, {in, source});
  return 0;
}
