#include "platform/MessageWindow.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {
struct Recorder {
  std::vector<MSG> seen;
  HWND Create() {
    return CreateMessageWindow([this](HWND h, UINT m, WPARAM w, LPARAM l) {
      seen.push_back(MSG{h, m, w, l});
      return LRESULT(42);
    });
  }
};

void DrainQueue() {
  MSG msg;
  while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
  }
}
}  // namespace

TEST(MessageWindow, SendCallsAtOncePostWaitsForDispatchDeadWindowsRefuse) {
  DrainQueue();
  Recorder rec;
  HWND w = rec.Create();
  EXPECT_EQ(SendMessageW(w, WM_USER + 1, 5, 6), 42);
  ASSERT_EQ(rec.seen.size(), 1u);
  EXPECT_EQ(rec.seen[0].message, WM_USER + 1);

  EXPECT_EQ(PostMessageW(w, WM_USER + 2, 7, 8), TRUE);
  EXPECT_EQ(rec.seen.size(), 1u);  // nothing until the queue is pumped
  MSG msg;
  ASSERT_TRUE(PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE));
  EXPECT_EQ(DispatchMessageW(&msg), 42);
  ASSERT_EQ(rec.seen.size(), 2u);
  EXPECT_EQ(rec.seen[1].wParam, 7u);
  EXPECT_EQ(rec.seen[1].lParam, 8);
  EXPECT_TRUE(DestroyWindow(w));
  // Null and destroyed windows are refused quietly.
  EXPECT_EQ(SendMessageW(nullptr, WM_USER, 0, 0), 0);
  EXPECT_FALSE(DestroyWindow(nullptr));
  EXPECT_FALSE(DestroyWindow(w));
  EXPECT_EQ(SendMessageW(w, WM_USER, 0, 0), 0);
  EXPECT_FALSE(PostMessageW(w, WM_USER, 0, 0));
  EXPECT_EQ(rec.seen.size(), 2u);
  // A null window posts to the calling thread itself.
  EXPECT_TRUE(PostMessageW(nullptr, WM_USER, 1, 2));
  ASSERT_TRUE(PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE));
  EXPECT_EQ(msg.hwnd, nullptr);
  EXPECT_EQ(DispatchMessageW(&msg), 0);
}

TEST(MessageWindow, PeekFiltersByRangeAndWindowAndKeepsOrder) {
  DrainQueue();
  Recorder a, b;
  HWND wa = a.Create(), wb = b.Create();
  PostMessageW(wa, WM_PAINT, 1, 0);
  PostMessageW(wb, WM_KEYDOWN, 2, 0);
  PostMessageW(wa, WM_KEYDOWN, 3, 0);
  MSG msg;
  EXPECT_FALSE(PeekMessageW(&msg, nullptr, WM_USER, WM_USER + 200, PM_REMOVE));
  ASSERT_TRUE(PeekMessageW(&msg, wa, WM_KEYDOWN, WM_KEYDOWN, PM_NOREMOVE));
  EXPECT_EQ(msg.wParam, 3u);
  ASSERT_TRUE(PeekMessageW(&msg, nullptr, WM_KEYDOWN, WM_KEYDOWN, PM_REMOVE));
  EXPECT_EQ(msg.wParam, 2u);  // first matching message in posting order
  EXPECT_EQ(GetQueuedMessageCount(), 2);
  DestroyWindow(wa);  // drops the messages still queued for it
  EXPECT_EQ(GetQueuedMessageCount(), 0);
  DestroyWindow(wb);
}

TEST(MessageWindow, PostsFromOtherThreadsLandInTheOwnersQueue) {
  DrainQueue();
  Recorder rec;
  HWND w = rec.Create();
  std::vector<std::thread> workers;
  for (int t = 0; t < 4; ++t)
    workers.emplace_back([w, t] {
      for (int i = 0; i < 25; ++i) PostMessageW(w, WM_USER, t, i);
      MSG msg;  // a worker's own queue is separate and empty
      EXPECT_FALSE(PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE));
    });
  for (auto& t : workers) t.join();
  EXPECT_EQ(GetQueuedMessageCount(), 100);
  DrainQueue();
  DestroyWindow(w);
}

// Escape from a signal becomes a key-down at the next peek; translating a character key posts
// its WM_CHAR.
TEST(MessageWindow, EscapeFromASignalAndCharactersFromKeys) {
  DrainQueue();
  Recorder rec;
  HWND w = rec.Create();
  PostEscapeFromSignal(w);
  MSG msg;
  ASSERT_TRUE(PeekMessageW(&msg, nullptr, WM_KEYDOWN, WM_KEYDOWN, PM_REMOVE));
  EXPECT_EQ(msg.wParam, VK_ESCAPE);
  EXPECT_FALSE(PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE));
  DestroyWindow(w);

  const MSG key{nullptr, WM_KEYDOWN, 'A', 0};
  EXPECT_TRUE(TranslateMessage(&key));
  const MSG shift{nullptr, WM_KEYDOWN, 0x10, 0};
  EXPECT_FALSE(TranslateMessage(&shift));
  const MSG paint{nullptr, WM_PAINT, 0, 0};
  EXPECT_FALSE(TranslateMessage(&paint));
  ASSERT_TRUE(PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE));
  EXPECT_EQ(msg.message, WM_CHAR);
  EXPECT_EQ(msg.wParam, WPARAM('A'));
  EXPECT_FALSE(PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE));
}
