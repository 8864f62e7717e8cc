// The image's own convolution evaluators: three planes and six slots of three.
#include "core/OrbImage.h"
#include "kernels/FilterMatrix.h"

int COrbImage::MakeFilterProc(COrbImage* src, CFilterMatrix* m, int plane, int normalise) {
  if (plane < 0 || plane > 2) return 0;
  CFilterProc& proc = m_filterProc[plane];
  if (!proc.IsEmpty()) return 1;
  return proc.MakeBuf(src, m, plane, normalise);
}

int COrbImage::MakeFilterProcEx(int slot, COrbImage* src, CFilterMatrix* m, int plane, int normalise) {
  if (slot < 0 || slot >= kFilterSlots) return 0;
  return m_filterProcEx[slot].Make(src, m, plane, normalise);
}

float COrbImage::CalcFilterProc(int x, int y) { return m_curFilterProc->Calc(x, y); }

float COrbImage::CalcFilterProc(int x, int y, int plane) { return m_filterProc[plane].Calc(x, y); }

void COrbImage::CalcFilterProcLine(int x, int y, int count, float* out, int plane) {
  m_filterProc[plane].CalcLine(x, y, count, out);
}

float COrbImage::CalcFilterProcEx(int slot, int x, int y) { return m_filterProcEx[slot].Calc(x, y); }

float COrbImage::CalcFilterProcEx(int slot, int x, int y, int plane) { return m_filterProcEx[slot].Calc(x, y, plane); }

void COrbImage::SetFilterProcPln(int plane) { m_curFilterProc = &m_filterProc[plane >= 0 && plane < 3 ? plane : 0]; }

void COrbImage::SetFilterProcPlnEx(int slot, int plane) { m_filterProcEx[slot].SetPln(plane); }

void COrbImage::ClearFilterProc() {
  for (auto& proc : m_filterProc) proc.Empty();
  for (auto& slot : m_filterProcEx) slot.Clear();
}
