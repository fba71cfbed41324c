#include "tools/ksdb/verify_waveforms.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "platform/db/columns.h"
#include "platform/elog/elog.h"
#include "platform/stock/text.h"
#include "platform/trace/miniseed.h"
#include "platform/trace/waveform.h"
#include "tools/common/messages.h"
#include "tools/ksdb/verify_tables.h"

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
  const auto causes = registered_causes();
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

/* The SEED codes that the table seedcode has for the channels. */
class SeedCodes {
 public:
  explicit SeedCodes(const db::Snapshot *seedcode) {
    if (seedcode == nullptr) return;
    const db::Relation &layout = seedcode->layout();
    const db::TextColumn sta(layout, "sta"), chan(layout, "chan"), net(layout, "net"),
        seedsta(layout, "seedsta"), seedchan(layout, "seedchan"), loc(layout, "loc");
    each_row(*seedcode, [&](long, std::string_view row) {
      MiniseedCodes codes;
      codes.net = text_of(net, row);
      codes.sta = text_of(seedsta, row);
      codes.chan = text_of(seedchan, row);
      codes.loc = text_of(loc, row);
      codes_.emplace(text_of(sta, row) + ' ' + text_of(chan, row), codes);
    });
    complete_ = seedcode->complete();
  }
  /* Whether a record can be of the channel of a row; true where that is not known. */
  bool match(const WaveformSegment &row, const MiniseedCodes &record) const {
    if (!complete_) return true;
    const auto [from, to] = codes_.equal_range(row.sta + ' ' + row.chan);
    if (from == to) {
      return record.sta == row.sta &&
             (record.chan == row.chan || record.chan + record.loc == row.chan);
    }
    return std::any_of(from, to, [&](const auto &known) {
      const MiniseedCodes &codes = known.second;
      return codes.sta == record.sta && codes.chan == record.chan &&
             codes.loc == record.loc &&
             (codes.net.empty() || record.net.empty() || codes.net == record.net);
    });
  }

 private:
  /* "" for a null. */
  static std::string text_of(const db::TextColumn &column, std::string_view row) {
    std::string_view text;
    return column.read(row, text) && !column.is_null(text) ? std::string(text) : "";
  }
  std::unordered_multimap<std::string, MiniseedCodes> codes_;
  bool complete_ = true;
};

std::string code_text(const MiniseedCodes &codes) {
  return codes.net + "." + codes.sta + "." + codes.loc + "." + codes.chan;
}

/* Whether a sample can be read; true where that cannot be found out. */
bool can_read(const WaveformSegment &row, std::int64_t sample) {
  std::vector<double> read;
  return !miniseed_available() || read_samples(row, sample, 1, read);
}

/* Whether the last sample of a row is in its file: by bisection where records of one length
 * follow each other in time, else by a walk over the headers. */
bool holds_end(const WaveformSegment &row, const MiniseedPiece &first,
               std::int64_t size) {
  const double endtime = row.time + static_cast<double>(row.nsamp - 1) / row.samprate;
  const double half = 0.5 / row.samprate;
  MiniseedPiece record = first;
  std::int64_t low = 0, high = (size - first.foff) / first.record_length;
  for (bool usual = true; usual;) {
    if (record.codes.chan == first.codes.chan && record.codes.sta == first.codes.sta &&
        record.codes.loc == first.codes.loc && record.time - half <= endtime &&
        endtime <= record.endtime + half) {
      return true;
    }
    if (high - low <= 1) break;
    const std::int64_t middle = low + (high - low) / 2;
    usual =
        miniseed_record_at(row.path, first.foff + middle * first.record_length, record);
    (record.time <= endtime ? low : high) = middle;
    if (high - low <= 1 && usual) {
      usual =
          miniseed_record_at(row.path, first.foff + low * first.record_length, record);
    }
  }
  return can_read(row, row.nsamp - 1);
}

/* Whether the record at the byte of a row has its rate, and some of its samples. */
bool belongs_to(const MiniseedPiece &record, const WaveformSegment &row) {
  const double half = 0.5 / row.samprate;
  const double endtime = row.time + static_cast<double>(row.nsamp - 1) / row.samprate;
  return std::abs(record.samprate / row.samprate - 1.0) <= 0.01 &&
         row.time <= record.endtime + half && endtime >= record.time - half;
}

/* Whether the first sample of a row is in its file.  It is in the record at the row's byte
 * unless the records are not in the order of time. */
bool holds_begin(const WaveformSegment &row, const MiniseedPiece &first) {
  return row.time >= first.time - 0.5 / row.samprate || can_read(row, 0);
}

/* Looks at the records of a row. */
void verify_records(const WaveformSegment &row, const SeedCodes &codes,
                    std::int64_t size, long number, const Report &report) {
  constexpr char kNoRecords[] = "waveform rows without their records";
  MiniseedPiece first;
  if (!miniseed_record_at(row.path, row.foff, first)) {
    report(kNoRecords, number, registered_cause());
  } else if (!codes.match(row, first.codes)) {
    report("waveform rows whose records are of another channel", number,
           row.path + ": the record at byte " + std::to_string(row.foff) + " is of " +
               code_text(first.codes) + ", the row of " + row.sta + " " + row.chan);
  } else if (!belongs_to(first, row)) {
    report(kNoRecords, number,
           row.path + ": the record at byte " + std::to_string(row.foff) +
               " has another time or sample rate");
  } else if (row.nsamp > 0 &&
             (!holds_begin(row, first) || !holds_end(row, first, size))) {
    report("waveform files that are too short", number, registered_cause());
  }
}

}  // namespace

void verify_waveforms(Dbptr wfdisc, const db::Snapshot *seedcode,
                      const Report &report) {
  long count = 0;
  if (dbquery(wfdisc, dbq_record_count, &count) < 0) return;
  std::unordered_map<std::string, File> files;
  std::unordered_map<std::string, long> first;
  const SeedCodes codes(seedcode);
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
    } else if (segment.datatype == "sd") {
      verify_records(segment, codes, file->second.size, record, report);
    }
  }
}

}  // namespace ksutil::tools
