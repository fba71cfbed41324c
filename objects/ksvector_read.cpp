#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <span>
#include <vector>

#include "objects/internal/line_reader.h"
#include "objects/internal/vector_record.h"
#include "platform/elog/elog.h"
#include "platform/stock/text.h"

using ksutil::LineReader;

namespace {

constexpr char kSeparators[] = ", \t\n";

struct Columns {
  int x;
  std::vector<int> y;
  int label;
};

/* What one line gave.  The y values outlive it: a column that a later line lacks keeps the
 * value of the line before. */
struct Row {
  double x = 0.0;
  std::vector<double> y;
  const char *label = nullptr;
};

/* Splits a line; whether it has x and at least one y value.  Columns after the last one
 * needed are not looked at, not even for the label. */
bool split(char *line, const Columns &columns, Row &row) {
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

bool read_points(LineReader &lines, int nskip, const Columns &columns,
                 KSVector &vector) {
  Row row;
  row.y.assign(columns.y.size(), 0.0);
  for (int skipped = 0; skipped < nskip && lines.next(); skipped++) {
  }
  while (lines.next_data()) {
    if (!split(lines.line(), columns, row)) continue;
    if (!ksutil::grow_for_one(vector)) {
      elog_log(1, "ksvector_resize: realloc() error.\n");
      elog_log(0, "ksvector_read: ksvector_resize() error.\n");
      return false;
    }
    if (!ksutil::add_point(vector, row.x, row.y.data(), row.label)) {
      elog_log(1, "ksvector_read: malloc() error.\n");
      return false;
    }
  }
  return true;
}

bool read_file(const char *file, int nskip, const Columns &columns, KSVector &vector) {
  LineReader lines(file);
  const char *const shown = file == nullptr ? "" : file;
  if (!lines.opened()) {
    elog_log(1, "ksvector_read: fopen(%s) error.\n", shown);
    return false;
  }
  if (!read_points(lines, nskip, columns, vector)) return false;
  if (!lines.failed()) return true;
  errno = lines.error();
  elog_log(1, "ksvector_read: fgets(%s) error.\n", shown);
  return false;
}

bool read_table(const char *file, int nskip, int xcol, std::span<const int> ycols,
                int labelcol, KSVector &vector) {
  try {
    return read_file(file, nskip, {xcol, {ycols.begin(), ycols.end()}, labelcol},
                     vector);
  } catch (const std::bad_alloc &) {
    errno = ENOMEM;
    elog_log(1, "ksvector_read: malloc() error.\n");
    return false;
  }
}

}  // namespace

KSVector *ksvector_read(const char *file, const char *name, int nskip, int xcol, int ny,
                        const int *ycols, int labelcol, char *tag) {
  if (!ksutil::open_vector_registry("ksvector_read")) return ksutil::no_vector(tag);
  static constexpr int kSecondColumn = 1;
  const std::span<const int> columns =
      ny > 0 ? std::span(ycols, static_cast<std::size_t>(ny))
             : std::span(&kSecondColumn, 1);
  KSVector *const vector =
      tag == nullptr ? nullptr : ksvector_create(0, ny == 0 ? 1 : ny, name, tag);
  if (vector == nullptr) {
    elog_log(0, "ksvector_read: ksvector_create() error.\n");
    return nullptr;
  }
  if (read_table(file, nskip, xcol, columns, labelcol, *vector)) return vector;
  ksvector_free_vector(vector);
  return ksutil::no_vector(tag);
}
