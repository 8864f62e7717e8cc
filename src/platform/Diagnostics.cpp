// Hooks for debugger output and message boxes.
#include "platform/Diagnostics.h"

#include <cstdio>
#include <mutex>

#include "platform/String.h"

namespace {
std::mutex g_hookLock;
TextHook g_debugHook;
TextHook g_messageBoxHook;

TextHook Current(const TextHook& hook) {
  std::lock_guard guard(g_hookLock);
  return hook;
}
}  // namespace

void OutputDebugStringW(const wchar_t* text) {
  if (auto hook = Current(g_debugHook)) hook(text ? text : L"");
}

int AfxMessageBox(const wchar_t* text, unsigned int, unsigned int) {
  if (auto hook = Current(g_messageBoxHook)) {
    hook(text ? text : L"");
  } else {
    std::fprintf(stderr, "%s\n", CString(text).ToUtf8().c_str());
  }
  return 1;
}

void SetDebugOutputHook(TextHook hook) {
  std::lock_guard guard(g_hookLock);
  g_debugHook = std::move(hook);
}

void SetMessageBoxHook(TextHook hook) {
  std::lock_guard guard(g_hookLock);
  g_messageBoxHook = std::move(hook);
}
