// The terminal face of the library's progress protocol, and Ctrl-C as Escape.
#pragma once
#include <chrono>
#include <string>

#include "platform/MessageWindow.h"

/// @brief A progress bar on standard error fed by WM_QRN_PROGRESS: the title from the message
/// table, a bar, the percentage and the elapsed time. Drawn only when standard error is a
/// terminal and quiet is false; the window exists either way, since cancelling goes through it.
class CProgressBar {
 public:
  explicit CProgressBar(bool quiet);
  CProgressBar(const CProgressBar&) = delete;
  CProgressBar& operator=(const CProgressBar&) = delete;
  ~CProgressBar();

  HWND Window() const { return m_window; }
  bool IsVisible() const { return m_visible; }
  /// Prints a line of status text (kept above the bar) unless quiet.
  void Note(const std::string& text);

 private:
  LRESULT OnMessage(UINT message, WPARAM code, LPARAM value);
  void Draw(bool force);
  void Clear();

  HWND m_window = nullptr;
  bool m_visible = false;
  bool m_quiet = false;
  bool m_shown = false;
  std::string m_title;
  int m_percent = 0;
  std::chrono::steady_clock::time_point m_start;
  std::chrono::steady_clock::time_point m_lastDraw;
};

/// @brief Ctrl-C handling: the first interrupt posts Escape to the progress window (the
/// running operation stops at its next report) and marks the run cancelled; a second one ends
/// the program at once.
class CCancel {
 public:
  static void Install(HWND window);
  static bool IsCancelled();
  /// Throws CQrnCancelled when an interrupt has arrived.
  static void ThrowIfCancelled();
  /// Marks the run cancelled without a signal (used by tests of the cancel path).
  static void Request();
};
