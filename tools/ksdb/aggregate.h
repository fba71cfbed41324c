/* aggregate: computes one figure of many numbers in one pass: count, min, mean, ... */
#ifndef KSUTIL_TOOLS_KSDB_AGGREGATE_H
#define KSUTIL_TOOLS_KSDB_AGGREGATE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/common/rows.h"
#include "tools/ksdb/view_cells.h"

namespace ksutil::tools {

enum class Figure { kCount, kNulls, kMin, kMax, kMean, kMedian, kStddev };

/* Numbers, and the count of null values.  The mean and the standard deviation are
 * updated value by value, so that numbers which agree in most of their digits (epoch
 * seconds) keep the precision of the rest.
 * Source: Welford, Technometrics 4 (1962), 419-420. */
class Accumulator {
 public:
  explicit Accumulator(Figure figure) : figure_(figure) {}
  void take(double value);
  void take_null() { nulls_++; }
  /* The figure; nothing when there are too few values: a standard deviation, with n - 1
   * in its denominator, needs two values, the other figures one.  The median of an even
   * number of values is the mean of the two in the middle. */
  std::optional<double> result();

 private:
  Figure figure_;
  std::int64_t count_ = 0, nulls_ = 0;
  double least_ = 0.0, greatest_ = 0.0, mean_ = 0.0, squares_ = 0.0;
  std::vector<double> values_;  // of a median
};

/* The figures that a user asks for, each a name with an expression: "mean(depth)". */
class Aggregates {
 public:
  /* An exit code, other than kOk with a message registered or a complaint: kUsage for an
   * unknown name, an expression that does not compile, or a figure of texts; else as
   * ViewCells::choose. */
  int choose(Dbptr view, const std::vector<std::string> &items, bool raw, Form form);
  bool empty() const { return items_.empty(); }
  std::vector<Column> columns() const;

  /* The figures of one group of records. */
  struct Figures {
    std::vector<Accumulator> accumulators;
    long unreadable_values = 0;
  };
  /* Those of no record. */
  Figures none() const;
  /* Takes a record, given by its rows. */
  void take(const std::string_view *rows, Figures &figures);
  /* Adds the cells of the figures. */
  void add_cells(Figures &figures, std::vector<std::string> &cells) const;

 private:
  struct Item {
    std::string text;
    Figure figure;
    expr::Type type;  // of the values
  };
  std::vector<Item> items_;
  ViewCells cells_;
  std::string cell(const Item &item, Accumulator &figure) const;

  bool raw_ = false;
  Form form_ = Form::kText;
};

}  // namespace ksutil::tools
#endif
