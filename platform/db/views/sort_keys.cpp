#include "platform/db/views/internal/sort_keys.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <limits>
#include <numeric>

namespace ksutil::db {
namespace {

constexpr std::uint64_t kSign = std::uint64_t{1} << 63;
constexpr std::uint64_t kNull = 0;

/* In the order of the numbers; the least one shares kNull. */
std::uint64_t ordered(std::int64_t value) {
  return static_cast<std::uint64_t>(value) ^ kSign;
}

/* In the order of the numbers, never kNull; both zeros are one. */
std::uint64_t ordered(double value) {
  const auto bits = std::bit_cast<std::uint64_t>(value == 0.0 ? 0.0 : value);
  return (bits & kSign) != 0 ? ~bits : bits | kSign;
}

bool is_text(expr::Type type) { return type == expr::Type::kText; }

}  // namespace

std::string_view TextCodes::text(std::uint32_t code) const {
  const std::size_t start = code == 0 ? 0 : ends_[code - 1];
  return {bytes_.data() + start, ends_[code] - start};
}

/* The place of the text, or the free place where it belongs. */
std::size_t TextCodes::slot_of(std::string_view text) const {
  const std::size_t mask = slots_.size() - 1;
  std::size_t slot = std::hash<std::string_view>()(text) & mask;
  while (slots_[slot] != 0 && this->text(slots_[slot] - 1) != text) {
    slot = (slot + 1) & mask;
  }
  return slot;
}

void TextCodes::grow() {
  constexpr std::size_t kFirstSize = 64;
  slots_.assign(std::max(kFirstSize, slots_.size() * 2), 0);
  for (std::uint32_t code = 0; code < ends_.size(); ++code) {
    slots_[slot_of(text(code))] = code + 1;
  }
}

std::uint32_t TextCodes::code(std::string_view text) {
  if ((ends_.size() + 1) * 4 > slots_.size() * 3) grow();
  std::uint32_t &slot = slots_[slot_of(text)];
  if (slot == 0) {
    bytes_.insert(bytes_.end(), text.begin(), text.end());
    ends_.push_back(bytes_.size());
    slot = static_cast<std::uint32_t>(ends_.size());
  }
  return slot - 1;
}

SortKeys::SortKeys(const std::vector<expr::Type> &types) {
  for (const expr::Type type : types) columns_.push_back({type, {}, {}});
}

void SortKeys::add(const std::vector<expr::Value> &values) {
  for (std::size_t k = 0; k < values.size(); ++k) {
    Column &column = columns_[k];
    const expr::Value &value = values[k];
    std::uint64_t number = kNull;
    if (value.null) {
      number = kNull;
    } else if (is_text(column.type)) {
      number = std::uint64_t{1} + column.texts.code(value.text);
    } else if (column.type == expr::Type::kReal || column.type == expr::Type::kTime) {
      number = ordered(value.real);
    } else {
      number = ordered(value.integer);
      if (number == kNull) column.least.push_back(count_);
    }
    column.values.push_back(number);
  }
  ++count_;
}

/* Replaces the codes of texts by their ranks. */
void SortKeys::rank_texts(Column &column) {
  const TextCodes &texts = column.texts;
  std::vector<std::uint32_t> order(texts.size());
  std::iota(order.begin(), order.end(), 0U);
  std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
    return texts.text(a) < texts.text(b);
  });
  std::vector<std::uint32_t> ranks(order.size());
  for (std::uint32_t rank = 0; rank < order.size(); ++rank) ranks[order[rank]] = rank;
  for (std::uint64_t &value : column.values) {
    if (value != kNull) value = std::uint64_t{1} + ranks[value - 1];
  }
  column.texts = {};
}

/* Tells the records with the least integer from those with a null by another column. */
void SortKeys::separate_least(std::size_t index) {
  Column other{expr::Type::kInteger, std::vector<std::uint64_t>(count_, 0), {}};
  for (const std::size_t record : columns_[index].least) other.values[record] = 1;
  columns_.insert(columns_.begin() + static_cast<std::ptrdiff_t>(index) + 1,
                  std::move(other));
}

void SortKeys::settle() {
  for (std::size_t k = columns_.size(); k-- > 0;) {
    if (is_text(columns_[k].type)) rank_texts(columns_[k]);
    if (!columns_[k].least.empty()) separate_least(k);
  }
}

bool SortKeys::equal(std::size_t a, std::size_t b) const {
  return std::all_of(columns_.begin(), columns_.end(), [a, b](const Column &column) {
    return column.values[a] == column.values[b];
  });
}

std::vector<std::size_t> SortKeys::sorted(bool reverse) const {
  struct Entry {
    std::uint64_t key;
    std::size_t record;
  };
  const std::uint64_t flip = reverse ? std::numeric_limits<std::uint64_t>::max() : 0;
  std::vector<Entry> entries(count_);
  for (std::size_t i = 0; i < count_; ++i) {
    entries[i] = {columns_.front().values[i] ^ flip, i};
  }
  const auto before = [&](const Entry &a, const Entry &b) {
    if (a.key != b.key) return a.key < b.key;
    for (std::size_t k = 1; k < columns_.size(); ++k) {
      const std::uint64_t of_a = columns_[k].values[a.record] ^ flip;
      const std::uint64_t of_b = columns_[k].values[b.record] ^ flip;
      if (of_a != of_b) return of_a < of_b;
    }
    return a.record < b.record;
  };
  if (!std::is_sorted(entries.begin(), entries.end(), before)) {
    std::sort(entries.begin(), entries.end(), before);
  }
  std::vector<std::size_t> order(count_);
  for (std::size_t i = 0; i < count_; ++i) order[i] = entries[i].record;
  return order;
}

}  // namespace ksutil::db
