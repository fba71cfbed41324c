/* Table<T>: a growable list with indexes, which never fails on a bad index.
 *
 * Every table has a default value: reads outside the table yield it, and writes beyond
 * the end fill the gap with it.  Test results against the default (a null pointer, an
 * empty record) instead of catching errors.
 * Threads: no locks; the owner guards a shared table.
 * Errors: nothing but std::bad_alloc is thrown (and what copying a T throws). */
#ifndef KSUTIL_CORE_TABLE_H
#define KSUTIL_CORE_TABLE_H

#include <cstddef>
#include <memory>
#include <new>
#include <utility>
#include <vector>

template <class T>
class Table {
 public:
  /* The default value is a value-initialised T: null, 0, an empty record. */
  Table() = default;
  explicit Table(T nullval) : nullval_(std::make_unique<T>(std::move(nullval))) {}

  Table(const Table &other) : items_(other.items_), nullval_(copy_of(other.nullval_)) {}
  Table(Table &&other) noexcept
      : items_(std::move(other.items_)), nullval_(std::move(other.nullval_)) {
    other.items_.clear();
  }

  /* Replaces the items and keeps the destination's own default value.  The destination
   * is emptied first, without a check for self-assignment: a table assigned to itself
   * becomes empty. */
  Table &operator=(const Table &other) {
    items_.clear();
    items_.reserve(other.items_.size());
    for (std::size_t i = 0; i < other.items_.size(); ++i) {
      items_.push_back(other.items_[i]);
    }
    return *this;
  }
  /* Takes the items only. */
  Table &operator=(Table &&other) noexcept {
    std::vector<T> taken = std::move(other.items_);
    other.items_.clear();
    items_ = std::move(taken);
    return *this;
  }
  ~Table() = default;

  long size() const { return static_cast<long>(items_.size()); }

  /* A copy of item i, or of the default value. */
  T get(long i) const { return holds(i) ? items_[index(i)] : null_value(); }

  /* Stores at i, growing the table at once with default values when it is too short; a
   * negative i appends.  Returns the index stored at.  When memory is short the table
   * stays as it was. */
  long set(long i, T value) {
    if (i < 0 || i == size()) return push(std::move(value));
    if (i > size()) {
      if (index(i) >= items_.max_size()) throw std::bad_alloc();
      items_.resize(index(i) + 1, null_value());
    }
    items_[index(i)] = std::move(value);
    return i;
  }

  /* Appends; returns the new last index. */
  long push(T value) {
    items_.push_back(std::move(value));
    return size() - 1;
  }

  /* Removes and returns item i, later items move down; the default value when there is
   * none. */
  T del(long i) {
    if (!holds(i)) return null_value();
    T value = std::move(items_[index(i)]);
    items_.erase(items_.begin() + i);
    return value;
  }

  /* del(0). */
  T shift() { return del(0); }

  /* The address of item i, null outside the table; valid until the table changes. */
  T *ptr(long i) { return holds(i) ? &items_[index(i)] : nullptr; }
  const T *ptr(long i) const { return holds(i) ? &items_[index(i)] : nullptr; }

  auto begin() { return items_.begin(); }
  auto end() { return items_.end(); }
  auto begin() const { return items_.begin(); }
  auto end() const { return items_.end(); }

  void reserve(long n) {
    if (n > 0) items_.reserve(index(n));
  }
  void clear() { items_.clear(); }

 private:
  static std::size_t index(long i) { return static_cast<std::size_t>(i); }
  static std::unique_ptr<T> copy_of(const std::unique_ptr<T> &value) {
    return value == nullptr ? nullptr : std::make_unique<T>(*value);
  }
  bool holds(long i) const { return i >= 0 && i < size(); }
  T null_value() const { return nullval_ == nullptr ? T() : *nullval_; }

  std::vector<T> items_;
  std::unique_ptr<T> nullval_;  // null: T()
};

#endif
