// Three per-plane convolution evaluators with a current-plane selector.
#pragma once
#include "kernels/FilterProc.h"

/// @brief One CFilterProc per colour plane and the plane that Calc uses by default.
class CFilterProcEx {
 public:
  CFilterProcEx() = default;
  virtual ~CFilterProcEx() = default;

  void SetPln(int plane) { m_current = plane; }
  int GetPln() const { return m_current; }
  /// Empties all three planes.
  void Clear() {
    for (auto& proc : m_proc) proc.Empty();
  }
  CFilterProc& GetProc(int plane) { return m_proc[plane]; }

 private:
  CFilterProc m_proc[3];
  int m_current = 0;
};
