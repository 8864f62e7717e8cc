// Three per-plane convolution evaluators with a current-plane selector.
#pragma once
#include "kernels/FilterProc.h"

/// @brief One CFilterProc per colour plane and the plane that Calc uses by default.
class CFilterProcEx {
 public:
  CFilterProcEx() = default;
  virtual ~CFilterProcEx() = default;

  /// Builds the evaluator of plane (0..2) unless it is already built: 0 when plane > 2,
  /// 1 without rebuilding when that plane is not empty, else MakeBuf's result. Call Clear
  /// first to change the kernel or the source.
  int Make(COrbImage* image, CFilterMatrix* m, int plane, int normalise);
  /// Selects the plane that Calc(x, y) evaluates (not checked: 0..2).
  void SetPln(int plane) { m_current = plane; }
  int GetPln() const { return m_current; }
  float Calc(int x, int y) { return m_proc[m_current].Calc(x, y); }
  float Calc(int x, int y, int plane) { return m_proc[plane].Calc(x, y); }
  /// Empties all three planes.
  void Clear() {
    for (auto& proc : m_proc) proc.Empty();
  }
  CFilterProc& GetProc(int plane) { return m_proc[plane]; }

 private:
  CFilterProc m_proc[3];
  int m_current = 0;
};
