#include <array>
#include <cstdio>
#include <memory>
#include <utility>

#include "core/params.h"
#include "objects/internal/vector_record.h"
#include "platform/elog/elog.h"
#include "platform/stock/text.h"

using ksutil::VectorPtr;

namespace {

constexpr char kFunction[] = "ksvector_create_from_pf";
enum Status { kRead = 0, kUnparsable = 1, kFailed = -1 };

struct FreeList {
  void operator()(Tbl *list) const { freetbl(list, nullptr); }
};
using List = std::unique_ptr<Tbl, FreeList>;

constexpr int kMaxNumbers = 11;
using Numbers = std::array<double, kMaxNumbers>;

/* Reads x and at least one y value; how many numbers, 0 with a message. */
int read_row(const char *row, Numbers &n) {
  const int count =
      std::sscanf(row, "%lf %lf %lf %lf %lf %lf %lf %lf %lf %lf %lf", &n[0], &n[1],
                  &n[2], &n[3], &n[4], &n[5], &n[6], &n[7], &n[8], &n[9], &n[10]);
  if (count > 1) return count;
  if (count == 1) {
    elog_log(0, "%s: sscanf(%s) error - no y value.\n", kFunction, row);
  } else {
    elog_log(0, "%s: sscanf(%s) error.\n", kFunction, row);
  }
  return 0;
}

/* Adds a row; the first one decides how many y values the vector has. */
Status add_row(const char *row, long rows, const char *name, VectorPtr &vector) {
  Numbers numbers{};
  const int count = read_row(row, numbers);
  if (count == 0) return kUnparsable;
  if (vector == nullptr) {
    const char *missing = "vector->point";
    vector = ksutil::make_point_vector(ksutil::slots_for(rows, 0), count - 1, name,
                                       &missing);
    if (vector == nullptr) {
      elog_log(1, "%s: malloc(%s) error.\n", kFunction, missing);
      return kFailed;
    }
  }
  if (count != vector->ny + 1) {
    elog_log(0, "%s: Number of y values must be the same for all table rows.\n",
             kFunction);
    return kUnparsable;
  }
  ksutil::add_point(*vector, numbers[0], numbers.data() + 1, nullptr);
  return kRead;
}

Status read_table(Pf *pf, const char *key, const char *name, VectorPtr &vector) {
  Tbl *copy = nullptr;
  if (parse_param(pf, key, P_TBLCOPY, 1, &copy) < 0) {
    elog_log(0, "%s: parse_param(%s) error.\n", kFunction, key);
    return kUnparsable;
  }
  const List table(copy);
  const long rows = counttbl(copy);
  for (long i = 0; i < rows; i++) {
    const auto *const row = static_cast<const char *>(gettbl(copy, i));
    const Status status = add_row(row == nullptr ? "" : row, rows, name, vector);
    if (status != kRead) return status;
  }
  if (rows > 0) return kRead;
  elog_log(0, "%s: No rows in table %s.\n", kFunction, key);
  return kUnparsable;
}

}  // namespace

KSVector *ksvector_create_from_pf(Pf *pf, const char *key, const char *name, char *tag,
                                  int *status) {
  *status = kFailed;
  if (!ksutil::open_vector_registry(kFunction)) return ksutil::no_vector(tag);
  const ksutil::ScopedCLocale locale;
  VectorPtr vector;
  *status = read_table(pf, key, name, vector);
  if (*status != kRead) return ksutil::no_vector(tag);
  KSVector *const published = ksutil::publish_vector(kFunction, std::move(vector), tag);
  if (published == nullptr) *status = kFailed;
  return published;
}
