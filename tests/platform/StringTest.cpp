#include "platform/String.h"

#include <gtest/gtest.h>

TEST(CString, SearchSlicesTrimAndCaseInsensitiveCompare) {
  CString s(L"LEVEL MIN=0; SHARP");
  EXPECT_EQ(s.Find(L'='), 9);
  EXPECT_EQ(s.Find(L"SHARP"), 13);
  EXPECT_EQ(s.Find(L'X'), -1);
  EXPECT_EQ(s.Find(L'L', 1), 4);
  EXPECT_EQ(s.FindOneOf(L";="), 9);
  EXPECT_EQ(s.Left(5), CString(L"LEVEL"));
  EXPECT_EQ(s.Mid(13), CString(L"SHARP"));
  EXPECT_EQ(s.Mid(6, 3), CString(L"MIN"));
  EXPECT_EQ(s.Right(2), CString(L"RP"));
  // Out-of-range slices are clamped rather than failing.
  EXPECT_EQ(s.Left(100), s);
  EXPECT_TRUE(s.Mid(100).IsEmpty());
  EXPECT_EQ(s.Find(L'L', 100), -1);
  const CString null(static_cast<const wchar_t*>(nullptr));  // null text is empty
  EXPECT_TRUE(null.IsEmpty());
  EXPECT_EQ(null.Find(static_cast<const wchar_t*>(nullptr)), -1);
  EXPECT_EQ(CString(L" \t value \r\n").Trim(), CString(L"value"));
  EXPECT_TRUE(CString(L"   ").Trim().IsEmpty());
  EXPECT_EQ(CString(L"Level").CompareNoCase(L"LEVEL"), 0);
  EXPECT_LT(CString(L"abc").CompareNoCase(L"ABD"), 0);
  EXPECT_EQ(CString(L"sharp").CollateNoCase(L"SHARP"), 0);
  EXPECT_NE(CString(L"sharp").CollateNoCase(L"SHARPEN"), 0);
}

TEST(CString, FormatAndUtf8RoundTrip) {
  CString s;
  s.Format(L"%.2f秒 %d", 1.5, 7);
  EXPECT_EQ(s, CString(L"1.50秒 7"));
  const CString jp(L"フラット補正処理中...");
  EXPECT_EQ(CString::FromUtf8(jp.ToUtf8()), jp);
  EXPECT_EQ(CString(L"é").ToUtf8(), std::string("\xC3\xA9"));
  // A truncated multi-byte sequence decodes to the replacement character, not past the end.
  EXPECT_EQ(CString::FromUtf8("\xE3\x83"), CString(L"\uFFFD\uFFFD"));
}
