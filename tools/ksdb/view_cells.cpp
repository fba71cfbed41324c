#include "tools/ksdb/view_cells.h"

#include "platform/elog/elog.h"
#include "platform/stock/text.h"
#include "tools/common/cli.h"
#include "tools/ksdb/view_field.h"

namespace ksutil::tools {

/* Resolves the names of an item; each field that is named gets a slot, its place in
 * fields_. */
class ViewCells::Names final : public expr::Fields {
 public:
  explicit Names(ViewCells &cells) : cells_(cells) {}

  bool bind(std::string_view name, int &slot, expr::Type &type) const override {
    std::size_t part = 0;
    const db::Field *const field = find_field(cells_.parts_, name, part);
    if (field == nullptr) return false;
    slot = static_cast<int>(cells_.fields_.size());
    cells_.fields_.emplace_back(cells_.parts_[part]->layout(), *field, part);
    type = cells_.fields_.back().type();
    return field->type != db::FieldType::kPointer;
  }

 private:
  ViewCells &cells_;
};

/* The values of the current record. */
class ViewCells::Values final : public expr::Record {
 public:
  explicit Values(const ViewCells &cells) : cells_(cells) {}

  bool value(int slot, expr::Value &result) const override {
    const ViewField &field = cells_.fields_[static_cast<std::size_t>(slot)];
    return field.value(cells_.rows_[field.part()], result);
  }

 private:
  const ViewCells &cells_;
};

ViewCells::ViewCells() = default;
ViewCells::~ViewCells() = default;

int ViewCells::choose(Dbptr view, const std::vector<std::string> &items, bool raw) {
  raw_ = raw;
  Tbl *fields = nullptr;
  if (!read_tables_of(view, parts_) || dbquery(view, dbq_fields, &fields) < 0) {
    return kFailure;
  }
  std::vector<std::string> texts = items;
  for (long i = 0; items.empty() && i < counttbl(fields); i++) {
    const auto *const name = static_cast<const char *>(gettbl(fields, i));
    /* Pointers mean something in memory only. */
    std::size_t part = 0;
    const db::Field *const field = find_field(parts_, name, part);
    if (field != nullptr && field->type != db::FieldType::kPointer) {
      texts.emplace_back(name);
    }
  }
  const Names names(*this);
  for (const std::string &text : texts) {
    Item item;
    item.text = text;
    expr::Error error;
    item.program = expr::Program::compile(text, names, error);
    if (item.program == nullptr) {
      elog_log(0, "ksdb: Can't compile '%s': %s at position %zu.\n", text.c_str(),
               error.message.c_str(), error.position);
      return kUsage;
    }
    item.field = item.program->only_slot();
    items_.push_back(std::move(item));
  }
  return kOk;
}

std::vector<Column> ViewCells::columns() const {
  std::vector<Column> columns;
  for (const Item &item : items_) {
    if (item.field < 0) {
      columns.push_back(column_of(item.text, item.program->type()));
      continue;
    }
    const ViewField &field = fields_[static_cast<std::size_t>(item.field)];
    columns.push_back(field.column());
    columns.back().name = item.text;
    /* A raw time is a number, as stored. */
    if (raw_ && field.type() == expr::Type::kTime) {
      columns.back().right = columns.back().number = true;
    }
  }
  return columns;
}

bool ViewCells::value(std::size_t index, expr::Value &result) {
  const Item &item = items_[index];
  bool read;
  if (item.field < 0) {
    read = item.program->evaluate(Values(*this), workspace_, result);
  } else {
    const ViewField &field = fields_[static_cast<std::size_t>(item.field)];
    read = field.value(rows_[field.part()], result);
  }
  if (!read) unreadable_values_++;
  return read;
}

expr::Type ViewCells::type(std::size_t index) const {
  return items_[index].program->type();
}

bool ViewCells::evaluate(const Item &item, std::string &cell) {
  if (item.field >= 0) {
    const ViewField &field = fields_[static_cast<std::size_t>(item.field)];
    const std::string_view row = rows_[field.part()];
    if (!raw_) return field.cell(row, cell);
    cell.assign(field.stored(row));
    return true;
  }
  cell.clear();
  expr::Value value;
  if (!item.program->evaluate(Values(*this), workspace_, value)) return false;
  cell = value_cell(value);
  return true;
}

void ViewCells::read(std::vector<std::string> &cells) {
  cells.resize(items_.size());
  for (std::size_t i = 0; i < items_.size(); i++) {
    if (!evaluate(items_[i], cells[i])) unreadable_values_++;
  }
}

}  // namespace ksutil::tools
