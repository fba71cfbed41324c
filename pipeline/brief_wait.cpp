#include "pipeline/internal/brief_wait.h"

bool ksutil::runs_in_parallel() {
  static const bool parallel = [] {
    cpu_set_t processors;
    return sched_getaffinity(0, sizeof processors, &processors) != 0 ||
           CPU_COUNT(&processors) > 1;
  }();
  return parallel;
}
