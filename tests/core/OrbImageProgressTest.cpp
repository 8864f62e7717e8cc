#include <gtest/gtest.h>

#include <vector>

#include "core/MessageTable.h"
#include "core/OrbImage.h"

namespace {

struct Event {
  WPARAM code;
  LPARAM value;
  std::wstring text;
};

// A host window that records every progress message it receives.
class HostWindow {
 public:
  HostWindow() {
    m_hwnd = CreateMessageWindow([this](HWND, UINT msg, WPARAM w, LPARAM l) -> LRESULT {
      if (msg != WM_QRN_PROGRESS) return 0;
      const bool carriesText = w == kProgressInit || w == kProgressEnd || w == kProgressMessage || w == kProgressSetHeader;
      const auto* text = carriesText ? reinterpret_cast<const wchar_t*>(l) : nullptr;
      events.push_back({w, carriesText ? 0 : l, text ? text : L""});
      return 0;
    });
    Drain();
  }
  ~HostWindow() { DestroyWindow(m_hwnd); }
  HWND Handle() const { return m_hwnd; }
  static void Drain() {
    MSG msg;
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
    }
  }
  int Count(WPARAM code) const {
    int n = 0;
    for (const auto& e : events) n += e.code == code;
    return n;
  }
  std::vector<LPARAM> Percentages() const {
    std::vector<LPARAM> out;
    for (const auto& e : events)
      if (e.code == kProgressStep) out.push_back(e.value);
    return out;
  }
  std::vector<Event> events;

 private:
  HWND m_hwnd;
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

TEST(Progress, SentCodesArriveAtOnceAndPostedPercentagesWhenTheCallerPumps) {
  HostWindow host;
  COrbImage image(-32, 4, 4, 1);
  image.SetProgressHandle(host.Handle());
  image.ShowProgressInit(1, 6124, 100);
  ASSERT_EQ(host.events.size(), 1u);  // sent synchronously
  EXPECT_EQ(host.events[0].code, kProgressInit);
  EXPECT_EQ(host.events[0].text, std::wstring(L"反転処理中..."));

  // Step is 100 / 50 = 2: counter 1 > threshold 0 posts 1%; the next post needs counter > 2.
  PostMessageW(host.Handle(), WM_QRN_PROGRESS, kProgressStep, 777);  // queued before the report
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

TEST(Progress, StepIsOneFiftiethOfTheTotalAndABigReportPostsOnce) {
  HostWindow host;
  COrbImage image(-32, 1, 1, 1);
  image.SetProgressHandle(host.Handle());
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

TEST(Progress, IndeterminateModePassesTheArgumentThroughAndZeroTotalReportsCompletion) {
  HostWindow host;
  COrbImage image(-32, 1, 1, 1);
  image.SetProgressHandle(host.Handle());
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

TEST(Progress, QueuedEscapeCancelsAtTheFirstReportOnlyWithProgressOn) {
  HostWindow host;
  COrbImage image(-32, 1, 1, 1);
  image.SetProgressHandle(host.Handle());
  PostMessageW(host.Handle(), WM_KEYDOWN, 'A', 0);  // other keys are swallowed
  PostMessageW(host.Handle(), WM_KEYDOWN, VK_ESCAPE, 0);
  EXPECT_EQ(RunOperation(image, 1, 100), 0);
  EXPECT_EQ(host.Count(kProgressEnd), 1);

  // With progress off nothing cancels, nothing is sent and the idle state never pumps.
  host.events.clear();
  PostMessageW(host.Handle(), WM_KEYDOWN, VK_ESCAPE, 0);
  EXPECT_EQ(RunOperation(image, 0, 100), 100);
  EXPECT_TRUE(host.events.empty());
  MSG msg;
  EXPECT_TRUE(PeekMessageW(&msg, nullptr, WM_KEYDOWN, WM_KEYDOWN, PM_REMOVE));
}

TEST(Progress, NullWindowAndNullTextsAreAllowed) {
  HostWindow::Drain();
  COrbImage image(-32, 1, 1, 1);
  image.ShowProgressInit(1, static_cast<const wchar_t*>(nullptr), 10);
  image.ShowProgressMsg(static_cast<const wchar_t*>(nullptr));
  image.ShowProgressSetHeader(nullptr);
  EXPECT_EQ(image.ShowProgress(3), 1);
  // Escape is still tested without a window.
  PostMessageW(nullptr, WM_KEYDOWN, VK_ESCAPE, 0);
  EXPECT_EQ(image.ShowProgress(1), 0);
  image.ShowProgressEnd(nullptr);
  image.ShowProgressInit(1, 6199, 10);  // a number outside the table sends a null title
  image.ShowProgressEnd(nullptr);
}
