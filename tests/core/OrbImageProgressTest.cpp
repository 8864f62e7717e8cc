#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "core/MessageTable.h"
#include "core/OrbImage.h"

namespace {

// A host window that records every progress message it receives: the code, and the text of
// a code that carries one or else the value.
struct HostWindow {
  struct Event {
    WPARAM code;
    LPARAM value;
    std::wstring text;
  };
  std::vector<Event> events;
  HWND handle = CreateMessageWindow([this](HWND, UINT msg, WPARAM w, LPARAM l) -> LRESULT {
    if (msg != WM_QRN_PROGRESS) return 0;
    const bool carriesText = w == kProgressInit || w == kProgressEnd || w == kProgressMessage || w == kProgressSetHeader;
    const auto* text = carriesText ? reinterpret_cast<const wchar_t*>(l) : nullptr;
    events.push_back({w, carriesText ? 0 : l, text ? text : L""});
    return 0;
  });

  HostWindow() { Drain(); }
  ~HostWindow() { DestroyWindow(handle); }
  static void Drain() {
    MSG msg;
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
    }
  }
  int Count(WPARAM code) const {
    return int(std::count_if(events.begin(), events.end(), [&](const Event& e) { return e.code == code; }));
  }
  std::vector<LPARAM> Percentages() const {
    std::vector<LPARAM> out;
    for (const auto& e : events)
      if (e.code == kProgressStep) out.push_back(e.value);
    return out;
  }
};

// An image that reports to a recording host window.
class Progress : public ::testing::Test {
 protected:
  Progress() { image.SetProgressHandle(host.handle); }
  HostWindow host;
  COrbImage image{-32, 1, 1, 1};
};

// An operation-shaped loop: init with a title number, a report per line, end.
int RunOperation(COrbImage& image, int enable, int lines, int titleId = 6124) {
  image.ShowProgressInit(enable, titleId, lines);
  int done = 0;
  for (int y = 0; y < lines; ++y) {
    if (!image.ShowProgress(1)) break;
    ++done;
  }
  image.ShowProgressEnd(nullptr);
  return done;
}

}  // namespace

TEST_F(Progress, SentCodesArriveAtOnceAndPostedPercentagesWhenTheCallerPumps) {
  image.ShowProgressInit(1, 6124, 100);
  ASSERT_EQ(host.events.size(), 1u);  // sent synchronously
  EXPECT_EQ(host.events[0].code, kProgressInit);
  EXPECT_EQ(host.events[0].text, std::wstring(L"反転処理中..."));

  // Step is 100 / 50 = 2: counter 1 > threshold 0 posts 1%; the next post needs counter > 2.
  PostMessageW(host.handle, WM_QRN_PROGRESS, kProgressStep, 777);  // queued before the report
  EXPECT_EQ(host.Count(kProgressStep), 0);
  EXPECT_EQ(image.ShowProgress(1), 1);  // pumps: both posted messages reach the handler
  ASSERT_EQ(host.Percentages(), (std::vector<LPARAM>{777, 1}));
  image.ShowProgress(1);  // counter 2, threshold 2: nothing
  image.ShowProgress(1);  // counter 3 > 2: 3%
  EXPECT_EQ(host.Percentages().back(), 3);
  EXPECT_EQ(host.Count(kProgressStep), 3);

  image.ShowProgressMsg(6148);
  image.ShowProgressSetHeader(L"header");
  image.ShowProgressClearHeader();
  image.ShowProgressEnd(6149);
  EXPECT_EQ(host.events[host.events.size() - 4].text, std::wstring(CMessageTable::Load(6148)));
  EXPECT_EQ(host.Count(kProgressSetHeader), 1);
  EXPECT_EQ(host.Count(kProgressClearHeader), 1);
  EXPECT_EQ(host.events.back().code, kProgressEnd);
  EXPECT_EQ(host.events.back().text, std::wstring(L"処理がキャンセルされました。"));
  EXPECT_FALSE(image.IsProgressEnabled());
}

TEST_F(Progress, StepIsOneFiftiethOfTheTotalAndABigReportPostsOnce) {
  EXPECT_EQ(RunOperation(image, 1, 49), 49);
  EXPECT_EQ(host.Count(kProgressStep), 49);  // step 1: every report posts
  host.events.clear();
  RunOperation(image, 1, 5000);
  ASSERT_EQ(host.Count(kProgressStep), 50);  // step 100
  EXPECT_EQ(host.Percentages().front(), 0);  // 1 / 5000 truncates to 0%
  EXPECT_EQ(host.Percentages().back(), 98);  // last post at counter 4901

  // 10 units at once with step 1 post once and move the threshold by one step only,
  // so the next single unit posts again.
  host.events.clear();
  image.ShowProgressInit(1, 6124, 20);
  image.ShowProgress(10);
  image.ShowProgress(1);
  EXPECT_EQ(host.Percentages(), (std::vector<LPARAM>{50, 55}));
  image.ShowProgressEnd(nullptr);
}

TEST_F(Progress, IndeterminateModePassesTheArgumentThroughAndZeroTotalReportsCompletion) {
  CString title;
  title.Format(CMessageTable::Load(6156), 3);
  image.ShowProgressInit(title);
  image.ShowProgress(0);
  image.ShowProgress(17);
  image.ShowProgressEnd(nullptr);
  EXPECT_EQ(host.events.front().text, title.str());
  EXPECT_EQ(host.Percentages(), (std::vector<LPARAM>{0, 17}));
  // A total of 0 reports 100% instead of dividing by zero.
  host.events.clear();
  image.ShowProgressInit(1, 6124, 0);
  image.ShowProgress(1);
  image.ShowProgressEnd(nullptr);
  EXPECT_EQ(host.Percentages(), (std::vector<LPARAM>{100}));
}

TEST_F(Progress, QueuedEscapeCancelsAtTheFirstReportOnlyWithProgressOn) {
  PostMessageW(host.handle, WM_KEYDOWN, 'A', 0);  // other keys are swallowed
  PostMessageW(host.handle, WM_KEYDOWN, VK_ESCAPE, 0);
  EXPECT_EQ(RunOperation(image, 1, 100), 0);
  EXPECT_EQ(host.Count(kProgressEnd), 1);

  // With progress off nothing cancels, nothing is sent and the idle state never pumps.
  host.events.clear();
  PostMessageW(host.handle, WM_KEYDOWN, VK_ESCAPE, 0);
  EXPECT_EQ(RunOperation(image, 0, 100), 100);
  EXPECT_TRUE(host.events.empty());
  MSG msg;
  EXPECT_TRUE(PeekMessageW(&msg, nullptr, WM_KEYDOWN, WM_KEYDOWN, PM_REMOVE));
}

TEST_F(Progress, NullWindowAndNullTextsAreAllowed) {
  HostWindow::Drain();
  COrbImage bare(-32, 1, 1, 1);
  bare.ShowProgressInit(1, static_cast<const wchar_t*>(nullptr), 10);
  bare.ShowProgressMsg(static_cast<const wchar_t*>(nullptr));
  bare.ShowProgressSetHeader(nullptr);
  EXPECT_EQ(bare.ShowProgress(3), 1);
  // Escape is still tested without a window.
  PostMessageW(nullptr, WM_KEYDOWN, VK_ESCAPE, 0);
  EXPECT_EQ(bare.ShowProgress(1), 0);
  bare.ShowProgressEnd(nullptr);
  bare.ShowProgressInit(1, 6199, 10);  // a number outside the table sends a null title
  bare.ShowProgressEnd(nullptr);
  EXPECT_TRUE(host.events.empty());
}
