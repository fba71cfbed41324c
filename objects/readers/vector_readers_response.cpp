/* Amplitude and phase files. */
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>

#include "objects/readers/internal/line_reader.h"
#include "objects/readers/internal/vector_readers.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"
#include "platform/stock/text.h"

namespace ksutil {
namespace {

constexpr int kFapValues = 2, kFap2Values = 6;
/* Counts up to this are believed; others up to the bytes of the file. */
constexpr long kBelievedRows = 100'000;

/* Reads one file. */
class ResponseReader {
 public:
  ResponseReader(const char *function, const char *file)
      : function_(function), file_(file == nullptr ? "" : file), lines_(file) {}

  ReadStatus read(NewPoints &points);

 private:
  ReadStatus failure() const;
  ReadStatus out_of_memory() const;
  ReadStatus read_kind();
  ReadStatus read_count();
  int expected_rows() const;
  ReadStatus read_rows(NewPoints &points);

  const char *function_;
  const char *file_;
  LineReader lines_;
  int ny_ = 0, rows_ = 0;
};

/* errno is put back for the message's second line. */
ReadStatus ResponseReader::failure() const {
  errno = lines_.error();
  elog_log(1, "%s: fgets(%s) error.\n", function_, file_);
  return kReadFailed;
}

ReadStatus ResponseReader::out_of_memory() const {
  elog_log(1, "%s: malloc() error.\n", function_);
  return kReadFailed;
}

/* The kind of file, from its first line: y values of a row. */
ReadStatus ResponseReader::read_kind() {
  std::array<char, LineReader::kMaxLine + 1> form{};
  const bool found = lines_.next_data();
  if (lines_.failed()) return failure();
  if (!found || std::sscanf(lines_.line(), "%*s %*d %*s %1023s", form.data()) != 1) {
    elog_log(0, "%s: cannot parse %s.\n", function_, file_);
    return kReadUnparsable;
  }
  if (std::strcmp(form.data(), "fap") == 0) {
    ny_ = kFapValues;
  } else if (std::strcmp(form.data(), "fap2") == 0) {
    ny_ = kFap2Values;
  } else {
    elog_log(0, "%s: %s not a fap or fap2 file (%s).\n", function_, file_, form.data());
    return kReadUnparsable;
  }
  return kReadDone;
}

ReadStatus ResponseReader::read_count() {
  long count = -1;
  const bool found = lines_.next_data();
  if (lines_.failed()) return failure();
  if (!found || std::sscanf(lines_.line(), "%ld", &count) != 1 || count < 0) {
    elog_log(0, "%s: Cannot parse number of faps from %s.\n", function_, file_);
    return kReadUnparsable;
  }
  rows_ = static_cast<int>(std::min<long>(count, std::numeric_limits<int>::max()));
  return kReadDone;
}

/* Rows to make room for at first. */
int ResponseReader::expected_rows() const {
  if (rows_ <= kBelievedRows) return rows_;
  const long possible = std::max<long>(lines_.file_size(), kBelievedRows);
  return static_cast<int>(std::min<long>(rows_, possible));
}

ReadStatus ResponseReader::read_rows(NewPoints &points) {
  std::array<double, 1 + kFap2Values> row{};
  for (int taken = 0; taken < rows_ && lines_.next_data();) {
    const int fields =
        std::sscanf(lines_.line(), "%lf %lf %lf %lf %lf %lf %lf", &row[0], &row[1],
                    &row[2], &row[3], &row[4], &row[5], &row[6]);
    if (fields < ny_ + 1) continue;
    if (points.take(row[0], row.data() + 1, nullptr) != PointTaker::Taken::kYes) {
      return out_of_memory();
    }
    taken++;
  }
  return lines_.failed() ? failure() : kReadDone;
}

ReadStatus ResponseReader::read(NewPoints &points) {
  if (!lines_.opened()) {
    elog_log(1, "%s: fopen(%s) error.\n", function_, file_);
    return kReadFailed;
  }
  if (const ReadStatus status = read_kind(); status != kReadDone) return status;
  if (const ReadStatus status = read_count(); status != kReadDone) return status;
  if (points.make(expected_rows(), ny_) != nullptr) return out_of_memory();
  return read_rows(points);
}

}  // namespace

ReadStatus read_response(const char *function, const char *file, NewPoints &points) {
  const ScopedCLocale locale;
  return at_boundary(function, kReadFailed,
                     [&] { return ResponseReader(function, file).read(points); });
}

}  // namespace ksutil
