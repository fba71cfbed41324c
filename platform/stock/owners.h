/* owners: frees platform lists and maps at the end of their scope, and goes through them.
 *
 * The owners are std::unique_ptr: make one from what a platform function returned as new
 * (`TblPtr keys(keysarr(map))`), hand the list out with release().  A null list is empty
 * in all functions.  Functions that say "throws" throw std::bad_alloc when memory is
 * short, and belong inside at_boundary of "platform/elog/failure.h". */
#ifndef KSUTIL_PLATFORM_STOCK_OWNERS_H
#define KSUTIL_PLATFORM_STOCK_OWNERS_H

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "platform/stock/arr.h"
#include "platform/stock/memory.h"
#include "platform/stock/tbl.h"

namespace ksutil {

/* Frees a list but not its items; a list and the malloced texts (or other blocks) in it. */
struct FreeTbl {
  void operator()(Tbl *list) const { freetbl(list, nullptr); }
};
struct FreeTblOfTexts {
  void operator()(Tbl *list) const { freetbl(list, std::free); }
};

/* Frees a map but not its values. */
struct FreeArr {
  void operator()(Arr *map) const { freearr(map, nullptr); }
};

/* A list whose items belong to somebody else, or are numbers. */
using TblPtr = std::unique_ptr<Tbl, FreeTbl>;

/* A list that owns its items, each of them one malloc block. */
using TblOfTexts = std::unique_ptr<Tbl, FreeTblOfTexts>;

/* A map whose values belong to somebody else. */
using ArrPtr = std::unique_ptr<Arr, FreeArr>;

/* Calls function(item) for each item of a list of T *, null items included, in order;
 * for_each<const char>(keys, ...) for a list of texts.  For a list of inline elements, T
 * is their type.  The function must not change the list. */
template <class T, class Function>
void for_each(Tbl *list, const Function &function) {
  const long count = counttbl(list);
  for (long i = 0; i < count; ++i) function(static_cast<T *>(gettbl(list, i)));
}

/* The items of a list of T *, in order; throws. */
template <class T>
std::vector<T *> to_vector(Tbl *list) {
  std::vector<T *> items;
  items.reserve(static_cast<std::size_t>(counttbl(list)));
  for_each<T>(list, [&items](T *item) { items.push_back(item); });
  return items;
}

/* The numbers in a list that holds them in the place of pointers, as the record numbers
 * that dbmatches gives; throws. */
inline std::vector<long> to_numbers(Tbl *list) {
  std::vector<long> numbers;
  numbers.reserve(static_cast<std::size_t>(counttbl(list)));
  for_each<void>(list, [&numbers](void *item) {
    numbers.push_back(static_cast<long>(reinterpret_cast<std::intptr_t>(item)));
  });
  return numbers;
}

/* A new empty list of pointers, never null; throws. */
inline TblPtr new_list(std::size_t hint = 0) {
  TblPtr list(newtbl(static_cast<long>(hint)));
  if (list == nullptr) throw std::bad_alloc();
  return list;
}

/* Appends an item that stays its owner's; throws.  Platform lists hold untyped pointers:
 * that a text is only read is a matter of the list's contract. */
inline void push_item(Tbl *list, const void *item) {
  if (pushtbl(list, const_cast<void *>(item)) < 0) throw std::bad_alloc();
}

/* A new list of the pointers in a range, whose items stay their owner's; a new list of
 * numbers in the place of pointers; both throw. */
template <class Items>
TblPtr from_items(const Items &items) {
  TblPtr list = new_list(std::size(items));
  for (const void *const item : items) push_item(list.get(), item);
  return list;
}
inline TblPtr from_numbers(const std::vector<long> &numbers) {
  TblPtr list = new_list(numbers.size());
  for (const long number : numbers) {
    push_item(list.get(), reinterpret_cast<const void *>(number));
  }
  return list;
}

/* A new list of copies of the texts, which it owns: `texts` is a range of std::string,
 * std::string_view or const char *; throws. */
template <class Texts>
TblOfTexts from_texts(const Texts &texts) {
  TblOfTexts list(new_list(std::size(texts)).release());
  for (const auto &item : texts) {
    const std::string_view text(item);
    MallocPtr<char> copy(static_cast<char *>(ks_malloc(text.size() + 1)));
    if (copy == nullptr) throw std::bad_alloc();
    copy.get()[text.copy(copy.get(), text.size())] = '\0';
    push_item(list.get(), copy.get());
    copy.release();
  }
  return list;
}

}  // namespace ksutil
#endif
