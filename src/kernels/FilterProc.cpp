// Per-plane separable convolution evaluator.
#include "kernels/FilterProc.h"

#include <algorithm>

void CFilterProc::Empty() {
  m_buffers.clear();
  m_lastRow.clear();
  m_lastColumn.clear();
  m_ringStart.clear();
}

void CFilterProc::Init() {
  std::fill(m_lastRow.begin(), m_lastRow.end(), -1000);
  std::fill(m_lastColumn.begin(), m_lastColumn.end(), -1000);
  std::fill(m_ringStart.begin(), m_ringStart.end(), 0);
}
