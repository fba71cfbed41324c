/* SortKeys: holds the values of some keys of many records as integers, and sorts the
 * records by them.
 *
 * An integer stands in the order of the values it is made of, with nulls first; so 8 bytes
 * hold a value of any type.  Equal texts are kept once. */
#ifndef KSUTIL_PLATFORM_DB_VIEWS_INTERNAL_SORT_KEYS_H
#define KSUTIL_PLATFORM_DB_VIEWS_INTERNAL_SORT_KEYS_H

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "platform/expr/expr.h"

namespace ksutil::db {

/* Numbers for texts, in the order in which they first came. */
class TextCodes {
 public:
  std::uint32_t code(std::string_view text);
  std::size_t size() const { return ends_.size(); }
  std::string_view text(std::uint32_t code) const;

 private:
  std::size_t slot_of(std::string_view text) const;
  void grow();

  std::vector<char> bytes_;           // of all texts
  std::vector<std::size_t> ends_;     // of each text in bytes_
  std::vector<std::uint32_t> slots_;  // hash table of code + 1; 0 is free
};

class SortKeys {
 public:
  /* The types of the keys. */
  explicit SortKeys(const std::vector<expr::Type> &types);

  /* Adds a record with one value for each key. */
  void add(const std::vector<expr::Value> &values);

  /* Between the last add and the functions below. */
  void settle();

  /* Whether two records, by the order of their add, have equal keys. */
  bool equal(std::size_t a, std::size_t b) const;

  /* The records in the order of their keys, or with the greatest first; equal ones in the
   * order of their add. */
  std::vector<std::size_t> sorted(bool reverse) const;

 private:
  struct Column {
    expr::Type type;
    std::vector<std::uint64_t> values;
    TextCodes texts;  // of a text key, until settle()
    std::vector<std::size_t>
        least{};  // records with the least integer, which is as a null
  };
  static void rank_texts(Column &column);
  void separate_least(std::size_t index);

  std::size_t count_ = 0;
  std::vector<Column> columns_;
};

}  // namespace ksutil::db
#endif
