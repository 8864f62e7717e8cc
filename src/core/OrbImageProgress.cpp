// COrbImage: the progress protocol and the Escape test.
#include <algorithm>

#include "core/MessageTable.h"
#include "core/OrbImage.h"

namespace {
LPARAM TextParam(const wchar_t* text) { return reinterpret_cast<LPARAM>(text); }
}  // namespace

void COrbImage::ShowProgressInit(int enable, const wchar_t* title, int total) {
  m_progressEnabled = enable;
  m_progressTotal = total;
  m_progressStep = std::max(total / 50, 1);
  m_progressCounter.store(0);
  m_progressNext.store(0);
  m_progressIndeterminate = 0;
  if (enable) SendMessageW(m_progressWindow, WM_QRN_PROGRESS, kProgressInit, TextParam(title));
}

void COrbImage::ShowProgressInit(int enable, int titleId, int total) {
  ShowProgressInit(enable, CMessageTable::Load(titleId), total);
}

void COrbImage::ShowProgressInit(const wchar_t* title) {
  m_progressEnabled = 1;
  m_progressTotal = 0;
  m_progressStep = 0;
  m_progressCounter.store(0);
  m_progressNext.store(0);
  m_progressIndeterminate = 1;
  SendMessageW(m_progressWindow, WM_QRN_PROGRESS, kProgressInit, TextParam(title));
}

void COrbImage::ShowProgressInit(int titleId) { ShowProgressInit(CMessageTable::Load(titleId)); }

int COrbImage::ShowProgress(int units) {
  if (!m_progressEnabled) return 1;
  if (m_progressIndeterminate) {
    PostMessageW(m_progressWindow, WM_QRN_PROGRESS, kProgressStep, units);
    return ShowProgressContinue();
  }
  // Workers update the counters without a lock; a percentage may be skipped or repeated.
  const int counter = m_progressCounter.fetch_add(units, std::memory_order_relaxed) + units;
  const int next = m_progressNext.load(std::memory_order_relaxed);
  if (counter > next) {
    // With no total announced the work is taken as done.
    const int percent = m_progressTotal > 0 ? static_cast<int>(double(counter) / m_progressTotal * 100.0) : 100;
    PostMessageW(m_progressWindow, WM_QRN_PROGRESS, kProgressStep, percent);
    m_progressNext.store(next + m_progressStep, std::memory_order_relaxed);
  }
  return ShowProgressContinue();
}

int COrbImage::ShowProgressContinue() {
  MSG msg;
  while (PeekMessageW(&msg, nullptr, WM_KEYDOWN, WM_KEYDOWN, PM_REMOVE))
    if (msg.wParam == VK_ESCAPE) return 0;
  while (PeekMessageW(&msg, nullptr, WM_PAINT, WM_PAINT, PM_REMOVE)) {
    TranslateMessage(&msg);
    DispatchMessageW(&msg);
  }
  while (PeekMessageW(&msg, nullptr, WM_QRN_PROGRESS, WM_QRN_PROGRESS, PM_REMOVE)) {
    TranslateMessage(&msg);
    DispatchMessageW(&msg);
  }
  return 1;
}

void COrbImage::ShowProgressEnd(const wchar_t* text) {
  if (m_progressEnabled) SendMessageW(m_progressWindow, WM_QRN_PROGRESS, kProgressEnd, TextParam(text));
  m_progressEnabled = 0;
}

void COrbImage::ShowProgressEnd(int textId) { ShowProgressEnd(CMessageTable::Load(textId)); }

void COrbImage::ShowProgressMsg(const wchar_t* text) {
  SendMessageW(m_progressWindow, WM_QRN_PROGRESS, kProgressMessage, TextParam(text));
}

void COrbImage::ShowProgressMsg(int textId) { ShowProgressMsg(CMessageTable::Load(textId)); }

void COrbImage::ShowProgressSetHeader(const wchar_t* text) {
  SendMessageW(m_progressWindow, WM_QRN_PROGRESS, kProgressSetHeader, TextParam(text));
}

void COrbImage::ShowProgressClearHeader() { SendMessageW(m_progressWindow, WM_QRN_PROGRESS, kProgressClearHeader, 0); }
