/* Text tables: columns between blanks and commas. */
#include <cerrno>
#include <cstring>
#include <new>
#include <vector>

#include "objects/readers/internal/line_reader.h"
#include "objects/readers/internal/vector_readers.h"
#include "platform/elog/elog.h"
#include "platform/stock/text.h"

namespace ksutil {
namespace {

constexpr char kSeparators[] = ", \t\n";

/* What one line gave.  The y values outlive it: a column that a later line lacks keeps the
 * value of the line before. */
struct Row {
  double x = 0.0;
  std::vector<double> y;
  const char *label = nullptr;
};

/* Splits a line; whether it has x and at least one y value.  Columns after the last one
 * needed are not looked at, not even for the label. */
bool split(char *line, const TableColumns &columns, Row &row) {
  bool has_x = false;
  std::size_t found = 0;
  row.label = nullptr;
  char *state = nullptr;
  int column = 0;
  for (char *word = strtok_r(line, kSeparators, &state);
       word != nullptr && *word != '#' && !(has_x && found == row.y.size());
       word = strtok_r(nullptr, kSeparators, &state), column++) {
    if (column == columns.x) {
      row.x = fix_strtod(word, nullptr);
      has_x = true;
    }
    if (column == columns.label) row.label = word;
    for (std::size_t j = 0; j < row.y.size(); j++) {
      if (columns.y[j] != column) continue;
      row.y[j] = fix_strtod(word, nullptr);
      found++;
    }
  }
  return has_x && found > 0;
}

/* Whether a point was taken; logs why not. */
bool was_taken(const char *family, PointTaker::Taken taken) {
  if (taken == PointTaker::Taken::kNoRoom) {
    elog_log(1, "%s_resize: realloc() error.\n", family);
    elog_log(0, "%s_read: %s_resize() error.\n", family, family);
  } else if (taken == PointTaker::Taken::kNoLabel) {
    elog_log(1, "%s_read: malloc() error.\n", family);
  }
  return taken == PointTaker::Taken::kYes;
}

bool read_points(const char *family, LineReader &lines, const TableColumns &columns,
                 PointTaker &points) {
  Row row;
  row.y.assign(columns.y.size(), 0.0);
  for (int skipped = 0; skipped < columns.nskip && lines.next(); skipped++) {
  }
  while (lines.next_data()) {
    if (!split(lines.line(), columns, row)) continue;
    if (!was_taken(family, points.take(row.x, row.y.data(), row.label))) return false;
  }
  return true;
}

bool read_file(const char *family, const char *file, const TableColumns &columns,
               PointTaker &points) {
  LineReader lines(file);
  const char *const shown = file == nullptr ? "" : file;
  if (!lines.opened()) {
    elog_log(1, "%s_read: fopen(%s) error.\n", family, shown);
    return false;
  }
  if (!read_points(family, lines, columns, points)) return false;
  if (!lines.failed()) return true;
  errno = lines.error();
  elog_log(1, "%s_read: fgets(%s) error.\n", family, shown);
  return false;
}

}  // namespace

bool read_text_table(const char *family, const char *file, const TableColumns &columns,
                     PointTaker &points) {
  try {
    return read_file(family, file, columns, points);
  } catch (const std::bad_alloc &) {
    errno = ENOMEM;
    elog_log(1, "%s_read: malloc() error.\n", family);
    return false;
  }
}

}  // namespace ksutil
