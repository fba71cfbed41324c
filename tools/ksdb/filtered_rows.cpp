#include "tools/ksdb/filtered_rows.h"

#include <algorithm>
#include <bit>
#include <new>

#include "platform/elog/elog.h"

namespace ksutil::tools {
namespace {

/* Bytes of a window: so many that two threads pay, so few that its first rows are soon
 * shown. */
constexpr std::size_t kWindowBytes = std::size_t{32} << 20;

}  // namespace

/* A power of two of records, which is a number of whole blocks of their table. */
FilteredRows::FilteredRows(db::ViewRows &rows)
    : rows_(rows),
      window_records_(static_cast<long>(std::bit_floor(
          std::max(kWindowBytes / std::max(rows.record_bytes(), std::size_t{1}),
                   std::size_t{1})))) {}

int FilteredRows::compile(Dbptr view, const std::vector<std::string> &texts) {
  for (Conditions &conditions : conditions_) {
    if (const int code = conditions.compile(view, texts); code != kOk) return code;
  }
  return kOk;
}

bool FilteredRows::take(unsigned sharer, long first, std::size_t count,
                        std::string_view rows) noexcept {
  const ElogScope quiet;
  const std::size_t length = rows.size() / count;
  try {
    auto verdict = window_.begin() + (first - first_);
    for (; !rows.empty(); rows.remove_prefix(length), ++verdict) {
      const std::string_view row = rows.substr(0, length);
      const int accepted = conditions_[sharer].accepts(&row);
      *verdict = {static_cast<std::int8_t>(accepted), static_cast<std::uint8_t>(sharer),
                  static_cast<std::uint32_t>(texts_[sharer].size()),
                  static_cast<std::uint32_t>(length)};
      if (accepted > 0) texts_[sharer] += row;
    }
    return true;
  } catch (const std::bad_alloc &) {
    return false;
  }
}

void FilteredRows::open_window() {
  first_ = next_;
  const long end = std::min(first_ + window_records_, rows_.count());
  window_.assign(static_cast<std::size_t>(end - first_), Verdict());
  for (std::string &texts : texts_) texts.clear();
  for (const db::RowRange &left : rows_.scan(*this, {first_, end})) {
    std::fill(window_.begin() + (left.first - first_),
              window_.begin() + (left.end - first_), Verdict());
  }
}

int FilteredRows::next(const std::string_view *&found) {
  if (next_ >= first_ + static_cast<long>(window_.size())) open_window();
  const Verdict &verdict = window_[static_cast<std::size_t>(next_ - first_)];
  const long record = next_++;
  if (verdict.accepted == kUntried) {
    found = rows_.read(record);
    return found == nullptr ? -1 : conditions_[0].accepts(found);
  }
  if (verdict.accepted > 0) {
    found_ =
        std::string_view(texts_[verdict.sharer]).substr(verdict.place, verdict.length);
    found = &found_;
  }
  return verdict.accepted;
}

}  // namespace ksutil::tools
