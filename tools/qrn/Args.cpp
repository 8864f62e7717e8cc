// Option parsing.
#include "Args.h"

#include <cmath>
#include <cstdlib>

#include "Error.h"

CArgs::CArgs(const std::vector<std::string>& args, const std::set<std::string>& valued,
             const std::set<std::string>& flags) {
  bool options = true;
  for (std::size_t i = 0; i < args.size(); ++i) {
    std::string a = args[i];
    if (options && a == "--") {
      options = false;
      continue;
    }
    if (!options || a.size() < 2 || a[0] != '-' || (std::isdigit(static_cast<unsigned char>(a[1])) || a[1] == '.')) {
      m_positional.push_back(a);
      continue;
    }
    std::string value;
    bool hasValue = false;
    const auto eq = a.find('=');
    if (a.rfind("--", 0) == 0 && eq != std::string::npos) {
      value = a.substr(eq + 1);
      a = a.substr(0, eq);
      hasValue = true;
    }
    if (valued.count(a)) {
      if (!hasValue) {
        if (i + 1 >= args.size()) throw CQrnError(a, "needs a value", true);
        value = args[++i];
      }
      m_values[a] = value;
    } else if (flags.count(a) && !hasValue) {
      m_values[a] = "1";
    } else {
      throw CQrnError(a, "unknown option", true);
    }
  }
}

std::string CArgs::Get(const std::string& name, const std::string& def) const {
  const auto it = m_values.find(name);
  return it == m_values.end() ? def : it->second;
}

double ParseNumber(const std::string& option, const std::string& text) {
  char* end = nullptr;
  const double v = std::strtod(text.c_str(), &end);
  if (text.empty() || *end != '\0' || !std::isfinite(v)) throw CQrnError(option, "not a number: '" + text + "'", true);
  return v;
}

double CArgs::GetDouble(const std::string& name, double def) const {
  return Has(name) ? ParseNumber(name, Get(name)) : def;
}

int CArgs::GetInt(const std::string& name, int def) const {
  if (!Has(name)) return def;
  const double v = ParseNumber(name, Get(name));
  if (v != std::floor(v) || std::fabs(v) > 1e9) throw CQrnError(name, "not a whole number: '" + Get(name) + "'", true);
  return int(v);
}

std::vector<double> CArgs::GetList(const std::string& name, std::vector<double> def, std::size_t count) const {
  if (!Has(name)) return def;
  std::vector<double> out;
  std::string text = Get(name);
  std::size_t start = 0;
  while (true) {
    const auto comma = text.find(',', start);
    out.push_back(ParseNumber(name, text.substr(start, comma == std::string::npos ? std::string::npos : comma - start)));
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  if (out.size() == 1) out.resize(count, out[0]);
  if (out.size() != count) throw CQrnError(name, "needs 1 or " + std::to_string(count) + " values", true);
  return out;
}

void CArgs::ExpectPositional(std::size_t low, std::size_t high, const std::string& what) const {
  if (m_positional.size() < low || m_positional.size() > high) throw CQrnError("", "expected " + what, true);
}
