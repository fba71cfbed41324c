/* Blob files of traces. */
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string>

#include "objects/family/shared/tag_registry.h"
#include "objects/readers/internal/vector_readers.h"
#include "platform/elog/elog.h"
#include "platform/stock/bytes.h"
#include "platform/stock/files.h"
#include "platform/stock/memory.h"
#include "platform/trace/trace.h"

namespace ksutil {
namespace {

constexpr std::size_t kSampleSize = 4;
constexpr std::size_t kChunk = std::size_t{1}
                               << 20;  // bytes read at a time from a pipe

struct Header {
  std::int32_t record_size, nsamp;
};

enum class Next { kTrace, kEnd, kError };

/* Reads one trace after another into a trace database. */
class BlobReader {
 public:
  BlobReader(const SeriesMaker &maker, const char *file, int fd, Dbptr rows)
      : maker_(maker), file_(file), fd_(fd), rows_(rows) {}

  /* Reads to the end of the file; `tag` receives that of each new vector. */
  bool read_all_traces(char *tag);

 private:
  Next read_header(Header &header);
  bool read_row(std::int32_t size);
  bool read_samples(std::int32_t nsamp);
  bool make_vector(std::int32_t nsamp, char *tag);
  bool hand_over_samples(std::int32_t nsamp);
  bool write_tag(const char *tag);
  std::size_t bytes_left() const;
  void blank_address(std::string &row) const;
  bool fail(int flag, const char *what) const;

  const SeriesMaker &maker_;
  const char *file_;
  int fd_;
  Dbptr rows_;  // the trace table, at the row added last
  MallocPtr<float> samples_;
};

/* Logs in the usual form; errno as the failing call left it. */
bool BlobReader::fail(int flag, const char *what) const {
  elog_log(flag, "%s: %s error for blob file %s\n", maker_.function, what, file_);
  return false;
}

/* How much a regular file still holds; no limit for anything else. */
std::size_t BlobReader::bytes_left() const {
  struct stat facts;
  const off_t at = lseek(fd_, 0, SEEK_CUR);
  if (at < 0 || fstat(fd_, &facts) != 0 || !S_ISREG(facts.st_mode)) {
    return std::numeric_limits<std::size_t>::max();
  }
  return static_cast<std::size_t>(std::max<off_t>(facts.st_size - at, 0));
}

Next BlobReader::read_header(Header &header) {
  std::array<std::int32_t, 2> numbers{};
  errno = 0;
  const ssize_t read = read_all(fd_, numbers.data(), sizeof numbers);
  const bool whole = read == static_cast<ssize_t>(sizeof numbers);
  if (read < 0 || (!whole && errno != 0)) {
    fail(1, "read(header)");
    return Next::kError;
  }
  if (!whole) return Next::kEnd;
  mi2hi(numbers.data(), numbers.data(), 2);
  header = {numbers[0], numbers[1]};
  return Next::kTrace;
}

/* Where the writer had its samples means nothing here and must not be freed as ours. */
void BlobReader::blank_address(std::string &row) const {
  Tbl *fields = nullptr;
  if (dbquery(rows_, dbq_fields, &fields) != 0) return;
  std::size_t at = 0;
  for (long i = 0; i < counttbl(fields) && at < row.size(); i++) {
    const auto *const name = static_cast<const char *>(gettbl(fields, i));
    int width = 0;
    dbquery(dblookup(rows_, nullptr, nullptr, name, nullptr), dbq_field_size, &width);
    const auto size = static_cast<std::size_t>(width);
    if (std::strcmp(name, "data") == 0) {
      std::fill_n(row.begin() + static_cast<std::ptrdiff_t>(at),
                  std::min(size, row.size() - at), ' ');
    }
    at += size + 1;
  }
}

bool BlobReader::read_row(std::int32_t size) {
  long limit = 0;
  if (dbquery(rows_, dbq_record_size, &limit) != 0 || size < 0 || size > limit) {
    return fail(0, "read(rec)");
  }
  std::string row(static_cast<std::size_t>(size), '\0');
  errno = 0;
  if (read_all(fd_, row.data(), row.size()) != size) {
    return fail(1, "read(rec)");
  }
  blank_address(row);
  rows_.record = dbadd(rows_, row.c_str());
  return rows_.record >= 0 || fail(0, "dbadd(rec)");
}

/* A count that lies must not cost memory: room grows with what really comes. */
bool BlobReader::read_samples(std::int32_t nsamp) {
  const std::size_t total = kSampleSize * static_cast<std::size_t>(nsamp);
  const std::size_t left = bytes_left();
  if (nsamp < 0 || total > left) return fail(0, "dbread(data)");
  const bool believed = left != std::numeric_limits<std::size_t>::max();
  std::size_t have = 0;
  samples_.reset();
  do {
    const std::size_t wanted =
        believed ? total : std::min(total, std::max(2 * have, kChunk));
    void *const block = ks_realloc(samples_.get(), wanted);
    if (block == nullptr) {
      elog_log(1, "%s: malloc(data,%ld) error for blob file %s\n", maker_.function,
               static_cast<long>(wanted), file_);
      return false;
    }
    static_cast<void>(samples_.release());
    samples_.reset(static_cast<float *>(block));
    errno = 0;
    const ssize_t read =
        read_all(fd_, reinterpret_cast<char *>(samples_.get()) + have, wanted - have);
    if (read < 0 || static_cast<std::size_t>(read) < wanted - have) {
      return fail(1, "dbread(data)");
    }
    have = wanted;
  } while (have < total);
  mf2hf(samples_.get(), samples_.get(), nsamp);
  return true;
}

bool BlobReader::make_vector(std::int32_t nsamp, char *tag) {
  Segment segment;
  if (dbgetv(rows_, "time", &segment.time, "samprate", &segment.samprate,
             static_cast<char *>(nullptr)) != 0) {
    return fail(0, "dbgetv(time,samprate)");
  }
  segment.samples = Segment::Floats(samples_.get(), static_cast<std::size_t>(nsamp));
  if (maker_.create(segment, tag)) return true;
  elog_log(0, "%s: %s() error.\n", maker_.function, maker_.creator);
  return false;
}

/* The count of the header goes into the row together with the samples: one that claims
 * more than there are would be read beyond their end. */
bool BlobReader::hand_over_samples(std::int32_t nsamp) {
  long claimed = 0;
  double time = 0.0, samprate = 0.0;
  if (dbgetv(rows_, "nsamp", &claimed, "time", &time, "samprate", &samprate,
             static_cast<char *>(nullptr)) != 0) {
    return fail(0, "dbgetv(nsamp)");
  }
  const double last = time + (nsamp > 0 ? nsamp - 1 : 0) / samprate;
  if (claimed != nsamp && dbputv(rows_, "nsamp", static_cast<long>(nsamp), "endtime",
                                 last, static_cast<char *>(nullptr)) != 0) {
    return fail(0, "dbputv(nsamp)");
  }
  if (dbputv(rows_, "data", static_cast<void *>(samples_.get()),
             static_cast<char *>(nullptr)) != 0) {
    return fail(0, "dbputv(data)");
  }
  static_cast<void>(samples_.release());
  return true;
}

bool BlobReader::write_tag(const char *tag) {
  Dbptr comment = dblookup(rows_, nullptr, nullptr, "comment", nullptr);
  comment.record = rows_.record;
  return dbput(comment, tag) == 0 || fail(0, "dbput(comment)");
}

bool BlobReader::read_all_traces(char *tag) {
  for (;;) {
    Header header{};
    const Next next = read_header(header);
    if (next != Next::kTrace) return next == Next::kEnd;
    if (!read_row(header.record_size) || !read_samples(header.nsamp)) return false;
    char made[KS_TAG_SIZE] = "";
    if (!make_vector(header.nsamp, made)) return false;
    if (!hand_over_samples(header.nsamp) || !write_tag(made)) {
      maker_.free(made);
      return false;
    }
    copy_tag(made, tag);
  }
}

/* Opens "-" as standard input, which stays open. */
int open_blob(const char *file, FileHandle &opened) {
  if (std::strcmp(file, "-") == 0) return STDIN_FILENO;
  opened = open_file(file, O_RDONLY);
  return opened.get();
}

bool read_blob(const SeriesMaker &maker, const char *file, Dbptr *trace, char *tag) {
  FileHandle opened;
  const int fd = open_blob(file, opened);
  if (fd < 0) {
    elog_log(1, "%s: open(%s) error for blob file\n", maker.function, file);
    return false;
  }
  if (trace->database < 0) *trace = trnew();
  const Dbptr rows = dblookup(*trace, nullptr, "trace", nullptr, nullptr);
  if (trace->database < 0 || rows.table < 0) {
    elog_log(0, "%s: No trace table for blob file %s\n", maker.function, file);
    return false;
  }
  return BlobReader(maker, file, fd, rows).read_all_traces(tag);
}

}  // namespace

int read_trace_blob(const SeriesMaker &maker, const char *file, Dbptr *trace,
                    char *tag) {
  char last[KS_TAG_SIZE] = "";
  bool read = false;
  if (file == nullptr) file = "";
  try {
    read = read_blob(maker, file, trace, last);
  } catch (const std::bad_alloc &) {
    errno = ENOMEM;
    elog_log(1, "%s: malloc() error for blob file %s\n", maker.function, file);
  }
  if (tag != nullptr) copy_tag(last, tag);
  return read ? 0 : -1;
}

}  // namespace ksutil
