/* Table<T>: a growable list with indexes, which never fails on a bad index.
 *
 * Every table has a default value: reads outside the table yield it, and writes beyond
 * the end fill the gap with it.  Test results against the default (a null pointer, an
 * empty record) instead of catching errors.
 * A table takes the space of one pointer, and no memory while it is empty.
 * Threads: no locks; the owner guards a shared table.
 * Errors: nothing but std::bad_alloc is thrown (and what copying a T throws). */
#ifndef KSUTIL_CORE_TABLE_H
#define KSUTIL_CORE_TABLE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>  // for programs that count on it

template <class T>
class Table {
 public:
  /* The default value is a value-initialised T: null, 0, an empty record. */
  Table() = default;
  explicit Table(T nullval) {
    word_ = reinterpret_cast<std::uintptr_t>(new Default{std::move(nullval), nullptr}) +
            kOwnDefault;
  }

  Table(const Table &other) {
    OwnedItems copies = copy_of(other.items(), other.count());
    if (other.own_default() != nullptr) {
      word_ = reinterpret_cast<std::uintptr_t>(
                  new Default{other.own_default()->value, nullptr}) +
              kOwnDefault;
    }
    set_items(copies.release());
  }
  Table(Table &&other) noexcept : word_(std::exchange(other.word_, 0)) {}

  /* Replaces the items and keeps the destination's own default value.  The destination
   * is emptied first, without a check for self-assignment: a table assigned to itself
   * becomes empty. */
  Table &operator=(const Table &other) {
    clear();
    reserve(other.size());
    for (const T &item : other) push(item);
    return *this;
  }
  /* Takes the items only. */
  Table &operator=(Table &&other) noexcept {
    Items *const taken = other.items();
    other.set_items(nullptr);
    const OwnedItems old(items());
    set_items(taken);
    return *this;
  }
  ~Table() {
    const OwnedItems old(items());
    delete own_default();
  }

  long size() const { return static_cast<long>(count()); }

  /* A copy of item i, or of the default value. */
  T get(long i) const { return holds(i) ? begin()[i] : null_value(); }

  /* Stores at i, growing the table at once with default values when it is too short; a
   * negative i appends.  Returns the index stored at.  When memory is short the table
   * stays as it was. */
  long set(long i, T value) {
    if (i < 0 || i == size()) return push(std::move(value));
    if (i > size()) fill_up(index(i) + 1, null_value());
    begin()[i] = std::move(value);
    return i;
  }

  /* Appends; returns the new last index. */
  long push(T value) {
    if (count() == room()) move_to(room_for(count() + 1));
    std::construct_at(end(), std::move(value));
    return static_cast<long>(items()->count++);
  }

  /* Removes and returns item i, later items move down; the default value when there is
   * none. */
  T del(long i) {
    if (!holds(i)) return null_value();
    T value = std::move(begin()[i]);
    std::move(begin() + i + 1, end(), begin() + i);
    std::destroy_at(end() - 1);
    --items()->count;
    return value;
  }

  /* del(0). */
  T shift() { return del(0); }

  /* The address of item i, null outside the table; valid until the table changes. */
  T *ptr(long i) { return holds(i) ? begin() + i : nullptr; }
  const T *ptr(long i) const { return holds(i) ? begin() + i : nullptr; }

  T *begin() { return first(items()); }
  T *end() { return begin() + count(); }
  const T *begin() const { return first(items()); }
  const T *end() const { return begin() + count(); }

  /* Makes room for n items in all. */
  void reserve(long n) {
    if (n > 0 && index(n) > room()) move_to(index(n));
  }
  /* Frees the room for further items.  When there is no memory to move the items to,
   * the table stays as it is. */
  void shrink_to_fit() {
    if (count() == room()) return;
    try {
      if (count() > 0) {
        move_to(count());
      } else {
        const OwnedItems old(items());
        set_items(nullptr);
      }
    } catch (const std::bad_alloc &) {
      return;
    }
  }
  /* Keeps the room. */
  void clear() {
    if (items() == nullptr) return;
    std::destroy(begin(), end());
    items()->count = 0;
  }

 private:
  /* Stands before the items. */
  struct Items {
    std::size_t count, room;
  };
  /* A default value that is not T(), and the items of its table. */
  struct Default {
    T value;
    Items *items;
  };
  struct FreeItems {
    void operator()(Items *items) const {
      std::destroy_n(first(items), items->count);
      if constexpr (alignof(T) > __STDCPP_DEFAULT_NEW_ALIGNMENT__) {
        ::operator delete(items, std::align_val_t(alignof(T)));
      } else {
        ::operator delete(items);
      }
    }
  };
  using OwnedItems = std::unique_ptr<Items, FreeItems>;

  /* The bit of word_ that says that it points to a Default; else it points to Items. */
  static constexpr std::uintptr_t kOwnDefault = 1;

  static std::size_t index(long i) { return static_cast<std::size_t>(i); }
  static std::size_t item_bytes() {
    return sizeof(T);  // NOLINT(bugprone-sizeof-expression): T may be a pointer
  }
  static std::size_t bytes_before_items() {
    return (sizeof(Items) + alignof(T) - 1) / alignof(T) * alignof(T);
  }
  static std::size_t most_items() {
    return (index(std::numeric_limits<long>::max()) - bytes_before_items()) /
           item_bytes();
  }
  static T *first(Items *items) {
    return items == nullptr ? nullptr
                            : reinterpret_cast<T *>(reinterpret_cast<char *>(items) +
                                                    bytes_before_items());
  }
  /* No items yet, and room for some. */
  static OwnedItems make_room(std::size_t room) {
    if (room > most_items()) throw std::bad_alloc();
    const std::size_t bytes = bytes_before_items() + room * item_bytes();
    void *memory;
    if constexpr (alignof(T) > __STDCPP_DEFAULT_NEW_ALIGNMENT__) {
      memory = ::operator new(bytes, std::align_val_t(alignof(T)));
    } else {
      memory = ::operator new(bytes);
    }
    return OwnedItems(::new (memory) Items{0, room});
  }
  static OwnedItems copy_of(Items *items, std::size_t count) {
    if (count == 0) return nullptr;
    OwnedItems copies = make_room(count);
    std::uninitialized_copy_n(first(items), count, first(copies.get()));
    copies->count = count;
    return copies;
  }

  bool has_own_default() const { return (word_ & kOwnDefault) != 0; }
  Default *own_default() const {
    return has_own_default() ? reinterpret_cast<Default *>(word_ - kOwnDefault)
                             : nullptr;
  }
  Items *items() const {
    return has_own_default()
               ? reinterpret_cast<const Default *>(word_ - kOwnDefault)->items
               : reinterpret_cast<Items *>(word_);
  }
  void set_items(Items *items) {
    if (has_own_default()) {
      reinterpret_cast<Default *>(word_ - kOwnDefault)->items = items;
    } else {
      word_ = reinterpret_cast<std::uintptr_t>(items);
    }
  }
  std::size_t count() const {
    const Items *const held = items();
    return held == nullptr ? 0 : held->count;
  }
  std::size_t room() const {
    const Items *const held = items();
    return held == nullptr ? 0 : held->room;
  }
  bool holds(long i) const { return i >= 0 && i < size(); }
  T null_value() const { return own_default() == nullptr ? T() : own_default()->value; }

  /* Doubles the room, so that many items are moved seldom. */
  std::size_t room_for(std::size_t wanted) const {
    return std::max(wanted, std::min(2 * room(), most_items()));
  }
  void replace_items(OwnedItems fresh) {
    const OwnedItems old(items());
    set_items(fresh.release());
  }
  static constexpr bool moves_safely() {
    return std::is_nothrow_move_constructible_v<T> || !std::is_copy_constructible_v<T>;
  }
  /* Moves the items to other memory; if that fails they stay where they are. */
  void move_to(std::size_t room) {
    OwnedItems fresh = make_room(room);
    if constexpr (moves_safely()) {
      std::uninitialized_move(begin(), end(), first(fresh.get()));
    } else {
      std::uninitialized_copy(begin(), end(), first(fresh.get()));
    }
    fresh->count = count();
    replace_items(std::move(fresh));
  }
  void fill_up(std::size_t wanted, const T &value) {
    const std::size_t missing = wanted - count();
    if (wanted <= room()) {
      std::uninitialized_fill_n(end(), missing, value);
      items()->count = wanted;
      return;
    }
    OwnedItems fresh = make_room(room_for(wanted));
    T *const to = first(fresh.get());
    if constexpr (moves_safely()) {
      std::uninitialized_fill_n(to + count(), missing, value);
      std::uninitialized_move(begin(), end(), to);
    } else {
      std::uninitialized_copy(begin(), end(), to);
      fresh->count = count();
      std::uninitialized_fill_n(to + count(), missing, value);
    }
    fresh->count = wanted;
    replace_items(std::move(fresh));
  }

  std::uintptr_t word_ = 0;
};

#endif
