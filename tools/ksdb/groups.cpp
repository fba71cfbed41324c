#include "tools/ksdb/groups.h"

#include <algorithm>
#include <bit>

namespace ksutil::tools {
namespace {

constexpr std::uint64_t kSign = std::uint64_t{1} << 63;

void put_ordered_number(std::uint64_t number, std::string &key) {
  for (int shift = 56; shift >= 0; shift -= 8) {
    key += static_cast<char>((number >> shift) & 0xFFU);
  }
}

/* Appends a value so that keys compare, byte by byte, as their values do: a null is a zero
 * byte, other values begin with a one; a text ends with a zero byte, and a zero byte in it
 * is followed by one that is greater than the beginning of any value. */
void put_ordered_value(const expr::Value &value, std::string &key) {
  key += value.null ? '\0' : '\1';
  if (value.null) return;
  switch (value.type) {
    case expr::Type::kText:
      for (const char c : value.text) {
        key += c;
        if (c == '\0') key += '\xFF';
      }
      key += '\0';
      break;
    case expr::Type::kReal:
    case expr::Type::kTime: {
      /* Both zeros are one value. */
      const auto bits =
          std::bit_cast<std::uint64_t>(value.real == 0.0 ? 0.0 : value.real);
      put_ordered_number((bits & kSign) != 0 ? ~bits : bits | kSign, key);
      break;
    }
    case expr::Type::kInteger:
    case expr::Type::kBoolean:
      put_ordered_number(static_cast<std::uint64_t>(value.integer) ^ kSign, key);
      break;
  }
}

}  // namespace

bool Groups::read_key(const std::string_view *rows) {
  keys_.show(rows);
  key_.clear();
  expr::Value value;
  for (std::size_t i = 0; i < key_count_; i++) {
    if (!keys_.value(i, value)) return false;
    put_ordered_value(value, key_);
  }
  return true;
}

bool Groups::take(const std::string_view *rows) {
  if (!read_key(rows)) return false;
  if (groups_.empty() || groups_[last_].key != key_) {
    const auto [place, fresh] = places_.try_emplace(key_, groups_.size());
    last_ = place->second;
    if (fresh) {
      groups_.push_back({key_, {}, 0, figures_.none()});
      keys_.read(groups_.back().cells);
    }
  }
  Group &group = groups_[last_];
  group.count++;
  figures_.take(rows, group.figures);
  return true;
}

std::vector<Groups::Group> Groups::sorted() {
  places_.clear();
  std::vector<Group> groups = std::move(groups_);
  std::sort(groups.begin(), groups.end(),
            [](const Group &a, const Group &b) { return a.key < b.key; });
  return groups;
}

}  // namespace ksutil::tools
