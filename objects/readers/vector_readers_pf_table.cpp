/* pf_table_reader: reads points from a table of a parameter file. */
#include <array>
#include <cerrno>
#include <cstdio>

#include "core/params.h"
#include "objects/readers/internal/vector_readers.h"
#include "platform/elog/failure.h"
#include "platform/stock/owners.h"
#include "platform/stock/text.h"

namespace ksutil {
namespace {

constexpr int kMaxNumbers = 11;
using Numbers = std::array<double, kMaxNumbers>;

/* Reads x and at least one y value; how many numbers, 0 with a message. */
int read_row(const char *function, const char *row, Numbers &n) {
  const int count =
      std::sscanf(row, "%lf %lf %lf %lf %lf %lf %lf %lf %lf %lf %lf", &n[0], &n[1],
                  &n[2], &n[3], &n[4], &n[5], &n[6], &n[7], &n[8], &n[9], &n[10]);
  if (count > 1) return count;
  if (count == 1) {
    fail(function, "sscanf(%s) error - no y value", row);
  } else {
    fail(function, "sscanf(%s) error", row);
  }
  return 0;
}

ReadStatus no_memory(const char *function, const char *missing) {
  fail_errno(function, "malloc(%s) error", missing);
  return kReadFailed;
}

/* The first row decides how many y values there are. */
ReadStatus read_rows(const char *function, Tbl *table, NewPoints &points) {
  const long rows = counttbl(table);
  int columns = 0;
  for (long i = 0; i < rows; i++) {
    const auto *const row = static_cast<const char *>(gettbl(table, i));
    Numbers numbers{};
    const int count = read_row(function, row == nullptr ? "" : row, numbers);
    if (count == 0) return kReadUnparsable;
    if (columns == 0) {
      const char *const missing = points.make(rows, count - 1);
      if (missing != nullptr) return no_memory(function, missing);
      columns = count;
    }
    if (count != columns) {
      fail(function, "Number of y values must be the same for all table rows");
      return kReadUnparsable;
    }
    if (points.take(numbers[0], numbers.data() + 1, nullptr) !=
        PointTaker::Taken::kYes) {
      return no_memory(function, "vector->point");
    }
  }
  return kReadDone;
}

}  // namespace

ReadStatus read_pf_table(const char *function, Pf *pf, const char *key,
                         NewPoints &points) {
  const ScopedCLocale locale;
  Tbl *copy = nullptr;
  errno = 0;
  if (parse_param(pf, key, P_TBLCOPY, 1, &copy) < 0) {
    const bool no_memory = errno == ENOMEM;
    fail(function, "parse_param(%s) error", key);
    return no_memory ? kReadFailed : kReadUnparsable;
  }
  const TblPtr table(copy);
  if (counttbl(copy) > 0) return read_rows(function, copy, points);
  fail(function, "No rows in table %s", key);
  return kReadUnparsable;
}

}  // namespace ksutil
