// Message windows over per-thread queues.
#include "platform/MessageWindow.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <unordered_set>

namespace {

struct ThreadQueue {
  std::mutex lock;
  std::deque<MSG> messages;
  // Escape requests from signal handlers, turned into key-down messages at the next peek.
  std::atomic<int> pendingEscapes{0};
};

std::shared_ptr<ThreadQueue>& CurrentQueue() {
  thread_local auto queue = std::make_shared<ThreadQueue>();
  return queue;
}

struct WindowRegistry {
  std::mutex lock;
  std::unordered_set<HWND> windows;
};

WindowRegistry& Registry() {
  static WindowRegistry registry;
  return registry;
}

bool Matches(const MSG& m, HWND hwnd, UINT first, UINT last) {
  if (hwnd && m.hwnd != hwnd) return false;
  if (first == 0 && last == 0) return true;
  return m.message >= first && m.message <= last;
}

}  // namespace

struct HWND__ {
  MessageHandler handler;
  std::shared_ptr<ThreadQueue> owner;
};

namespace {

// The window's handler and queue while the window is registered; empty otherwise.
bool LookUp(HWND hwnd, MessageHandler* handler, std::shared_ptr<ThreadQueue>* owner) {
  if (!hwnd) return false;
  auto& reg = Registry();
  std::lock_guard guard(reg.lock);
  if (!reg.windows.count(hwnd)) return false;
  if (handler) *handler = hwnd->handler;
  if (owner) *owner = hwnd->owner;
  return true;
}

void Append(ThreadQueue& queue, const MSG& msg) {
  std::lock_guard guard(queue.lock);
  queue.messages.push_back(msg);
}

}  // namespace

HWND CreateMessageWindow(MessageHandler handler) {
  auto* window = new HWND__{std::move(handler), CurrentQueue()};
  auto& reg = Registry();
  std::lock_guard guard(reg.lock);
  reg.windows.insert(window);
  return window;
}

BOOL DestroyWindow(HWND hwnd) {
  {
    auto& reg = Registry();
    std::lock_guard guard(reg.lock);
    if (!reg.windows.erase(hwnd)) return FALSE;
  }
  {
    std::lock_guard guard(hwnd->owner->lock);
    auto& q = hwnd->owner->messages;
    q.erase(std::remove_if(q.begin(), q.end(), [hwnd](const MSG& m) { return m.hwnd == hwnd; }), q.end());
  }
  delete hwnd;
  return TRUE;
}

LRESULT SendMessageW(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
  MessageHandler handler;
  if (!LookUp(hwnd, &handler, nullptr) || !handler) return 0;
  return handler(hwnd, message, wParam, lParam);
}

BOOL PostMessageW(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
  const MSG msg{hwnd, message, wParam, lParam};
  if (!hwnd) {
    Append(*CurrentQueue(), msg);
    return TRUE;
  }
  std::shared_ptr<ThreadQueue> owner;
  if (!LookUp(hwnd, nullptr, &owner)) return FALSE;
  Append(*owner, msg);
  return TRUE;
}

BOOL PeekMessageW(MSG* msg, HWND hwnd, UINT first, UINT last, UINT remove) {
  auto& queue = *CurrentQueue();
  std::lock_guard guard(queue.lock);
  for (int n = queue.pendingEscapes.exchange(0); n > 0; --n)
    queue.messages.push_back(MSG{nullptr, WM_KEYDOWN, VK_ESCAPE, 0});
  auto it = std::find_if(queue.messages.begin(), queue.messages.end(),
                         [&](const MSG& m) { return Matches(m, hwnd, first, last); });
  if (it == queue.messages.end()) return FALSE;
  if (msg) *msg = *it;
  if (remove & PM_REMOVE) queue.messages.erase(it);
  return TRUE;
}

BOOL TranslateMessage(const MSG* msg) {
  if (!msg || msg->message != WM_KEYDOWN) return FALSE;
  const WPARAM key = msg->wParam;
  const bool character = key == 8 || key == 9 || key == 13 || key == VK_ESCAPE || (key >= 0x20 && key <= 0x5A);
  if (!character) return FALSE;
  return PostMessageW(msg->hwnd, WM_CHAR, key, msg->lParam);
}

LRESULT DispatchMessageW(const MSG* msg) {
  if (!msg) return 0;
  return SendMessageW(msg->hwnd, msg->message, msg->wParam, msg->lParam);
}

void PostEscapeFromSignal(HWND hwnd) {
  if (hwnd) hwnd->owner->pendingEscapes.fetch_add(1, std::memory_order_relaxed);
}

int GetQueuedMessageCount() {
  auto& queue = *CurrentQueue();
  std::lock_guard guard(queue.lock);
  return static_cast<int>(queue.messages.size()) + queue.pendingEscapes.load();
}
