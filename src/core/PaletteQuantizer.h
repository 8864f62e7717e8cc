// Adaptive palette for showing a colour picture in at most 256 colours.
#pragma once
#include <cstdint>
#include <functional>
#include <vector>

#include "core/BaseDIB.h"

/// @brief Chooses up to 256 palette colours for a set of 8-bit RGB pixels and maps pixels to
/// them, for 8-bit display bitmaps of colour images.
///
/// Pixels are counted in a histogram of 6 bits per channel that keeps the exact mean colour
/// of each cell. The palette comes from a variance-driven median cut: the box of cells with
/// the largest squared error is split along its widest-spread channel at the point that
/// leaves the least squared error in the two halves, until there are as many boxes as
/// colours or every box holds one cell. Each entry is its box's pixel-weighted mean, so a
/// picture with 256 distinct cells or fewer keeps each of them. A pixel maps to the entry
/// nearest (in RGB distance) to the mean colour of its cell, without dithering (dithering
/// would add noise to a dark sky). The
/// result depends only on the pixel counts, not on their order or the thread count.
class CPaletteQuantizer {
 public:
  static constexpr int kBits = 6;
  static constexpr int kCells = 1 << (3 * kBits);

  CPaletteQuantizer();

  /// Counts count pixels of separate red, green and blue byte arrays.
  void AddPixels(const BYTE* r, const BYTE* g, const BYTE* b, int count);
  /// Counts rows 0 .. rows − 1 of width pixels each, on the thread team. render(row, r, g, b)
  /// writes a row's red, green and blue bytes to three arrays of width bytes; it is called
  /// from several threads at once. Throws std::bad_alloc when the per-thread histograms do
  /// not fit in memory.
  void AddRows(int rows, int width, const std::function<void(int row, BYTE* r, BYTE* g, BYTE* b)>& render);
  /// Builds the palette of at most colours entries (1 .. 256) from the pixels counted so far.
  /// Returns the number of entries used; 0 when no pixel was counted.
  int BuildPalette(int colours = 256);

  /// The palette as bitmap entries (blue, green, red, 0); entries past GetColorCount() are black.
  const RGBQUAD* GetPalette() const { return m_palette; }
  int GetColorCount() const { return m_colors; }
  /// Palette index of a pixel: the entry nearest its cell's mean colour, or nearest the
  /// colour itself when its cell was not counted. Call after BuildPalette; safe from several
  /// threads at once.
  BYTE Map(BYTE r, BYTE g, BYTE b) const { return MapCell(CellOf(r, g, b), r, g, b); }
  /// out[i] = Map(r[i], g[i], b[i]) for i in [0, count).
  void MapPixels(const BYTE* r, const BYTE* g, const BYTE* b, int count, BYTE* out) const;

 private:
  // Plain data, so that a value-initialised cell is zero and a per-thread histogram can be
  // allocated without being written.
  struct CCell {
    std::uint32_t count;
    std::uint64_t sum[3];
  };
  static int CellOf(BYTE r, BYTE g, BYTE b) {
    return ((r >> (8 - kBits)) << (2 * kBits)) | ((g >> (8 - kBits)) << kBits) | (b >> (8 - kBits));
  }
  static void CellsOf(const BYTE* r, const BYTE* g, const BYTE* b, int count, std::uint32_t* cells);
  static void Count(CCell* cells, const BYTE* r, const BYTE* g, const BYTE* b, int count);
  BYTE MapCell(int cell, BYTE r, BYTE g, BYTE b) const {
    const int index = m_map[cell];
    return index >= 0 ? BYTE(index) : Nearest(r, g, b);
  }
  BYTE Nearest(double r, double g, double b) const;

  std::vector<CCell> m_cells;
  std::vector<std::int16_t> m_map;  // palette index of each counted cell, -1 when none
  RGBQUAD m_palette[256] = {};
  int m_colors = 0;
};
