// Debugger output and message boxes, routed to hooks that the host can replace.
#pragma once
#include <functional>

using TextHook = std::function<void(const wchar_t*)>;

/// @brief Writes a diagnostic line; dropped unless the host installed a hook.
void OutputDebugStringW(const wchar_t* text);
/// @brief Shows a message to the user; by default printed to standard error. Returns 1 (OK).
int AfxMessageBox(const wchar_t* text, unsigned int type = 0, unsigned int helpId = 0);
/// @brief Replaces the debug-output hook; an empty function restores the default (drop).
void SetDebugOutputHook(TextHook hook);
/// @brief Replaces the message-box hook; an empty function restores the default (standard error).
void SetMessageBoxHook(TextHook hook);
