// Command-line options of one subcommand.
#pragma once
#include <map>
#include <set>
#include <string>
#include <vector>

/// @brief Splits arguments into options and positional words. Options are "--name value",
/// "--name=value" or "-x value" for the names the subcommand declares with a value, and bare
/// flags for the others it declares; anything else that starts with "-" is an unknown
/// option (a usage error). "--" ends the options.
class CArgs {
 public:
  CArgs(const std::vector<std::string>& args, const std::set<std::string>& valued, const std::set<std::string>& flags);

  bool Has(const std::string& name) const { return m_values.count(name) != 0; }
  std::string Get(const std::string& name, const std::string& def = std::string()) const;
  /// A number option; a usage error when the text is not a number.
  double GetDouble(const std::string& name, double def) const;
  int GetInt(const std::string& name, int def) const;
  /// Comma-separated numbers ("1.5,2,2"); one value is repeated to count.
  std::vector<double> GetList(const std::string& name, std::vector<double> def, std::size_t count) const;
  const std::vector<std::string>& Positional() const { return m_positional; }
  /// Throws a usage error unless the count of positional words is in [low, high].
  void ExpectPositional(std::size_t low, std::size_t high, const std::string& what) const;

 private:
  std::map<std::string, std::string> m_values;
  std::vector<std::string> m_positional;
};

double ParseNumber(const std::string& option, const std::string& text);
