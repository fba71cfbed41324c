#include "objects/db2vector.h"

#include <algorithm>
#include <array>
#include <climits>
#include <memory>

#include "objects/plot/internal/plot_labels.h"
#include "objects/vectors/points/internal/vector_record.h"
#include "platform/elog/failure.h"
#include "platform/stock/memory.h"

namespace {

using ksutil::LabelValues;
using ksutil::MallocPtr;

struct ExpressionDeleter {
  void operator()(Expression *expression) const { dbex_free(expression); }
};

/* One of the expressions; its text may be null. */
class Part {
 public:
  Part(const char *name, const char *text, int type)
      : name_(name), text_(text), type_(type) {}

  bool given() const { return text_ != nullptr; }

  bool compile(Dbptr db) {
    Expression *expression = nullptr;
    if (dbex_compile(db, text_, &expression, type_) < 0) {
      elog_log(0, "Can't compile %s expression '%s'", name_, text_);
      return false;
    }
    compiled_.reset(expression);
    return true;
  }

  /* `result` stays as it is when the expression is not given.  A null is a value. */
  bool evaluate(Dbptr row, void *result) const {
    if (compiled_ == nullptr || dbex_eval(row, compiled_.get(), result) >= 0)
      return true;
    elog_log(0, "failed to evaluate %s expression '%s'", name_, text_);
    return false;
  }

 private:
  const char *name_;
  const char *text_;
  int type_;
  std::unique_ptr<Expression, ExpressionDeleter> compiled_;
};

enum { kX, kY, kHue, kSaturation, kSize, kSymbol, kParts };
using Parts = std::array<Part, kParts>;

bool evaluate_row(Dbptr row, const Parts &parts, KSVectorPoint &point,
                  LabelValues &values) {
  if (!parts[kX].evaluate(row, &point.x) || !parts[kY].evaluate(row, point.y) ||
      !parts[kHue].evaluate(row, &values.hue) ||
      !parts[kSaturation].evaluate(row, &values.saturation) ||
      !parts[kSize].evaluate(row, &values.size)) {
    return false;
  }
  if (!parts[kSymbol].given()) return true;
  char *symbol = nullptr;
  if (!parts[kSymbol].evaluate(row, &symbol)) return false;
  const MallocPtr<char> owner(symbol);
  values.symbol = ksutil::symbolize(symbol);
  return true;
}

int label_flags(const Parts &parts) {
  return (parts[kHue].given() ? ksutil::kLabelHue : 0) |
         (parts[kSaturation].given() ? ksutil::kLabelSaturation : 0) |
         (parts[kSize].given() ? ksutil::kLabelSize : 0) |
         (parts[kSymbol].given() ? ksutil::kLabelSymbol : 0);
}

/* Compiles all expressions, so that each bad one is reported; true if all are good. */
bool compile_all(Dbptr db, Parts &parts) {
  bool good = true;
  for (Part &part : parts) {
    if (part.given() && !part.compile(db)) good = false;
  }
  return good;
}

}  // namespace

KSVector *db2vector(Dbptr db, const char *x, const char *y, const char *hue,
                    const char *saturation, const char *size, const char *symbol,
                    const char *name, char *tag, int fill, int maxsize,
                    double hue_centre, double hue_range) {
  db.field = dbALL;
  db.record = dbALL;
  long rows = 0;
  if (dbquery(db, dbq_record_count, &rows) < 0) {
    ksutil::fail("db2vector", "dbquery() error");
    return ksutil::Vectors::none(tag);
  }
  KSVector *const vector =
      ksvector_create(static_cast<int>(std::min<long>(rows, INT_MAX)), 2, name, tag);
  if (vector == nullptr) return ksutil::fail("db2vector", "ksvector_create() error");
  if (rows <= 0) return vector;

  Parts parts{Part{"x", x == nullptr ? "" : x, dbexREAL},
              Part{"y", y == nullptr ? "" : y, dbexREAL},
              Part{"hue", hue, dbexREAL},
              Part{"saturation", saturation, dbexREAL},
              Part{"size", size, dbexREAL},
              Part{"symbol", symbol, dbexTEXT}};
  if (!compile_all(db, parts)) return vector;
  const int flags = label_flags(parts);

  const auto count = static_cast<std::size_t>(rows);
  const MallocPtr<LabelValues> values(
      static_cast<LabelValues *>(ks_calloc(count, sizeof(LabelValues))));
  if (values == nullptr) {
    elog_die(0,
             "Out of memory in %s at line %d of '%s'\n\tCan't malloc %lu bytes for "
             "value\n",
             "db2vector", __LINE__, "db2vector.cpp",
             static_cast<unsigned long>(count * sizeof(LabelValues)));
  }
  for (std::size_t i = 0; i < count; i++) {
    db.record = static_cast<long>(i);
    /* The vector was made for all rows and has no points yet, should one fail. */
    if (!evaluate_row(db, parts, vector->points[i], values.get()[i])) return vector;
  }
  vector->npts = static_cast<int>(rows);
  ksutil::x_changed(*vector);
  if (flags != 0) {
    ksutil::set_labels(*vector, flags, values.get(), vector->npts, fill, maxsize,
                       hue_centre, hue_range);
  }
  return vector;
}
