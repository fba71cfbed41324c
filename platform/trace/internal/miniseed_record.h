/* miniseed_record: finds the records in the bytes of a miniSEED file. */
#ifndef KSUTIL_PLATFORM_TRACE_INTERNAL_MINISEED_RECORD_H
#define KSUTIL_PLATFORM_TRACE_INTERNAL_MINISEED_RECORD_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/stock/files.h"
#include "platform/trace/miniseed.h"

namespace ksutil {

/* The header of a record, checked: a record never claims more samples than its bytes can
 * hold. */
struct MiniseedRecord {
  std::array<char, 12> codes{};  // station, location, channel, network as they stand
  char quality = 'D';
  bool big_header = true, big_data = true;
  bool has_length = false;  // by blockette 1000
  int encoding = 0;
  int nsamp = 0;
  std::uint32_t length = 0;  // bytes of the record
  std::uint32_t data_offset = 0;
  double time = 0.0;      // epoch seconds, corrected
  double samprate = 0.0;  // 0: none
  std::int64_t offset = 0;

  bool has_samples() const { return nsamp > 0 && samprate > 0.0 && encoding != 0; }
  double next_time() const { return time + nsamp / samprate; }
};

/* Whether sample rates are the same but for their rounding. */
bool same_samprate(double a, double b);

/* Reads the header at the beginning of some bytes.  A record without blockette 1000 has
 * length 0. */
bool parse_miniseed(const char *bytes, std::size_t count, MiniseedRecord &record);

MiniseedCodes codes_of(const MiniseedRecord &record);

/* Walks from record to record, reading little more than their headers. */
class MiniseedWalker {
 public:
  explicit MiniseedWalker(const char *who) : who_(who) {}

  /* False with a message: the file cannot be opened or is not a regular file. */
  bool open(const std::string &path);
  void start_at(std::int64_t offset) { at_ = offset; }
  std::int64_t size() const { return size_; }
  int fd() const { return file_.get(); }

  /* The next whole record.  kFailed with a message. */
  enum class Got { kRecord, kEnd, kFailed };
  Got next(MiniseedRecord &record);

  /* So far: bytes passed that belong to no whole record, and, at the end, the samples and
   * the place of the last record if the end of the file cuts it off. */
  std::int64_t foreign_bytes() const { return foreign_; }
  std::int64_t lost_samples() const { return lost_; }
  std::int64_t cut_at() const { return cut_at_; }

 private:
  /* The bytes from `at` on, at least `wanted` of them except before the end of the file;
   * null with a message. */
  const char *bytes(std::int64_t at, std::size_t wanted, std::size_t &count);
  bool find_length(MiniseedRecord &record);

  const char *const who_;
  std::string path_;
  FileHandle file_;
  std::int64_t size_ = 0, at_ = 0;
  std::vector<char> buffer_;
  std::int64_t buffer_at_ = 0;
  std::size_t held_ = 0;
  bool long_records_ = false;  // headers lie far apart
  std::int64_t foreign_ = 0, lost_ = 0, cut_at_ = -1;
};

}  // namespace ksutil
#endif
