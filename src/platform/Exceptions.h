// The framework's exception types.
#pragma once
#include <stdexcept>

/// @brief Raised when memory for an image copy cannot be obtained.
class CMemoryException : public std::bad_alloc {
 public:
  const char* what() const noexcept override { return "qrnimg: out of memory"; }
};

/// @brief Raised for an argument that a function cannot accept.
class CInvalidArgException : public std::invalid_argument {
 public:
  explicit CInvalidArgException(const char* what = "qrnimg: invalid argument") : std::invalid_argument(what) {}
};

[[noreturn]] inline void AfxThrowMemoryException() { throw CMemoryException(); }
[[noreturn]] inline void AfxThrowInvalidArgException() { throw CInvalidArgException(); }
