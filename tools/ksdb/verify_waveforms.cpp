#include "tools/ksdb/verify_waveforms.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <unordered_map>

#include "platform/elog/elog.h"
#include "platform/stock/memory.h"
#include "platform/stock/text.h"
#include "platform/trace/waveform.h"
#include "tools/common/messages.h"

namespace ksutil::tools {
namespace {

struct File {
  std::string fault;  // why it cannot be read; empty if it can
  std::int64_t size = 0;
};

File look_at(const std::string &path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) {
    return {errno == ENOENT ? "is missing" : strerror(errno), 0};
  }
  if (!S_ISREG(status.st_mode)) return {"is not a regular file", 0};
  if (access(path.c_str(), R_OK) != 0) return {strerror(errno), 0};
  return {"", status.st_size};
}

/* The first cause registered since a scope began. */
std::string registered_cause() {
  const MallocPtr<char> text(elog_string(0));
  const auto causes = register_causes(text == nullptr ? "" : text.get());
  return causes.empty() ? "the row cannot be read" : causes.back();
}

/* The end of a segment in its file, in bytes; past every file when it overflows. */
std::int64_t end_of(const WaveformSegment &segment) {
  std::int64_t bytes = 0, end = 0;
  if (__builtin_mul_overflow(segment.nsamp, std::int64_t{sample_size(segment.datatype)},
                             &bytes) ||
      __builtin_add_overflow(segment.foff, bytes, &end)) {
    return INT64_MAX;
  }
  return end;
}

}  // namespace

void verify_waveforms(Dbptr wfdisc, const Report &report) {
  long count = 0;
  if (dbquery(wfdisc, dbq_record_count, &count) < 0) return;
  std::unordered_map<std::string, File> files;
  std::unordered_map<std::string, long> first;
  for (wfdisc.record = 0; wfdisc.record < count; wfdisc.record++) {
    const ElogScope quiet;
    const long record = wfdisc.record;
    WaveformSegment segment;
    if (!read_segment(wfdisc, segment)) {
      report("waveform rows that make no sense", record, registered_cause());
      continue;
    }
    const std::string key =
        segment.sta + ' ' + segment.chan + format_text(" %.5f", segment.time);
    const auto [known, fresh] = first.try_emplace(key, record);
    if (!fresh) {
      report("doubled waveform rows", record,
             segment.sta + " " + segment.chan + " begins at the same time as record " +
                 std::to_string(known->second));
    }
    auto file = files.find(segment.path);
    if (file == files.end()) {
      file = files.emplace(segment.path, look_at(segment.path)).first;
    }
    if (!file->second.fault.empty()) {
      report("waveform files that cannot be read", record,
             segment.path + ": " + file->second.fault);
    } else if (end_of(segment) > file->second.size) {
      report("waveform files that are too short", record,
             segment.path + ": the samples end at byte " +
                 std::to_string(end_of(segment)) + ", the file at byte " +
                 std::to_string(file->second.size));
    }
  }
}

}  // namespace ksutil::tools
