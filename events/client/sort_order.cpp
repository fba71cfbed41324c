#include "events/client/internal/sort_order.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "events/query.h"

namespace ksutil::events {
namespace {

constexpr std::uint64_t kSignBit = std::uint64_t{1} << 63;

/* Maps a value to a number with the same order: all of an integer or a real, the first
 * eight bytes of a text.  Comparing numbers makes sorting fast. */
struct Key {
  std::uint64_t head;
  int index;
};

std::uint64_t integer_head(std::int64_t value) {
  return static_cast<std::uint64_t>(value) ^ kSignBit;
}

std::uint64_t real_head(double value) {
  const auto bits = std::bit_cast<std::uint64_t>(value + 0.0);  // no negative zero
  return (bits & kSignBit) != 0 ? ~bits : bits | kSignBit;
}

std::uint64_t text_head(const char *text) {
  std::uint64_t head = 0;
  bool ended = false;
  for (int i = 0; i < 8; i++) {
    ended = ended || text[i] == '\0';
    head = head << 8 | (ended ? 0U : static_cast<unsigned char>(text[i]));
  }
  return head;
}

bool is_real(const EVClient_sort_value &value) {
  return value.type == EV_DOUBLE && !std::isnan(value.d);
}

}  // namespace

Table<int> ascending_order(const std::vector<EVClient_sort_value> &values) {
  const auto has = [](auto test) {
    return [test](const EVClient_sort_value &v) { return v.status == 0 && test(v); };
  };
  const bool reals = std::any_of(values.begin(), values.end(), has(is_real));
  Table<int> order;
  order.reserve(static_cast<long>(values.size()));
  std::vector<Key> numbers, texts;
  for (std::size_t i = 0; i < values.size(); i++) {
    const EVClient_sort_value &value = values[i];
    const int index = static_cast<int>(i);
    if (value.status == 0 && value.type == EV_INTEGER) {
      const auto number = static_cast<double>(value.i);
      numbers.push_back({reals ? real_head(number) : integer_head(value.i), index});
    } else if (value.status == 0 && is_real(value)) {
      numbers.push_back({real_head(value.d), index});
    } else if (value.status == 0 && value.type == EV_TEXT) {
      texts.push_back({text_head(value.text), index});
    } else {
      order.push(index);
    }
  }
  /* The index is the last key, so that equal values keep their order. */
  std::sort(numbers.begin(), numbers.end(), [](const Key &a, const Key &b) {
    return a.head != b.head ? a.head < b.head : a.index < b.index;
  });
  std::sort(texts.begin(), texts.end(), [&values](const Key &a, const Key &b) {
    if (a.head != b.head) return a.head < b.head;
    const int compared = std::strncmp(values[static_cast<std::size_t>(a.index)].text,
                                      values[static_cast<std::size_t>(b.index)].text,
                                      sizeof EVClient_sort_value::text);
    return compared != 0 ? compared < 0 : a.index < b.index;
  });
  for (const Key &key : numbers) order.push(key.index);
  for (const Key &key : texts) order.push(key.index);
  return order;
}

}  // namespace ksutil::events
