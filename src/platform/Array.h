// Growable array with the framework's member names.
#pragma once
#include <cstddef>
#include <utility>
#include <vector>

#include "platform/Object.h"

/// @brief A contiguous array of TYPE. Indices are int; out-of-range access is the caller's error.
template <class TYPE, class ARG_TYPE = const TYPE&>
class CArray : public CObject {
 public:
  int GetSize() const { return static_cast<int>(m_data.size()); }
  int GetCount() const { return GetSize(); }
  int GetUpperBound() const { return GetSize() - 1; }
  bool IsEmpty() const { return m_data.empty(); }
  void SetSize(int n) { m_data.resize(n > 0 ? static_cast<std::size_t>(n) : 0); }
  void RemoveAll() { m_data.clear(); }
  int Add(ARG_TYPE v) { m_data.push_back(v); return GetSize() - 1; }
  void RemoveAt(int i, int count = 1) { m_data.erase(m_data.begin() + i, m_data.begin() + i + count); }
  void InsertAt(int i, ARG_TYPE v) { m_data.insert(m_data.begin() + i, v); }
  void SetAt(int i, ARG_TYPE v) { m_data[i] = v; }
  const TYPE& GetAt(int i) const { return m_data[i]; }
  TYPE& ElementAt(int i) { return m_data[i]; }
  TYPE& operator[](int i) { return m_data[i]; }
  const TYPE& operator[](int i) const { return m_data[i]; }
  TYPE* GetData() { return m_data.data(); }
  const TYPE* GetData() const { return m_data.data(); }
  auto begin() { return m_data.begin(); }
  auto end() { return m_data.end(); }
  auto begin() const { return m_data.begin(); }
  auto end() const { return m_data.end(); }

 private:
  std::vector<TYPE> m_data;
};
