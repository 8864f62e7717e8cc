// The one error type of the program: a file (or option) and the reason it failed.
#pragma once
#include <stdexcept>
#include <string>

/// @brief A failure the user can act on. what() is "SUBJECT: reason", printed as one line.
/// usage marks errors in the command line itself (exit status 2 instead of 1).
class CQrnError : public std::runtime_error {
 public:
  CQrnError(const std::string& subject, const std::string& reason, bool usage = false)
      : std::runtime_error(subject.empty() ? reason : subject + ": " + reason), m_usage(usage) {}
  bool IsUsage() const { return m_usage; }

 private:
  bool m_usage;
};

/// Thrown when the user interrupted an operation (Ctrl-C).
class CQrnCancelled : public std::runtime_error {
 public:
  CQrnCancelled() : std::runtime_error("cancelled") {}
};
