// The library's numbered progress titles and status texts.
#pragma once
#include "platform/String.h"

/// @brief The compiled-in table of progress titles and status texts, numbers 6100 to 6198.
/// Texts with printf placeholders (%d, %.2f, %.1f) are formatted by the caller.
class CMessageTable {
 public:
  static constexpr int kFirstId = 6100;
  static constexpr int kLastId = 6198;
  static constexpr int kOutOfMemory = 6148;
  static constexpr int kCancelled = 6149;

  /// The text of a number, or null when the number is not in the table. The text lives
  /// as long as the library.
  static const wchar_t* Load(int id);
  /// Copies the text of a number into text; 0 when the number is not in the table.
  static int LoadString(int id, CString& text);
};
