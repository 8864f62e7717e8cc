// Fixes the size of the OpenMP thread team for one test and restores it afterwards.
#pragma once

#include <omp.h>

namespace qrntest {

/// Tests whose expected values depend on how lines are shared out (progress batches, say)
/// hold one of these, so that they give the same result on a machine with more cores.
class ThreadTeam {
 public:
  explicit ThreadTeam(int threads) : m_previous(omp_get_max_threads()) { omp_set_num_threads(threads); }
  ~ThreadTeam() { omp_set_num_threads(m_previous); }
  ThreadTeam(const ThreadTeam&) = delete;
  ThreadTeam& operator=(const ThreadTeam&) = delete;

 private:
  int m_previous;
};

}  // namespace qrntest
