/* waveform_window: finds the samples of a database record that lie in a time window. */
#ifndef KSUTIL_PLATFORM_TRACE_SHARED_WAVEFORM_WINDOW_H
#define KSUTIL_PLATFORM_TRACE_SHARED_WAVEFORM_WINDOW_H

#include <cstdint>

#include "platform/trace/waveform.h"

namespace ksutil {

struct WaveformWindow {
  WaveformSegment row;          // of a trace row: without path and data type
  const float *data = nullptr;  // all samples of a trace row; null for a row of wfdisc
  std::int64_t first = 0;       // the window is samples first ... first + count - 1
  std::int64_t count = 0;       // at least 1
  double time() const {         // of the first sample of the window
    return row.time + static_cast<double>(first) / row.samprate;
  }
};

/* See read_segment in segment.h.  The messages are in the name of `who`, except those of
 * the database and of read_segment for rows of wfdisc. */
bool find_window(const char *who, Dbptr record, double tstart, double tend,
                 WaveformWindow &window);

}  // namespace ksutil
#endif
