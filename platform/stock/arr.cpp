#include "platform/stock/arr.h"

#include <cstring>
#include <map>
#include <new>
#include <utility>

#include "platform/stock/memory.h"

namespace ksutil::arr {

using Key = MallocPtr<char>;

/* Takes the map's nodes through the wrappers. */
template <class T>
struct SeamAllocator {
  using value_type = T;
  SeamAllocator() = default;
  template <class U>
  explicit SeamAllocator(const SeamAllocator<U> &) {}
  T *allocate(std::size_t n) {
    void *block = ks_malloc(n * sizeof(T));
    if (block == nullptr) throw std::bad_alloc();
    return static_cast<T *>(block);
  }
  void deallocate(T *block, std::size_t) { std::free(block); }
  bool operator==(const SeamAllocator &) const { return true; }
};

struct Order {
  using is_transparent = void;
  int (*compare)(const char *, const char *);

  static const char *text(const Key &key) { return key.get(); }
  static const char *text(const char *key) { return key; }
  template <class A, class B>
  bool operator()(const A &a, const B &b) const {
    return compare(text(a), text(b)) < 0;
  }
};

using Map = std::map<Key, void *, Order, SeamAllocator<std::pair<const Key, void *>>>;

}  // namespace ksutil::arr

struct Arr : ksutil::SeamAllocated {
  explicit Arr(int (*compare)(const char *, const char *))
      : map(ksutil::arr::Order{compare}) {}
  ksutil::arr::Map map;
};

Arr *newarr(int (*compare)(const char *, const char *)) {
  return new (std::nothrow) Arr(compare != nullptr ? compare : std::strcmp);
}

void *setarr(Arr *arr, const char *key, void *value) {
  if (arr == nullptr || key == nullptr) return nullptr;
  const auto found = arr->map.find(key);
  if (found != arr->map.end()) return std::exchange(found->second, value);
  ksutil::arr::Key copy(ks_strdup(key));
  if (!copy) return nullptr;
  try {
    arr->map.emplace(std::move(copy), value);
  } catch (const std::bad_alloc &) {
    /* The key stays absent, which containsarr shows. */
  }
  return nullptr;
}

void *getarr(Arr *arr, const char *key) {
  if (arr == nullptr || key == nullptr) return nullptr;
  const auto found = arr->map.find(key);
  return found == arr->map.end() ? nullptr : found->second;
}

void *delarr(Arr *arr, const char *key) {
  if (arr == nullptr || key == nullptr) return nullptr;
  const auto found = arr->map.find(key);
  if (found == arr->map.end()) return nullptr;
  void *value = found->second;
  arr->map.erase(found);
  return value;
}

int containsarr(Arr *arr, const char *key) {
  if (arr == nullptr || key == nullptr) return 0;
  return arr->map.find(key) != arr->map.end() ? 1 : 0;
}

Tbl *keysarr(Arr *arr) {
  Tbl *keys = newtbl(countarr(arr));
  if (arr == nullptr) return keys;
  for (const auto &entry : arr->map) {
    if (pushtbl(keys, entry.first.get()) < 0) {
      freetbl(keys, nullptr);
      return nullptr;
    }
  }
  return keys;
}

long countarr(Arr *arr) {
  return arr == nullptr ? 0 : static_cast<long>(arr->map.size());
}

void freearr(Arr *arr, void (*release)(void *)) {
  if (arr == nullptr) return;
  for (const auto &entry : arr->map) {
    if (release != nullptr && entry.second != nullptr) release(entry.second);
  }
  delete arr;
}
