#include "platform/db/view_rows.h"

#include "platform/db/views/internal/tuple_rows.h"
#include "platform/elog/failure.h"

namespace ksutil::db {

struct ViewRows::Impl {
  Tuples tuples;
  TupleRows rows{tuples};
  bool of_table = false;  // each record is the row of its number
};

ViewRows::ViewRows(Dbptr view) {
  impl_ = at_boundary("view_rows", std::unique_ptr<Impl>(), [&] {
    const Opened opened("view_rows", view);
    RecordSource *const source = opened ? opened.source("view_rows", view) : nullptr;
    auto impl = std::make_unique<Impl>();
    const bool good = source != nullptr &&
                      list_tuples("view_rows", view, *source, impl->tuples) &&
                      impl->rows.look("view_rows");
    impl->of_table = good && source->table() != nullptr;
    return good ? std::move(impl) : nullptr;
  });
}

ViewRows::~ViewRows() = default;

long ViewRows::count() const { return impl_->tuples.count(); }

std::size_t ViewRows::record_bytes() const { return impl_->rows.tuple_bytes(); }

const std::string_view *ViewRows::read(long record) { return impl_->rows.read(record); }

std::vector<RowRange> ViewRows::scan(RowTaker &taker, RowRange records) {
  return at_boundary("view_rows", std::vector<RowRange>{records}, [&] {
    if (!impl_->of_table) return std::vector<RowRange>{records};
    return impl_->rows.snapshot(0).scan(taker, records);
  });
}

struct ViewCondition::Impl {
  Tuples tuples;  // only its parts
  TupleRows layouts{tuples};
  std::unique_ptr<TupleRecord> record;
  std::unique_ptr<const expr::Program> program;
  expr::Workspace workspace;
};

ViewCondition::ViewCondition(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
ViewCondition::~ViewCondition() = default;

std::unique_ptr<ViewCondition> ViewCondition::compile(Dbptr view,
                                                      const std::string &text,
                                                      bool *wrong) {
  if (wrong != nullptr) *wrong = false;
  return at_boundary("dbsubset", std::unique_ptr<ViewCondition>(), [&] {
    std::unique_ptr<ViewCondition> made;
    const Opened opened("dbsubset", view);
    RecordSource *const source = opened ? opened.source("dbsubset", view) : nullptr;
    if (source == nullptr) return made;
    auto impl = std::make_unique<Impl>();
    impl->program = compile_expression("dbsubset", *source, text);
    if (impl->program == nullptr) {
      if (wrong != nullptr) *wrong = true;
      return made;
    }
    if (TableSource *const table = source->table()) {
      impl->tuples.parts = {{view.table, table}};
    } else {
      impl->tuples.parts = static_cast<ViewSource *>(source)->tuples().parts;
    }
    if (!impl->layouts.look("dbsubset")) return made;
    impl->record = std::make_unique<TupleRecord>(*source, impl->layouts);
    made.reset(new ViewCondition(std::move(impl)));
    return made;
  });
}

int ViewCondition::accepts(const std::string_view *rows) {
  expr::Value value, truth;
  impl_->record->show(rows);
  if (!impl_->program->evaluate(*impl_->record, impl_->workspace, value) ||
      !expr::convert(value, expr::Type::kBoolean, impl_->workspace, truth)) {
    return -1;
  }
  return !truth.null && truth.integer != 0 ? 1 : 0;
}

}  // namespace ksutil::db
