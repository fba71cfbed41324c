#include "platform/db/row_filter.h"

#include "platform/db/internal/bound_layout.h"

namespace ksutil::db {
namespace {

class LayoutFields final : public expr::Fields {
 public:
  explicit LayoutFields(const Relation &layout) : layout_(layout) {}
  bool bind(std::string_view name, int &slot, expr::Type &type) const override {
    if (name.starts_with(layout_.name + "."))
      name.remove_prefix(layout_.name.size() + 1);
    slot = layout_.index(name);
    return slot >= 0 &&
           expression_type(layout_.fields[static_cast<std::size_t>(slot)].type, type);
  }

 private:
  const Relation &layout_;
};

}  // namespace

struct RowFilter::Impl {
  explicit Impl(const Relation &relation) : layout(relation) {}
  BoundLayout layout;
  expr::Error error;
  std::unique_ptr<const expr::Program> program;
  expr::Workspace workspace;
};

RowFilter::RowFilter(const Relation &layout, std::string_view expression)
    : impl_(std::make_unique<Impl>(layout)) {
  impl_->program =
      expr::Program::compile(expression, LayoutFields(layout), impl_->error);
}

RowFilter::~RowFilter() = default;

bool RowFilter::good() const { return impl_->program != nullptr; }

const expr::Error &RowFilter::error() const { return impl_->error; }

int RowFilter::accepts(std::string_view row) const {
  expr::Value value, truth;
  if (!impl_->program->evaluate(RowRecord(impl_->layout, row), impl_->workspace,
                                value) ||
      !expr::convert(value, expr::Type::kBoolean, impl_->workspace, truth)) {
    return -1;
  }
  return !truth.null && truth.integer != 0 ? 1 : 0;
}

}  // namespace ksutil::db
