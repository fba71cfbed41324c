#include <algorithm>
#include <cctype>
#include <cstring>

#include "platform/stock/bytes.h"
#include "platform/stock/text.h"
#include "platform/trace/internal/list_format.h"

namespace ksutil {
namespace {

constexpr char kMagic[8] = {'k', 's', 'f', 'i', 'l', 't', 'b', 'l'};
constexpr std::uint32_t kVersion = 1;
constexpr std::uint32_t kByteOrder = 0x01020304;
constexpr std::size_t kVersionAt = 8, kByteOrderAt = 12, kElementSizeAt = 16;
constexpr std::size_t kTagAt = 24, kHeaderHashAt = 56;
constexpr std::size_t kStateNumbers = 6, kStateHashAt = 8 * kStateNumbers;

/* Room for a generation, or a sequence number, to grow by more than a machine can. */
constexpr std::uint64_t kMaxNumber = std::uint64_t{1} << 62;

constexpr std::uint32_t kHashStart = 2166136261U;

std::uint32_t hash(const std::uint8_t *bytes, std::size_t count,
                   std::uint32_t start = kHashStart) {
  for (std::size_t i = 0; i < count; ++i) start = (start ^ bytes[i]) * 16777619U;
  return start;
}

void put_number(std::uint32_t value, std::uint8_t *to) { hi2mi(&value, to, 1); }

std::uint32_t get_number(const std::uint8_t *from) {
  std::uint32_t value = 0;
  mi2hi(from, &value, 1);
  return value;
}

std::string get_tag(const ListHead &head) {
  const char *const tag = reinterpret_cast<const char *>(head.data() + kTagAt);
  std::string text(tag, strnlen(tag, kListTagSize));
  std::replace_if(
      text.begin(), text.end(),
      [](char c) { return std::isprint(static_cast<unsigned char>(c)) == 0; }, '?');
  return text;
}

bool decode_state(const std::uint8_t *from, ListState &state) {
  if (get_number(from + kStateHashAt) != hash(from, kStateHashAt)) return false;
  std::uint64_t numbers[kStateNumbers];
  md2hd(from, numbers, kStateNumbers);
  state = {numbers[0], numbers[1], numbers[2], numbers[3], numbers[4], numbers[5]};
  return true;
}

bool possible(const ListState &state, const ListKind &kind) {
  return state.generation < kMaxNumber && state.sequence < kMaxNumber &&
         state.maximum < kMaxNumber && state.capacity <= kind.max_slots() &&
         state.count <= state.capacity &&
         (state.count == 0 || state.first < state.capacity);
}

}  // namespace

ListHead empty_list_head(const ListKind &kind) {
  ListHead head{};
  std::copy(std::begin(kMagic), std::end(kMagic), head.begin());
  put_number(kVersion, &head[kVersionAt]);
  std::memcpy(&head[kByteOrderAt], &kByteOrder, sizeof kByteOrder);
  put_number(static_cast<std::uint32_t>(kind.element_size), &head[kElementSizeAt]);
  std::copy(kind.tag.begin(), kind.tag.end(), head.begin() + kTagAt);
  put_number(hash(head.data(), kHeaderHashAt), &head[kHeaderHashAt]);
  encode_state({}, &head[kListStatesAt]);
  return head;
}

std::string header_fault(const ListHead &head, const ListKind &kind) {
  if (!std::equal(std::begin(kMagic), std::end(kMagic), head.begin())) {
    return "is not a list file";
  }
  if (get_number(&head[kHeaderHashAt]) != hash(head.data(), kHeaderHashAt)) {
    return "is damaged in its header";
  }
  if (get_number(&head[kVersionAt]) != kVersion) {
    return format_text("is a list file of version %u", get_number(&head[kVersionAt]));
  }
  if (std::memcmp(&head[kByteOrderAt], &kByteOrder, sizeof kByteOrder) != 0) {
    return "is of a machine with another byte order";
  }
  const std::string tag = get_tag(head);
  const std::uint32_t element_size = get_number(&head[kElementSizeAt]);
  if (tag == kind.tag && element_size == kind.element_size) return "";
  return format_text("holds %s elements of %u bytes, not %s elements of %zu",
                     tag.c_str(), element_size, kind.tag.c_str(), kind.element_size);
}

std::string read_state(const ListHead &head, const ListKind &kind, ListState &state) {
  bool found = false;
  for (std::size_t at = kListStatesAt; at < kListSlotsAt; at += kListStateSize) {
    ListState read;
    if (!decode_state(&head[at], read) || state_offset(read) != at) continue;
    if (found && read.generation < state.generation) continue;
    state = read;
    found = true;
  }
  return found && possible(state, kind) ? "" : "is damaged in its counts";
}

void encode_state(const ListState &state, std::uint8_t *to) {
  const std::uint64_t numbers[kStateNumbers] = {state.generation, state.sequence,
                                                state.capacity,   state.first,
                                                state.count,      state.maximum};
  std::fill_n(to, kListStateSize, std::uint8_t{0});
  hd2md(numbers, to, kStateNumbers);
  put_number(hash(to, kStateHashAt), to + kStateHashAt);
}

std::size_t state_offset(const ListState &state) {
  return kListStatesAt + kListStateSize * (state.generation % 2);
}

void encode_entry_hash(std::uint64_t sequence, const std::uint8_t *element,
                       std::size_t size, std::uint8_t *to) {
  std::uint8_t number[8];
  hd2md(&sequence, number, 1);
  put_number(hash(element, size, hash(number, sizeof number)), to);
}

}  // namespace ksutil
