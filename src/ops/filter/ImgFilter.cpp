// Median, rank, Laplacian and unsharp-mask filters and the neighbourhood evaluators.
#include "ops/filter/ImgFilter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <type_traits>
#include <utility>
#include <vector>

#include "core/LineLoop.h"
#include "core/MessageTable.h"
#include "kernels/FilterProc.h"
#include "kernels/Vec4.h"
#include "platform/Exceptions.h"
#include "platform/QrnSys.h"

namespace {

constexpr int kMaxSamples = 21;

/// Column offsets -2, -1, 0, +1, +2 at column x of a line of width w: an offset that would
/// leave the line flips its sign, and the flipped column is clamped for lines narrower than
/// the kernel.
struct Columns {
  int m2, m1, p1, p2;
  Columns(int x, int w) {
    auto fix = [&](int o) { return std::clamp(x + o, 0, w - 1) - x; };
    m1 = fix(x < 1 ? 1 : -1);
    p1 = fix(x >= w - 1 ? -1 : 1);
    m2 = fix(x < 2 ? 2 : -2);
    p2 = fix(x >= w - 2 ? -2 : 2);
  }
};

/// The samples of a kernel type in a fixed order (rows top to bottom, each left to right);
/// returns their count and the index of the centre. Other types give the centre alone.
template <class T>
int Gather(float** l, const Columns& c, int type, T* v, int& centre) {
  switch (type) {
    case 0:
      v[0] = l[0][0], v[1] = l[1][c.m1], v[2] = l[1][0], v[3] = l[1][c.p1], v[4] = l[2][0];
      centre = 2;
      return 5;
    case 1: {
      int n = 0;
      for (int r = 0; r < 3; ++r) v[n++] = l[r][c.m1], v[n++] = l[r][0], v[n++] = l[r][c.p1];
      centre = 4;
      return 9;
    }
    case 2: {
      int n = 0;
      for (int r = 0; r < 5; ++r) {
        if (r != 0 && r != 4) v[n++] = l[r][c.m2];
        v[n++] = l[r][c.m1], v[n++] = l[r][0], v[n++] = l[r][c.p1];
        if (r != 0 && r != 4) v[n++] = l[r][c.p2];
      }
      centre = 10;
      return 21;
    }
    default:
      v[0] = l[0][0];
      centre = 0;
      return 1;
  }
}

/// Same order for V::kWidth interior columns at offset i from the line pointers (no flipping).
template <int Type, class V>
inline void GatherVec(float* const* l, int i, V* v) {
  auto at = [&](int r, int o) { return V::Load(l[r] + i + o); };
  if constexpr (Type == 0) {
    v[0] = at(0, 0), v[1] = at(1, -1), v[2] = at(1, 0), v[3] = at(1, 1), v[4] = at(2, 0);
  } else if constexpr (Type == 1) {
    int n = 0;
    for (int r = 0; r < 3; ++r) v[n++] = at(r, -1), v[n++] = at(r, 0), v[n++] = at(r, 1);
  } else {
    int n = 0;
    for (int r = 0; r < 5; ++r) {
      if (r != 0 && r != 4) v[n++] = at(r, -2);
      v[n++] = at(r, -1), v[n++] = at(r, 0), v[n++] = at(r, 1);
      if (r != 0 && r != 4) v[n++] = at(r, 2);
    }
  }
}

// ---- Selection networks ------------------------------------------------------------------
// A min/max network returns exactly the same k-th smallest value as a sort, so the vector
// path changes no result. The sorting network (a known small one, or Batcher's odd-even merge
// sort on the next power of two with the comparators that touch the padding wires dropped:
// they would hold +inf and never move) is pruned backwards to the operations that the one wanted output depends on.

struct NetOp {
  int a, b, kind;  // kind 0: a = min, b = max; 1: a = min only; 2: b = max only
};
struct Network {
  NetOp ops[256];
  int count = 0;
};

// Smallest known sorting networks for 5 and 9 inputs (9 and 25 comparators).
constexpr int kSort5[][2] = {{0, 1}, {3, 4}, {2, 4}, {2, 3}, {0, 3}, {0, 2}, {1, 4}, {1, 3}, {1, 2}};
constexpr int kSort9[][2] = {{0, 3}, {1, 7}, {2, 5}, {4, 8}, {0, 7}, {2, 4}, {3, 8}, {5, 6}, {0, 2},
                             {1, 3}, {4, 5}, {7, 8}, {1, 4}, {3, 6}, {5, 7}, {0, 1}, {2, 4}, {3, 5},
                             {6, 8}, {2, 3}, {4, 5}, {6, 7}, {1, 2}, {3, 4}, {5, 6}};

constexpr Network SortNetwork(int n) {
  Network net{};
  if (n == 5)
    for (auto& c : kSort5) net.ops[net.count++] = {c[0], c[1], 0};
  if (n == 9)
    for (auto& c : kSort9) net.ops[net.count++] = {c[0], c[1], 0};
  if (net.count) return net;
  int size = 1;
  while (size < n) size <<= 1;
  for (int p = 1; p < size; p <<= 1)
    for (int k = p; k >= 1; k >>= 1)
      for (int j = k % p; j + k < size; j += 2 * k)
        for (int i = 0; i < k && i < size - j - k; ++i)
          if ((i + j) / (2 * p) == (i + j + k) / (2 * p) && i + j + k < n) net.ops[net.count++] = {i + j, i + j + k, 0};
  return net;
}

constexpr Network SelectNetwork(int n, int k) {
  const Network full = SortNetwork(n);
  bool need[kMaxSamples] = {};
  need[k] = true;
  Network rev{};
  for (int i = full.count - 1; i >= 0; --i) {
    const NetOp op = full.ops[i];
    const bool na = need[op.a], nb = need[op.b];
    if (na && nb) {
      rev.ops[rev.count++] = {op.a, op.b, 0};
    } else if (na) {
      rev.ops[rev.count++] = {op.a, op.b, 1};
      need[op.b] = true;
    } else if (nb) {
      rev.ops[rev.count++] = {op.a, op.b, 2};
      need[op.a] = true;
    }
  }
  Network out{};
  for (int i = 0; i < rev.count; ++i) out.ops[i] = rev.ops[rev.count - 1 - i];
  out.count = rev.count;
  return out;
}

template <int A, int B, int Kind, class V>
inline void Apply(V* v) {
  if constexpr (Kind == 0) {
    const V lo = V::Min(v[A], v[B]);
    v[B] = V::Max(v[A], v[B]);
    v[A] = lo;
  } else if constexpr (Kind == 1) {
    v[A] = V::Min(v[A], v[B]);
  } else {
    v[B] = V::Max(v[A], v[B]);
  }
}

template <int N, int K, class V, int... I>
inline V RunSelect(V* v, std::integer_sequence<int, I...>) {
  constexpr Network net = SelectNetwork(N, K);
  (Apply<net.ops[I].a, net.ops[I].b, net.ops[I].kind>(v), ...);
  return v[K];
}

using RowRankFn = void (*)(float* const* lines, float* dst, int begin, int end);

/// Rank K of kernel Type for the columns [i, end) (offsets from the line pointers), V::kWidth
/// at a time while a whole vector fits; returns the first column not done.
template <int Type, int N, int K, class V>
inline int RankSpan(float* const* lines, float* dst, int i, int end) {
  constexpr int count = SelectNetwork(N, K).count;
  for (; i + V::kWidth <= end; i += V::kWidth) {
    V v[N];
    GatherVec<Type>(lines, i, v);
    RunSelect<N, K>(v, std::make_integer_sequence<int, count>{}).Store(dst + i);
  }
  return i;
}

/// Rank K of kernel Type for the interior columns [begin, end), four at a time; end - begin
/// is a multiple of 4.
template <int Type, int N, int K>
void RankRow(float* const* lines, float* dst, int begin, int end) {
  RankSpan<Type, N, K, Vec4f>(lines, dst, begin, end);
}

/// The same, eight columns at a time and the last four, if any, four-wide.
template <int Type, int N, int K>
QRN_WIDE_TARGET void RankRowWide(float* const* lines, float* dst, int begin, int end) {
  RankSpan<Type, N, K, Vec4f>(lines, dst, RankSpan<Type, N, K, Vec8f>(lines, dst, begin, end), end);
}

template <int Type, int N, bool Wide, int... K>
constexpr std::array<RowRankFn, N> RankTable(std::integer_sequence<int, K...>) {
  if constexpr (Wide)
    return {&RankRowWide<Type, N, K>...};
  else
    return {&RankRow<Type, N, K>...};
}

template <bool Wide>
RowRankFn RankRowFnOf(int type, int rank) {
  static constexpr auto t0 = RankTable<0, 5, Wide>(std::make_integer_sequence<int, 5>{});
  static constexpr auto t1 = RankTable<1, 9, Wide>(std::make_integer_sequence<int, 9>{});
  static constexpr auto t2 = RankTable<2, 21, Wide>(std::make_integer_sequence<int, 21>{});
  switch (type) {
    case 0: return t0[static_cast<size_t>(rank)];
    case 1: return t1[static_cast<size_t>(rank)];
    case 2: return t2[static_cast<size_t>(rank)];
    default: return nullptr;
  }
}

/// One sample with the vector types' Min and Max, so that the selection networks also run on
/// single samples: the edge columns of the vector path get the same values as its interior.
struct Lane {
  float v;
  Lane() : v(0.0f) {}
  Lane(float f) : v(f) {}  // NOLINT
  static Lane Min(Lane a, Lane b) { return a.v < b.v ? a : b; }
  static Lane Max(Lane a, Lane b) { return a.v > b.v ? a : b; }
};

using EdgeRankFn = float (*)(Lane* v);

template <int N, int K>
float SelectOne(Lane* v) {
  return RunSelect<N, K>(v, std::make_integer_sequence<int, SelectNetwork(N, K).count>{}).v;
}

template <int N, int... K>
constexpr std::array<EdgeRankFn, N> EdgeTable(std::integer_sequence<int, K...>) {
  return {&SelectOne<N, K>...};
}

/// rank-th smallest of the samples of kernel type, gathered in Gather's order.
EdgeRankFn EdgeRankFnOf(int type, int rank) {
  static constexpr auto t0 = EdgeTable<5>(std::make_integer_sequence<int, 5>{});
  static constexpr auto t1 = EdgeTable<9>(std::make_integer_sequence<int, 9>{});
  static constexpr auto t2 = EdgeTable<21>(std::make_integer_sequence<int, 21>{});
  switch (type) {
    case 0: return t0[static_cast<size_t>(rank)];
    case 1: return t1[static_cast<size_t>(rank)];
    case 2: return t2[static_cast<size_t>(rank)];
    default: return nullptr;
  }
}

/// Columns per block of the two-pass row functions: their column buffers stay in the L1
/// cache and need no allocation.
constexpr int kBlock = 512;

/// Sorts a, b, c into ascending order with three compare-exchanges.
template <class T, class Mn, class Mx>
inline void Sort3(T& a, T& b, T& c, Mn mn, Mx mx) {
  T t = mn(a, b);
  b = mx(a, b), a = t;
  t = mn(b, c);
  c = mx(b, c), b = t;
  t = mn(a, b);
  b = mx(a, b), a = t;
}

/// Median of three values.
template <class W>
inline W Med3(const W& a, const W& b, const W& c) {
  return W::Max(W::Min(a, b), W::Min(W::Max(a, b), c));
}

/// Median of the 3x3 square for the columns [begin, end) of one block: each column of three
/// is sorted once into lo, mi, hi (columns begin-1 .. end), and the median of nine is the
/// median of (largest low, median of the middles, smallest high) of three neighbouring
/// sorted columns: the same value a sort gives.
template <class V>
inline void Median9Block(float* const* l, float* dst, int begin, int end) {
  float lo[kBlock + 2], mi[kBlock + 2], hi[kBlock + 2];
  const int n = end - begin + 2;  // columns begin-1 .. end
  const float* r0 = l[0] + begin - 1;
  const float* r1 = l[1] + begin - 1;
  const float* r2 = l[2] + begin - 1;
  int c = 0;
  for (; c + V::kWidth <= n; c += V::kWidth) {
    V a = V::Load(r0 + c), b = V::Load(r1 + c), d = V::Load(r2 + c);
    Sort3(a, b, d, V::Min, V::Max);
    a.Store(lo + c), b.Store(mi + c), d.Store(hi + c);
  }
  auto fmin = [](float x, float y) { return x < y ? x : y; };
  auto fmax = [](float x, float y) { return x > y ? x : y; };
  for (; c < n; ++c) {
    float a = r0[c], b = r1[c], d = r2[c];
    Sort3(a, b, d, fmin, fmax);
    lo[c] = a, mi[c] = b, hi[c] = d;
  }
  auto row = [&](const auto& w, int i) {
    using W = std::decay_t<decltype(w)>;
    auto at = [&](const float* r, int k) { return W::Load(r + i + k); };
    const W low = W::Max(W::Max(at(lo, 0), at(lo, 1)), at(lo, 2));
    const W high = W::Min(W::Min(at(hi, 0), at(hi, 1)), at(hi, 2));
    Med3(low, Med3(at(mi, 0), at(mi, 1), at(mi, 2)), high).Store(dst + begin + i);
  };
  int i = 0;
  for (; i + V::kWidth <= end - begin; i += V::kWidth) row(V(), i);
  for (; i < end - begin; i += 4) row(Vec4f(), i);
}

/// Minimum (Max false) or maximum (Max true) of the 3x3 square for the columns [begin, end)
/// of one block: the square is a rectangle, so the extreme of its nine samples is the
/// extreme of the three column extremes, each column's taken once and shared by three
/// neighbouring outputs.
template <bool Max, class V>
inline void Extreme9Block(float* const* l, float* dst, int begin, int end) {
  float col[kBlock + 2];
  const int n = end - begin + 2;  // columns begin-1 .. end
  const float* r0 = l[0] + begin - 1;
  const float* r1 = l[1] + begin - 1;
  const float* r2 = l[2] + begin - 1;
  auto pick = [](const auto& a, const auto& b) {
    using W = std::decay_t<decltype(a)>;
    if constexpr (Max)
      return W::Max(a, b);
    else
      return W::Min(a, b);
  };
  int c = 0;
  for (; c + V::kWidth <= n; c += V::kWidth) pick(pick(V::Load(r0 + c), V::Load(r1 + c)), V::Load(r2 + c)).Store(col + c);
  auto one = [](float a, float b) {
    if constexpr (Max)
      return a > b ? a : b;
    else
      return a < b ? a : b;
  };
  for (; c < n; ++c) col[c] = one(one(r0[c], r1[c]), r2[c]);
  auto row = [&](const auto& w, int i) {
    using W = std::decay_t<decltype(w)>;
    pick(pick(W::Load(col + i), W::Load(col + i + 1)), W::Load(col + i + 2)).Store(dst + begin + i);
  };
  int i = 0;
  for (; i + V::kWidth <= end - begin; i += V::kWidth) row(V(), i);
  for (; i < end - begin; i += 4) row(Vec4f(), i);
}

/// Runs a block function over [begin, end) in blocks of at most kBlock columns (multiples of 4).
template <class Block>
inline void Blocks(float* const* l, float* dst, int begin, int end, Block block) {
  for (int b = begin; b < end; b += kBlock) block(l, dst, b, std::min(end, b + kBlock));
}

void Median9Row(float* const* l, float* dst, int begin, int end) { Blocks(l, dst, begin, end, Median9Block<Vec4f>); }
QRN_WIDE_TARGET void Median9RowWide(float* const* l, float* dst, int begin, int end) {
  Blocks(l, dst, begin, end, Median9Block<Vec8f>);
}
template <bool Max>
void Extreme9Row(float* const* l, float* dst, int begin, int end) {
  Blocks(l, dst, begin, end, Extreme9Block<Max, Vec4f>);
}
template <bool Max>
QRN_WIDE_TARGET void Extreme9RowWide(float* const* l, float* dst, int begin, int end) {
  Blocks(l, dst, begin, end, Extreme9Block<Max, Vec8f>);
}

/// The vector row function for rank `rank` (already clamped) of kernel type, or null for
/// kernels without one: the eight-wide variant when the processor runs it.
RowRankFn RankRowFn(int type, int rank) {
  const bool wide = qrn::simd::WideVectors();
  const int n = CImgFilter::GetSampleCount(type);
  if (type == 1 && rank == n / 2) return wide ? &Median9RowWide : &Median9Row;
  if (type == 1 && rank == 0) return wide ? &Extreme9RowWide<false> : &Extreme9Row<false>;
  if (type == 1 && rank == n - 1) return wide ? &Extreme9RowWide<true> : &Extreme9Row<true>;
  return wide ? RankRowFnOf<true>(type, rank) : RankRowFnOf<false>(type, rank);
}

/// Float sum of the neighbours (centre excluded) in gather order, four interior columns.
template <int Type>
Vec4f NeighbourSumVec(float* const* lines, int i) {
  constexpr int n = Type == 0 ? 5 : (Type == 1 ? 9 : 21), centre = n / 2;
  Vec4f v[n];
  GatherVec<Type>(lines, i, v);
  Vec4f s(0.0f);
  for (int k = 0; k < n; ++k)
    if (k != centre) s = s + v[k];
  return s;
}

/// The operation frame shared by the four filters: clip, progress, rows of each plane on
/// the thread team (rows are independent, so the thread count changes no value), the
/// destination line locked while it is written.
template <class Row>
void RunRows(CImgFilter& dst, COrbImage* work, CRect* rect, int radius, int titleId, int progress, int plane0,
             int planes, Row row) {
  if (!work || work->GetWidth() != dst.GetWidth() || work->GetHeight() != dst.GetHeight() ||
      work->GetPlanes() != dst.GetPlanes())
    return;
  int left, top, right, bottom;
  dst.CalcRect(left, top, right, bottom, rect);
  if (right <= left || bottom <= top) return;
  auto& src = static_cast<CImgFilter&>(*work);
  dst.ShowProgressInit(progress, titleId, (bottom - top) * planes);
  CLineLoop loop(dst, true);
  loop.RunPlanes(planes, top, bottom, [&](int pi, int y) {
    const int p = plane0 + pi;
    float* lines[5];
    src.SetFilterAdr(left, y, p, radius, lines, VM_READONLY);
    LOCKHANDLE lock = nullptr;
    float* out = dst.GetImageAdr(left, y, p, VM_LOCK, &lock);
    row(p, lines, out, left, right);
    dst.Unlock(lock);
  });
  dst.ShowProgressEnd(nullptr);
}

/// Runs scalar(x, lines at x) for the edge columns and vec(lines, dst, begin, end) over
/// the interior columns in multiples of four (offsets from `left`).
template <class Scalar, class Vec>
void SplitRow(float** lines, int lineCount, int left, int right, int width, int radius, bool vector, Scalar scalar,
              Vec vec) {
  float* at[5];
  auto one = [&](int x) {
    for (int r = 0; r < lineCount; ++r) at[r] = lines[r] + (x - left);
    scalar(x, at);
  };
  const int lo = std::min(std::max(left, radius), right);
  const int hi = std::max(lo, std::min(right, width - radius));
  int x = left;
  for (; x < lo; ++x) one(x);
  if (vector) {
    const int end = lo + (hi - lo) / 4 * 4;
    if (end > lo) vec(lo - left, end - left);
    x = end;
  }
  for (; x < right; ++x) one(x);
}


/// The rank filters' rows: rank (already clamped) of kernel type. The vector path runs the
/// row function on the interior columns and the same selection network on one sample at a
/// time at the edges; the scalar path sorts each neighbourhood.
void RankFilter(CImgFilter& dst, int type, int rank, COrbImage* work, CRect* rect, int titleId, int progress) {
  const int radius = CImgFilter::GetMinMaxR(type), width = dst.GetWidth();
  const bool vector = (CQrnSys::SIMD() & 2) && radius > 0;
  const RowRankFn vec = vector ? RankRowFn(type, rank) : nullptr;
  const EdgeRankFn edge = vector ? EdgeRankFnOf(type, rank) : nullptr;
  RunRows(dst, work, rect, radius, titleId, progress, 0, dst.GetPlanes(), [&](int, float** lines, float* out, int left,
                                                                               int right) {
    SplitRow(
        lines, 2 * radius + 1, left, right, width, radius, vector,
        [&](int x, float** at) {
          if (edge) {
            Lane v[kMaxSamples];
            int centre = 0;
            Gather(at, Columns(x, width), type, v, centre);
            out[x - left] = edge(v);
          } else {
            out[x - left] = dst.GetMinMaxRaw(at, x, type, rank);
          }
        },
        [&](int begin, int end) { vec(lines, out, begin, end); });
  });
}

}  // namespace

// ---- Geometry helpers ----------------------------------------------------------------------

void CImgFilter::CalcRect(int& left, int& top, int& right, int& bottom, CRect* rect) {
  const int w = GetWidth(), h = GetHeight();
  if (!rect) {
    left = 0, top = 0, right = w, bottom = h;
    return;
  }
  left = std::clamp(static_cast<int>(rect->left), 0, w);
  right = std::clamp(static_cast<int>(rect->right), 0, w);
  top = std::clamp(static_cast<int>(rect->top), 0, h);
  bottom = std::clamp(static_cast<int>(rect->bottom), 0, h);
}

void CImgFilter::CalcShift(int& dx, int& dy, int /*ignored*/, COrbImage* other) {
  if (!other || (GetWidth() >= other->GetWidth() && GetHeight() >= other->GetHeight())) return;
  dx = (other->GetWidth() - GetWidth()) / 2;
  dy = (other->GetHeight() - GetHeight()) / 2;
}

void CImgFilter::SetFilterAdr(int x, int y, int plane, int radius, float** lines, unsigned int lockFlags) {
  const int h = GetHeight();
  for (int i = 0; i <= 2 * radius; ++i)
    lines[i] = GetImageAdr(x, CFilterProc::FoldRow(y - radius + i, h), plane, static_cast<int>(lockFlags));
}

// ---- Evaluators ----------------------------------------------------------------------------

float CImgFilter::GetMeanRaw(float** lines, int x, int type, double weight, double* plainMean) {
  float v[kMaxSamples];
  int centre = 0;
  const int n = Gather(lines, Columns(x, GetWidth()), type, v, centre);
  if (n == 1) return v[0];
  float s = 0.0f;
  for (int k = 0; k < n; ++k)
    if (k != centre) s += v[k];
  const double c = v[centre];
  if (plainMean) *plainMean = (static_cast<double>(s) + c) / n;
  return static_cast<float>((s * weight + c) / ((n - 1) * weight + 1.0));
}

float CImgFilter::GetMeanRaw(int x, int y, int type, double weight, int plane) {
  float* lines[5];
  SetFilterAdr(x, y, plane, GetMeanR(type), lines, VM_READONLY);
  return GetMeanRaw(lines, x, type, weight, nullptr);
}

float CImgFilter::GetMeanGray(float** lines, int x, int type, double weight, int plane) {
  return static_cast<float>(GetMeanRaw(lines, x, type, weight, nullptr) - GetLevelMin(plane));
}

float CImgFilter::GetMean256f(float** lines, int x, int type, double weight, int plane) {
  return static_cast<float>((GetMeanRaw(lines, x, type, weight, nullptr) - GetLevelMin(plane)) /
                            GetLevelRange(plane) * 255.0);
}

float CImgFilter::GetMinMaxRaw(float** lines, int x, int type, int rank) {
  double v[kMaxSamples];
  int centre = 0;
  const int n = Gather(lines, Columns(x, GetWidth()), type, v, centre);
  if (n == 1) return static_cast<float>(v[0]);
  std::sort(v, v + n);
  return static_cast<float>(v[std::clamp(rank, 0, n - 1)]);
}

float CImgFilter::GetMedianRaw(float** lines, int x, int type) {
  return GetMinMaxRaw(lines, x, type, GetSampleCount(type) / 2);
}

float CImgFilter::GetMedianRaw(int x, int y, int type, int plane) {
  float* lines[5];
  SetFilterAdr(x, y, plane, GetMedianR(type), lines, VM_READONLY);
  return GetMedianRaw(lines, x, type);
}

float CImgFilter::GetMedianGray(float** lines, int x, int type, int plane) {
  return static_cast<float>(GetMedianRaw(lines, x, type) - GetLevelMin(plane));
}

float CImgFilter::GetMedian256f(float** lines, int x, int type, int plane) {
  return static_cast<float>((GetMedianRaw(lines, x, type) - GetLevelMin(plane)) / GetLevelRange(plane) * 255.0);
}

float CImgFilter::GetLaplacianRaw(float** lines, int x, int type, int plane) {
  const Columns c(x, GetWidth());
  auto at = [&](int r, int o) { return static_cast<double>(lines[r][o]); };
  double l0;
  switch (type) {
    case 0:
      l0 = 4.0 * at(1, 0) - (at(1, c.m1) + at(0, 0) + at(1, c.p1) + at(2, 0));
      break;
    case 1:
      l0 = 8.0 * at(1, 0) - (at(0, c.m1) + at(0, 0) + at(0, c.p1) + at(1, c.m1) + at(1, c.p1) + at(2, c.m1) +
                             at(2, 0) + at(2, c.p1));
      break;
    case 2:
      l0 = at(0, c.m1) - 2.0 * at(0, 0) + at(0, c.p1) - 2.0 * at(1, c.m1) + 4.0 * at(1, 0) - 2.0 * at(1, c.p1) +
           at(2, c.m1) - 2.0 * at(2, 0) + at(2, c.p1);
      break;
    default:
      l0 = at(1, 0);
      break;
  }
  return static_cast<float>(std::fabs(l0) + GetLevelMin(plane));
}

float CImgFilter::GetLaplacianGray(float** lines, int x, int type, int plane) {
  return static_cast<float>(GetLaplacianRaw(lines, x, type, plane) - GetLevelMin(plane));
}

float CImgFilter::GetLaplacian256f(float** lines, int x, int type, int plane) {
  return static_cast<float>((GetLaplacianRaw(lines, x, type, plane) - GetLevelMin(plane)) / GetLevelRange(plane) *
                            255.0);
}

float CImgFilter::HighPassRaw(int x, int y, int plane) {
  const int w = GetWidth(), h = GetHeight();
  float sum = 0.0f;
  for (int dy = -1; dy <= 1; ++dy)
    for (int dx = -1; dx <= 1; ++dx)
      if (dx || dy) sum += GetPixelGrayRaw(std::clamp(x + dx, 0, w - 1), std::clamp(y + dy, 0, h - 1), plane);
  return std::fabs(8.0f * GetPixelGrayRaw(x, y, plane) - sum);
}

// ---- Filters -------------------------------------------------------------------------------

void CImgFilter::MinMaxFilter(int type, int rank, COrbImage* work, CRect* rect, int progress) {
  RankFilter(*this, type, std::clamp(rank, 0, GetSampleCount(type) - 1), work, rect, 6153, progress);
}

void CImgFilter::MedianFilter(int type, COrbImage* work, CRect* rect, int progress) {
  RankFilter(*this, type, GetSampleCount(type) / 2, work, rect, 6120, progress);
}

void CImgFilter::LaplacianFilter(int type, COrbImage* work, CRect* rect, int progress) {
  RunRows(*this, work, rect, 1, 6143, progress, 0, GetPlanes(),
          [&](int p, float** lines, float* out, int left, int right) {
            float* at[3] = {lines[0], lines[1], lines[2]};
            for (int x = left; x < right; ++x) {
              out[x - left] = GetLaplacianRaw(at, x, type, p);
              ++at[0], ++at[1], ++at[2];
            }
          });
}

namespace {
/// One unsharp-mask output from the centre, the float neighbour sum and the kernel size.
inline float UnsharpPixel(float c, float s, int n, double amount, double weight, double threshold) {
  const float mean = static_cast<float>((s * weight + c) / ((n - 1) * weight + 1.0));
  const double plain = (static_cast<double>(s) + c) / n;
  if (std::fabs(plain / c - 1.0) >= threshold) return static_cast<float>((c - static_cast<double>(mean)) * amount + c);
  return c;
}

template <int Type>
void UnsharpRow(float* const* lines, float* out, int begin, int end, double amount, double weight, double threshold) {
  constexpr int n = Type == 0 ? 5 : (Type == 1 ? 9 : 21);
  constexpr int mid = Type == 2 ? 2 : 1;
  for (int i = begin; i < end; i += 4) {
    const Vec4f s = NeighbourSumVec<Type>(lines, i);
    for (int k = 0; k < 4; ++k) out[i + k] = UnsharpPixel(lines[mid][i + k], s[k], n, amount, weight, threshold);
  }
}
}  // namespace

void CImgFilter::UnSharpMask(double amount, int type, double weight, double threshold, COrbImage* work, int plane,
                             CRect* rect, int progress) {
  if (plane < 0 || plane >= GetPlanes()) return;
  const int radius = GetMeanR(type);
  decltype(&UnsharpRow<0>) vec = nullptr;
  if (CQrnSys::SIMD() & 2) vec = type == 0 ? &UnsharpRow<0> : type == 1 ? &UnsharpRow<1> : type == 2 ? &UnsharpRow<2> : nullptr;
  RunRows(*this, work, rect, radius, 6122, progress, plane, 1, [&](int p, float** lines, float* out, int left,
                                                                   int right) {
    (void)p;
    SplitRow(
        lines, 2 * radius + 1, left, right, GetWidth(), radius, vec != nullptr,
        [&](int x, float** at) {
          const float c = at[radius][0];
          double plain = 0.0;
          const float mean = GetMeanRaw(at, x, type, weight, &plain);
          if (radius == 0 || !(std::fabs(plain / c - 1.0) >= threshold))
            out[x - left] = c;
          else
            out[x - left] = static_cast<float>((c - static_cast<double>(mean)) * amount + c);
        },
        [&](int begin, int end) { vec(lines, out, begin, end, amount, weight, threshold); });
  });
}

void CImgFilter::UnSharpMask(double amount, int type, double weight, double threshold, COrbImage* work, CRect* rect,
                             int progress) {
  for (int p = 0; p < GetPlanes(); ++p) UnSharpMask(amount, type, weight, threshold, work, p, rect, progress);
}

// ---- Work images ---------------------------------------------------------------------------

namespace {
/// A bordered copy of src with `planes` planes (planes beyond src's are left for the caller).
COrbImage* MakeBordered(CImgFilter& src, int border, int planes, int progress, int titleId, int extraUnits) {
  const int b = border > 0 ? border : 2;
  const int w = src.GetWidth(), h = src.GetHeight(), W = w + 2 * b, H = h + 2 * b;
  COrbImage* work = nullptr;
  try {
    work = new COrbImage(-32, W, H, planes, 1.0, 0.0, 1, src.GetProgressHandle(),
                         progress ? CMessageTable::Load(6169) : nullptr);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  if (work->IsEmpty()) {
    delete work;
    return nullptr;
  }
  src.ShowProgressInit(progress, titleId, 2 * src.GetPlanes() * H + extraUnits);
  for (int p = 0; p < src.GetPlanes(); ++p) {
    work->SetLevel(p, src.GetLevelMin(p), src.GetLevelMax(p));
    for (int yw = 0; yw < H; ++yw) {
      const float* s = src.GetImageAdr(0, CFilterProc::FoldRow(yw - b, h), p);
      float* d = work->GetImageAdr(0, yw, p, 0);
      std::memcpy(d + b, s, sizeof(float) * static_cast<size_t>(w));
      for (int xw = 0; xw < b; ++xw) d[xw] = s[CFilterProc::FoldRow(xw - b, w)];
      for (int xw = b + w; xw < W; ++xw) d[xw] = s[CFilterProc::FoldRow(xw - b, w)];
      src.ShowProgress(2);
    }
  }
  return work;
}
}  // namespace

COrbImage* CImgFilter::MakeFilterWork(int border, int progress) {
  COrbImage* work = MakeBordered(*this, border, GetPlanes(), progress, 6126, 0);
  ShowProgressEnd(nullptr);
  return work;
}

float CImgFilter::GetDDLuminance(float r, float g, float b, double lo, double rg) {
  const float sr = static_cast<float>((r - lo) / rg * 255.0);
  const float sg = static_cast<float>((g - lo) / rg * 255.0);
  const float sb = static_cast<float>((b - lo) / rg * 255.0);
  const float sum = sr + sg + sb;
  const float third = sum / 3.0f;
  return static_cast<float>(third / 255.0 * rg + lo);
}

COrbImage* CImgFilter::MakeDDWork(int border, int progress) {
  const int b = border > 0 ? border : 2;
  const bool colour = IsColor();
  const int lines = GetHeight() + 2 * b;
  COrbImage* work = MakeBordered(*this, b, colour ? kMaxPlanes : GetPlanes(), progress, 6125, colour ? lines : 0);
  if (work && colour) {
    // Plane 3: the mean of the three colours on plane 0's display scale, over the bordered area.
    const double lo = GetLevelMin(0), rg = GetLevelRange(0);
    for (int y = 0; y < lines; ++y) {
      const float* r = work->GetImageAdr(0, y, 0);
      const float* g = work->GetImageAdr(0, y, 1);
      const float* bl = work->GetImageAdr(0, y, 2);
      float* l = work->GetImageAdr(0, y, 3, 0);
      for (int x = 0; x < work->GetWidth(); ++x) l[x] = GetDDLuminance(r[x], g[x], bl[x], lo, rg);
      ShowProgress(1);
    }
    work->SetLevel(3, GetLevelMin(0), GetLevelMax(0));
  }
  ShowProgressEnd(nullptr);
  return work;
}
