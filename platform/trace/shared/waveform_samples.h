/* waveform_samples: reads the samples of a waveform file into memory of the caller. */
#ifndef KSUTIL_PLATFORM_TRACE_SHARED_WAVEFORM_SAMPLES_H
#define KSUTIL_PLATFORM_TRACE_SHARED_WAVEFORM_SAMPLES_H

#include <functional>

#include "platform/trace/waveform.h"

namespace ksutil {

/* Whether the samples of a segment are integers of at most 32 bits, which the records of a
 * miniSEED file tell, and else the data type.  False with messages of read_samples. */
bool find_kind(const WaveformSegment &segment, bool &counts);

/* See read_samples.  `allocate` is called once, when the row and the size of the file have
 * been checked, and gives the memory for `count` samples, or null for a failure (without a
 * message).  On failure the memory has arbitrary contents.  Sample is float, double or, if
 * find_kind says so, std::int32_t. */
template <class Sample>
bool read_samples_into(const WaveformSegment &segment, std::int64_t first,
                       std::int64_t count, const std::function<Sample *()> &allocate);

}  // namespace ksutil
#endif
