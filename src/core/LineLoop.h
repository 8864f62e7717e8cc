// The operation frame's loop over lines: threads, progress, cancel and exceptions.
#pragma once
#include <atomic>
#include <exception>
#include <mutex>

#include "core/OrbImage.h"

/// @brief Runs a row body over a range of lines on the thread team with static scheduling
/// (equal contiguous chunks, each taken in increasing order), reporting progress to an image.
///
/// Each line reports ShowProgress(1), or with a batch of n every n lines the n units done.
/// A cancellable loop stops handing out lines once a report returns 0 (Escape); otherwise
/// the result of the report is ignored and the loop always finishes. An exception thrown by
/// the body stops the remaining lines and is rethrown on the calling thread after the region.
class CLineLoop {
 public:
  explicit CLineLoop(COrbImage& progress, bool cancellable = false, int batch = 1)
      : m_progress(progress), m_cancellable(cancellable), m_batch(batch < 1 ? 1 : batch) {}

  /// Calls body(y) for y in [begin, end). Returns false when cancelled.
  template <class Body>
  bool Run(int begin, int end, Body&& body) {
    std::exception_ptr error;
    std::mutex errorLock;
#pragma omp parallel
    {
      int pending = 0;
#pragma omp for schedule(static)
      for (int y = begin; y < end; ++y) {
        if (m_stop.load(std::memory_order_relaxed)) continue;
        try {
          body(y);
        } catch (...) {
          std::lock_guard guard(errorLock);
          if (!error) error = std::current_exception();
          m_stop.store(true);
          continue;
        }
        if (++pending == m_batch) {
          Report(pending);
          pending = 0;
        }
      }
    }
    if (error) std::rethrow_exception(error);
    return !m_cancelled.load();
  }

  /// Runs the same body over the lines of each plane in turn: body(plane, y).
  template <class Body>
  bool RunPlanes(int planes, int begin, int end, Body&& body) {
    for (int p = 0; p < planes && !m_stop.load(); ++p)
      if (!Run(begin, end, [&](int y) { body(p, y); })) return false;
    return !m_cancelled.load();
  }

  bool IsCancelled() const { return m_cancelled.load(); }

 private:
  void Report(int units) {
    if (!m_progress.ShowProgress(units) && m_cancellable) {
      m_cancelled.store(true);
      m_stop.store(true);
    }
  }

  COrbImage& m_progress;
  const bool m_cancellable;
  const int m_batch;
  std::atomic<bool> m_stop{false};
  std::atomic<bool> m_cancelled{false};
};
