/* faulted_run: runs a program once under a fault plan. */
#ifndef KSUTIL_TESTS_FAULTS_FAULTED_RUN_H
#define KSUTIL_TESTS_FAULTS_FAULTED_RUN_H

#include <string>
#include <vector>

#include "tests/faults/fault_plan.h"

namespace faults {

using Arguments = std::vector<std::string>;  // the program's name first

struct Outcome {
  int code = -1;  // exit code, minus the signal that ended it
  bool hung = false;
  std::string output, messages;
  long calls[kKinds] = {};
  long strikes = 0;
};

/* Runs programs in a folder with a clock that stands still. */
class Runner {
 public:
  /* Makes the folder, in memory where the system has a folder for that. */
  Runner();
  ~Runner();
  Runner(const Runner &) = delete;
  Runner &operator=(const Runner &) = delete;

  const std::string &folder() const { return folder_; }
  Outcome run(const Arguments &arguments, const Plan &plan) const;

 private:
  std::string base_, folder_;
  Counts *counts_ = nullptr;
};

}  // namespace faults

#endif
