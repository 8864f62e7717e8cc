// Wide text with the operations that the command language and messages need.
#pragma once
#include <string>

/// @brief Wide-character text (wchar_t). Positions are zero-based; search results
/// are -1 when nothing is found, as the framework type does.
class CString {
 public:
  CString() = default;
  CString(const wchar_t* s) : m_s(s ? s : L"") {}  // NOLINT: implicit like the framework type
  CString(const std::wstring& s) : m_s(s) {}        // NOLINT
  CString(wchar_t c, int repeat = 1) : m_s(repeat > 0 ? repeat : 0, c) {}

  int GetLength() const { return static_cast<int>(m_s.size()); }
  bool IsEmpty() const { return m_s.empty(); }
  void Empty() { m_s.clear(); }
  wchar_t GetAt(int i) const { return m_s[i]; }
  wchar_t operator[](int i) const { return m_s[i]; }
  void SetAt(int i, wchar_t c) { m_s[i] = c; }
  operator const wchar_t*() const { return m_s.c_str(); }  // NOLINT
  const wchar_t* GetString() const { return m_s.c_str(); }
  const std::wstring& str() const { return m_s; }

  int Find(wchar_t c, int start = 0) const;
  int Find(const wchar_t* sub, int start = 0) const;
  int ReverseFind(wchar_t c) const;
  int FindOneOf(const wchar_t* chars) const;
  CString Left(int n) const;
  CString Right(int n) const;
  CString Mid(int first) const;
  CString Mid(int first, int n) const;

  CString& Trim();
  CString& TrimLeft();
  CString& TrimRight();
  CString& Trim(const wchar_t* chars);
  CString& TrimLeft(const wchar_t* chars);
  CString& TrimRight(const wchar_t* chars);
  CString& MakeUpper();
  CString& MakeLower();
  int Replace(const wchar_t* from, const wchar_t* to);
  int Remove(wchar_t c);

  int Compare(const wchar_t* other) const { return m_s.compare(other ? other : L""); }
  int CompareNoCase(const wchar_t* other) const;
  /// Case-insensitive comparison in the current locale's collation order.
  int CollateNoCase(const wchar_t* other) const;

  /// printf-style formatting with wide format strings (%d, %f, %ls ...).
  void Format(const wchar_t* fmt, ...);

  CString& operator=(const wchar_t* s) { m_s = s ? s : L""; return *this; }
  CString& operator+=(const CString& o) { m_s += o.m_s; return *this; }
  CString& operator+=(const wchar_t* s) { if (s) m_s += s; return *this; }
  CString& operator+=(wchar_t c) { m_s += c; return *this; }
  friend CString operator+(CString a, const CString& b) { a += b; return a; }
  friend CString operator+(CString a, const wchar_t* b) { a += b; return a; }
  friend bool operator==(const CString& a, const CString& b) { return a.m_s == b.m_s; }
  friend bool operator==(const CString& a, const wchar_t* b) { return a.m_s == (b ? b : L""); }
  friend bool operator!=(const CString& a, const CString& b) { return !(a == b); }
  friend bool operator<(const CString& a, const CString& b) { return a.m_s < b.m_s; }

  /// UTF-8 form, for terminals and file names.
  std::string ToUtf8() const;
  static CString FromUtf8(const std::string& s);

 private:
  std::wstring m_s;
};
