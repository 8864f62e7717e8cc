// Metadata record.
#include "container/Header.h"

#include <algorithm>
#include <cmath>
#include <cwchar>

void CHeader::GetWBShootingGainBayer(double gains[4]) const { std::copy(m_gainBayer, m_gainBayer + 4, gains); }

void CHeader::GetWBShootingGainHoneyComb(double gains[8]) const {
  std::copy(m_gainHoneyComb, m_gainHoneyComb + 8, gains);
}

int CHeader::GetExposureTime(double* seconds) const {
  double v = m_exposure;
  const bool known = m_hasExposure || GetKeyword(L"EXPTIME", &v) || GetKeyword(L"EXPOSURE", &v);
  if (known && seconds) *seconds = v;
  return known ? 1 : 0;
}

void CHeader::SetExposureTime(double seconds) {
  m_hasExposure = true;
  m_exposure = seconds;
}

int CHeader::GetCoolingTemperature(double* celsius) const {
  double v = m_temperature;
  const bool known = m_hasTemperature || GetKeyword(L"CCD-TEMP", &v) || GetKeyword(L"SET-TEMP", &v);
  if (known && celsius) *celsius = v;
  return known ? 1 : 0;
}

void CHeader::SetCoolingTemperature(double celsius) {
  m_hasTemperature = true;
  m_temperature = celsius;
}

int CHeader::GetDetector(CString& name) const {
  if (GetKeyword(L"INSTRUME", name) || GetKeyword(L"DETECTOR", name)) return 1;
  if (m_cameraModel.IsEmpty()) return 0;
  name = m_cameraModel;
  return 1;
}

void CHeader::GetExposureShutterSpeed(CString& text) const {
  double t = 0;
  if (!GetExposureTime(&t) || !(t > 0)) {
    text.Empty();
    return;
  }
  if (t < 1.0) {
    text.Format(L"1/%d", static_cast<int>(std::lround(1.0 / t)));
  } else if (t == std::floor(t)) {
    text.Format(L"%d", static_cast<int>(t));
  } else {
    text.Format(L"%.1f", t);
  }
}

const CHeader::Keyword* CHeader::Find(const wchar_t* name) const {
  auto it = std::find_if(m_keywords.begin(), m_keywords.end(),
                         [name](const Keyword& k) { return k.name.CompareNoCase(name) == 0; });
  return it == m_keywords.end() ? nullptr : &*it;
}

void CHeader::SetKeyword(const CString& name, const CString& value, const CString& comment) {
  if (auto* k = const_cast<Keyword*>(Find(name))) {
    k->value = value;
    k->comment = comment;
  } else {
    m_keywords.push_back({name, value, comment});
  }
}

bool CHeader::GetKeyword(const wchar_t* name, CString& value) const {
  const Keyword* k = Find(name);
  if (!k) return false;
  value = k->value;
  return true;
}

bool CHeader::GetKeyword(const wchar_t* name, double* value) const {
  CString text;
  if (!GetKeyword(name, text)) return false;
  wchar_t* end = nullptr;
  const double v = std::wcstod(text, &end);
  if (end == text.GetString()) return false;
  if (value) *value = v;
  return true;
}

void CHeader::RemoveKeyword(const wchar_t* name) {
  std::erase_if(m_keywords, [name](const Keyword& k) { return k.name.CompareNoCase(name) == 0; });
}
