// Numeric settings read by a few operations.
#pragma once
#include "platform/String.h"

/// @brief Process-wide numeric settings by section and key. Hosts fill them with Write
/// (or LoadFile); operations read them with Read and fall back to the default.
class CRegistry {
 public:
  /// Writes the stored double (or def when absent) to *value; returns 1 when it was stored.
  static int Read(const wchar_t* section, const wchar_t* key, double def, double* value);
  /// Int form; min bounds the result from below (values under it read as def).
  static int Read(const wchar_t* section, const wchar_t* key, int def, int* value, int min);
  static void Write(const wchar_t* section, const wchar_t* key, double value);
  static void Remove(const wchar_t* section, const wchar_t* key);
  static void Clear();
  /// Reads "[section]" headers and "key=value" lines; returns the number of values read,
  /// or -1 when the file cannot be opened.
  static int LoadFile(const char* path);
};
