// Thread slots of the parallel-loop facility.
#pragma once

/// @brief Thread queries for parallel loops: per-thread scratch is sized by GetMaxThreads()
/// and indexed by GetThreadNum().
class CParallel {
 public:
  /// Slot of the calling thread in the current parallel region (0 outside one).
  static int GetThreadNum();
  /// Largest team size that a parallel region may use.
  static int GetMaxThreads();
};
