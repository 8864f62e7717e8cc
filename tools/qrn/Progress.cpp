// Progress bar drawing and the interrupt handler.
#include "Progress.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "Error.h"
#include "container/Image.h"
#include "platform/String.h"

CProgressBar::CProgressBar(bool quiet) : m_quiet(quiet) {
  m_visible = !quiet && ::isatty(STDERR_FILENO);
  m_window = CreateMessageWindow([this](HWND, UINT message, WPARAM w, LPARAM l) { return OnMessage(message, w, l); });
}

CProgressBar::~CProgressBar() {
  Clear();
  DestroyWindow(m_window);
}

void CProgressBar::Note(const std::string& text) {
  if (m_quiet) return;
  Clear();
  std::fprintf(stderr, "%s\n", text.c_str());
  if (m_shown) Draw(true);
}

LRESULT CProgressBar::OnMessage(UINT message, WPARAM code, LPARAM value) {
  if (message != WM_QRN_PROGRESS) return 0;
  switch (code) {
    case 0: {  // a new operation: its title from the message table
      const auto* title = reinterpret_cast<const wchar_t*>(value);
      m_title = title ? CString(title).ToUtf8() : std::string();
      m_percent = 0;
      m_start = std::chrono::steady_clock::now();
      m_shown = true;
      Draw(true);
      break;
    }
    case 1:
      m_percent = value < 0 ? 0 : (value > 100 ? 100 : int(value));
      Draw(false);
      break;
    case 2:
      Clear();
      m_shown = false;
      break;
    case 4: {
      const auto* text = reinterpret_cast<const wchar_t*>(value);
      if (text) Note(CString(text).ToUtf8());
      break;
    }
    default: break;
  }
  return 0;
}

void CProgressBar::Draw(bool force) {
  // Untitled reports (image copies) are too short to be worth a bar.
  if (!m_visible || !m_shown || m_title.empty()) return;
  const auto now = std::chrono::steady_clock::now();
  if (!force && now - m_lastDraw < std::chrono::milliseconds(80) && m_percent < 100) return;
  m_lastDraw = now;
  constexpr int kWidth = 30;
  char bar[kWidth + 1];
  const int filled = m_percent * kWidth / 100;
  for (int i = 0; i < kWidth; ++i) bar[i] = i < filled ? '#' : '.';
  bar[kWidth] = '\0';
  const double seconds = std::chrono::duration<double>(now - m_start).count();
  std::fprintf(stderr, "\r\033[K%s [%s] %3d%% %.1fs", m_title.c_str(), bar, m_percent, seconds);
  std::fflush(stderr);
}

void CProgressBar::Clear() {
  if (!m_visible || !m_shown) return;
  std::fprintf(stderr, "\r\033[K");
  std::fflush(stderr);
}

namespace {
volatile std::sig_atomic_t g_cancelled = 0;
HWND g_window = nullptr;

extern "C" void OnInterrupt(int) {
  g_cancelled = 1;
  if (g_window) PostEscapeFromSignal(g_window);
}
}  // namespace

void CCancel::Install(HWND window) {
  g_window = window;
  struct sigaction action {};
  action.sa_handler = OnInterrupt;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESETHAND;  // a second Ctrl-C ends the program the usual way
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

bool CCancel::IsCancelled() { return g_cancelled != 0; }

void CCancel::ThrowIfCancelled() {
  if (g_cancelled) throw CQrnCancelled();
}

void CCancel::Request() { g_cancelled = 1; }
