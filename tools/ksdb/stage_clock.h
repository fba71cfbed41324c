/* StageClock: shows on a terminal how long a step of unknown length has taken, so that a
 * program is seen to be at work. */
#ifndef KSUTIL_TOOLS_KSDB_STAGE_CLOCK_H
#define KSUTIL_TOOLS_KSDB_STAGE_CLOCK_H

#include <stop_token>
#include <string>
#include <thread>

namespace ksutil::tools {

class StageClock {
 public:
  /* Draws "what: N s" on standard error, from the first second on and every second, while
   * it exists.  quiet, or a standard error that is not a terminal, draws nothing. */
  StageClock(std::string what, bool quiet);
  /* Ends the drawing, and wipes it. */
  ~StageClock();
  StageClock(const StageClock &) = delete;
  StageClock &operator=(const StageClock &) = delete;

 private:
  static void draw(const std::stop_token &stop, const std::string &what);

  std::jthread thread_;  // without one nothing is drawn
};

}  // namespace ksutil::tools
#endif
