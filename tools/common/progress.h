/* progress: draws a progress bar on standard error when that is a terminal. */
#ifndef KSUTIL_TOOLS_COMMON_PROGRESS_H
#define KSUTIL_TOOLS_COMMON_PROGRESS_H

#include <chrono>
#include <string>

namespace ksutil::tools {

class Progress {
 public:
  /* Draws the empty bar of `total` steps of `what`, named `unit` if that is given.  A
   * total of 0 means unknown: the steps are counted without a bar.  quiet draws
   * nothing. */
  Progress(std::string what, long total, bool quiet, std::string unit = "");
  /* Wipes the bar: print results after the end of its scope, or after wipe(). */
  ~Progress() { wipe(); }
  Progress(const Progress &) = delete;
  Progress &operator=(const Progress &) = delete;

  /* Draws the bar for `done` steps, at most ten times a second. */
  void reach(long done);
  /* Wipes the bar until the next step, so that a message can be printed. */
  void wipe();

 private:
  void draw(long done) const;

  std::string what_;
  long total_;
  bool shown_;
  std::string unit_;
  std::chrono::steady_clock::time_point drawn_;
};

}  // namespace ksutil::tools
#endif
