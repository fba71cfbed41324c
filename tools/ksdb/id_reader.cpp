#include "tools/ksdb/id_reader.h"

#include <algorithm>
#include <limits>

#include "platform/stock/text.h"

namespace ksutil::tools {
namespace {

constexpr std::int64_t kFirstText = std::numeric_limits<std::int64_t>::min();

/* Bits that cost as much as the id itself. */
constexpr std::uint64_t kBitsPerId = 64;

}  // namespace

std::int64_t TextNumbers::number(std::string_view text) {
  std::int64_t value = 0;
  if (parse_integer(text, value) && std::to_string(value) == text) return value;
  const auto [place, fresh] = numbers_.try_emplace(
      std::string(text), kFirstText + static_cast<std::int64_t>(texts_.size()));
  if (fresh) texts_.emplace_back(text);
  return place->second;
}

std::string TextNumbers::text(std::int64_t number) const {
  const auto index =
      static_cast<std::uint64_t>(number) - static_cast<std::uint64_t>(kFirstText);
  return index < texts_.size() ? texts_[index] : std::to_string(number);
}

IdReader::IdReader(const db::Relation &layout, const std::string &field,
                   TextNumbers &texts)
    : field_(layout.find(field)),
      number_(field_ != nullptr && (field_->type == db::FieldType::kInteger ||
                                    field_->type == db::FieldType::kYearday)),
      texts_(texts) {
  if (number_) integer_ = db::IntegerColumn(layout, field);
}

bool IdReader::read(std::string_view row, std::int64_t &id) const {
  if (number_) return integer_.read(row, id) && id != integer_.null();
  const auto at = static_cast<std::size_t>(field_->offset);
  if (at >= row.size()) return false;
  const std::string_view text =
      trimmed(row.substr(at, static_cast<std::size_t>(field_->width)));
  if (text.empty() || text == field_->null_text) return false;
  id = texts_.number(text);
  return true;
}

void IdSet::settle() {
  if (ids_.empty()) return;
  if (!std::is_sorted(ids_.begin(), ids_.end())) std::sort(ids_.begin(), ids_.end());
  ids_.erase(std::unique(ids_.begin(), ids_.end()), ids_.end());
  const std::uint64_t range = static_cast<std::uint64_t>(ids_.back()) -
                              static_cast<std::uint64_t>(ids_.front());
  if (range / kBitsPerId >= ids_.size()) return ids_.shrink_to_fit();
  first_ = ids_.front();
  bits_.resize(range + 1);
  for (const std::int64_t id : ids_)
    bits_[static_cast<std::size_t>(id - first_)] = true;
  ids_ = {};
}

bool IdSet::contains(std::int64_t id) const {
  if (bits_.empty()) return std::binary_search(ids_.begin(), ids_.end(), id);
  const std::uint64_t bit =
      static_cast<std::uint64_t>(id) - static_cast<std::uint64_t>(first_);
  return bit < bits_.size() && bits_[bit];
}

}  // namespace ksutil::tools
