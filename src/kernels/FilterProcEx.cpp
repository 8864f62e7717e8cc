// Three per-plane convolution evaluators with a current-plane selector.
#include "kernels/FilterProcEx.h"

int CFilterProcEx::Make(COrbImage* image, CFilterMatrix* m, int plane, int normalise) {
  if (plane < 0 || plane > 2) return 0;
  CFilterProc& proc = m_proc[plane];
  if (!proc.IsEmpty()) return 1;
  return proc.MakeBuf(image, m, plane, normalise);
}
