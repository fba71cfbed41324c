/* list_format: encodes and checks the bytes of a list file; see filetbl.h for the layout. */
#ifndef KSUTIL_PLATFORM_TRACE_INTERNAL_LIST_FORMAT_H
#define KSUTIL_PLATFORM_TRACE_INTERNAL_LIST_FORMAT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace ksutil {

inline constexpr std::size_t kListTagSize = 32;
inline constexpr std::size_t kListStateSize = 64;
inline constexpr std::size_t kListStatesAt = 64;
inline constexpr std::size_t kListSlotsAt = 192;
inline constexpr std::size_t kListHashSize = 4;

/* No list file is larger, so that no number in one asks for unbounded memory. */
inline constexpr std::uint64_t kListMaxBytes = std::uint64_t{1} << 30;

using ListHead = std::array<std::uint8_t, kListSlotsAt>;  // header and both states

struct ListKind {
  std::string tag;
  std::size_t element_size;

  std::size_t slot_size() const { return element_size + kListHashSize; }
  std::uint64_t max_slots() const {
    return (kListMaxBytes - kListSlotsAt) / slot_size();
  }
};

struct ListState {
  std::uint64_t generation = 0;
  std::uint64_t sequence = 0;  // of the first entry
  std::uint64_t capacity = 0;  // slots of the ring
  std::uint64_t first = 0;     // slot of the first entry
  std::uint64_t count = 0;
  std::uint64_t maximum = 0;

  std::uint64_t slot(std::uint64_t i) const { return (first + i) % capacity; }
  bool wraps() const { return first + count > capacity; }
};

/* The beginning of a list without entries. */
ListHead empty_list_head(const ListKind &kind);

/* Why a header is not one of that kind; "" when it is. */
std::string header_fault(const ListHead &head, const ListKind &kind);

/* Why a head has no state that holds; "", with the state, when it has one. */
std::string read_state(const ListHead &head, const ListKind &kind, ListState &state);

/* The kListStateSize bytes of a state, and where in the file they belong. */
void encode_state(const ListState &state, std::uint8_t *to);
std::size_t state_offset(const ListState &state);

/* The hash behind an element. */
void encode_entry_hash(std::uint64_t sequence, const std::uint8_t *element,
                       std::size_t size, std::uint8_t *to);

}  // namespace ksutil
#endif
