// Wide text operations.
#include "platform/String.h"

#include <cstdarg>
#include <cwchar>
#include <cwctype>
#include <vector>

namespace {
const wchar_t* const kBlanks = L" \t\r\n\v\f";

int ToIndex(std::wstring::size_type pos) { return pos == std::wstring::npos ? -1 : static_cast<int>(pos); }

int Clamp(int v, int lo, int hi) { return v < lo ? lo : (v > hi ? hi : v); }
}  // namespace

int CString::Find(wchar_t c, int start) const {
  if (start < 0 || start >= GetLength()) return -1;
  return ToIndex(m_s.find(c, start));
}

int CString::Find(const wchar_t* sub, int start) const {
  if (!sub || start < 0 || start > GetLength()) return -1;
  return ToIndex(m_s.find(sub, start));
}

int CString::ReverseFind(wchar_t c) const { return ToIndex(m_s.rfind(c)); }

int CString::FindOneOf(const wchar_t* chars) const { return chars ? ToIndex(m_s.find_first_of(chars)) : -1; }

CString CString::Left(int n) const { return CString(m_s.substr(0, Clamp(n, 0, GetLength()))); }

CString CString::Right(int n) const {
  n = Clamp(n, 0, GetLength());
  return CString(m_s.substr(GetLength() - n));
}

CString CString::Mid(int first) const { return Mid(first, GetLength()); }

CString CString::Mid(int first, int n) const {
  first = Clamp(first, 0, GetLength());
  n = Clamp(n, 0, GetLength() - first);
  return CString(m_s.substr(first, n));
}

CString& CString::Trim() { return TrimRight().TrimLeft(); }

CString& CString::TrimLeft() {
  m_s.erase(0, std::min(m_s.size(), m_s.find_first_not_of(kBlanks)));
  return *this;
}

CString& CString::TrimRight() {
  auto last = m_s.find_last_not_of(kBlanks);
  m_s.erase(last == std::wstring::npos ? 0 : last + 1);
  return *this;
}

CString& CString::Trim(const wchar_t* chars) {
  if (!chars) return *this;
  auto last = m_s.find_last_not_of(chars);
  m_s.erase(last == std::wstring::npos ? 0 : last + 1);
  m_s.erase(0, std::min(m_s.size(), m_s.find_first_not_of(chars)));
  return *this;
}

CString& CString::TrimLeft(const wchar_t* chars) {
  if (chars) m_s.erase(0, std::min(m_s.size(), m_s.find_first_not_of(chars)));
  return *this;
}

CString& CString::TrimRight(const wchar_t* chars) {
  if (!chars) return *this;
  auto last = m_s.find_last_not_of(chars);
  m_s.erase(last == std::wstring::npos ? 0 : last + 1);
  return *this;
}

CString& CString::MakeUpper() {
  for (auto& c : m_s) c = static_cast<wchar_t>(std::towupper(c));
  return *this;
}

CString& CString::MakeLower() {
  for (auto& c : m_s) c = static_cast<wchar_t>(std::towlower(c));
  return *this;
}

int CString::Replace(const wchar_t* from, const wchar_t* to) {
  if (!from || !*from) return 0;
  const std::wstring f(from), t(to ? to : L"");
  int count = 0;
  for (auto pos = m_s.find(f); pos != std::wstring::npos; pos = m_s.find(f, pos + t.size())) {
    m_s.replace(pos, f.size(), t);
    ++count;
  }
  return count;
}

int CString::Remove(wchar_t c) {
  const auto before = m_s.size();
  std::erase(m_s, c);
  return static_cast<int>(before - m_s.size());
}

int CString::CompareNoCase(const wchar_t* other) const {
  CString a(*this), b(other);
  a.MakeLower();
  b.MakeLower();
  return a.m_s.compare(b.m_s);
}

int CString::CollateNoCase(const wchar_t* other) const {
  CString a(*this), b(other);
  a.MakeLower();
  b.MakeLower();
  const int r = std::wcscoll(a.m_s.c_str(), b.m_s.c_str());
  return r < 0 ? -1 : (r > 0 ? 1 : 0);
}

void CString::Format(const wchar_t* fmt, ...) {
  if (!fmt) { m_s.clear(); return; }
  std::vector<wchar_t> buf(256);
  for (;;) {
    va_list args;
    va_start(args, fmt);
    const int n = std::vswprintf(buf.data(), buf.size(), fmt, args);
    va_end(args);
    if (n >= 0 && static_cast<std::size_t>(n) < buf.size()) {
      m_s.assign(buf.data(), n);
      return;
    }
    if (buf.size() > (1u << 20)) { m_s.clear(); return; }  // malformed format: give up
    buf.resize(buf.size() * 4);
  }
}

std::string CString::ToUtf8() const {
  std::string out;
  for (wchar_t wc : m_s) {
    auto c = static_cast<std::uint32_t>(wc);
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

CString CString::FromUtf8(const std::string& s) {
  std::wstring out;
  for (std::size_t i = 0; i < s.size();) {
    const auto b = static_cast<unsigned char>(s[i]);
    const int extra = b < 0x80 ? 0 : (b >> 5) == 6 ? 1 : (b >> 4) == 14 ? 2 : (b >> 3) == 30 ? 3 : -1;
    if (extra < 0 || (extra > 0 && i + extra >= s.size())) {
      out += L'\uFFFD';  // invalid or truncated sequence
      ++i;
      continue;
    }
    std::uint32_t c = extra == 0 ? b : (b & (0x3F >> extra));
    for (int k = 1; k <= extra; ++k) c = (c << 6) | (static_cast<unsigned char>(s[i + k]) & 0x3F);
    out += static_cast<wchar_t>(c);
    i += extra + 1;
  }
  return CString(out);
}
