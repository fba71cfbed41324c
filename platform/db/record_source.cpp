#include "platform/db/internal/record_source.h"

#include "platform/db/internal/bound_layout.h"

namespace ksutil::db {

bool SourceFields::bind(std::string_view name, int &slot, expr::Type &type) const {
  if (source_ == nullptr) return false;
  const int index = source_->find_field(name);
  if (index < 0 || !expression_type(source_->field(index).type, type)) return false;
  slot = index;
  return true;
}

}  // namespace ksutil::db
