/* memory: measures what a piece of work adds to the resident memory of a process. */
#ifndef KSUTIL_BENCH_MEMORY_H
#define KSUTIL_BENCH_MEMORY_H

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <string>

namespace ksutil::bench {

struct AddedMemory {
  double peak = 0.0, after = 0.0;  // MiB
};

/* A line of /proc/self/status, "VmRSS:" or "VmHWM:"; MiB. */
inline double memory_status(const std::string &name) {
  std::ifstream file("/proc/self/status");
  std::string word;
  double value = 0.0;
  while (file >> word) {
    if (word == name) file >> value;
  }
  return value / 1024.0;
}

/* Runs `before` and then `work` in a process of their own, and gives what `work` adds;
 * zeros when there is no such process.  `work` must leave alive what is to be measured as
 * `after`; the process ends without destructors. */
inline AddedMemory added_memory(const std::function<void()> &before,
                                const std::function<void()> &work) {
  int ends[2];
  AddedMemory added;
  if (pipe(ends) != 0) return added;
  const pid_t child = fork();
  if (child == 0) {
    before();
    malloc_trim(0);  // or the work would live in what others have left
    const double start = memory_status("VmRSS:");
    std::ofstream("/proc/self/clear_refs") << "5";
    work();
    added.peak = memory_status("VmHWM:") - start;
    malloc_trim(0);
    added.after = memory_status("VmRSS:") - start;
    _exit(write(ends[1], &added, sizeof added) == sizeof added ? 0 : 1);
  }
  if (read(ends[0], &added, sizeof added) != sizeof added) added = {};
  waitpid(child, nullptr, 0);
  close(ends[0]);
  close(ends[1]);
  return added;
}

}  // namespace ksutil::bench
#endif
