/* Array<K, V>: a hash map that never fails on a missing key.
 *
 * A look-up of an absent key yields the default value, a value-initialised V, and
 * changes nothing.  Iteration follows the hash map's order and is not sorted.
 * Threads and errors: as Table. */
#ifndef KSUTIL_CORE_ARRAY_H
#define KSUTIL_CORE_ARRAY_H

#include <functional>
#include <unordered_map>
#include <utility>

#include "core/Table.h"

template <class K, class V>
class Array {
 public:
  /* A copy of the value under the key, or the default value. */
  V get(const K &key) const {
    const V *value = find(key);
    return value == nullptr ? V() : *value;
  }

  /* The address of the value under the key, null when it is absent; valid until the key
   * is removed. */
  const V *find(const K &key) const {
    const auto entry = entries_.find(key);
    return entry == entries_.end() ? nullptr : &entry->second;
  }
  V *find(const K &key) {
    const auto entry = entries_.find(key);
    return entry == entries_.end() ? nullptr : &entry->second;
  }

  /* Stores the value, replacing an earlier one. */
  void set(const K &key, V value) { entries_.insert_or_assign(key, std::move(value)); }

  bool contains(const K &key) const { return entries_.contains(key); }

  /* Removes the key and returns its value; the default value when it is absent. */
  V del(const K &key) {
    auto node = entries_.extract(key);
    return node.empty() ? V() : std::move(node.mapped());
  }

  /* All keys and all values, in one and the same order. */
  Table<K> keys() const {
    Table<K> table;
    table.reserve(size());
    for (const auto &entry : entries_) table.push(entry.first);
    return table;
  }
  Table<V> vals() const {
    Table<V> table;
    table.reserve(size());
    for (const auto &entry : entries_) table.push(entry.second);
    return table;
  }

  /* Calls fn(key, value, ctx) for each entry; fn must not change the array. */
  void apply(const std::function<void(const K &, const V &, void *)> &fn,
             void *ctx) const {
    for (const auto &entry : entries_) fn(entry.first, entry.second, ctx);
  }

  long size() const { return static_cast<long>(entries_.size()); }
  void clear() { entries_.clear(); }

 private:
  std::unordered_map<K, V> entries_;
};

#endif
