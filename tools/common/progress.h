/* A progress bar on standard error, drawn only when that is a terminal. */
#ifndef KSUTIL_TOOLS_COMMON_PROGRESS_H
#define KSUTIL_TOOLS_COMMON_PROGRESS_H

#include <chrono>
#include <string>

namespace ksutil::tools {

class Progress {
 public:
  /* `total` steps of `what`; quiet draws nothing. */
  Progress(std::string what, long total, bool quiet);
  /* Wipes the bar. */
  ~Progress();
  Progress(const Progress &) = delete;
  Progress &operator=(const Progress &) = delete;

  void reach(long done);

 private:
  std::string what_;
  long total_;
  bool shown_;
  std::chrono::steady_clock::time_point drawn_{};
};

}  // namespace ksutil::tools
#endif
