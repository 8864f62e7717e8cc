// Variance-driven median cut over a 6-bit-per-channel histogram.
#include "core/PaletteQuantizer.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "platform/Parallel.h"

namespace {

// Pixels whose cells are computed at once: a batch the compiler can vectorise.
constexpr int kChunk = 256;

// One occupied histogram cell: its pixel count and mean colour.
struct COccupied {
  int cell;
  double n;
  double mean[3];
};

// A box: a range of occupied cells and its squared error about the pixel-weighted mean.
struct CBox {
  int begin, end;
  double error;
  int axis;
  int split;  // first cell of the upper half, or -1 when the box cannot be split
};

// Chooses the channel and split point of a box that leave the least squared error.
void PlanSplit(std::vector<COccupied>& cells, CBox& box) {
  box.split = -1;
  box.error = 0;
  if (box.end - box.begin < 2) return;
  // The channel with the largest weighted variance.
  double n = 0, s[3] = {0, 0, 0}, ss[3] = {0, 0, 0};
  for (int i = box.begin; i < box.end; ++i)
    for (int k = 0; k < 3; ++k) {
      s[k] += cells[i].n * cells[i].mean[k];
      ss[k] += cells[i].n * cells[i].mean[k] * cells[i].mean[k];
    }
  for (int i = box.begin; i < box.end; ++i) n += cells[i].n;
  double var[3];
  for (int k = 0; k < 3; ++k) var[k] = std::max(0.0, ss[k] - s[k] * s[k] / n);
  box.error = var[0] + var[1] + var[2];
  box.axis = var[1] > var[0] ? 1 : 0;
  if (var[2] > var[box.axis]) box.axis = 2;
  if (box.error <= 0) return;
  const int axis = box.axis;
  // Ties broken by cell number keep the order, and so the palette, deterministic.
  std::sort(cells.begin() + box.begin, cells.begin() + box.end, [axis](const COccupied& a, const COccupied& b) {
    return a.mean[axis] != b.mean[axis] ? a.mean[axis] < b.mean[axis] : a.cell < b.cell;
  });
  // Along that channel, the split with the least error on both sides.
  double best = -1, ln = 0, ls = 0, lss = 0;
  const double total = s[axis], totalSq = ss[axis];
  for (int i = box.begin; i + 1 < box.end; ++i) {
    const double v = cells[i].mean[axis];
    ln += cells[i].n;
    ls += cells[i].n * v;
    lss += cells[i].n * v * v;
    if (cells[i + 1].mean[axis] == v) continue;  // equal values stay together
    const double rn = n - ln, rs = total - ls, rss = totalSq - lss;
    const double err = (lss - ls * ls / ln) + (rss - rs * rs / rn);
    if (best < 0 || err < best) {
      best = err;
      box.split = i + 1;
    }
  }
}

}  // namespace

CPaletteQuantizer::CPaletteQuantizer() : m_cells(kCells), m_map(kCells, -1) {}

void CPaletteQuantizer::CellsOf(const BYTE* r, const BYTE* g, const BYTE* b, int count, std::uint32_t* cells) {
  for (int i = 0; i < count; ++i) cells[i] = CellOf(r[i], g[i], b[i]);
}

void CPaletteQuantizer::Count(CCell* cells, const BYTE* r, const BYTE* g, const BYTE* b, int count) {
  std::uint32_t cell[kChunk];
  for (int x = 0; x < count; x += kChunk) {
    const int n = std::min(kChunk, count - x);
    CellsOf(r + x, g + x, b + x, n, cell);
    for (int i = 0; i < n; ++i) {
      CCell& c = cells[cell[i]];
      ++c.count;
      c.sum[0] += r[x + i];
      c.sum[1] += g[x + i];
      c.sum[2] += b[x + i];
    }
  }
}

void CPaletteQuantizer::AddPixels(const BYTE* r, const BYTE* g, const BYTE* b, int count) {
  Count(m_cells.data(), r, g, b, count);
}

void CPaletteQuantizer::AddRows(int rows, int width,
                                const std::function<void(int row, BYTE* r, BYTE* g, BYTE* b)>& render) {
  // Thread 0 counts into the quantizer's own cells, every other thread into a histogram of
  // its own that is added in afterwards. The counts and sums are integers, so the result does
  // not depend on how the rows were shared out. The histograms are allocated here, where
  // running out of memory can be reported, but zeroed by their threads; a thread that does
  // not join the team leaves its histogram out.
  const int threads = CParallel::GetMaxThreads();
  const auto others = std::make_unique_for_overwrite<CCell[]>(std::size_t(threads - 1) * kCells);
  std::vector<char> joined(threads, 0);
  std::vector<BYTE> rowBytes(std::size_t(threads) * 3 * width);
#pragma omp parallel
  {
    const int thread = CParallel::GetThreadNum();
    CCell* cells = thread == 0 ? m_cells.data() : others.get() + std::size_t(thread - 1) * kCells;
    if (thread > 0) std::fill_n(cells, kCells, CCell{});
    joined[thread] = 1;
    BYTE* r = rowBytes.data() + std::size_t(thread) * 3 * width;
    BYTE* g = r + width;
    BYTE* b = g + width;
#pragma omp for schedule(static)
    for (int y = 0; y < rows; ++y) {
      render(y, r, g, b);
      Count(cells, r, g, b, width);
    }
#pragma omp for schedule(static)
    for (int i = 0; i < kCells; ++i)
      for (int t = 1; t < threads; ++t) {
        if (!joined[t]) continue;
        const CCell& c = others[std::size_t(t - 1) * kCells + i];
        m_cells[i].count += c.count;
        for (int k = 0; k < 3; ++k) m_cells[i].sum[k] += c.sum[k];
      }
  }
}

int CPaletteQuantizer::BuildPalette(int colours) {
  colours = std::clamp(colours, 1, 256);
  std::vector<COccupied> cells;
  for (int i = 0; i < kCells; ++i) {
    const CCell& c = m_cells[i];
    if (!c.count) continue;
    const double n = c.count;
    cells.push_back({i, n, {c.sum[0] / n, c.sum[1] / n, c.sum[2] / n}});
  }
  std::fill(m_palette, m_palette + 256, RGBQUAD{});
  std::fill(m_map.begin(), m_map.end(), std::int16_t(-1));
  m_colors = 0;
  if (cells.empty()) return 0;

  std::vector<CBox> boxes{{0, int(cells.size()), 0, 0, -1}};
  PlanSplit(cells, boxes[0]);
  while (int(boxes.size()) < colours) {
    // The splittable box with the largest error; the first one on ties.
    int worst = -1;
    for (int i = 0; i < int(boxes.size()); ++i)
      if (boxes[i].split >= 0 && (worst < 0 || boxes[i].error > boxes[worst].error)) worst = i;
    if (worst < 0) break;
    CBox upper{boxes[worst].split, boxes[worst].end, 0, 0, -1};
    boxes[worst].end = boxes[worst].split;
    PlanSplit(cells, boxes[worst]);
    PlanSplit(cells, upper);
    boxes.push_back(upper);
  }

  m_colors = int(boxes.size());
  for (int i = 0; i < m_colors; ++i) {
    double n = 0, s[3] = {0, 0, 0};
    for (int c = boxes[i].begin; c < boxes[i].end; ++c) {
      n += cells[c].n;
      for (int k = 0; k < 3; ++k) s[k] += cells[c].n * cells[c].mean[k];
    }
    auto channel = [&](int k) { return BYTE(std::clamp(std::lround(s[k] / n), 0L, 255L)); };
    m_palette[i] = RGBQUAD{channel(2), channel(1), channel(0), 0};
  }
  // Every counted cell maps to the entry nearest its mean colour.
  const int occupied = int(cells.size());
#pragma omp parallel for schedule(static)
  for (int i = 0; i < occupied; ++i)
    m_map[cells[i].cell] = Nearest(cells[i].mean[0], cells[i].mean[1], cells[i].mean[2]);
  return m_colors;
}

BYTE CPaletteQuantizer::Nearest(double r, double g, double b) const {
  int best = 0;
  double bestDist = -1;
  for (int i = 0; i < m_colors; ++i) {
    const double dr = r - m_palette[i].rgbRed, dg = g - m_palette[i].rgbGreen, db = b - m_palette[i].rgbBlue;
    const double d = dr * dr + dg * dg + db * db;
    if (bestDist < 0 || d < bestDist) {
      bestDist = d;
      best = i;
    }
  }
  return BYTE(best);
}

void CPaletteQuantizer::MapPixels(const BYTE* r, const BYTE* g, const BYTE* b, int count, BYTE* out) const {
  std::uint32_t cell[kChunk];
  for (int x = 0; x < count; x += kChunk) {
    const int n = std::min(kChunk, count - x);
    CellsOf(r + x, g + x, b + x, n, cell);
    for (int i = 0; i < n; ++i) out[x + i] = MapCell(cell[i], r[x + i], g[x + i], b[x + i]);
  }
}
