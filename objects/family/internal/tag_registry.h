/* The registry of one family of tag-addressed records: tag to record, and back. */
#ifndef KSUTIL_OBJECTS_FAMILY_INTERNAL_TAG_REGISTRY_H
#define KSUTIL_OBJECTS_FAMILY_INTERNAL_TAG_REGISTRY_H

#include <algorithm>
#include <cstdio>
#include <memory>
#include <new>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "objects/tags.h"
#include "platform/stock/arr.h"

namespace ksutil {

/* Does not own the records and logs nothing: the texts are those of the family.  One
 * thread at a time. */
template <class Record>
class TagRegistry {
 public:
  /* `word` begins every tag and outlives the registry. */
  explicit TagRegistry(const char *word) : word_(word) {}
  TagRegistry(const TagRegistry &) = delete;
  TagRegistry &operator=(const TagRegistry &) = delete;

  /* Makes the map when there is none yet; false when memory is short. */
  bool open() {
    if (records_ == nullptr) records_ = newarr(nullptr);
    return records_ != nullptr;
  }

  bool opened() const { return records_ != nullptr; }

  /* The record under a tag; null when the tag is null or unknown. */
  Record *find(const char *tag) const {
    return tag == nullptr ? nullptr : static_cast<Record *>(getarr(records_, tag));
  }

  /* Enters the record under the next tag and writes that tag into the buffer of
   * KS_TAG_SIZE bytes.  False, with the buffer empty and the counter as it was, when
   * memory is short; the map must be open. */
  bool add(Record *record, char *tag) {
    tag[0] = '\0';
    char next[KS_TAG_SIZE];
    std::snprintf(next, sizeof next, "%s%ld", word_, counter_);
    try {
      const auto entry = tags_.emplace(record, next);
      setarr(records_, next, record);
      if (containsarr(records_, next) == 0) {
        tags_.erase(entry);
        return false;
      }
    } catch (const std::bad_alloc &) {
      return false;
    }
    ++counter_;
    std::copy_n(next, sizeof next, tag);
    return true;
  }

  /* Forgets all tags of the record. */
  void remove(const Record *record) {
    const auto [first, last] = tags_.equal_range(record);
    for (auto entry = first; entry != last; ++entry) {
      delarr(records_, entry->second.c_str());
    }
    tags_.erase(first, last);
  }

  /* The registered records, each once, in the order of their tags as texts.  Throws
   * std::bad_alloc. */
  std::vector<Record *> records() const {
    const std::unique_ptr<Tbl, FreeList> tags(keysarr(records_));
    if (tags == nullptr && records_ != nullptr) throw std::bad_alloc();
    std::vector<Record *> found;
    std::unordered_set<const Record *> seen;
    for (long i = 0; i < counttbl(tags.get()); ++i) {
      Record *const record = find(static_cast<const char *>(gettbl(tags.get(), i)));
      if (seen.insert(record).second) found.push_back(record);
    }
    return found;
  }

 private:
  struct FreeList {
    void operator()(Tbl *list) const { freetbl(list, nullptr); }
  };

  const char *word_;
  long counter_ = 0;
  Arr *records_ = nullptr;  // tag to record
  std::unordered_multimap<const Record *, std::string> tags_;
};

}  // namespace ksutil
#endif
