// Message windows and per-thread message queues for progress and cancel.
#pragma once
#include <functional>

#include "platform/Types.h"

struct HWND__;
/// Opaque handle to a message window made by CreateMessageWindow.
using HWND = HWND__*;

struct tagMSG {
  HWND hwnd = nullptr;
  UINT message = 0;
  WPARAM wParam = 0;
  LPARAM lParam = 0;
};
using MSG = tagMSG;

using MessageHandler = std::function<LRESULT(HWND, UINT, WPARAM, LPARAM)>;

/// @brief Makes a window whose messages go to handler. The calling thread owns it:
/// messages posted to the window land in that thread's queue.
HWND CreateMessageWindow(MessageHandler handler);
/// @brief Ends a window; messages still queued for it are dropped. Returns FALSE for an unknown handle.
BOOL DestroyWindow(HWND hwnd);
/// @brief Calls the window's handler at once on the calling thread; 0 for a null or unknown window.
LRESULT SendMessageW(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);
/// @brief Appends a message to the owner thread's queue; a null window posts to the calling
/// thread's own queue. Safe from any thread. FALSE for an unknown window.
BOOL PostMessageW(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);
/// @brief Takes the first message of the calling thread's queue that matches hwnd (null: any)
/// and the range [first, last] (0, 0: any). With PM_REMOVE it is removed. TRUE when one was found.
BOOL PeekMessageW(MSG* msg, HWND hwnd, UINT first, UINT last, UINT remove);
/// @brief Posts WM_CHAR for a key-down message of a character key; TRUE when it did.
BOOL TranslateMessage(const MSG* msg);
/// @brief Hands the message to its window's handler and returns the handler's result.
LRESULT DispatchMessageW(const MSG* msg);
/// @brief Queues Escape (WM_KEYDOWN, VK_ESCAPE) for the window's owner thread without taking
/// a lock or allocating, so a signal handler may call it. The window must be alive.
void PostEscapeFromSignal(HWND hwnd);
/// @brief Number of messages waiting in the calling thread's queue.
int GetQueuedMessageCount();
