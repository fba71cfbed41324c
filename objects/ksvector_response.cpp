#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <utility>

#include "objects/internal/line_reader.h"
#include "objects/internal/vector_record.h"
#include "platform/elog/elog.h"
#include "platform/stock/text.h"

using ksutil::LineReader;
using ksutil::VectorPtr;

namespace {

constexpr char kFunction[] = "ksvector_create_response_fap";
enum Status { kRead = 0, kUnparsable = 1, kFailed = -1 };

constexpr int kFapValues = 2, kFap2Values = 6;
/* Counts up to this are believed; others only as far as the file can hold the rows. */
constexpr long kBelievedRows = 100'000;

/* errno is put back for the message's second line. */
Status read_failure(const LineReader &lines, const char *file) {
  errno = lines.error();
  elog_log(1, "%s: fgets(%s) error.\n", kFunction, file);
  return kFailed;
}

Status out_of_memory() {
  elog_log(1, "%s: malloc() error.\n", kFunction);
  return kFailed;
}

/* The kind of file, from its first line: y values of a row. */
Status read_kind(LineReader &lines, const char *file, int &ny) {
  std::array<char, LineReader::kMaxLine + 1> form{};
  const bool found = lines.next_data();
  if (lines.failed()) return read_failure(lines, file);
  if (!found || std::sscanf(lines.line(), "%*s %*d %*s %1023s", form.data()) != 1) {
    elog_log(0, "%s: cannot parse %s.\n", kFunction, file);
    return kUnparsable;
  }
  if (std::strcmp(form.data(), "fap") == 0) {
    ny = kFapValues;
  } else if (std::strcmp(form.data(), "fap2") == 0) {
    ny = kFap2Values;
  } else {
    elog_log(0, "%s: %s not a fap or fap2 file (%s).\n", kFunction, file, form.data());
    return kUnparsable;
  }
  return kRead;
}

Status read_count(LineReader &lines, const char *file, int &rows) {
  long count = -1;
  const bool found = lines.next_data();
  if (lines.failed()) return read_failure(lines, file);
  if (!found || std::sscanf(lines.line(), "%ld", &count) != 1 || count < 0) {
    elog_log(0, "%s: Cannot parse number of faps from %s.\n", kFunction, file);
    return kUnparsable;
  }
  rows = static_cast<int>(std::min<long>(count, std::numeric_limits<int>::max()));
  return kRead;
}

/* Rows to make room for at first. */
int expected_rows(const LineReader &lines, int rows, int ny) {
  if (rows <= kBelievedRows) return rows;
  const long shortest_row = 2L * (ny + 1);  // a digit and a blank or newline each
  const long possible = std::max<long>(lines.file_size() / shortest_row + 1, 0);
  return static_cast<int>(std::min<long>(rows, std::max(possible, kBelievedRows)));
}

Status read_rows(LineReader &lines, const char *file, int rows, KSVector &vector) {
  std::array<double, 1 + kFap2Values> row{};
  while (vector.npts < rows && lines.next_data()) {
    const int fields =
        std::sscanf(lines.line(), "%lf %lf %lf %lf %lf %lf %lf", &row[0], &row[1],
                    &row[2], &row[3], &row[4], &row[5], &row[6]);
    if (fields < vector.ny + 1) continue;
    if (vector.npts == vector.nalloc && !ksutil::grow_vector(vector)) {
      return out_of_memory();
    }
    if (!ksutil::add_point(vector, row[0], row.data() + 1, nullptr)) {
      return out_of_memory();
    }
  }
  return lines.failed() ? read_failure(lines, file) : kRead;
}

Status read_response(const char *file, const char *name, VectorPtr &vector) {
  LineReader lines(file);
  if (!lines.opened()) {
    elog_log(1, "%s: fopen(%s) error.\n", kFunction, file == nullptr ? "" : file);
    return kFailed;
  }
  int ny = 0, rows = 0;
  if (const Status status = read_kind(lines, file, ny); status != kRead) return status;
  if (const Status status = read_count(lines, file, rows); status != kRead) {
    return status;
  }
  const int nalloc = ksutil::slots_for(expected_rows(lines, rows, ny), 0);
  vector = ksutil::make_point_vector(nalloc, ny, name);
  if (vector == nullptr) return out_of_memory();
  return read_rows(lines, file, rows, *vector);
}

}  // namespace

KSVector *ksvector_create_response_fap(const char *file, const char *name, char *tag,
                                       int *status) {
  *status = kFailed;
  if (!ksutil::open_vector_registry(kFunction)) return ksutil::no_vector(tag);
  const ksutil::ScopedCLocale locale;
  VectorPtr vector;
  *status = read_response(file, name, vector);
  if (*status != kRead) return ksutil::no_vector(tag);
  KSVector *const published = ksutil::publish_vector(kFunction, std::move(vector), tag);
  if (published == nullptr) *status = kFailed;
  return published;
}
