#include "core/MessageTable.h"

#include <gtest/gtest.h>

#include <cwchar>

TEST(CMessageTable, EveryNumberOfTheTableResolvesAndNoOther) {
  for (int id = 6100; id <= 6198; ++id) {
    const wchar_t* text = CMessageTable::Load(id);
    ASSERT_NE(text, nullptr) << id;
    EXPECT_GT(std::wcslen(text), 0u) << id;
  }
  EXPECT_EQ(CMessageTable::Load(6099), nullptr);
  EXPECT_EQ(CMessageTable::Load(6199), nullptr);
  CString s(L"unchanged");
  EXPECT_EQ(CMessageTable::LoadString(6199, s), 0);
  EXPECT_EQ(s, CString(L"unchanged"));
}

TEST(CMessageTable, TextsAreKeptExactlyAndPlaceholdersFormatAsPrintf) {
  // With or without an ellipsis (6124 and 6149 are read by the progress tests).
  EXPECT_STREQ(CMessageTable::Load(6100), L"String Table of QrnImg");
  EXPECT_STREQ(CMessageTable::Load(6120), L"中央値フィルタ処理中");
  EXPECT_STREQ(CMessageTable::Load(6122), L"アンシャープマスク処理中...");
  EXPECT_STREQ(CMessageTable::Load(6198), L"カットオフ処理中...");
  CString s;
  EXPECT_EQ(CMessageTable::LoadString(6184, s), 1);
  EXPECT_STREQ(s.GetString(), CMessageTable::Load(6184));
  s.Format(CMessageTable::Load(6184), 3.14159);
  EXPECT_EQ(s, CString(L"3.14秒"));
  s.Format(CMessageTable::Load(6157), 2, 15);
  EXPECT_EQ(s, CString(L"ルーシー＆リチャードソン法(ESC：キャンセル) - 処理中 プレーン 2 (15回目)"));
}
