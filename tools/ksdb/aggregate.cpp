#include "tools/ksdb/aggregate.h"

#include <algorithm>
#include <cmath>

#include "platform/stock/text.h"
#include "tools/common/cells.h"
#include "tools/common/cli.h"
#include "tools/common/messages.h"

namespace ksutil::tools {
namespace {

struct FigureName {
  const char *name;
  Figure figure;
};

constexpr FigureName kFigures[] = {
    {"count", Figure::kCount},   {"nulls", Figure::kNulls}, {"min", Figure::kMin},
    {"max", Figure::kMax},       {"mean", Figure::kMean},   {"median", Figure::kMedian},
    {"stddev", Figure::kStddev},
};

/* Splits "mean(depth)"; false with a complaint. */
bool split_figure(const std::string &text, Figure &figure, std::string &expression) {
  const std::size_t open = text.find('(');
  if (open != text.npos && text.back() == ')') {
    const std::string_view name = trimmed(std::string_view(text).substr(0, open));
    for (const FigureName &known : kFigures) {
      if (name != known.name) continue;
      figure = known.figure;
      expression = trimmed(text.substr(open + 1, text.size() - open - 2));
      return true;
    }
  }
  std::string names;
  for (const FigureName &known : kFigures) {
    names += (names.empty() ? "" : ", ") + std::string(known.name);
  }
  complain("--aggregate: '" + text + "' is not FIGURE(EXPRESSION); figures are " +
           names);
  return false;
}

bool is_count(Figure figure) {
  return figure == Figure::kCount || figure == Figure::kNulls;
}

double number_of(const expr::Value &value) {
  return value.type == expr::Type::kReal || value.type == expr::Type::kTime
             ? value.real
             : static_cast<double>(value.integer);
}

/* The median of numbers, which are reordered. */
double median_of(std::vector<double> &values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  if (values.size() % 2 == 1) return *middle;
  const double below = *std::max_element(values.begin(), middle);
  return below + (*middle - below) / 2.0;
}

}  // namespace

void Accumulator::take(double value) {
  least_ = count_ == 0 ? value : std::min(least_, value);
  greatest_ = count_ == 0 ? value : std::max(greatest_, value);
  count_++;
  const double before = value - mean_;
  mean_ += before / static_cast<double>(count_);
  squares_ += before * (value - mean_);
  if (figure_ == Figure::kMedian) values_.push_back(value);
}

std::optional<double> Accumulator::result() {
  if (figure_ == Figure::kCount) return static_cast<double>(count_);
  if (figure_ == Figure::kNulls) return static_cast<double>(nulls_);
  if (count_ == 0) return std::nullopt;
  switch (figure_) {
    case Figure::kMin:
      return least_;
    case Figure::kMax:
      return greatest_;
    case Figure::kMedian:
      return median_of(values_);
    case Figure::kStddev:
      if (count_ < 2) return std::nullopt;
      return std::sqrt(squares_ / static_cast<double>(count_ - 1));
    default:
      return mean_;
  }
}

int Aggregates::choose(Dbptr view, const std::vector<std::string> &items, bool raw,
                       Form form) {
  raw_ = raw;
  form_ = form;
  if (items.empty()) return kOk;
  std::vector<std::string> expressions;
  for (const std::string &text : items) {
    Item item{text, Figure::kCount, expr::Type::kReal};
    std::string expression;
    if (!split_figure(text, item.figure, expression)) return kUsage;
    items_.push_back(std::move(item));
    expressions.push_back(std::move(expression));
  }
  if (const int code = cells_.choose(view, expressions, raw); code != kOk) return code;
  for (std::size_t i = 0; i < items_.size(); i++) {
    items_[i].type = cells_.type(i);
    if (items_[i].type == expr::Type::kText && !is_count(items_[i].figure)) {
      complain("--aggregate: " + items_[i].text + ": '" + expressions[i] +
               "' is a text, not a number");
      return kUsage;
    }
  }
  return kOk;
}

std::vector<Column> Aggregates::columns() const {
  if (items_.empty()) return {};
  std::vector<Column> columns = cells_.columns();
  for (std::size_t i = 0; i < items_.size(); i++) {
    const Item &item = items_[i];
    Column &column = columns[i];
    const bool time = item.type == expr::Type::kTime;
    if (is_count(item.figure)) column.unit = "";
    if (time && item.figure == Figure::kStddev) column.unit = "s";
    column.name = item.text;
    column.heading = item.text;
    std::erase(column.heading, ' ');
    column.number = column.right =
        is_count(item.figure) || item.figure == Figure::kStddev || !time || raw_;
  }
  return columns;
}

std::string Aggregates::cell(const Item &item, Accumulator &figure) const {
  const std::optional<double> result = figure.result();
  if (!result) return "";
  const bool computed = item.figure == Figure::kMean ||
                        item.figure == Figure::kMedian ||
                        item.figure == Figure::kStddev;
  if (item.type == expr::Type::kTime && !raw_ && !is_count(item.figure) &&
      item.figure != Figure::kStddev) {
    return time_cell(*result);
  }
  /* Digits that a reader of the table does not need; programs get all of them. */
  return computed && form_ == Form::kText ? format_text("%.8g", *result)
                                          : shortest_cell(*result);
}

Aggregates::Figures Aggregates::none() const {
  Figures figures;
  figures.accumulators.reserve(items_.size());
  for (const Item &item : items_) figures.accumulators.emplace_back(item.figure);
  return figures;
}

void Aggregates::take(const std::string_view *rows, Figures &figures) {
  cells_.show(rows);
  for (std::size_t i = 0; i < items_.size(); i++) {
    expr::Value value;
    if (!cells_.value(i, value)) {
      figures.unreadable_values++;
      continue;
    }
    const bool text = value.type == expr::Type::kText;
    const double number = text ? 0.0 : number_of(value);
    if (value.null || !std::isfinite(number)) {
      figures.accumulators[i].take_null();
    } else {
      figures.accumulators[i].take(number);
    }
  }
}

void Aggregates::add_cells(Figures &figures, std::vector<std::string> &cells) const {
  for (std::size_t i = 0; i < items_.size(); i++) {
    cells.push_back(cell(items_[i], figures.accumulators[i]));
  }
}

}  // namespace ksutil::tools
