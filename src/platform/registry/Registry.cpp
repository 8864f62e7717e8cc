// In-process settings store.
#include "platform/registry/Registry.h"

#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace {
using Key = std::pair<std::wstring, std::wstring>;

struct Store {
  std::mutex lock;
  std::map<Key, double> values;
};

Store& Settings() {
  static Store store;
  return store;
}

Key MakeKey(const wchar_t* section, const wchar_t* key) {
  CString s(section), k(key);
  return {s.MakeLower().str(), k.MakeLower().str()};
}

bool Find(const wchar_t* section, const wchar_t* key, double* out) {
  auto& store = Settings();
  std::lock_guard guard(store.lock);
  auto it = store.values.find(MakeKey(section, key));
  if (it == store.values.end()) return false;
  *out = it->second;
  return true;
}
}  // namespace

int CRegistry::Read(const wchar_t* section, const wchar_t* key, double def, double* value) {
  double v = def;
  const bool found = Find(section, key, &v);
  if (value) *value = v;
  return found ? 1 : 0;
}

int CRegistry::Read(const wchar_t* section, const wchar_t* key, int def, int* value, int min) {
  double v = def;
  const bool found = Find(section, key, &v);
  int result = found ? static_cast<int>(v) : def;
  if (result < min) result = def;
  if (value) *value = result;
  return found ? 1 : 0;
}

void CRegistry::Write(const wchar_t* section, const wchar_t* key, double value) {
  auto& store = Settings();
  std::lock_guard guard(store.lock);
  store.values[MakeKey(section, key)] = value;
}

void CRegistry::Remove(const wchar_t* section, const wchar_t* key) {
  auto& store = Settings();
  std::lock_guard guard(store.lock);
  store.values.erase(MakeKey(section, key));
}

void CRegistry::Clear() {
  auto& store = Settings();
  std::lock_guard guard(store.lock);
  store.values.clear();
}

int CRegistry::LoadFile(const char* path) {
  std::ifstream in(path ? path : "");
  if (!in) return -1;
  std::string line;
  CString section;
  int count = 0;
  while (std::getline(in, line)) {
    CString text = CString::FromUtf8(line);
    text.Trim();
    if (text.IsEmpty() || text[0] == L';' || text[0] == L'#') continue;
    if (text[0] == L'[' && text.Find(L']') > 0) {
      section = text.Mid(1, text.Find(L']') - 1);
      continue;
    }
    const int eq = text.Find(L'=');
    if (eq <= 0) continue;
    CString key = text.Left(eq), value = text.Mid(eq + 1);
    key.Trim();
    value.Trim();
    wchar_t* end = nullptr;
    const double v = std::wcstod(value, &end);
    if (end == value.GetString()) continue;
    Write(section, key, v);
    ++count;
  }
  return count;
}
