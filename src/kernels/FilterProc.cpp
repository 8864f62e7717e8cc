// Per-plane separable convolution evaluator.
#include "kernels/FilterProc.h"

#include <algorithm>

#include "core/OrbImage.h"
#include "kernels/FilterMatrix.h"
#include "kernels/Vec4.h"
#include "platform/Diagnostics.h"
#include "platform/Parallel.h"

namespace {
constexpr int kUnset = -1000;
}

CFilterProc::CFilterProc(COrbImage* image, CFilterMatrix* m, int plane) { MakeBuf(image, m, plane, 1); }

void CFilterProc::Empty() {
  m_buffers.clear();
  m_lastRow.clear();
  m_lastColumn.clear();
  m_ringStart.clear();
}

void CFilterProc::Init() {
  std::fill(m_lastRow.begin(), m_lastRow.end(), kUnset);
  std::fill(m_lastColumn.begin(), m_lastColumn.end(), kUnset);
  std::fill(m_ringStart.begin(), m_ringStart.end(), 0);
}

int CFilterProc::MakeBuf(COrbImage* image, CFilterMatrix* m, int plane, int normalise) {
  m_image = image;
  m_matrix = m;
  m_plane = plane;
  m_radius = m->GetRadius();
  m_taps = 2 * m_radius + 1;
  m_width = image->GetWidth();
  m_threads = std::max(1, CParallel::GetMaxThreads());
  const size_t size = static_cast<size_t>(m_taps) * static_cast<size_t>(m_width);
  if (m_buffers.size() != static_cast<size_t>(m_threads) || m_buffers.front().size() != size)
    m_buffers.assign(static_cast<size_t>(m_threads), std::vector<float>(size));
  m_lastRow.assign(static_cast<size_t>(m_threads), kUnset);
  m_lastColumn.assign(static_cast<size_t>(m_threads), kUnset);
  m_ringStart.assign(static_cast<size_t>(m_threads), 0);

  m_coef.resize(static_cast<size_t>(m_taps));
  double sum = 0.0;
  for (int k = -m_radius; k <= m_radius; ++k) sum += m_coef[static_cast<size_t>(k + m_radius)] = m->At(k, 0);
  if (normalise && sum != 0.0)
    for (float& t : m_coef) t = static_cast<float>(t / sum);
  return 1;
}

int CFilterProc::Slot() const {
  const int t = CParallel::GetThreadNum();
  if (t < static_cast<int>(m_buffers.size())) return t;
  if (!m_buffers.empty()) AfxMessageBox(L"Over!");
  return -1;
}

void CFilterProc::LoadLine(int slot, int line, int row) {
  std::vector<float>& ring = m_buffers[static_cast<size_t>(slot)];
  if (line < 0 || line >= m_taps) {  // never in correct use: the slot index is taken modulo the ring
    AfxMessageBox(L"Over!");
    return;
  }
  const float* src = m_image->GetImageAdr(0, FoldRow(row, m_image->GetHeight()), m_plane);
  float* dst = ring.data() + static_cast<size_t>(line) * static_cast<size_t>(m_width);
  const float* t = m_coef.data();
  const int r = m_radius, w = m_width;
  // Every column sums its taps in the same order (k = -r .. r) whichever branch runs it.
  auto edge = [&](int c) {
    float s = 0.0f;
    for (int k = -r; k <= r; ++k) s += t[k + r] * src[std::clamp(c + k, 0, w - 1)];
    dst[c] = s;
  };
  const int lo = std::min(r, w), hi = std::max(lo, w - r);
  for (int c = 0; c < lo; ++c) edge(c);
  int c = lo;
  // Four independent sums per step hide the latency of each column's chain of additions.
  for (; c + 16 <= hi; c += 16) {
    Vec4f s0(0.0f), s1(0.0f), s2(0.0f), s3(0.0f);
    for (int k = 0; k < m_taps; ++k) {
      const Vec4f tk(t[k]);
      const float* p = src + c - r + k;
      s0 = s0 + tk * Vec4f::Load(p);
      s1 = s1 + tk * Vec4f::Load(p + 4);
      s2 = s2 + tk * Vec4f::Load(p + 8);
      s3 = s3 + tk * Vec4f::Load(p + 12);
    }
    s0.Store(dst + c), s1.Store(dst + c + 4), s2.Store(dst + c + 8), s3.Store(dst + c + 12);
  }
  for (; c + 4 <= hi; c += 4) {
    Vec4f s(0.0f);
    for (int k = 0; k < m_taps; ++k) s = s + Vec4f(t[k]) * Vec4f::Load(src + c - r + k);
    s.Store(dst + c);
  }
  for (; c < w; ++c) edge(c);
}

void CFilterProc::ProcHorizontal(int x, int y) {
  const int slot = Slot();
  if (slot < 0) return;
  const int T = m_taps;
  int& last = m_lastRow[static_cast<size_t>(slot)];
  int& start = m_ringStart[static_cast<size_t>(slot)];
  m_lastColumn[static_cast<size_t>(slot)] = x;
  int d = last - y;
  if (d == 0) return;
  if (d < -T) {
    d = -T;
  } else if (d > 0) {
    // Moving up: the ring is reloaded from scratch. Reusing lines upward would need a
    // different slot mapping, and the rows are walked downward in every filter loop.
    start = 0;
    d = -T;
  }
  const int newStart = ((start - d) % T + T) % T;
  for (int i = 0; i < -d; ++i) LoadLine(slot, (newStart + T + i + d) % T, y + m_radius + 1 + i + d);
  start = newStart;
  last = y;
}

float CFilterProc::ProcVertical(int x) {
  const int slot = Slot();
  if (slot < 0) return 0.0f;
  const float* ring = m_buffers[static_cast<size_t>(slot)].data();
  const int start = m_ringStart[static_cast<size_t>(slot)];
  float s = 0.0f;
  for (int j = 0; j < m_taps; ++j)
    s += m_coef[static_cast<size_t>(j)] * ring[static_cast<size_t>((start + j) % m_taps) * m_width + x];
  return s;
}

float CFilterProc::Calc(int x, int y) {
  ProcHorizontal(x, y);
  return ProcVertical(x);
}

void CFilterProc::CalcLine(int x, int y, int count, float* out) {
  ProcHorizontal(x, y);
  const int slot = Slot();
  if (slot < 0) return;
  const float* ring = m_buffers[static_cast<size_t>(slot)].data();
  const int start = m_ringStart[static_cast<size_t>(slot)];
  constexpr int kMaxLines = 256;
  const float* lineBuf[kMaxLines];
  std::vector<const float*> heap;
  const float** line = lineBuf;
  if (m_taps > kMaxLines) {
    heap.resize(static_cast<size_t>(m_taps));
    line = heap.data();
  }
  for (int j = 0; j < m_taps; ++j) line[j] = ring + static_cast<size_t>((start + j) % m_taps) * m_width + x;
  const float* t = m_coef.data();
  int i = 0;
  for (; i + 16 <= count; i += 16) {
    Vec4f s0(0.0f), s1(0.0f), s2(0.0f), s3(0.0f);
    for (int j = 0; j < m_taps; ++j) {
      const Vec4f tj(t[j]);
      const float* p = line[j] + i;
      s0 = s0 + tj * Vec4f::Load(p);
      s1 = s1 + tj * Vec4f::Load(p + 4);
      s2 = s2 + tj * Vec4f::Load(p + 8);
      s3 = s3 + tj * Vec4f::Load(p + 12);
    }
    s0.Store(out + i), s1.Store(out + i + 4), s2.Store(out + i + 8), s3.Store(out + i + 12);
  }
  for (; i + 4 <= count; i += 4) {
    Vec4f s(0.0f);
    for (int j = 0; j < m_taps; ++j) s = s + Vec4f(t[j]) * Vec4f::Load(line[j] + i);
    s.Store(out + i);
  }
  for (; i < count; ++i) {
    float s = 0.0f;
    for (int j = 0; j < m_taps; ++j) s += t[j] * line[j][i];
    out[i] = s;
  }
}
