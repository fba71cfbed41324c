#include "events/reading/internal/made_rows.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace ksutil::events {
namespace {

constexpr std::size_t kLargestBlock = std::size_t{1} << 18;

}  // namespace

db::RowText MadeRows::add(std::string_view row) {
  if (row.empty()) return {};
  if (used_ + row.size() > block_.size()) {
    const std::size_t room = std::min(2 * block_.size(), kLargestBlock);
    db::BlockPtr next =
        db::BlockPtr::make(std::max(room / row.size(), std::size_t{1}) * row.size());
    finish();
    block_ = std::move(next);
    used_ = 0;
  }
  std::memcpy(block_.fill() + used_, row.data(), row.size());
  db::RowText text(block_, used_, row.size());
  used_ += row.size();
  last_ = row.size();
  return text;
}

/* Fills the rest of the block with its last row, which packs best, and packs it. */
void MadeRows::finish() noexcept {
  if (!block_) return;
  for (; used_ < block_.size(); ++used_) {
    block_.fill()[used_] = block_.fill()[used_ - last_];
  }
  block_.release_raw();
}

}  // namespace ksutil::events
