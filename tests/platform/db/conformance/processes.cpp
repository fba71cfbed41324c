#include <sys/wait.h>
#include <unistd.h>

#include "tests/platform/db/conformance/store_backend.h"

namespace ksutil::db::conformance {

pid_t start_process(const std::function<bool()> &work) {
  const pid_t child = fork();
  if (child == 0) {
    bool good = false;
    try {
      good = work();
    } catch (...) {
    }
    _exit(good ? 0 : 1);
  }
  return child;
}

bool ended_well(pid_t child) {
  int status = -1;
  return waitpid(child, &status, 0) == child && status == 0;
}

}  // namespace ksutil::db::conformance
