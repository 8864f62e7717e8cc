// Per-plane separable convolution evaluator of an image.
#pragma once
#include <vector>

class COrbImage;
class CFilterMatrix;

/// @brief Evaluates a kernel on one plane of a source image, with per-thread rings of
/// buffered lines. Empty until built.
class CFilterProc {
 public:
  static constexpr int kDefaultWidth = 50;

  CFilterProc() = default;
  virtual ~CFilterProc() = default;
  CFilterProc(const CFilterProc&) = delete;
  CFilterProc& operator=(const CFilterProc&) = delete;

  /// Releases the buffers.
  void Empty();
  int IsEmpty() const { return m_buffers.empty() ? 1 : 0; }
  /// Resets the per-thread ring positions.
  void Init();

 protected:
  COrbImage* m_image = nullptr;
  CFilterMatrix* m_matrix = nullptr;
  int m_radius = 0;
  int m_taps = 1;
  int m_width = kDefaultWidth;
  int m_plane = 0;
  int m_threads = 0;
  std::vector<std::vector<float>> m_buffers;
  std::vector<float> m_coef;
  std::vector<int> m_lastRow;
  std::vector<int> m_lastColumn;
  std::vector<int> m_ringStart;
};
