#include "core/LineLoop.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "common/ThreadTeam.h"
#include "platform/Parallel.h"

TEST(CLineLoop, VisitsEveryLineOnceInContiguousChunksReleasesItsLocksAndRethrows) {
  COrbImage src(-32, 33, 101, 3), dst(-32, 33, 101, 3);
  std::vector<int> owner(101, -1);
  CLineLoop loop(dst);
  ASSERT_TRUE(loop.RunPlanes(3, 0, 101, [&](int p, int y) {
    LOCKHANDLE in, out;
    const float* s = src.GetImageAdr(0, y, p, VM_READONLY | VM_LOCK, &in);
    float* d = dst.GetImageAdr(0, y, p, VM_LOCK, &out);
    for (int x = 0; x < 33; ++x) d[x] = s[x] + float(p * 1000 + y);
    src.Unlock(in);
    dst.Unlock(out);
    if (p == 0) owner[y] = CParallel::GetThreadNum();
  }));
  EXPECT_EQ(src.GetLockCount(), 0);
  EXPECT_EQ(dst.GetLockCount(), 0);
  for (int p = 0; p < 3; ++p)
    for (int y = 0; y < 101; ++y) ASSERT_EQ(dst.GetPixelGrayRaw(32, y, p), float(p * 1000 + y));
  // Static scheduling: thread slots never decrease along the lines, and the team shares them.
  for (int y = 1; y < 101; ++y) EXPECT_LE(owner[y - 1], owner[y]);
  EXPECT_TRUE(CParallel::GetMaxThreads() == 1 || owner[100] > 0);
  // An exception in the body stops the loop and is rethrown on the caller.
  const auto throwAtFive = [](int y) {
    if (y == 5) throw std::runtime_error("line 5");
  };
  EXPECT_THROW(CLineLoop(dst).Run(0, 101, throwAtFive), std::runtime_error);
}

TEST(CLineLoop, EscapeCancelsACancellableLoopOnly) {
  MSG msg;
  while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
  }
  COrbImage image(-32, 4, 1000, 1);
  // A short per-pixel operation is not cancellable: it ignores the answer and always finishes.
  for (bool cancellable : {true, false}) {
    image.ShowProgressInit(1, 6119, 1000);
    PostMessageW(nullptr, WM_KEYDOWN, VK_ESCAPE, 0);
    std::atomic<int> lines{0};
    CLineLoop loop(image, cancellable);
    EXPECT_EQ(loop.Run(0, 1000, [&](int) { ++lines; }), !cancellable);
    EXPECT_EQ(loop.IsCancelled(), cancellable);
    EXPECT_EQ(lines.load() < 1000, cancellable) << lines.load() << " lines";
    image.ShowProgressEnd(nullptr);
  }
}

TEST(CLineLoop, BatchedReportsCarryTheUnitsDoneSinceTheLastReport) {
  // Two threads take 128 lines each and fill two batches apiece; on a larger team a thread
  // with fewer than 64 lines would never report, as the batching intends. Workers post their
  // reports to the caller's queue, which only the caller pumps.
  const qrntest::ThreadTeam team(2);
  std::vector<LPARAM> percentages;
  HWND host = CreateMessageWindow([&](HWND, UINT m, WPARAM w, LPARAM l) {
    if (m == WM_QRN_PROGRESS && w == kProgressStep) percentages.push_back(l);
    return LRESULT(0);
  });
  COrbImage image(-32, 4, 256, 1);
  image.SetProgressHandle(host);
  image.ShowProgressInit(1, 6119, 256);
  CLineLoop loop(image, true, 64);
  ASSERT_TRUE(loop.Run(0, 256, [](int) {}));
  image.ShowProgress(0);  // pump what workers posted
  image.ShowProgressEnd(nullptr);
  EXPECT_EQ(GetQueuedMessageCount(), 0);
  DestroyWindow(host);
  // Four reports of 64 units: 25, 50, 75 and 100 percent, in some order across threads.
  std::sort(percentages.begin(), percentages.end());
  percentages.erase(std::unique(percentages.begin(), percentages.end()), percentages.end());
  EXPECT_EQ(percentages, (std::vector<LPARAM>{25, 50, 75, 100}));
}
