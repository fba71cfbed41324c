/* StopSignal: takes SIGINT and SIGTERM as news that waiting code can wait for. */
#ifndef KSUTIL_TOOLS_FEEDS_STOP_SIGNAL_H
#define KSUTIL_TOOLS_FEEDS_STOP_SIGNAL_H

#include "platform/stock/files.h"

namespace ksutil::tools {

/* Blocks both signals for this thread, and for threads that it starts later, to the end of
 * the process.  One thread at a time. */
class StopSignal {
 public:
  StopSignal();

  /* Becomes readable with the signal; -1 when the system gave none. */
  int fd() const { return signals_.get(); }

  /* Whether a signal has come; waits for it for so long. */
  bool wait(double seconds);
  bool came() { return wait(0.0); }

 private:
  FileHandle signals_;
  bool came_ = false;
};

}  // namespace ksutil::tools
#endif
