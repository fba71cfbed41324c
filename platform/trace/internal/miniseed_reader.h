/* miniseed_reader: reads the samples of a run of records into memory of the caller. */
#ifndef KSUTIL_PLATFORM_TRACE_INTERNAL_MINISEED_READER_H
#define KSUTIL_PLATFORM_TRACE_INTERNAL_MINISEED_READER_H

#include <cstdint>
#include <functional>
#include <string>

namespace ksutil {

/* The run that begins with the sample at `time` of the channel of the record at `foff`. */
struct MiniseedRun {
  std::string path;
  std::int64_t foff = 0;
  double time = 0.0;
  double samprate = 0.0;
};

/* Samples first ... first + count - 1 of a run, as read_samples_into gives those of other
 * files: `allocate` is called when the records have been found. */
template <class Sample>
bool read_miniseed_into(const char *who, const MiniseedRun &run, std::int64_t first,
                        std::int64_t count, const std::function<Sample *()> &allocate);

/* Whether the record at a byte of a file holds counts; false, with a message, when there is
 * no record. */
bool find_miniseed_kind(const char *who, const std::string &path, std::int64_t foff,
                        bool &counts);

}  // namespace ksutil
#endif
