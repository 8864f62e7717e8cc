// Thread slots from the OpenMP runtime.
#include "platform/Parallel.h"

#include <omp.h>

int CParallel::GetThreadNum() { return omp_get_thread_num(); }

int CParallel::GetMaxThreads() { return omp_get_max_threads(); }
